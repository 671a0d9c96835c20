-- Files and directories by name, in a save area and a bundle.
local check = require "check"

local function save(name, text)
  local file = file_text_open_write(name)
  file_text_write_string(file, text)
  file_text_close(file)
end

local function load_text(name)
  local file = file_text_open_read(name)
  local text = file_text_read_string(file)
  file_text_close(file)
  return text
end

check.equal(file_exists("lines.txt"), 1)
check.equal(file_delete("lines.txt"), 0, "a shipped file")
check.equal(file_exists("lines.txt"), 1)

save("slot1.sav", "hero")
check.equal(file_copy("slot1.sav", "backup/deep/slot1.sav"), 0)
check.equal(load_text("backup/deep/slot1.sav"), "hero")
check.equal(file_copy("slot1.sav", "backup/../slot1.sav"), 0, "onto itself")
check.equal(load_text("slot1.sav"), "hero")
check.equal(file_copy("lines.txt", "copied.txt"), 0)
check.equal(file_copy("missing", "x/y"), -1)
check.equal(directory_exists("x"), 1)

check.equal(file_rename("slot1.sav", "slot2.sav"), 1)
check.equal(file_exists("slot1.sav"), 0)
check.equal(file_rename("slot1.sav", "slot3.sav"), nil, "a name that is not saved")
check.equal(file_rename("slot2.sav", "no folder/slot2.sav"), 0)
check.equal(load_text("slot2.sav"), "hero")

check.equal(directory_create("a/b/c"), 1)
check.equal(directory_exists("a/b"), 1)
check.equal(directory_create("slot2.sav/x"), 0)
directory_destroy("a")
check.equal(directory_exists("a"), 0)
directory_destroy(".")
check.equal(file_exists("slot2.sav"), 1, "after destroying the root")

check.equal(file_attributes("slot2.sav", 0), 32)
check.equal(file_attributes("missing", 0), 0)

for _, name in ipairs { "..", "../x", "/etc/passwd", "a/../../x", "", "\\..\\..\\x" } do
  check.equal(file_exists(name), 0, name)
  check.equal(file_delete(name), 0, name)
  check.equal(file_copy("slot2.sav", name), -1, name)
  check.equal(file_copy(name, "x"), -1, name)
  check.equal(file_rename("slot2.sav", name), 0, name)
  check.equal(directory_create(name), 0, name)
  directory_destroy(name)
end
check.equal(load_text("slot2.sav"), "hero")
