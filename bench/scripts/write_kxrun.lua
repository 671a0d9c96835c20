-- Writes 1,000,000 lines.
local file = file_text_open_write("written.txt")
for _ = 1, 1000000 do
  file_text_write_string(file, "a line of a save file")
  file_text_writeln(file)
end
file_text_close(file)
