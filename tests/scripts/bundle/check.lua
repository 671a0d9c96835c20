-- What the test scripts check with.
local check = {}

function check.equal(actual, expected, what)
  if actual ~= expected then
    error(string.format("%s: expected %q, got %q", what or "value", expected, actual), 2)
  end
end

-- A call that has to fail with a text; the position before it does not count.
function check.fails(text, call, ...)
  local ok, message = pcall(call, ...)
  if ok then error("no error, expected: " .. text, 2) end
  if not message:find(text, 1, true) then error("wrong error: " .. message .. ", expected: " .. text, 2) end
end

return check
