-- Misuse is a script error with a fixed text, and a failed open is -1.
local check = require "check"

check.equal(file_text_open_read("missing.txt"), -1)
check.equal(file_text_open_read("../check.lua"), -1)
check.equal(file_text_open_write("../escaped.txt"), -1)
check.equal(file_text_open_from_string(5), -1)
check.fails("Trying to close text file that has not been opened.", file_text_close, 0)
check.fails("File is not opened for reading.", file_text_eof, 1)
check.fails("File is not opened for reading.", file_text_readln, 0 / 0)
check.fails("File not opened for writing.", file_text_writeln, "one")
check.fails("file_text_open_read takes 1 argument, but 0 given", file_text_open_read)
check.fails("file_text_open_read: argument 1 is a string with a zero byte", file_text_open_read, "a\0b")

-- A loop that never closes ends at the table's end.
local opened = 0
local ok, message = pcall(function()
  while true do
    file_text_open_write("file" .. opened .. ".txt")
    opened = opened + 1
  end
end)
check.equal(ok, false)
check.equal(opened, 31)
check.equal(message:match("Cannot open another file %(maximum exceeded%)%."), "Cannot open another file (maximum exceeded).")
