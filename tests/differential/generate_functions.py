#!/usr/bin/env python3
"""Makes script functions at random, for comparing what runs them.

    generate_functions.py SEED [COUNT]

Every function takes two arguments and gives one or two results. Variables have a form that the
generator keeps in mind (a number or an array, a double, an integer or a logical), so that most of
what it makes has a meaning; indices may be outside and sizes may differ, which are errors that must
be the same everywhere. Loops are short and no function calls a later one, so all of them end.
"""

import random
import sys

ARGUMENTS = {
    "d": ["3", "-2.5", "0", "1e10", "7", "nan", "inf", "9007199254740992"],
    "l": ["true", "false"],
    "D": ["[1, 2, 3, 4]", "[4, -1, 0.5]", "[4; -1; 0.5]", "[1, 2; 3, 4]", "[]",
          "[2.5, nan, -0, inf]", "1:6"],
    "L": ["[true, false, true]", "[1, 2, 3, 4] > 2"],
}

# Divisors: powers of two are shifted by.
DIVISORS = ["1", "2", "4", "8", "64", "3", "10", "-2", "0"]


def arguments_of(classes):
    """By form, texts of arguments; integers of the two classes of the script."""
    made = dict(ARGUMENTS)
    for form, name in classes.items():
        bits = int(name.lstrip("uint"))
        least = 0 if name.startswith("u") else -(1 << (bits - 1))
        most = least + (1 << bits) - 1
        ends = [f"{name}(-1e30)", f"{name}(1e30)"]  # conversions saturate
        made[form] = [f"{name}({n})" for n in (5, 27, min(most // 3, 1 << 53))] + ends
        made[form] += [f"({ends[0]} + {name}(1))", f"({ends[1]} - {name}(1))"]
        made[form.upper()] = [f"{name}([7; 3; {-8 if least < 0 else 250}])", f"{name}([1, 2, 3, 4])"]
    return made


class Function:
    def __init__(self, rng, number, forms, earlier, classes):
        self.rng = rng
        self.classes = classes
        self.name = f"f{number}"
        self.earlier = earlier
        self.variables = {"a": forms[0], "b": forms[1]}
        self.loops = 0
        self.repeats = 0  # loops around the present place, of all kinds
        self.lines = []
        self.forms = forms

    # ---- expressions: of a form, or of any one

    def names(self, forms):
        return [name for name, form in self.variables.items() if form in forms]

    def number(self):
        return self.rng.choice(["0", "1", "2", "3", "0.5", "-1.5", "10", "1e-3", "7", "100"])

    def double(self, depth):
        """A number of class double."""
        r = self.rng
        choice = r.randrange(14 if depth > 0 else 3)
        if choice == 0:
            return self.number()
        if choice <= 2:
            names = self.names("d")
            return r.choice(names) if names else self.number()
        x = self.double(depth - 1)
        if choice <= 6:
            return f"({x} {r.choice(['+', '-', '*', '/', '.*', './'])} {self.double(depth - 1)})"
        if choice == 7:
            return f"({x}) ^ {r.choice(['2', '3', '0.5', '-1', '2'])}"
        if choice == 8:
            f = r.choice(["abs", "floor", "ceil", "round", "trunc", "sqrt", "exp", "sin", "cos",
                          "double", "log", "tan"])
            return f"{f}({x})"
        if choice == 9:
            return f"{r.choice(['mod', 'rem', 'min', 'max', 'atan2'])}({x}, {self.double(depth - 1)})"
        if choice == 10:
            arrays = self.names("D")
            return f"{r.choice(arrays)}[{self.index()}]" if arrays else x
        if choice == 11:
            arrays = self.names("DIUL")
            if not arrays:
                return x
            return f"{r.choice(['length', 'numel', 'rows', 'columns'])}({r.choice(arrays)})"
        if choice == 12:
            arrays = self.names("D")
            if not arrays:
                return x
            return f"{r.choice(['sum', 'prod', 'max', 'min'])}({r.choice(arrays)})"
        return f"double({self.condition(depth - 1)})"

    def index(self):
        r = self.rng
        loops = [f"k{i}" for i in range(1, self.loops + 1)]
        return r.choice(["1", "1", "1", "2", "end", "end", "1", "end - 1"] + loops)

    def integer(self, depth, form):
        """A number of an integer class."""
        r = self.rng
        cls = self.classes[form]
        names = self.names(form)
        choice = r.randrange(8 if depth > 0 else 2)
        if choice == 0 or not names:
            return f"{cls}({self.double(min(depth, 1))})"
        if choice == 1:
            return r.choice(names)
        x = self.integer(depth - 1, form)
        if choice <= 4:
            y = self.integer(depth - 1, form)
            return f"({x} {r.choice(['+', '-', '*', '/'])} {y})"
        if choice == 5:
            return f"({x} {r.choice(['+', '-', '*', '/'])} {r.choice(['1', '2', '3', '4', '100', '0', '-3'])})"
        if choice == 6:
            return f"{r.choice(['mod', 'rem', 'min', 'max'])}({x}, {self.integer(depth - 1, form)})"
        return r.choice([f"abs({x})", f"-{x}", f"sum({x})", f"mod({x}, 4)"])

    def condition(self, depth):
        r = self.rng
        choice = r.randrange(8 if depth > 0 else 4)
        if choice <= 2:
            return (f"({self.double(depth - 1)} {r.choice(['<', '<=', '>', '>=', '==', '!='])} "
                    f"{self.double(depth - 1)})")
        if choice == 3:
            names = self.names("l")
            return r.choice(names) if names else r.choice(["true", "false"])
        if choice == 4:
            return f"({self.condition(depth - 1)} {r.choice(['&&', '||', '&', '|'])} {self.condition(depth - 1)})"
        if choice == 5:
            return f"!{self.condition(depth - 1)}"
        if choice == 6:
            numbers = self.names("iu")
            if numbers:
                return f"({r.choice(numbers)} {r.choice(['<', '==', '>='])} {self.double(depth - 1)})"
            return "true"
        arrays = self.names("DL")
        return f"{r.choice(['any', 'all', 'isempty'])}({r.choice(arrays)})" if arrays else "true"

    def array(self, depth):
        """An array of doubles, most likely."""
        r = self.rng
        names = self.names("D")
        choice = r.randrange(13 if depth > 0 else 3)
        if choice == 0 and names:
            return r.choice(names)
        if choice <= 1:
            return r.choice([f"zeros(1, {r.randrange(2, 5)})", "ones(1, 3)", "[1, 2, 3]",
                             "[4, 5, 6, 7]", r.choice(["eye(2)", "[]", "ones(3, 2)"])])
        if choice == 2:
            return f"[{self.double(max(depth, 1) - 1)}, {self.double(max(depth, 1) - 1)}]"
        if choice == 3:
            return f"({self.number()}:{r.choice(['1', '2', '0.5', '-1'])}:{r.randrange(7)})"
        x = self.array(depth - 1)
        if choice <= 6:
            return f"({x} {r.choice(['+', '-', '.*', './'])} {self.other(x, depth)})"
        if choice == 7:
            return f"{r.choice(['abs', 'sqrt', 'floor', 'round', 'sin', 'transpose'])}({x})"
        if choice in (8, 9) and self.repeats:  # doubled many times, it would fill the memory
            return f"({x} + 1)"
        if choice == 8:
            return f"[{x}, {r.choice([self.array(depth - 1), self.double(depth - 1)])}]"
        if choice == 9:
            return f"[{x}; {r.choice([x, x, x, self.array(depth - 1)])}]"
        if choice == 10 and names:
            name = r.choice(names)
            return r.choice([f"{name}[:, {self.index()}]", f"{name}[{self.index()}, :]",
                             f"{name}[:]", f"{name}[[1, 2]]", f"{name}[{name} > 1]",
                             f"{name}[1:2]"])
        if choice == 11:
            return f"{r.choice(['max', 'min', 'mod', 'rem'])}({x}, {self.double(depth - 1)})"
        return f"-{x}"

    def other(self, x, depth):
        """The other operand: mostly one that fits."""
        r = self.rng
        return r.choice([x, x, self.double(depth - 1), self.double(depth - 1), self.double(0),
                         self.array(depth - 1)])

    def expression(self, form, depth):
        if form == "d":
            return self.double(depth)
        if form in "iu":
            return self.integer(depth, form)
        if form == "l":
            return self.condition(depth)
        if form == "D":
            return self.array(depth)
        if form == "I":
            return f"{self.classes['i']}({self.array(depth - 1)})"
        if form == "U":
            return f"{self.classes['u']}({self.array(depth - 1)})"
        return f"({self.array(depth - 1)} > {self.double(depth - 1)})"

    # ---- loops over elements

    def limit(self, array, outer):
        """Where a loop over an array may end: mostly with the array, and sometimes elsewhere."""
        r = self.rng
        size = r.choice([f"length({array})", f"numel({array})", f"rows({array})",
                         f"columns({array})"])
        return r.choice([size, size, size, f"{size} - 1", f"{size} + 1", f"{size} / 2", "3", "2.5",
                         "0", "-1", "a_number"] + outer)

    def spread(self, array, outer):
        """A range for a loop: by one or more, up or down, empty or fractional, of an outer one."""
        r = self.rng
        last = self.limit(array, outer)
        first = r.choice(["1", "1", "1", "2", "0", "a_number"] +
                         [f"{k} + 1" for k in outer] + outer)
        return r.choice([f"{first}:{last}", f"{first}:{last}", f"{first}:{last}",
                         f"{last}:-1:{first}", f"{first}:2:{last}", f"{last}:-3:{first}",
                         f"{first}:0.5:{last}", f"int32({first}):int32({last})"])

    def place(self, loops):
        r = self.rng
        k = r.choice(loops)
        return r.choice([k, k, k, k, f"{k} + 1", f"{k} - 1", f"2 * {k} - 1", f"4 - {k}",
                         f"{k} + {r.choice(loops)} - 1", "1", "2", "end"])

    def element(self, array, loops):
        if self.rng.random() < 0.6:
            return f"{array}[{self.place(loops)}]"
        return f"{array}[{self.place(loops)}, {self.place(loops)}]"

    def nest(self, indent):
        """Loops that read and write elements of arrays, of which some lie outside in the first, a
        middle or the last turn; arrays that share their elements, and that grow on the way."""
        r = self.rng
        source = r.choice(self.names("DI") or ["[3, 1, 2; 6, 5, 4]"])
        number = len(self.lines)
        array, target, total = f"x{number}", f"y{number}", f"t{number}"
        depth = r.choice([1, 2, 2, 3])
        many = "1e5" if depth == 1 else "20"
        self.lines += [f"{indent}a_number = {r.choice(['3', '2', '4', '0.5', '-2', many, 'nan', f'max(min({self.double(1)}, {many}), -{many})'])}",
                       f"{indent}{array} = double({source})",
                       f"{indent}{target} = {r.choice([array, array, f'zeros({r.randrange(1, 4)}, {r.randrange(4)})'])}",
                       f"{indent}{total} = 0"]
        loops = []
        for level in range(depth):
            k = f"q{number}_{level}"
            self.lines.append(f"{indent}{'  ' * level}for {k} = {self.spread(array, loops)}")
            loops.append(k)
            inside = indent + "  " * (level + 1)
            if level + 1 < depth and r.random() < 0.7:
                continue
            for _ in range(r.randrange(1, 4)):
                read = self.element(r.choice([array, array, target]), loops)
                self.lines.append(inside + r.choice(
                    [f"{total} = {total} + {read}", f"{total} = {total} + {read}",
                     f"{self.element(target, loops)} = {read} + {r.choice(loops)}",
                     f"{self.element(target, loops)} = {read}",
                     f"{target}[{r.choice(loops)}] = {r.choice(loops)} - 1",
                     f"if {total} > 5; {r.choice(['break', 'continue'])}; end",
                     f"if {r.choice(loops)} < length({array}); {total} = {total} * 2 + {read}; end"]))
            # Nothing runs for long.
            self.lines.append(f"{inside}{total} = {total} + 1")
            self.lines.append(f"{inside}if {total} > 40 || {total} < -40; break; end")
            if r.random() < 0.15:
                self.lines.append(f"{inside}if numel({target}) < 30; {target}[end + 1] = {total}; end")
        for level in reversed(range(depth)):
            self.lines.append(f"{indent}{'  ' * level}end")
        self.variables.update({array: "D", target: "D", total: "d", "a_number": "d"})

    # ---- statements

    def assign(self, indent):
        r = self.rng
        form = r.choice("ddddiDDDlIU" if r.random() < 0.9 else "LuU")
        same = self.names(form)
        name = r.choice(same) if same and r.random() < 0.6 else f"v{len(self.variables)}"
        value = self.expression(form, 3)
        self.variables[name] = form
        self.lines.append(f"{indent}{name} = {value}")

    def store(self, indent):
        r = self.rng
        arrays = self.names("DIUL")
        if not arrays:
            return self.assign(indent)
        name = r.choice(arrays)
        value = self.double(2)
        where = r.choice([self.index(), self.index(), f"1, {self.index()}", self.index(), self.index(),
                          r.choice(["end + 1", "5", "end + 1, 1"])])
        if r.random() < 0.05:
            where = f":, {self.index()}"
        self.lines.append(f"{indent}{name}[{where}] = {value}")

    def call(self, indent):
        r = self.rng
        if not self.earlier:
            return self.assign(indent)
        other = r.choice(self.earlier)
        arguments = ", ".join(self.expression(form, 1) for form in other.forms)
        if other.results == 2 and r.random() < 0.5:
            first, second = f"v{len(self.variables)}", f"v{len(self.variables) + 1}"
            self.lines.append(f"{indent}{first}, {second} = {other.name}({arguments})")
            self.variables[second] = other.result_forms[1]
        else:
            first = f"v{len(self.variables)}"
            self.lines.append(f"{indent}{first} = {other.name}({arguments})")
        self.variables[first] = other.result_forms[0]

    def block(self, indent, depth, statements):
        for _ in range(statements):
            self.statement(indent, depth)

    def inner(self, indent, depth, repeats=0):
        """A block whose new variables are not known behind it."""
        known = dict(self.variables)
        self.repeats += repeats
        self.block(indent + "  ", depth - 1, self.rng.randrange(1, 4))
        self.repeats -= repeats
        self.variables = known

    def statement(self, indent, depth):
        r = self.rng
        choice = r.randrange(16)
        if choice >= 14:
            return self.nest(indent)
        if choice <= 4 or depth == 0:
            return self.assign(indent)
        if choice <= 6:
            return self.store(indent)
        if choice == 7:
            return self.call(indent) if r.random() < 0.6 else self.assign(indent)
        if choice == 8:
            self.lines.append(f"{indent}if {self.condition(2)}")
            self.inner(indent, depth)
            if r.random() < 0.6:
                self.lines.append(f"{indent}else")
                self.inner(indent, depth)
            self.lines.append(f"{indent}end")
        elif choice == 9:
            self.loops += 1
            k = f"k{self.loops}"
            known = dict(self.variables)
            values = r.choice([f"1:{r.randrange(6)}", f"{r.randrange(6)}:-1:1", "0:0.25:1",
                               f"{self.classes['i']}(1):{self.classes['i']}({r.randrange(5)})", "[3, 1, 2]",
                               f"1:max({self.double(1)}, 0.5):4",
                               # Steps pass the last value by a rounding error, or are whole.
                               f"0:{r.choice(['0.1', 'max(' + self.double(0) + ', 0.1)'])}:0.3",
                               f"{r.choice(['1', '2', '0.5'])}:round(max({self.double(0)}, 1)):{r.randrange(9)}"])
            self.variables[k] = "i" if "int" in values else "d"
            self.lines.append(f"{indent}for {k} = {values}")
            self.inner(indent, depth, repeats=1)
            if r.random() < 0.3:
                self.lines.append(f"{indent}  if {self.condition(1)}; {r.choice(['break', 'continue'])}; end")
            self.lines.append(f"{indent}end")
            self.variables = known
            self.loops -= 1
        elif choice == 10:
            name = f"w{len(self.lines)}"
            self.lines.append(f"{indent}{name} = 0")
            self.lines.append(f"{indent}while {name} < {r.randrange(5)} && {self.condition(1)}")
            self.lines.append(f"{indent}  {name} = {name} + 1")
            self.inner(indent, depth, repeats=1)
            self.lines.append(f"{indent}end")
        elif choice == 11:
            self.steps(indent)
        elif choice == 12:
            self.walk(indent)
        else:
            self.lines.append(f"{indent}switch {self.double(1)}")
            self.lines.append(f"{indent}case {self.number()}")
            self.inner(indent, depth)
            self.lines.append(f"{indent}otherwise")
            self.inner(indent, depth)
            self.lines.append(f"{indent}end")

    def steps(self, indent):
        """An integer that is counted on, up or down or by halves, past its limits if need be."""
        r = self.rng
        form = r.choice("iu")
        names = self.names(form)
        if not names:
            return self.assign(indent)
        x = r.choice(names)
        name = f"w{len(self.lines)}"
        divisor = r.choice(DIVISORS)
        guard = r.choice([divisor, divisor, divisor, "2", "3"])

        def step():
            factor = r.choice(["3", "2", "1", "-1", "7", "100"])
            return r.choice([f"{x} / {divisor}", f"{x} / {divisor}", f"{factor} * {x} + 1",
                             f"{x} * {factor} - 1", f"{x} - 3", f"{x} + 100", f"-{x}"])

        self.lines += [f"{indent}{name} = 0",
                       f"{indent}while {name} < {r.randrange(2, 9)}",
                       f"{indent}  if {r.choice(['mod', 'rem'])}({x}, {guard}) {r.choice(['==', '!='])} 0",
                       f"{indent}    {x} = {step()}",
                       f"{indent}  else",
                       f"{indent}    {x} = {step()}",
                       f"{indent}  end",
                       f"{indent}  {name} = {name} + 1",
                       f"{indent}end"]

    def walk(self, indent):
        """Two places in an array that go towards each other, whole or not, inside or not."""
        r = self.rng
        names = self.names("DILU")
        if not names:
            return self.assign(indent)
        x = r.choice(names)
        i, j = f"i{len(self.lines)}", f"j{len(self.lines)}"
        first = r.choice(["1", "1", "1", "1", "2", "0", "0.5", "-1", "nan", "9007199254740991",
                          f"{x}[1]", self.double(1)])
        last = r.choice([f"length({x})", f"length({x})", "3", "2", "5", "inf", f"{x}[1]",
                         "9007199254740993", self.double(1)])
        turns = f"w{len(self.lines)}"
        self.lines += [f"{indent}{i} = double({first})", f"{indent}{j} = double({last})",
                       f"{indent}{turns} = 0",
                       f"{indent}while {i} {r.choice(['<', '<', '<=', '!='])} {j} && {turns} < 6",
                       f"{indent}  {turns} = {turns} + 1"]
        body = r.choice([[f"h = {x}[{i}]", f"{x}[{i}] = {x}[{j}]", f"{x}[{j}] = h"],
                         [f"{x}[{i}] = {x}[{j}]"],
                         [f"{x}[{j}] = {x}[{i}]"],
                         [f"{x}[{x}[{i}]] = {x}[{j}]"]])
        self.lines += [f"{indent}  {line}" for line in body]
        self.lines += [f"{indent}  {i} = {i} + {r.choice(['1', '1', '1', '2', '0.5'])}",
                       f"{indent}  {j} = {j} - {r.choice(['1', '1', '1', '0', '0.5'])}",
                       f"{indent}end"]

    def text(self):
        self.block("  ", 2, self.rng.randrange(3, 9))
        self.results = self.rng.choice([1, 1, 2])
        names = list(self.variables)
        given = [self.rng.choice(names) for _ in range(self.results)]
        self.result_forms = [self.variables[name] for name in given]
        body = "\n".join(self.lines)
        return f"function {self.name}(a, b)\n{body}\n  return {', '.join(given)}\nend\n"


SHOW = """# Class, size and elements, in full.
function show(x)
  printf("  %s %d by %d:", class(x), rows(x), columns(x))
  for i = 1:length(x)
    printf(" %s", text(x[i]))
  end
  printf("\\n")
end

function failure(err)
  printf("  %s: %s\\n", err.identifier, err.message)
  for i = 1:length(err.stack)
    printf("    %s %d %d\\n", err.stack{i}.function, err.stack{i}.line, err.stack{i}.column)
  end
end
"""


def script(seed, count=30):
    rng = random.Random(seed)
    classes = {"i": rng.choice(["int8", "int16", "int32", "int32", "int64"]),
               "u": rng.choice(["uint8", "uint8", "uint16", "uint32", "uint64"])}
    given = arguments_of(classes)
    functions = []
    texts = [SHOW]
    for number in range(count):
        forms = [rng.choice("dddiluDDDIUL") for _ in range(2)]
        function = Function(rng, number, forms, functions[-6:], classes)
        texts.append(function.text())
        functions.append(function)
    for function in functions:
        for _ in range(3):
            values = [rng.choice(given[form]) for form in function.forms]
            if function.forms[0] == function.forms[1] and rng.random() < 0.5:
                texts.append(f"both = {values[0]}") # the same array twice
                values = ["both", "both"]
            arguments = ", ".join(values)
            texts.append(f'printf("call {function.name}({arguments})\\n")')
            if function.results == 2:
                texts.append(f"try\n  x, y = {function.name}({arguments})\n  show(x)\n  show(y)\n"
                             "catch err\n  failure(err)\nend")
            else:
                texts.append(f"try\n  show({function.name}({arguments}))\n"
                             "catch err\n  failure(err)\nend")
    return "\n".join(texts) + "\n"


if __name__ == "__main__":
    print(script(int(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 30), end="")
