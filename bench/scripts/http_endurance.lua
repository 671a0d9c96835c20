-- Requests of every outcome, so many at a time: answers, answers that there is nothing, connections that are reset, and
-- a server that says nothing. Prints memory and descriptors after a tenth and at the end, when all so far have ended.
--
-- Parameters: the URL of a file, of a server that resets, of one that is silent, and how many requests.
local good, reset, silent = parameter_string(1), parameter_string(2), parameter_string(3)
local total = tonumber(parameter_string(4))
local missing = good .. ".missing"
local AT_A_TIME = 200

local started, ended = 0, 0
local pause = total // 10 -- where nothing new is started until all have ended
local resident = {}       -- KB, the last five times, the last first
local outcomes = { answers = 0, not_found = 0, broken_off = 0, without_answer = 0 }

-- Of a hundred: 79 answers, 10 that there is nothing, 10 resets, 1 silence.
local function url_of(i)
  if i % 100 == 0 then return silent end
  if i % 10 == 1 then return reset end
  return i % 10 == 2 and missing or good
end

local function outcome_of(event)
  if event.status < 0 then return event.http_status == 0 and "without_answer" or "broken_off" end
  return event.http_status == 404 and "not_found" or "answers"
end

local function start_some()
  while started < pause and started - ended < AT_A_TIME do
    started = started + 1
    http_get(url_of(started))
  end
end

local function measure()
  collectgarbage()
  collectgarbage()
  table.insert(resident, 1, bench_resident())
  resident[6] = nil
end

-- What an allocator keeps goes up and down: the median counts.
local function show()
  local sorted = table.move(resident, 1, #resident, 1, {})
  table.sort(sorted)
  print(string.format("%d requests: %d KB, %d descriptors", ended, sorted[#sorted // 2 + 1], bench_descriptors()))
end

kx.on_async(function(event)
  local outcome = outcome_of(event)
  outcomes[outcome] = outcomes[outcome] + 1
  ended = ended + 1
  if ended % (total // 100) == 0 then measure() end
  if ended == pause then
    show()
    pause = total
  end
  start_some()
  if ended == total then
    print(string.format("%d answers, %d not found, %d broken off, %d without an answer", outcomes.answers,
      outcomes.not_found, outcomes.broken_off, outcomes.without_answer))
  end
end)

bench_set_stall(100)
start_some()
