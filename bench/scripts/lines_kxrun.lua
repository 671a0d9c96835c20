-- Reads every line of lines.txt and counts them.
local file = file_text_open_read("lines.txt")
local count = 0
while file_text_eof(file) == 0 do
  local line = file_text_readln(file)
  count = count + 1
end
file_text_close(file)
print(count)
