-- An online leaderboard: reads the scores, posts one, and downloads what belongs to them.
--
--   python3 examples/leaderboard_server.py                       in one terminal: the server, on this machine only
--   ./kx run examples/leaderboard.lua                            in another
--   ./kx run examples/leaderboard.lua http://127.0.0.1:9000      where the server was given another port
--
-- A request returns at once, and its answer comes later as an event. kx.await waits for the one that the next line
-- needs; what nobody waits for goes to kx.on_async. A script ends when its last request has been answered.

local SERVER = parameter_count() > 1 and parameter_string(1) or "http://127.0.0.1:8080"
local PATIENCE = 10 -- seconds
local PLAYER = "Robin"

-- Who the player is on this machine, and what the last game was worth. Each run plays a slightly better one.
local function play()
  ini_open("player.ini")
  local points = ini_read_real("game", "points", 2500) + 250
  local key = ini_read_string("player", "key", "")
  -- It keeps others from posting under this name: a game with more at stake has its server make the key.
  if key == "" then key = string.format("%016x%016x", math.random(0), math.random(0)) end
  ini_write_real("game", "points", points)
  ini_write_string("player", "key", key)
  ini_close()
  return points, key
end

-- Failures are of three kinds: no answer at all (no http_status), an answer that says no (404 and its like), and one
-- that broke off or could not be written (status -1).
local function check(event)
  if event.http_status == 0 then
    error(string.format("no answer from %s: start the server first, in another terminal:\n"
      .. "  python3 examples/leaderboard_server.py\n"
      .. "or name the one that runs: ./kx run examples/leaderboard.lua http://127.0.0.1:PORT", SERVER), 0)
  end
  if event.http_status >= 400 then
    error(string.format("%s says %d: %s", event.url, event.http_status, event.result), 0)
  end
  if event.status < 0 then error(event.url .. " broke off, or cannot be written", 0) end
end

local function wait_for(id)
  local event, reason = kx.await(id, PATIENCE)
  if not event then error(string.format("%s does not answer: %s", SERVER, reason), 0) end
  check(event)
  return event
end

-- An answer's JSON as a plain table.
local function decode(event)
  local kind = event.response_headers["content-type"] or "nothing"
  local id = kind == "application/json" and json_decode(event.result) or -1
  if id == -1 then error(string.format("%s sends %s, which is no JSON", event.url, kind), 0) end
  local map = kx.map(id)
  local copy = kx.table(map)
  kx.destroy(map, true)
  return copy
end

-- A text as a part of a URL.
local function escape(text)
  return (text:gsub("[^%w-]", function(byte) return string.format("%%%02X", byte:byte()) end))
end

local function post_score(points, key)
  local entry = kx.map { name = PLAYER, points = points }
  local headers = kx.map { ["Content-Type"] = "application/json", ["X-Player-Key"] = key }
  local id = http_request(SERVER .. "/scores", "POST", headers, json_encode(entry))
  kx.destroy(entry) -- the request has its own copy
  kx.destroy(headers)
  return decode(wait_for(id))
end

local function show(scores)
  print("  rank  player                  points")
  for rank, score in ipairs(scores) do
    local mark = score.name == PLAYER and "  <- you" or ""
    print(string.format("  %4d  %-20s  %8d%s", rank, score.name, score.points, mark))
  end
end

-- What to do with the answers that nobody waits for, by the requests' ids.
local handlers = {}

-- Its arguments are maps of the game, which are gone after the call: take from them what is to stay.
kx.on_async(function(event)
  check(event)
  handlers[event.id](event)
end)

local function download_banner()
  handlers[http_get_file(SERVER .. "/banner.txt", "news/banner.txt")] = function(event)
    local file = file_text_open_read(event.result) -- the full name of the file, which is there whole or not at all
    print("News: " .. file_text_read_string(file))
    file_text_close(file)
  end
end

-- An answer goes into a buffer where the body is an empty one: bytes of any value, unlike a text.
local function download_replay(name)
  local buffer, headers = kx.buffer(), kx.map()
  local id = http_request(SERVER .. "/replay/" .. escape(name), "GET", headers, buffer)
  kx.destroy(headers)
  handlers[id] = function(event)
    local moves, counts = kx.bytes(buffer), { 0, 0, 0, 0 }
    kx.destroy(buffer)
    for i = 1, #moves do counts[moves:byte(i) + 1] = counts[moves:byte(i) + 1] + 1 end
    print(string.format("Replay of %s: %d moves: %d up, %d right, %d down, %d left", name, event.sizeDownloaded,
      table.unpack(counts)))
  end
end

local before = decode(wait_for(http_get(SERVER .. "/scores"))).scores
print(string.format("%s has %d players; the best is %s.", SERVER, #before, before[1].name))

local points, key = play()
local place = post_score(points, key)
print(string.format("%s plays for %d points: rank %d.", PLAYER, points, place.rank))

local scores = decode(wait_for(http_get(SERVER .. "/scores"))).scores
show(scores)
download_banner()
download_replay(scores[1].name)
print("Until the downloads are here the game goes on.")
