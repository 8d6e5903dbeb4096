-- examples/runge_kutta.vx in Lua.
local function force(y)
  return -y
end

local function swing(steps)
  local h = 2 * math.pi / steps
  local y, v = 1, 0
  for i = 1, steps do
    local y1 = v
    local v1 = force(y)
    local y2 = v + h / 2 * v1
    local v2 = force(y + h / 2 * y1)
    local y3 = v + h / 2 * v2
    local v3 = force(y + h / 2 * y2)
    local y4 = v + h * v3
    local v4 = force(y + h * y3)
    y = y + h / 6 * (y1 + 2 * y2 + 2 * y3 + y4)
    v = v + h / 6 * (v1 + 2 * v2 + 2 * v3 + v4)
  end
  return y, v
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(steps)
  return string.format("%.15f/%.15f", swing(steps))
end)
