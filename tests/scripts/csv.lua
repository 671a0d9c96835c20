-- CSV files and the grids that they become.

local function fails(text, f, ...)
  local ok, message = pcall(f, ...)
  assert(not ok, "no error: " .. text)
  assert(message:find(text, 1, true), message)
end

local function write(name, text)
  local file = file_text_open_write(name)
  assert(file ~= -1)
  file_text_write_string(file, text)
  file_text_close(file)
end

-- Loads a text, and gives it as a table of tables.
local function load_text(text)
  write("table.csv", text)
  local grid = kx.grid(load_csv("table.csv"))
  local rows = kx.table(grid)
  kx.destroy(grid)
  return rows
end

local function joined(rows)
  local lines = {}
  for i, row in ipairs(rows) do lines[i] = table.concat(row, "|") end
  return table.concat(lines, "\n")
end

-- Cells are strings, in rows and columns from 1.
write("data/items.csv", 'id,name,price\r\n1,"Sword, long",120\r\n2,"The ""Shield""",80\r\n3,Potion\r\n')
local id = load_csv("data/items.csv")
assert(math.type(id) == "float" and id >= 1)
local grid = kx.grid(id)
assert(kx.type(grid) == "grid" and kx.id(grid) == id and kx.grid(id) == grid)
assert(#grid == 4 and #grid[1] == 3 and #grid[4] == 3)
assert(grid[1][1] == "id" and grid[1][3] == "price")
assert(grid[2][2] == "Sword, long" and grid[3][2] == 'The "Shield"')
assert(grid[2][3] == "120" and grid[2][3] + 1 == 121) -- Lua's arithmetic takes strings that are numbers
assert(grid[4][2] == "Potion" and grid[4][3] == "")
assert(grid[0] == nil and grid[5] == nil and grid[1][0] == nil and grid[1][4] == nil)

local names = {}
for i, row in ipairs(grid) do names[i] = row[2] end
assert(table.concat(names, ";") == 'name;Sword, long;The "Shield";Potion')
local cells = 0
for _, row in pairs(grid) do
  for _, cell in pairs(row) do
    assert(type(cell) == "string")
    cells = cells + 1
  end
end
assert(cells == 12)

-- A cell takes any value; the file stays as it is.
grid[2][3] = 99.5
grid[4][3] = "new"
grid[3][1] = kx.null
grid[3][3] = kx.list { 1, 2 }
assert(grid[2][3] == 99.5 and grid[4][3] == "new" and grid[3][1] == kx.null and grid[3][3][2] == 2)
assert(grid[2][2] == "Sword, long" and grid[3][2] == 'The "Shield"' and grid[4][2] == "Potion")
fails("rows cannot be set", function() grid[1] = {} end)
fails("kx.grid", function() grid[1][4] = "beside it" end)
fails("the value is a function", function() grid[1][1] = print end)
assert(grid[1][1] == "id")
local rows = kx.table(grid)
assert(type(rows) == "table" and #rows == 4 and rows[2][3] == 99.5 and rows[3][3][1] == 1 and rows[4][2] == "Potion")
rows[1][1] = "changed"
assert(grid[1][1] == "id")
kx.destroy(grid[3][3])

local again = kx.grid(load_csv("data\\items.csv"))
assert(again ~= grid and again[2][3] == "120")
kx.destroy(again)
kx.destroy(grid)
fails("has been freed", function() return #grid end)
fails("there is no grid", kx.grid, id)

-- Texts and their tables.
for text, expected in pairs {
  ["a,b\nc,d\n"] = "a|b\nc|d",
  ["a,b\nc"] = "a|b\nc|",
  ["\n"] = "",
  ['"a\nb","c\r\nd"\n'] = "a\nb|c\r\nd",
  ['a"b,"c"d\n'] = 'a"b|cd',
  ["\xEF\xBB\xBFa, b "] = "a| b ",
} do
  assert(joined(load_text(text)) == expected, text)
end
assert(#load_text("") == 0 and #load_text("\n") == 1)

-- What is no table is -1, and a line on standard error; what is no name is an error.
for _, text in ipairs { '"never closed', 'a,b\n"' } do
  write("broken.csv", text)
  assert(load_csv("broken.csv") == -1)
end
for _, name in ipairs { "missing.csv", "data", "", "../table.csv" } do assert(load_csv(name) == -1) end
for _, name in ipairs { 5, true, kx.null } do fails("load_csv - parameter should be a filename", load_csv, name) end
fails("there is no grid", kx.grid, -1)

-- Many at a time, and again.
for _ = 1, 3 do
  local grids = {}
  for i = 1, 100 do
    write("table.csv", i .. ",x")
    grids[i] = kx.grid(load_csv("table.csv"))
  end
  for i = 1, 100 do
    assert(grids[i][1][1] == tostring(i))
    kx.destroy(grids[i])
  end
end
