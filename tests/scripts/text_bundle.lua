-- Files of the bundle are read, and appended to in a copy.
local check = require "check"

local file = file_text_open_read("lines.txt")
local lines = {}
while file_text_eof(file) == 0 do
  lines[#lines + 1] = file_text_readln(file)
end
file_text_close(file)
check.equal(table.concat(lines, "|"), "first\n|second\n|\n|last without an end")

local numbers = file_text_open_read("numbers.txt")
check.equal(file_text_readln(numbers), "# levels\r\n")
check.equal(file_text_read_real(numbers), 1)
check.equal(file_text_read_real(numbers), 2.5)
check.equal(file_text_read_real(numbers), -3)
check.equal(file_text_eoln(numbers), 1)
check.equal(file_text_read_real(numbers), 1000)
file_text_close(numbers)

local copy = file_text_open_append("lines.txt")
file_text_write_string(copy, "\nmine")
file_text_close(copy)
local again = file_text_open_read("lines.txt")
for _ = 1, 4 do file_text_readln(again) end
check.equal(file_text_readln(again), "mine")
file_text_close(again)
