-- examples/mandelbrot.vx in Lua.
local function escapes(x, y, limit)
  local a, b = 0, 0
  for n = 1, limit do
    local aa, bb = a * a, b * b
    if aa + bb > 4 then return true end
    b = 2 * a * b + y
    a = aa - bb + x
  end
  return false
end

local function area(columns, rows, limit)
  local inside = 0
  for j = 1, rows do
    local y = 1.2 * (j - 0.5) / rows
    for i = 1, columns do
      local x = -2 + 2.5 * (i - 0.5) / columns
      if not escapes(x, y, limit) then inside = inside + 1 end
    end
  end
  return inside
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(columns)
  return string.format("%d", area(columns, math.floor(columns * 2 / 3), 150))
end)
