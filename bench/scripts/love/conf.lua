-- Without a window: only what reads files.
function love.conf(t)
  for name in pairs(t.modules) do
    t.modules[name] = false
  end
  t.modules.event = true
  t.window = false
end
