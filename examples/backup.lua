-- Backs up a game's save files.
--
--   ./kx run examples/backup.lua         a new backup, the last three are kept
--   ./kx run examples/backup.lua 10      ... the last ten
--
-- Each run copies what it finds by a mask into a folder with the date in its name, compares every copy with its original
-- byte by byte, gives it its final name only then, and removes the oldest backups. At the first run there is nothing to
-- back up yet, so it plays a little first.

local SLOTS = "slots/"
local BACKUPS = "backups/"
local MASK = "*.sav"
local UNFINISHED = ".part"
local DIRECTORIES = 16 -- the attribute that asks a search for them

local kept = math.tointeger(tonumber(parameter_string(1)) or 3)
if not kept or kept < 1 then error("how many backups to keep has to be a whole number above 0", 0) end

-- All names that a mask finds. The list is whole before the first name is used: one search is open at a time.
local function find(mask, attributes)
  local names = {}
  local name = file_find_first(mask, attributes)
  while name ~= "" do
    names[#names + 1] = name
    name = file_find_next()
  end
  file_find_close()
  return names
end

local function open(name, mode)
  local file = file_bin_open(name, mode)
  if file == -1 then error("cannot open " .. name, 0) end
  return file
end

-- A level that was played: a longer save file with other bytes in it.
local function play(slot)
  local name = SLOTS .. slot .. ".sav"
  local file = open(name, 2)
  file_bin_seek(file, file_bin_size(file))
  for _ = 1, math.random(500, 3000) do
    file_bin_write_byte(file, math.random(0, 255))
  end
  file_bin_close(file)
end

-- A byte at a time from both files, until they differ or end.
local function is_same(first_name, second_name)
  local first, second = open(first_name, 0), open(second_name, 0)
  local size = file_bin_size(first)
  local same = file_bin_size(second) == size
  for _ = 1, same and size or 0 do
    if file_bin_read_byte(first) ~= file_bin_read_byte(second) then
      same = false
      break
    end
  end
  file_bin_close(first)
  file_bin_close(second)
  return same, math.tointeger(size)
end

-- A name of its own for each backup, in the order of time; several may begin in one second.
local function new_folder()
  local base = BACKUPS .. os.date("%Y-%m-%d_%H-%M-%S")
  local last = 0
  for _, name in ipairs(find(base .. "*", DIRECTORIES)) do
    last = math.max(last, tonumber(name:match("_(%d+)$")) or 1)
  end
  return last == 0 and base .. "/" or string.format("%s_%02d/", base, last + 1)
end

-- A copy that is not whole never has the name of one that is.
local function back_up(name, folder)
  local original, copy = SLOTS .. name, folder .. name
  if file_copy(original, copy .. UNFINISHED) ~= 0 then error("cannot copy " .. original, 0) end
  local same, size = is_same(original, copy .. UNFINISHED)
  if not same then error("the copy of " .. original .. " differs from it", 0) end
  if file_rename(copy .. UNFINISHED, copy) ~= 1 then error("cannot rename " .. copy .. UNFINISHED, 0) end
  return size
end

local function prune()
  local folders = {}
  for _, name in ipairs(find(BACKUPS .. "*", DIRECTORIES)) do
    if directory_exists(BACKUPS .. name) == 1 then folders[#folders + 1] = name end
  end
  table.sort(folders)
  local removed = 0
  while #folders > kept do
    directory_destroy(BACKUPS .. table.remove(folders, 1))
    removed = removed + 1
  end
  return folders, removed
end

for slot = 1, 3 do
  if file_exists(SLOTS .. slot .. ".sav") == 0 then play(slot) end
end
play(math.random(1, 3))

local folder = new_folder()
print("Backing up to " .. folder)
print()
print(string.format("  %-12s %10s   %s", "file", "bytes", "copy"))
local total = 0
local names = find(SLOTS .. MASK, 0)
for _, name in ipairs(names) do
  local size = back_up(name, folder)
  total = total + size
  print(string.format("  %-12s %10d   %s", filename_change_ext(name, ""), size, "same, byte by byte"))
end
print(string.format("  %-12s %10d", #names .. " files", total))
print()

local folders, removed = prune()
print(string.format("Backups kept: %d, removed: %d", #folders, removed))
for _, name in ipairs(folders) do
  print(string.format("  %s   %d files", name, #find(BACKUPS .. name .. "/" .. MASK, 0)))
end
