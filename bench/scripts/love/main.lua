-- Reads every line of lines.txt and counts them.
local count = 0
for line in love.filesystem.lines("lines.txt") do
  count = count + 1
end
print(count)
love.event.quit()
