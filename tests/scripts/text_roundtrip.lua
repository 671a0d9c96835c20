-- What is written is read back: texts, numbers, line by line.
local check = require "check"

local out = file_text_open_write("sub/folder/save.txt")
check.equal(out, 1)
file_text_write_string(out, "name=ä and \t tabs")
file_text_writeln(out)
for _, number in ipairs { 1.5, -2, 1e6, 3 } do
  file_text_write_real(out, number)
end
file_text_writeln(out)
file_text_close(out)

local file = file_text_open_read("sub/folder/save.txt")
check.equal(file, 1, "the number is free again")
check.equal(file_text_read_string(file), "name=ä and \t tabs")
check.equal(file_text_eoln(file), 1)
check.equal(file_text_eof(file), 0)
check.equal(file_text_readln(file), "\n")
for _, number in ipairs { 1.5, -2, 1e6, 3 } do
  check.equal(file_text_read_real(file), number)
end
check.equal(file_text_readln(file), " \n")
check.equal(file_text_eof(file), 1)
check.equal(file_text_readln(file), "", "at the end")
file_text_close(file)
