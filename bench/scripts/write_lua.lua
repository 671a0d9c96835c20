-- Writes 1,000,000 lines.
local file = io.open("written.txt", "w")
for _ = 1, 1000000 do
  file:write("a line of a save file")
  file:write("\n")
end
file:close()
