-- Microseconds, medians of so many requests one after another: of the script's thread in http_get, and from the last
-- byte of an answer to the handler of its event. Before them come some that nobody counts.
local requests = tonumber(parameter_string(1))
local url, warm_up = bench_url(), 100
local calls, deliveries = {}, {}

local function start()
  local before = bench_now()
  http_get(url)
  calls[#calls + 1] = bench_now() - before
end

local function median(times)
  local counted = table.move(times, warm_up + 1, #times, 1, {})
  table.sort(counted)
  return counted[(#counted + 1) // 2]
end

kx.on_async(function(event)
  local now = bench_now()
  if event.http_status ~= 200 then error("no answer", 0) end
  deliveries[#deliveries + 1] = now - bench_sent(#deliveries + 1)
  if #deliveries < warm_up + requests then return start() end
  print(string.format("%.3f %.3f", median(calls), median(deliveries)))
end)

start()
