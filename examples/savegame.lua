-- A game that is kept in a JSON file: loaded, brought up to date, played for one turn, saved.
--
--   ./kx run examples/savegame.lua         goes on with the saved game
--   ./kx run examples/savegame.lua new     starts a new one; the old one stays beside it
--
-- The bundle ships where every player starts, data/savegame.json, once written by version 1 of this game. The player's
-- save has the same name: reading finds it first, in the save area. A file that is no saved game is put aside.

local SAVE = "data/savegame.json"
local WHOLE = "whole number"

-- What has to be in a save of each version: for the old ones what their upgrade uses, for the last one everything. A
-- shape is a type, { shape } for a list, or the shapes of a map's members.
local SHAPES = {
  { items = { "string" } },
  { playtime = WHOLE, x = WHOLE, y = WHOLE },
  {
    version = WHOLE, player = "string", id = WHOLE, gold = WHOLE, playtime = WHOLE, seed = WHOLE, saves = WHOLE,
    position = { x = WHOLE, y = WHOLE },
    inventory = { { name = "string", count = WHOLE } },
    quests = { { name = "string", step = WHOLE, steps = WHOLE } },
  },
}
local VERSION = #SHAPES

-- JSON gives floats, and integers only for values that no float has: ask whether a number is whole, not for its type.
local function type_of(value)
  return math.type(value) and math.tointeger(value) and WHOLE or kx.type(value)
end

-- Raises an error that names the first value without its shape.
local function check(value, shape, name)
  local wanted = type(shape) == "string" and shape or shape[1] and "list" or "map"
  local found = type_of(value)
  if found ~= wanted then error(string.format("%s should be a %s (here: %s)", name, wanted, found), 0) end
  for key in pairs(wanted == "list" and value or wanted == "map" and shape or {}) do
    check(value[key], shape[1] or shape[key], name .. "." .. key)
  end
end

local function add_item(game, name)
  for _, item in pairs(game.inventory) do
    if item.name == name then
      item.count = item.count + 1
      return
    end
  end
  game.inventory[#game.inventory + 1] = kx.map { name = name, count = 1 }
end

-- upgrades[n] turns a save of version n into one of version n + 1.
local upgrades = {
  -- Items were a list of names; now each kind is a map with its count.
  function(game)
    local items = game.items
    game.inventory = kx.list()
    for _, name in pairs(items) do add_item(game, name) end
    game.items = nil
    kx.destroy(items) -- what leaves its map is not freed with it
  end,

  -- Minutes became seconds, and two numbers a position.
  function(game)
    game.playtime = game.playtime * 60
    game.position = kx.map { x = game.x, y = game.y }
    game.x, game.y = nil, nil
    game.seed, game.saves = 0, 0
  end,
}

local function upgrade(game)
  local first = game.version
  check(first, WHOLE, "version")
  for version = math.tointeger(first), VERSION do
    check(game, SHAPES[version] or error("there was no version " .. version, 0), "game")
    if version == VERSION then break end
    upgrades[version](game)
    game.version = version + 1
  end
  if first < VERSION then print(string.format("Upgraded from version %d to %d.", first, VERSION)) end
end

-- The game as a map, which the caller destroys; or nil, and what is wrong with the file.
local function load_game(name)
  local file = file_text_open_read(name)
  if file == -1 then return nil, "it cannot be read" end
  local lines = {}
  while file_text_eof(file) == 0 do lines[#lines + 1] = file_text_readln(file) end
  file_text_close(file)

  local id = json_decode(table.concat(lines))
  if id == -1 then return nil, "it is not JSON, or not all of it is there" end
  local game = kx.map(id)
  if type_of(game.version) == WHOLE and game.version > VERSION then
    error(string.format("%s is of version %d: it needs a newer game, and stays as it is", name, game.version), 0)
  end
  local ok, problem = pcall(upgrade, game)
  if ok then return game end
  kx.destroy(game, true)
  return nil, problem
end

-- Takes the player's file out of the way, so that reading finds the shipped one. False where there is only that.
local function put_aside(ending)
  if file_rename(SAVE, SAVE .. ending) ~= 1 then return false end
  print(string.format("%s is now %s; the game starts anew.", SAVE, SAVE .. ending))
  return true
end

local function is_same(a, b)
  local kind = kx.type(a)
  if kind ~= "map" and kind ~= "list" then return a == b end
  if kx.type(b) ~= kind or #a ~= #b then return false end
  for key, value in pairs(a) do
    if not is_same(value, b[key]) then return false end
  end
  return true
end

-- A close writes a file whole, even if the power fails. What it holds is read back before it takes the good save's
-- place, because JSON does not keep everything: a boolean, for one, comes back as a number.
local function save_game(game)
  local unchecked = SAVE .. ".part"
  local file = file_text_open_write(unchecked)
  if file == -1 then error("cannot write " .. unchecked, 0) end
  file_text_write_string(file, json_encode(game))
  file_text_close(file)
  local copy = load_game(unchecked)
  if not copy or not is_same(game, copy) then error("the game does not read back as it was; nothing is saved", 0) end
  kx.destroy(copy, true)
  if file_rename(unchecked, SAVE) ~= 1 then error("cannot rename " .. unchecked, 0) end
end

local function play(game)
  add_item(game, "torch")
  game.gold = game.gold + 15
  game.playtime = game.playtime + 90
  game.position.x = game.position.x + 1
  game.seed = math.random(0) -- 64 bits, and JSON keeps them all
  for _, quest in pairs(game.quests) do quest.step = math.min(quest.step + 1, quest.steps) end
  game.saves = game.saves + 1
end

local function show(game)
  local function line(title, form, ...) print(string.format("  %-12s " .. form, title, ...)) end
  line("player", "%s, id %016x", game.player, game.id)
  line("gold", "%d", game.gold)
  line("played", "%d min %02d s", game.playtime // 60, game.playtime % 60)
  line("position", "%d, %d", game.position.x, game.position.y)
  for _, item in pairs(game.inventory) do line("item", "%d x %s", item.count, item.name) end
  for _, quest in pairs(game.quests) do line("quest", "%s: %d of %d", quest.name, quest.step, quest.steps) end
  line("next dungeon", "seed %016x", game.seed)
  line("saves so far", "%d", game.saves)
end

local parameter = parameter_string(1)
if parameter_count() > 2 or (parameter ~= "" and parameter ~= "new") then
  error('the only parameter is "new", which starts a new game', 0)
end
if parameter == "new" then put_aside(".old") end

local game, problem = load_game(SAVE)
if not game then
  print(string.format("%s is no saved game: %s.", SAVE, problem))
  game = put_aside(".bad") and load_game(SAVE) or error("there is nothing to start from", 0)
end
play(game)
save_game(game)
print(SAVE .. " is saved, and reads back as it was:")
show(game)
kx.destroy(game, true)
