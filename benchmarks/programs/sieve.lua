-- examples/sieve.vx in Lua: a byte for each number.
local ffi = require("ffi")

local function primesBelow(n)
  local composite = ffi.new("bool[?]", n + 1)
  local k = 2
  while k * k < n do
    if not composite[k] then
      for multiple = k * k, n, k do composite[multiple] = true end
    end
    k = k + 1
  end
  local count, greatest = 0, 0
  for k = 2, n - 1 do
    if not composite[k] then
      count = count + 1
      greatest = k
    end
  end
  return count, greatest
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  return string.format("%d/%d", primesBelow(n))
end)
