-- examples/nbody.vx in Lua: flat arrays of doubles, a body's three numbers side by side.
local ffi = require("ffi")
local sqrt, pi = math.sqrt, math.pi
local doubles = ffi.typeof("double[?]")

local function bodies()
  local places = { 0, 0, 0,
    4.84143144246472090, -1.16032004402742839, -0.103622044471123109,
    8.34336671824457987, 4.12479856412430479, -0.403523417114321381,
    12.8943695621391310, -15.1111514016986312, -0.223307578892655734,
    15.3796971148509165, -25.9193146099879641, 0.179258772950371181 }
  local speeds = { 0, 0, 0,
    0.00166007664274403694, 0.00769901118419740425, -0.0000690460016972063023,
    -0.00276742510726411160, 0.00499852801234917238, 0.0000230417297573763929,
    0.00296460137564761618, 0.00237847173959480950, -0.0000296589568540237556,
    0.00268067772490389322, 0.00162824170038242295, -0.0000951592254519715870 }
  local masses = { 1, 0.000954791938424326609, 0.000285885980666130812,
    0.0000436624404335156298, 0.0000515138902046611451 }
  local year, sun = 365.24, 4 * pi * pi
  local p, v, m = doubles(15), doubles(15), doubles(5)
  for i = 0, 4 do m[i] = sun * masses[i + 1] end
  for k = 0, 14 do p[k], v[k] = places[k + 1], year * speeds[k + 1] end
  for k = 0, 2 do
    local s = 0
    for i = 1, 4 do s = s + v[3 * i + k] * m[i] end
    v[k] = -s / sun
  end
  return p, v, m
end

local function energy(n, p, v, m)
  local e = 0
  for i = 0, n - 1 do
    local a = 3 * i
    e = e + 0.5 * m[i] * (v[a] * v[a] + v[a + 1] * v[a + 1] + v[a + 2] * v[a + 2])
    for j = i + 1, n - 1 do
      local b = 3 * j
      local dx, dy, dz = p[a] - p[b], p[a + 1] - p[b + 1], p[a + 2] - p[b + 2]
      e = e - m[i] * m[j] / sqrt(dx * dx + dy * dy + dz * dz)
    end
  end
  return e
end

local function advance(n, p, v, m, steps)
  local dt = 0.01
  for step = 1, steps do
    for i = 0, n - 1 do
      local a = 3 * i
      for j = i + 1, n - 1 do
        local b = 3 * j
        local dx, dy, dz = p[a] - p[b], p[a + 1] - p[b + 1], p[a + 2] - p[b + 2]
        local squared = dx * dx + dy * dy + dz * dz
        local pull = dt / (squared * sqrt(squared))
        v[a] = v[a] - dx * m[j] * pull
        v[a + 1] = v[a + 1] - dy * m[j] * pull
        v[a + 2] = v[a + 2] - dz * m[j] * pull
        v[b] = v[b] + dx * m[i] * pull
        v[b + 1] = v[b + 1] + dy * m[i] * pull
        v[b + 2] = v[b + 2] + dz * m[i] * pull
      end
    end
    for k = 0, 3 * n - 1 do p[k] = p[k] + dt * v[k] end
  end
end

dofile((arg[0]:match("^.*/") or "") .. "program.lua")(function(steps)
  local p, v, m = bodies()
  advance(5, p, v, m, steps)
  return string.format("%.12f", energy(5, p, v, m))
end)
