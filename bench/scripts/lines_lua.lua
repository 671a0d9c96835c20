-- Reads every line of lines.txt and counts them.
local count = 0
for line in io.lines("lines.txt") do
  count = count + 1
end
print(count)
