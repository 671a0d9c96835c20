-- Adds up the numbers of reals.txt, one a line.
local file = io.open("reals.txt")
local sum = 0
for _ = 1, 1000000 do
  sum = sum + file:read("n")
end
file:close()
print(string.format("%.6f", sum))
