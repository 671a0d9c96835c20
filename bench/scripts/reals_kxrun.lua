-- Adds up the numbers of reals.txt, one a line.
local file = file_text_open_read("reals.txt")
local sum = 0
for _ = 1, 1000000 do
  sum = sum + file_text_read_real(file)
end
file_text_close(file)
print(string.format("%.6f", sum))
