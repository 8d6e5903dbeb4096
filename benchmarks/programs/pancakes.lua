-- examples/pancakes.vx in Lua.
local ffi = require("ffi")

local function flips(given, order, n)
  for i = 0, n - 1 do order[i] = given[i] end
  local count = 0
  local first = order[0]
  while first ~= 1 do
    local i, j = 0, first - 1
    while i < j do
      order[i], order[j] = order[j], order[i]
      i, j = i + 1, j - 1
    end
    count = count + 1
    first = order[0]
  end
  return count
end

local function pancakes(n)
  local order, turned, turns = ffi.new("double[?]", n), ffi.new("double[?]", n), ffi.new("int[?]", n)
  local checksum, most, number, r = 0, 0, 0, n
  for i = 0, n - 1 do order[i] = i + 1 end
  while true do
    while r > 1 do
      turns[r - 1] = r
      r = r - 1
    end
    local count = flips(order, turned, n)
    if count > most then most = count end
    checksum = checksum + (number % 2 == 0 and count or -count)
    while true do
      if r == n then return checksum, most end
      local first = order[0]
      for i = 0, r - 1 do order[i] = order[i + 1] end
      order[r] = first
      turns[r] = turns[r] - 1
      if turns[r] > 0 then break end
      r = r + 1
    end
    number = number + 1
  end
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  return string.format("%d/%d", pancakes(n))
end)
