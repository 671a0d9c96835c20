-- File names taken apart.
local check = require "check"

local name = "C:/games/data/save.ini"
check.equal(filename_name(name), "save.ini")
check.equal(filename_ext(name), ".ini")
check.equal(filename_drive(name), "C:")
check.equal(filename_dir(name), "C:/games/data")
check.equal(filename_path(name), "C:/games/data/")
check.equal(filename_path("data\\save.ini"), "data\\")
check.equal(filename_change_ext("a.txt", ".dat"), "a.dat")
check.equal(filename_change_ext("a.txt", "dat"), "adat")
check.equal(filename_change_ext("a", "dat"), "a.dat")
check.equal(filename_path("missing.ini"), "")

-- A bare name that is there gives its folder, which is a name too.
file_text_close(file_text_open_write("save.ini"))
check.equal(filename_path("save.ini"), filename_dir("save.ini") .. "/")
check.equal(file_exists(filename_path("save.ini") .. "save.ini"), 1)
check.equal(file_exists(filename_path("lines.txt") .. "numbers.txt"), 1)
check.fails("null string passed to filename_dir", filename_dir, nil)
check.fails("null string passed to filename_path", filename_path, nil)
check.equal(filename_name(nil), "")
