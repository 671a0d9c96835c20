-- Maps, lists, structs and arrays as a script uses them.

local function fails(text, f, ...)
  local ok, message = pcall(f, ...)
  assert(not ok, "no error: " .. text)
  assert(message:find(text, 1, true), message)
end

local function keys(p)
  local found = {}
  for k in pairs(p) do found[#found + 1] = tostring(k) end
  return table.concat(found, " ")
end

-- Maps: any key, the same number whatever its kind.
local map = kx.map { name = "Ada", [1] = "one", [true] = "yes" }
assert(kx.type(map) == "map" and #map == 3)
assert(map.name == "Ada" and map[1] == "one" and map[1.0] == "one" and map[true] == "yes")
assert(map.missing == nil)
map.name = nil
map.name = nil
assert(#map == 2 and map.name == nil)
map[2.5] = kx.null
assert(map[2.5] == kx.null and tostring(kx.null) == "kx.null")
fails("nil cannot be a key", function() map[nil] = 1 end)
fails("the key is a function", function() map[print] = 1 end)
fails("a table cannot be a key", function() map[{}] = 1 end)
fails("zero byte", function() map["a\0b"] = 1 end)
fails("zero byte", function() map.x = "a\0b" end)
fails("the value is a function", function() map.x = print end)
fails("argument 1: hero.act is a function", kx.map, { hero = { act = print } })

-- An entry may be replaced while the map is walked; none may come or go.
for k in pairs(map) do map[k] = "seen" end
for _, v in pairs(map) do assert(v == "seen") end
fails("came or went", function() for k in pairs(map) do map[k] = nil end end)
fails("came or went", function() for k in pairs(map) do map[tostring(k) .. " more"] = 1 end end)
assert(keys(kx.map()) == "")

-- Every entry once, and in the order in which it is written.
local many = kx.map()
for i = 1, 1000 do many["key" .. i] = i end
local sum, order = 0, {}
for k, v in pairs(many) do
  sum = sum + v
  order[#order + 1] = k
end
assert(sum == 500500 and #order == 1000)
local at = 1
for k in json_encode(many):gmatch('"(key%d+)"') do
  assert(k == order[at])
  at = at + 1
end

-- Lists and arrays: from 1, and without holes.
for _, make in ipairs { kx.list, kx.array } do
  local seq = make { 1, "two", 3.5 }
  assert(#seq == 3 and seq[1] == 1 and seq[2] == "two" and seq[3] == 3.5)
  assert(seq[0] == nil and seq[4] == nil and seq[-1] == nil and seq[1.0] == 1)
  seq[4] = true
  seq[1] = "first"
  assert(#seq == 4 and seq[4] == true and seq[1] == "first")
  seq[2] = nil
  assert(#seq == 3 and seq[2] == 3.5)
  seq[9] = nil
  assert(#seq == 3)
  fails("1 to 3, or 4 to add", function() seq[5] = 1 end)
  fails("1 to 3, or 4 to add", function() seq[0] = 1 end)
  fails("a whole number", function() return seq.name end)
  fails("a whole number", function() seq[1.5] = 1 end)
  assert(keys(seq) == "1 2 3")

  local values = {}
  for i, v in ipairs(seq) do values[i] = v end
  assert(values[1] == "first" and values[3] == true)
  table.insert(seq, 1, "zeroth")
  assert(table.remove(seq) == true and #seq == 3 and seq[1] == "zeroth")
  local numbers = make { 3, 1, 2 }
  table.sort(numbers)
  assert(table.concat(numbers, ",") == "1,2,3")
  assert(select("#", table.unpack(numbers)) == 3)
  fails("neither all strings nor 1 to n", make, { x = 1 })
end
assert(kx.type(kx.list()) == "list" and kx.type(kx.array()) == "array")
assert(#kx.list() == 0 and #kx.array() == 0 and #kx.list {} == 0)

-- What is nothing in a list is kx.null, so that what comes after it is not lost.
local gaps = kx.map(json_decode("[1,null,3]")).default
assert(gaps[2] == kx.null and kx.table(gaps)[3] == 3)
table.insert(gaps, 1, "new")
assert(#gaps == 4 and gaps[3] == kx.null and gaps[4] == 3)
table.remove(gaps, 1)
assert(gaps[1] == 1 and gaps[3] == 3 and #gaps == 3)

-- Structs: members in the order of their coming; a table's in the order of their names.
local struct = kx.struct { b = 1, a = 2 }
struct.c = 3
assert(kx.type(struct) == "struct" and #struct == 3 and keys(struct) == "a b c")
struct.b = nil
assert(keys(struct) == "a c" and struct.b == nil)
fails("a member's name is a string", function() return struct[1] end)
fails("a member's name is a string", function() struct[1] = 1 end)
fails("came or went", function() for k in pairs(struct) do struct[k] = nil end end)
fails("came or went", function()
  local three = kx.struct { a = 1, b = 2, c = 3 }
  for k in pairs(three) do
    if k == "a" then three.a, three.d = nil, 4 end
  end
end)
fails("neither all strings nor 1 to n", kx.struct, { 1, 2 })
fails("the name is a string with a zero byte", function() return struct["a\0b"] end)

-- Many members, gone again in any order.
local wide = kx.struct()
for i = 1, 5000 do wide["m" .. i] = i end
for i = 1, 5000, 2 do wide["m" .. i] = nil end
for i = 1, 1000, 2 do wide["m" .. i] = -i end
local total = 0
for _, v in pairs(wide) do total = total + v end
assert(#wide == 3000 and total == 2500 * 2501 - 500 * 500 and wide.m2 == 2 and wide.m3 == -3 and wide.m5000 == 5000)

-- What is inside is the thing itself.
local inner = kx.struct { n = 1 }
local outer = kx.struct { first = inner, second = inner, list = kx.list { inner } }
inner.n = 2
assert(outer.first == inner and outer.second.n == 2 and outer.list[1] == inner)
outer.first.n = 3
assert(inner.n == 3)

-- One table is one struct, wherever it stands.
local shared = {}
local two = kx.map { a = shared, b = shared }
assert(two.a == two.b)

-- A map that cannot be filled goes alone.
local mine = kx.map { x = 1 }
fails("argument 1: [2] is a function", kx.map, { mine, print })
assert(mine.x == 1)

-- Ids, and what is freed.
local tree = kx.map { child = kx.map { grandchild = kx.list { kx.map() } } }
local child, list = tree.child, tree.child.grandchild
assert(kx.map(kx.id(tree)) == tree and kx.list(kx.id(list)) == list and math.type(kx.id(tree)) == "float")
kx.destroy(tree, true)
fails("has been freed", function() return #child end)
fails("has been freed", function() return #list end)
local parent = kx.map { child = kx.map { x = 1 } }
child = parent.child
kx.destroy(parent)
assert(child.x == 1)
kx.destroy(child)
fails("there is no map", kx.map, 100000)
fails("there is no list", kx.list, -1)
fails("there is no grid", kx.grid, 1)
fails("there is no map 1.5", kx.map, 1.5)
fails("there is no map 1e+300", kx.map, 1e300)
local next_of = pairs(kx.list { 1 })
assert(next_of(kx.list { 1 }, math.maxinteger) == nil and next_of(kx.list { 1 }, -5) == nil)
fails("kx.list or kx.array expected", next_of, {}, 0)
fails("kx.map, kx.list, kx.grid or kx.buffer expected", kx.id, struct)
fails("kx.map, kx.list, kx.grid or kx.buffer expected", kx.destroy, {})
fails("kx.map expected", kx.map, kx.list())
fails("kx.struct expected", kx.struct, kx.array())

-- Copies: tables all the way down, what is met twice once.
local copy = kx.table(kx.map { s = kx.struct { a = { 1, { x = true } } }, l = kx.list { kx.null }, n = 1.5 })
assert(type(copy) == "table" and copy.s.a[2].x == true and copy.l[1] == kx.null and copy.n == 1.5)
local round = kx.struct()
round.self, round.list = round, { round }
copy = kx.table(round)
assert(copy.self == copy and copy.list[1] == copy)
fails("expected", kx.table, {})

-- Types.
for value, name in pairs { [1] = "number", x = "string", [true] = "boolean", [kx.null] = "null", [print] = "function" } do
  assert(kx.type(value) == name)
end
assert(kx.type(nil) == "nil" and kx.type({}) == "table")

-- Many at a time, and again.
for _ = 1, 3 do
  local maps = {}
  for i = 1, 10000 do maps[i] = kx.map { i } end
  for i = 1, 10000 do
    assert(maps[i][1] == i)
    kx.destroy(maps[i])
  end
end
