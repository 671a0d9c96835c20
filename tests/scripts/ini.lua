-- INI documents as a script uses them.
local check = require "check"

local function fails(text, f, ...)
  local ok, message = pcall(f, ...)
  assert(not ok, "no error: " .. text)
  assert(message:find(text, 1, true), message)
end

-- Nothing is open.
fails("Trying to read from undefined INI file", ini_read_string, "a", "k", "")
fails("Trying to read from undefined INI file", ini_read_real, "a", "k", 1)
fails("Trying to write to undefined INI file", ini_write_string, "a", "k", "")
fails("Trying to write to undefined INI file", ini_write_real, "a", "k", 1)
fails("Trying to read from undefined INI file", ini_key_exists, "a", "k")
fails("Trying to read from undefined INI file", ini_section_exists, "a")
fails("Trying to change undefined INI file", ini_key_delete, "a", "k")
fails("Trying to change undefined INI file", ini_section_delete, "a")
check.equal(ini_close(), "", "closing nothing")

-- A new document, and all that may be written.
local texts = { "", " ", "plain", " padded\t", '"', '""', '"quoted"', "[x]", "]", "; no comment", "# 1", "a=b", "=", "two\nlines",
  "\r\n", "\r", "C:\\new\\table", "100%", "%0A", "@text@x$text$", "\xFF\xFE", "é", "\xEF\xBB\xBFmark", ("long"):rep(10000) }
check.equal(ini_open("deep/all.ini"), nil, "result of ini_open")
for i, text in ipairs(texts) do
  ini_write_string("section" .. text, "key" .. text, text)
  ini_write_string(text, text, text .. i)
end
ini_close()
ini_open("deep/all.ini")
for i, text in ipairs(texts) do
  check.equal(ini_read_string("section" .. text, "key" .. text, "absent"), text, "value " .. i)
  check.equal(ini_read_string(text, text, "absent"), text .. i, "section and key " .. i)
  check.equal(ini_section_exists(text), 1.0, "section " .. i)
end

-- Numbers and defaults.
ini_write_real("n", "half", 0.5)
ini_write_string("n", "comma", "3,25")
check.equal(ini_read_string("n", "half", ""), "0.500000", "a number's text")
check.equal(ini_read_real("n", "half", 7), 0.5, "a number")
check.equal(ini_read_real("n", "comma", 7), 3.0, "a number up to its comma")
check.equal(ini_read_real("n", "absent", 7), 7.0, "a number's default")
check.equal(ini_read_string("n", "absent", 5), "5", "a default that is a number")
check.equal(ini_read_string("n", "absent", { 1, { a = true } }), "[ 1,{ a : true } ]", "a default that is a table")
check.equal(ini_read_string("n", "absent", nil), "undefined", "no default")
local circle = { {} }
circle = kx.array { kx.array() }
circle[1][1] = circle
fails("values are nested too deep, or in a circle", ini_read_string, "n", "absent", circle)
circle[1] = nil

-- What goes.
ini_key_delete("n", "half")
check.equal(ini_key_exists("n", "half"), 0.0, "a deleted key")
ini_section_delete("n")
check.equal(ini_section_exists("n"), 0.0, "a deleted section")

-- An empty name leaves the document open; a text takes its place, and the file is written before.
ini_open("")
check.equal(ini_section_exists("plain"), 1.0, "the document that stayed open")
ini_section_delete("plain")
ini_open_from_string("[a]\nk = 1 ; no comment\n")
check.equal(ini_read_string("a", "k", ""), "1 ; no comment", "a value to the end of its line")
check.equal(ini_close(), "[a]\nk=1 ; no comment\n", "a text rendered anew")
ini_open("deep/all.ini")
check.equal(ini_section_exists("plain"), 0.0, "what was written before the text was opened")
ini_close()
