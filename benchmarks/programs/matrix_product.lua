-- examples/matrix_product.vx in Lua: matrices by columns.
local ffi = require("ffi")
local doubles = ffi.typeof("double[?]")

local function product(rows, inner, columns, a, b, c)
  for j = 0, columns - 1 do
    for i = 0, rows - 1 do
      local sum = 0
      for k = 0, inner - 1 do
        sum = sum + a[i + k * rows] * b[k + j * inner]
      end
      c[i + j * rows] = sum
    end
  end
end

local function filled(n, seed)
  local a = doubles(n * n)
  for i = 0, n * n - 1 do
    seed = (seed * 421 + 1663) % 7875
    a[i] = seed % 19 - 9
  end
  return a
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  local a, b, c = filled(n, 1), filled(n, 2), doubles(n * n)
  product(n, n, n, a, b, c)
  local trace = 0
  for i = 0, n - 1 do trace = trace + c[i + i * n] end
  return string.format("%d", trace)
end)
