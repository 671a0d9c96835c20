-- Writes 16 MB byte by byte.
local file = io.open("written.bin", "wb")
for i = 1, 16 << 20 do
  file:write(string.char(i & 255))
end
file:close()
