-- File search from a script.
local check = require "check"

local function find(mask, attributes)
  local names = {}
  local name = file_find_first(mask, attributes or 0)
  while name ~= "" do
    names[#names + 1] = name
    name = file_find_next()
  end
  file_find_close()
  return table.concat(names, " ")
end

for _, name in ipairs { "b.sav", "a.sav", "note.txt", ".hidden.sav", "folder/in.sav", "lines.txt" } do
  file_text_close(file_text_open_write(name))
end

check.equal(find("*.sav"), "a.sav b.sav")
check.equal(find("?.sav"), "a.sav b.sav")
check.equal(find("*.sav", 2), ".hidden.sav a.sav b.sav")
check.equal(find("*", 16), "a.sav b.sav folder lines.txt note.txt check.lua numbers.txt")
check.equal(find("*.*"), "a.sav b.sav lines.txt note.txt check.lua numbers.txt")
check.equal(find("folder/*"), "in.sav")
check.equal(find("nothing*"), "")
check.equal(find("../*"), "")
check.equal(file_find_next(), "")

-- What is found may be deleted on the way.
local name = file_find_first("*.sav", 0)
while name ~= "" do
  check.equal(file_delete(name), 1, name)
  name = file_find_next()
end
check.equal(find("*.sav"), "")
