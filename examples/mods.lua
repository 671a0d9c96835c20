-- Mods for a game: archives that anybody may make, each with a table of items.
--
--   ./kx run examples/mods.lua
--
-- Every mods/*.zip is unpacked, the shipped ones and those that a player has put into the save area, and its items.csv
-- is read. What a later mod says about an item replaces what an earlier one says. One that is broken is skipped, and
-- the game goes on with the others.
--
-- The same game as one file, which finds the mods inside itself:
--
--   cp mods.lua main.lua && zip -r game.zip main.lua mods/*.zip && kxrun game.zip

local MODS = "mods/"
local UNPACKED = "unpacked/"
local COLUMNS = { "id", "name", "price" } -- what a table of items has to have, in any order

-- The mods' names, in the order in which they count: save area first, so they have to be sorted.
local function find_mods()
  local mods = {}
  local name = file_find_first(MODS .. "*.zip", 0)
  while name ~= "" do
    mods[#mods + 1] = filename_change_ext(name, "")
    name = file_find_next()
  end
  file_find_close()
  table.sort(mods)
  return mods
end

-- The folder with a mod's files; or nil, and why there is none. It is emptied first, so that nothing of an older
-- version is left in it. A mod writes nowhere else, whatever the names in its archive are.
local function unpack_mod(mod)
  local folder = UNPACKED .. mod .. "/"
  directory_destroy(folder)
  if zip_unzip(MODS .. mod .. ".zip", folder) ~= -1 then return folder end
  directory_destroy(folder) -- files that were unpacked before the fault was met
  return nil, "its archive is broken; the line on standard error says where"
end

-- A table's rows, each as { column = cell }; or nil, and what is wrong.
local function load_rows(name)
  local id = load_csv(name)
  if id == -1 then return nil, "it has no items.csv that can be read" end
  local grid = kx.grid(id)
  local lines = kx.table(grid) -- a plain copy; the grid itself can go
  kx.destroy(grid)

  local header = table.remove(lines, 1) or {}
  local number_of = {}
  for i, column in ipairs(header) do number_of[column] = i end
  local rows = {}
  for _, column in ipairs(COLUMNS) do
    if not number_of[column] then return nil, "its items.csv has no column " .. column end
    for i, line in ipairs(lines) do
      rows[i] = rows[i] or {}
      rows[i][column] = line[number_of[column]]
    end
  end
  return rows
end

-- Cells are strings. A number in one has to be asked for.
local function add_items(items, mod, rows)
  for _, row in ipairs(rows) do
    local price = math.tointeger(tonumber(row.price))
    if not price then
      print(string.format('  %s: the price "%s" is no whole number; left out', row.id, row.price))
    else
      local before = items[row.id]
      if before then
        print(string.format("  %s: replaces that of %s, price %d -> %d", row.id, before.mod, before.price, price))
      end
      items[row.id] = { name = row.name, price = price, mod = mod }
    end
  end
end

-- Blanks after a text, up to a width in characters: "%-10s" counts bytes.
local function pad(text, width)
  return text .. (" "):rep(width - (utf8.len(text) or #text))
end

local function show(items)
  local lines = { { "item", "name", "price", "mod" } }
  for id, item in pairs(items) do lines[#lines + 1] = { id, item.name, tostring(item.price), item.mod } end
  table.sort(lines, function(a, b) return b ~= lines[1] and (a == lines[1] or a[1] < b[1]) end)
  local widths = { 0, 0, 0, 0 }
  for _, line in ipairs(lines) do
    for i, text in ipairs(line) do widths[i] = math.max(widths[i], utf8.len(text) or #text) end
  end
  for _, line in ipairs(lines) do
    print(string.format("  %s  %s  %" .. widths[3] .. "s  %s", pad(line[1], widths[1]), pad(line[2], widths[2]),
      line[3], line[4]))
  end
end

local items = {}
for _, mod in ipairs(find_mods()) do
  local rows
  local folder, problem = unpack_mod(mod)
  if folder then rows, problem = load_rows(folder .. "items.csv") end
  if rows then
    print(string.format("%s: %d items", mod, #rows))
    add_items(items, mod, rows)
  else
    print(string.format("%s: skipped: %s", mod, problem))
  end
end
print()
show(items)
