-- The settings of a game: an INI file with comments, which the bundle ships and the player changes.
--
--   ./kx run examples/settings.lua                             tries some changes
--   ./kx run examples/settings.lua audio.music=0.5 player=Ada  sets these keys; "display.title=" empties one
--   ./kx run examples/settings.lua -display.title              takes a key away
--   ./kx run examples/settings.lua reset                       goes back to what the game ships
--
-- The first change makes a copy in the save area, under the same name: from then on it is found first.

local SETTINGS = "data/settings.ini"

local function read_lines(name)
  local lines, file = {}, file_text_open_read(name)
  if file == -1 then error("cannot read " .. name, 0) end
  while file_text_eof(file) == 0 do
    lines[#lines + 1] = file_text_read_string(file)
    file_text_readln(file)
  end
  file_text_close(file)
  return lines
end

-- "section.key" as two texts; a key without a section has the section "".
local function split(name)
  local section, key = name:match("^([^.]*)%.([^.].*)$")
  if not section and name:find(".", 1, true) then error('not a name: "' .. name .. '"; write section.key', 0) end
  return section or "", key or name
end

-- "section.key=value" sets a key, "-section.key" takes it away.
local function change(parameter)
  local name, value = parameter:match("^([^=-][^=]*)=(.*)$")
  local gone = parameter:match("^%-([^=]+)$")
  if not (name or gone) then error('not a change: "' .. parameter .. '"; write section.key=value', 0) end
  local section, key = split(name or gone)
  if name then
    ini_write_string(section, key, value)
  elseif ini_key_exists(section, key) == 1 then
    ini_key_delete(section, key)
  else
    error('there is no key "' .. gone .. '"', 0)
  end
end

-- Numbers are written with six decimals. A text is kept as it is, line breaks, quotes and blanks included.
local function try_some_changes()
  ini_write_real("audio", "music", ini_read_real("audio", "music", 1) / 2)
  ini_write_string("player", "motto", 'Two lines,\nand "quotes".')
  ini_write_string("keys", "map", "M")
  ini_key_delete("display", "limit")
end

-- Prints the lines that only one of two texts has, in the order of the texts: the longest sequence of common lines is
-- what did not change.
local function print_difference(before, after)
  local common = {} -- common[i][j]: lines in common from before[i] and after[j] on
  for i = #before + 1, 1, -1 do
    common[i] = {}
    for j = #after + 1, 1, -1 do
      if i > #before or j > #after then
        common[i][j] = 0
      elseif before[i] == after[j] then
        common[i][j] = common[i + 1][j + 1] + 1
      else
        common[i][j] = math.max(common[i + 1][j], common[i][j + 1])
      end
    end
  end

  local i, j = 1, 1
  while i <= #before or j <= #after do
    if i <= #before and j <= #after and before[i] == after[j] then
      i, j = i + 1, j + 1
    else
      local removed = j > #after or (i <= #before and common[i + 1][j] >= common[i][j + 1])
      print(string.format("  %3d  %s %s", removed and i or j, removed and "-" or "+", removed and before[i] or after[j]))
      if removed then i = i + 1 else j = j + 1 end
    end
  end
  print(string.format("  %d of %d lines are as they were.", common[1][1], #before))
end

if parameter_string(1) == "reset" then
  if parameter_count() > 2 then error('"reset" stands alone', 0) end
  print(file_delete(SETTINGS) == 1 and "The settings are the shipped ones again." or "Nothing was changed so far.")
  return
end

local before = read_lines(SETTINGS)
ini_open(SETTINGS)
for i = 1, parameter_count() - 1 do change(parameter_string(i)) end
if parameter_count() == 1 then try_some_changes() end
ini_close() -- on the disk now, whole

print(SETTINGS .. ", line by line:")
print_difference(before, read_lines(SETTINGS))

-- A default says what a missing key counts as. It may be of any kind: read as a text it is printed.
ini_open(SETTINGS)
print("The game reads:")
local function show(section, key, default)
  local read = type(default) == "number" and ini_read_real or ini_read_string
  local value = read(section, key, default)
  local shown = type(value) == "string" and string.format("%q", value) or value
  local origin = ini_key_exists(section, key) == 1 and "" or "   (default)"
  local name = section == "" and key or section .. "." .. key
  print(string.format("  %-18s %s%s", name, shown, origin))
end
show("", "player", "Nobody")
show("display", "width", 640)
show("display", "limit", 0)
show("display", "title", "Untitled")
show("display", "fullscreen", false)
show("display", "sizes", { 640, 1280, 1920 })
show("audio", "music", 1.0)
show("audio", "device", nil)
show("keys", "map", "M")
show("player", "motto", "-")
show("folders", "shots", "shots")
ini_close()
