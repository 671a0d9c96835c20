-- A save's text: decoded to maps and lists, parsed to structs and arrays, or written again, so many times.
local work, times = parameter_string(1), tonumber(parameter_string(2))

local lines = {}
local file = file_text_open_read("save.json")
while file_text_eof(file) == 0 do
  lines[#lines + 1] = file_text_read_string(file)
  file_text_readln(file)
end
file_text_close(file)
local text = table.concat(lines, "\n")

local works = {}

function works.decode()
  local save = kx.map(json_decode(text))
  local name = save.player.name
  kx.destroy(save, true)
  return name
end

function works.parse()
  return json_parse(text).player.name
end

local parsed = work == "stringify" and json_parse(text)
function works.stringify()
  return #json_stringify(parsed) > #text / 2
end

for _ = 1, times - 1 do works[work]() end
print(works[work]())
