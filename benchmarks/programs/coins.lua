-- Both tasks of examples/coins.vx in Lua.
local ffi = require("ffi")
local doubles = ffi.typeof("double[?]")
local coins = { 1, 2, 5, 10, 20, 50, 100, 200 }

local function ways(total)
  local table = ffi.new("int32_t[?]", total + 1)
  table[0] = 1
  for k = 1, #coins do
    local coin = coins[k]
    for sum = coin, total do table[sum] = table[sum] + table[sum - coin] end
  end
  return table[total]
end

local function longestCommon(a, m, b, n)
  local best = doubles((m + 1) * (n + 1))
  for i = 0, m - 1 do
    for j = 0, n - 1 do
      local here = i + 1 + (j + 1) * (m + 1)
      if a[i] == b[j] then
        best[here] = best[i + j * (m + 1)] + 1
      else
        local above, before = best[i + (j + 1) * (m + 1)], best[i + 1 + j * (m + 1)]
        best[here] = above > before and above or before
      end
    end
  end
  return best[m + n * (m + 1)]
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  local count = 0
  for turn = 1, n do count = ways(200) end
  local a, b, seed = doubles(n), doubles(n), 1
  for i = 0, n - 1 do
    seed = (seed * 421 + 1663) % 7875
    a[i] = seed % 4
    seed = (seed * 421 + 1663) % 7875
    b[i] = seed % 4
  end
  return string.format("%d/%d", count, longestCommon(a, n, b, n))
end)
