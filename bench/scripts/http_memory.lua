-- Reads the answers of so many GETs of one URL and prints how many of them waited for it, at the most.
local url, requests = parameter_string(1), tonumber(parameter_string(2))
local left, most, bytes = requests, 0, 0

kx.on_async(function(event)
  if event.http_status ~= 200 then error(event.url .. " failed", 0) end
  most = math.max(most, 1 + bench_undelivered()) -- this one is on its way
  bytes = bytes + #event.result
  left = left - 1
  if left == 0 then print(math.tointeger(most)) end
end)

for _ = 1, requests do http_get(url) end
