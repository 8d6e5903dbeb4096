-- The counterpart of program.h: a program gives its solver, which takes the size and gives a text.
return function(solve)
  local result
  for round = 1, tonumber(arg[2] or 1) do result = solve(tonumber(arg[1])) end
  print(result)
end
