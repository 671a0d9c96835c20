-- Loads a table: how many rows it has, and a few of its cells.
local grid = kx.grid(load_csv("big.csv"))
print(#grid)
for row = 1, #grid, 10000 do print(grid[row][1], grid[row][10]) end
