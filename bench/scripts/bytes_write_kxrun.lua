-- Writes 16 MB byte by byte.
local file = file_bin_open("written.bin", 1)
for i = 1, 16 << 20 do
  file_bin_write_byte(file, i & 255)
end
file_bin_close(file)
