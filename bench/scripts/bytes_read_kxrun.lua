-- Adds up the bytes of a file.
local file = file_bin_open("bytes.bin", 0)
local sum = 0
for _ = 1, file_bin_size(file) do
  sum = sum + file_bin_read_byte(file)
end
file_bin_close(file)
print(string.format("%d", sum))
