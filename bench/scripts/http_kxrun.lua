-- GETs one URL so many times and prints how many answers came and their bytes.
local url, requests = parameter_string(1), tonumber(parameter_string(2))
local answers, bytes = 0, 0

kx.on_async(function(event)
  if event.http_status ~= 200 then error(event.url .. " failed", 0) end
  answers = answers + 1
  bytes = bytes + #event.result
  if answers == requests then print(answers .. " " .. bytes) end
end)

for _ = 1, requests do http_get(url) end
