-- examples/spectral_norm.vx in Lua.
local ffi = require("ffi")
local sqrt = math.sqrt
local doubles = ffi.typeof("double[?]")

local function a(i, j)
  return 1 / ((i + j) * (i + j + 1) / 2 + i + 1)
end

local function times(n, v, w)
  for i = 0, n - 1 do
    local s = 0
    for j = 0, n - 1 do s = s + a(i, j) * v[j] end
    w[i] = s
  end
end

local function timesTransposed(n, v, w)
  for i = 0, n - 1 do
    local s = 0
    for j = 0, n - 1 do s = s + a(j, i) * v[j] end
    w[i] = s
  end
end

local function spectralNorm(n)
  local u, v, w = doubles(n), doubles(n), doubles(n)
  for i = 0, n - 1 do u[i] = 1 end
  for turn = 1, 10 do
    times(n, u, w)
    timesTransposed(n, w, v)
    times(n, v, w)
    timesTransposed(n, w, u)
  end
  local uv, vv = 0, 0
  for i = 0, n - 1 do
    uv = uv + u[i] * v[i]
    vv = vv + v[i] * v[i]
  end
  return sqrt(uv / vv)
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(n)
  return string.format("%.12f", spectralNorm(n))
end)
