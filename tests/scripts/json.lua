-- JSON as a script uses it.

local function fails(text, f, ...)
  local ok, message = pcall(f, ...)
  assert(not ok, "no error: " .. text)
  assert(message:find(text, 1, true), message)
end

-- Maps and lists.
local map = kx.map(json_decode('{"name":"Ada","items":[1,2.5,{"deep":true}],"none":null,"list":[null]}'))
assert(map.name == "Ada" and map.items[2] == 2.5 and map.items[3].deep == 1.0 and map.none == kx.null)
assert(#map.list == 1 and map.list[1] == kx.null)
assert(kx.type(map.items) == "list" and kx.type(map.items[3]) == "map")
local again = kx.map(json_decode(json_encode(map)))
assert(again.items[3].deep == 1.0 and again.none == kx.null)
assert(json_encode(kx.id(again)) == json_encode(again))
kx.destroy(again, true)
kx.destroy(map, true)
assert(json_decode('say "hi"') == -1)
assert(kx.map(json_decode("plain")).default == "plain")
assert(kx.map(json_decode("[1]")).default[1] == 1)
assert(json_encode(-1) == "")

-- Structs and arrays.
local text = '{"z":1,"a":[1,{"b":null}],"c":"x"}'
local struct = json_parse(text)
assert(kx.type(struct) == "struct" and struct.a[2].b == kx.null and struct.c == "x")
assert(json_stringify(struct) == '{ "z": 1.0, "a": [ 1.0, { "b": null } ], "c": "x" }')
assert(json_stringify(json_parse(json_stringify(struct))) == json_stringify(struct))
fails("JSON parse error", json_parse, "{")
fails("JSON parse error", json_parse, "null")
fails("json_parse : expects a string argument", json_parse, 5)

-- Tables go as they are: names in their order, numbers by their kind.
assert(json_stringify { b = 1, a = 2.0, c = { true, kx.null, "é" } } == '{ "a": 2.0, "b": 1, "c": [ true, null, "é" ] }')
assert(json_stringify {} == "{ }" and json_stringify(kx.array()) == "[ ]" and json_stringify(nil) == "null")

-- Whole numbers that a float cannot hold come back as they were.
for _, n in ipairs { math.maxinteger, math.mininteger + 1, 9007199254740993, -9007199254740993 } do
  local back = json_parse(json_stringify { n = n }).n
  assert(math.type(back) == "integer" and back == n)
end
assert(json_parse(json_stringify { n = 5 }).n == 5.0)

-- A struct that stands in many places is written in each: what that makes of a few is refused in time.
local wide = kx.struct { x = 1 }
for _ = 1, 40 do wide = kx.struct { a = wide, b = wide } end
fails("more than JSON text is made of", json_stringify, wide)

-- Circles: one that goes through the other family is cut, any other is an error, and what follows is whole.
local self = {}
self.self = self
assert(json_stringify(self) == '{ "self": null }')
local a, b = kx.struct(), kx.struct()
a.b, b.a = b, a
fails("json_stringify: values are nested too deep, or in a circle", json_stringify, a)
local m, n = kx.map(), kx.map()
m.n, n.m = n, m
fails("json_encode: values are nested too deep, or in a circle", json_encode, m)
assert(json_stringify { 1, { 2 } } == "[ 1, [ 2 ] ]")
kx.destroy(m, true)

-- A document that is parsed and dropped, over and over, with circles in it.
local document = '{"list":[' .. ('{"a":[1,2,3],"b":"text"},'):rep(1000) .. "{}]}"
for _ = 1, 200 do
  local parsed = json_parse(document)
  parsed.list[1].back = parsed
  assert(#parsed.list == 1001)
end
