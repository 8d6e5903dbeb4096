-- examples/collatz.vx in Lua.
local function steps(n)
  local count = 0
  while n ~= 1 do
    if n % 2 == 0 then
      n = n / 2
    else
      n = 3 * n + 1
    end
    count = count + 1
  end
  return count
end

local function longest(below)
  local start, most = 1, 0
  for n = 1, below - 1 do
    local count = steps(n)
    if count > most then
      most = count
      start = n
    end
  end
  return start, most
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(rounds)
  local start, most
  for round = 1, rounds do start, most = longest(100000 + round) end
  return string.format("%d/%d", start, most)
end)
