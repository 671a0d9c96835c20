-- Loads what the bundle has, reads and writes every key, and saves. The save goes again: the next run starts alike.
local sections, keys = {}, {}
for s = 1, 2000 do sections[s] = string.format("section%04d", s - 1) end
for k = 1, 20 do keys[k] = string.format("key%02d", k - 1) end

ini_open("settings.ini")
local sum = 0
for s = 1, #sections do
  for k = 1, #keys do
    sum = sum + ini_read_real(sections[s], keys[k], 0)
  end
end
for s = 1, #sections do
  for k = 1, #keys do
    ini_write_real(sections[s], keys[k], s + k / 32)
  end
end
local last = ini_read_real(sections[#sections], keys[#keys], 0)
ini_close()
file_delete("settings.ini")
print(string.format("%.6f %.6f", sum, last))
