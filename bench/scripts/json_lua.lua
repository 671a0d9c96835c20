-- The same work with cjson: Lua tables for both kinds of value.
local cjson = require "cjson"
local work, times = arg[1], tonumber(arg[2])

local file = io.open("save.json")
local text = file:read("a")
file:close()

local works = {}

function works.decode()
  return cjson.decode(text).player.name
end

works.parse = works.decode

local parsed = work == "stringify" and cjson.decode(text)
function works.stringify()
  return #cjson.encode(parsed) > #text / 2
end

for _ = 1, times - 1 do works[work]() end
print(works[work]())
