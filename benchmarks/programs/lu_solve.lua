-- examples/lu_solve.vx in Lua: matrices by columns, whole rows exchanged.
local ffi = require("ffi")
local abs, log = math.abs, math.log
local doubles = ffi.typeof("double[?]")

local function factor(n, a, order)
  local sign = 1
  for k = 0, n - 1 do order[k] = k end
  for k = 0, n - 1 do
    local best = k
    for i = k + 1, n - 1 do
      if abs(a[i + k * n]) > abs(a[best + k * n]) then best = i end
    end
    if best ~= k then
      for j = 0, n - 1 do
        a[k + j * n], a[best + j * n] = a[best + j * n], a[k + j * n]
      end
      order[k], order[best] = order[best], order[k]
      sign = -sign
    end
    for i = k + 1, n - 1 do
      a[i + k * n] = a[i + k * n] / a[k + k * n]
      for j = k + 1, n - 1 do
        a[i + j * n] = a[i + j * n] - a[i + k * n] * a[k + j * n]
      end
    end
  end
  return sign
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  local a, order = doubles(n * n), doubles(n)
  for i = 0, n - 1 do
    for j = 0, n - 1 do
      a[i + j * n] = 1 / (i + j + 1) + (i + j == n - 1 and 1 or 0)
    end
  end
  local sign = factor(n, a, order)
  local sum = 0
  for i = 0, n - 1 do sum = sum + log(abs(a[i + i * n])) end
  return string.format("%d/%.12f", sign, sum)
end)
