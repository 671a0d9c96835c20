-- A text in memory is read like a file and never written.
local check = require "check"

local file = file_text_open_from_string("10 20\nend")
check.equal(file_text_read_real(file) + file_text_read_real(file), 30)
check.equal(file_text_readln(file), "\n")
check.equal(file_text_read_string(file), "end")
check.fails("File not opened for writing.", file_text_write_string, file, "x")
file_text_close(file)
