-- Adds up the bytes of a file.
local file = io.open("bytes.bin", "rb")
local size = file:seek("end")
file:seek("set")
local sum = 0
for _ = 1, size do
  sum = sum + string.byte(file:read(1))
end
file:close()
print(string.format("%d", sum))
