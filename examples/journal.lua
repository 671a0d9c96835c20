-- A journal that grows by one entry each time it runs.
--
--   ./kx run examples/journal.lua                      writes an entry, answers taken from a list
--   ./kx run examples/journal.lua "I found a key."     writes an entry with your own words
--
-- It reads the questions from a text file that the game ships (the bundle area: this folder), and keeps the journal in
-- the save area, where only this script writes.

local JOURNAL = "journal/entries.txt"
local TOTALS = "journal/totals.txt"
local PROMPTS = "data/prompts.txt"

local ANSWERS = { "A brass key.", "Nobody but the crows.", "The green one.", "Sleep late.", "More rain." }

-- All lines of a text file without their line ends, or nil where there is no such file.
local function read_lines(name)
  local file = file_text_open_read(name)
  if file == -1 then return nil end
  local lines = {}
  while file_text_eof(file) == 0 do
    lines[#lines + 1] = file_text_read_string(file)
    file_text_readln(file)
  end
  file_text_close(file)
  return lines
end

local function read_prompts()
  local prompts = {}
  for _, line in ipairs(assert(read_lines(PROMPTS), PROMPTS .. " is missing from the bundle")) do
    if line ~= "" and line:sub(1, 1) ~= "#" then prompts[#prompts + 1] = line end
  end
  return prompts
end

-- Two numbers on one line: entries written, words written.
local function read_totals()
  file_text_close(file_text_open_append(TOTALS)) -- makes an empty file at the first run, from which zeros are read
  local file = file_text_open_read(TOTALS)
  assert(file ~= -1, "cannot read " .. TOTALS)
  local entries, words = file_text_read_real(file), file_text_read_real(file)
  file_text_close(file)
  return entries, words
end

-- Replaced whole at the close: a crash leaves the old numbers or the new ones.
local function write_totals(entries, words)
  local file = file_text_open_write(TOTALS)
  assert(file ~= -1, "cannot write " .. TOTALS)
  file_text_write_real(file, entries)
  file_text_write_real(file, words)
  file_text_writeln(file)
  file_text_close(file)
end

local function append_entry(number, prompt, answer)
  local file = file_text_open_append(JOURNAL)
  assert(file ~= -1, "cannot append to " .. JOURNAL)
  file_text_write_string(file, string.format("%d. %s", number, os.date("%Y-%m-%d %H:%M")))
  file_text_writeln(file)
  file_text_write_string(file, "   " .. prompt .. " " .. answer)
  file_text_writeln(file)
  file_text_close(file)
end

local function count_words(text)
  local _, count = text:gsub("%S+", "")
  return count
end

local prompts = read_prompts()
local entries, words = read_totals()
local number = math.tointeger(entries) + 1
local prompt = prompts[entries % #prompts + 1]
local answer = parameter_count() > 1 and parameter_string(1) or ANSWERS[entries % #ANSWERS + 1]

append_entry(number, prompt, answer)
write_totals(number, words + count_words(answer))

print(string.format("Entry %d is in the journal.", number))
print("  " .. prompt .. " " .. answer)
print()
print("The last entries:")
local journal = read_lines(JOURNAL)
for i = math.max(1, #journal - 5), #journal do
  print("  " .. journal[i])
end
print()
print(string.format("%d questions shipped, %d entries and %d words kept so far.", #prompts, number,
  math.tointeger(words + count_words(answer))))
print("Run it again: the journal goes on where it stopped.")
