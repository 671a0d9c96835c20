-- Binary files from a script: bytes, positions, modes, misuse.
local check = require "check"

local function read_all(name)
  local file = file_bin_open(name, 0)
  local bytes = {}
  for i = 1, file_bin_size(file) do
    bytes[i] = string.char(math.tointeger(file_bin_read_byte(file)))
  end
  file_bin_close(file)
  return table.concat(bytes)
end

-- Written, read back, changed in place.
local file = file_bin_open("data/bytes.bin", 1)
check.equal(file, 1)
for byte = 0, 255 do
  file_bin_write_byte(file, byte)
end
file_bin_write_byte(file, 256)
file_bin_write_byte(file, -1)
check.equal(file_bin_position(file), 258)
file_bin_close(file)
local written = read_all("data/bytes.bin")
check.equal(#written, 258)
check.equal(written:byte(1), 0)
check.equal(written:byte(256), 255)
check.equal(written:byte(257), 0)
check.equal(written:byte(258), 255)

file = file_bin_open("data/bytes.bin", 2)
file_bin_seek(file, 65)
check.equal(file_bin_read_byte(file), 65)
file_bin_write_byte(file, 0x2A)
file_bin_seek(file, 300)
check.equal(file_bin_size(file), 258)
file_bin_write_byte(file, 1)
check.equal(file_bin_size(file), 301)
file_bin_close(file)
check.equal(read_all("data/bytes.bin"):byte(67), 0x2A)

file = file_bin_open("data/bytes.bin", 0)
file_bin_rewrite(file)
file_bin_write_byte(file, 7)
file_bin_close(file)
check.equal(read_all("data/bytes.bin"), "\7")

-- The bundle is read, and written to the save area.
check.equal(read_all("lines.txt"):sub(1, 5), "first")
file = file_bin_open("lines.txt", 2)
file_bin_write_byte(file, 0x46)
file_bin_close(file)
check.equal(read_all("lines.txt"):sub(1, 5), "First")
check.equal(file_delete("lines.txt"), 1)
check.equal(read_all("lines.txt"):sub(1, 5), "first")

-- Misuse is an error with a fixed text, a failed open is -1.
check.equal(file_bin_open("missing.bin", 0), -1)
check.equal(file_bin_open("../escaped.bin", 1), -1)
check.fails("Trying to close unopened file.", file_bin_close, 1)
check.fails("Trying to rewrite unopened file.", file_bin_rewrite, 0)
check.fails("File is not opened.", file_bin_read_byte, 32)
check.fails("File is not opened.", file_bin_write_byte, -1, 0)
file = file_bin_open("data/bytes.bin", 0)
check.equal(file_bin_read_byte(file), 7)
check.fails("Error reading byte.", file_bin_read_byte, file)
file_bin_close(file)

-- A loop that never closes ends at the table's end.
local opened = 0
while file_bin_open("many/" .. opened, 1) ~= -1 do
  opened = opened + 1
end
check.equal(opened, 31)
