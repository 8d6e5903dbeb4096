// What holds for every built-in function: a help text whose example is true, at least one test of a
// bad argument, exact messages.
#include "tests/builtins_helpers.hpp"

#include <set>

namespace varnix::testing {
namespace {

// Each built-in function with code that misuses it and the error that tells so.
constexpr BadRow badRows[] = {
    {"abs", "abs({})", "varnix:wrongType: abs: argument 1 must be numeric, not 0 by 0 cell"},
    {"acos", "acos({1})", "varnix:wrongType: acos: argument 1 must be numeric, not 1 by 1 cell"},
    {"addpath", "addpath(5)", "varnix:wrongType: addpath: argument 1 must be a text, not double"},
    {"addpath", "addpath(\"\")", "varnix:badArgument: addpath: argument 1 is an empty text"},
    {"all", "all({})", "varnix:wrongType: all: argument 1 must be numeric, not 0 by 0 cell"},
    {"any", "any(1, 3)",
     "varnix:badArgument: any: argument 2 must be a whole number from 1 to 2, not 3"},
    {"appendfile", "appendfile(\"/nowhere/x\", \"\")",
     "varnix:ioError: appendfile: cannot write /nowhere/x: No such file or directory"},
    {"args", "args(1)", "varnix:tooManyInputs: args takes no arguments, not 1; call it as args"},
    {"asin", "asin(struct())", "varnix:wrongType: asin: argument 1 must be numeric, not a struct"},
    {"assert", "assert({})",
     "varnix:wrongType: assert: argument 1 must be a condition, not 0 by 0 cell"},
    {"assert", "assert(true, 5)",
     "varnix:wrongType: assert: argument 2 must be a text, not double"},
    {"atan", "atan(fn sin)", "varnix:wrongType: atan: argument 1 must be numeric, not a function"},
    {"atan2", "atan2([1, 2], [1, 2, 3])",
     "varnix:wrongSize: atan2: sizes do not agree: 1 by 2 and 1 by 3"},
    {"bitand", "bitand(1.5, 1)",
     "varnix:badArgument: bitand: argument 1 must hold whole numbers from 0 to 2^53"},
    {"bitand", "bitand(1i8, 256)", "varnix:badArgument: bitand: argument 2 does not fit into int8"},
    {"bitor", "bitor(1, -1)",
     "varnix:badArgument: bitor: argument 2 must hold whole numbers from 0 to 2^53"},
    {"bitshift", "bitshift(1, 0.5)",
     "varnix:badArgument: bitshift: argument 2 must hold whole numbers"},
    {"bitshift", "bitshift(-1i8, 1)",
     "varnix:badArgument: bitshift: argument 1 must not be negative"},
    {"bitxor", "bitxor(1i8, 1i16)",
     "varnix:wrongType: bitxor of two different integer types, int8 and int16; convert one of "
     "them"},
    {"call", "call(5)", "varnix:wrongType: call: argument 1 must be a function, not double"},
    {"capture", "capture(5)", "varnix:wrongType: capture: argument 1 must be a text, not double"},
    {"cbrt", "cbrt({})", "varnix:wrongType: cbrt: argument 1 must be numeric, not 0 by 0 cell"},
    {"cd", "cd(\"/nowhere\")",
     "varnix:ioError: cd: cannot go to /nowhere: No such file or directory"},
    {"ceil", "ceil({})", "varnix:wrongType: ceil: argument 1 must be numeric, not 0 by 0 cell"},
    {"cell", "cell(-1)",
     "varnix:badArgument: cell: argument 1 must be a whole number from 0 up, not -1"},
    {"char", "char(256)",
     "varnix:badArgument: char: a character's code must be a whole number from 0 to 255"},
    {"char", "char({5})",
     "varnix:wrongType: char: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"class", "class()",
     "varnix:notEnoughInputs: class needs 1 argument, not 0; call it as "
     "class(x)"},
    {"classes", "classes(\"no.such\")", "varnix:undefined: classes: there is no package no.such"},
    {"clear", "clear(5)", "varnix:wrongType: clear: argument 1 must be a text, not double"},
    {"columns", "columns(1, 2)",
     "varnix:tooManyInputs: columns takes 1 argument, not 2; call it as columns(x)"},
    {"contains", "contains(5, \"a\")",
     "varnix:wrongType: contains: argument 1 must be a text, not double"},
    {"cos", "cos({})", "varnix:wrongType: cos: argument 1 must be numeric, not 0 by 0 cell"},
    {"cosh", "cosh({})", "varnix:wrongType: cosh: argument 1 must be numeric, not 0 by 0 cell"},
    {"cumprod", "cumprod({})",
     "varnix:wrongType: cumprod: argument 1 must be numeric, not 0 by 0 cell"},
    {"cumsum", "cumsum(1, 0)",
     "varnix:badArgument: cumsum: argument 2 must be a whole number from 1 to 2, not 0"},
    {"delete", "delete(5)", "varnix:wrongType: delete: argument 1 must be an object, not double"},
    {"det", "det([1, 2])", "varnix:wrongSize: det: argument 1 must be a square matrix, not 1 by 2"},
    {"diag", "diag(\"a\")", "varnix:wrongType: diag: argument 1 must be numeric, not a text"},
    {"diff", "diff({})", "varnix:wrongType: diff: argument 1 must be numeric, not 0 by 0 cell"},
    {"disp", "disp()", "varnix:notEnoughInputs: disp needs 1 argument, not 0; call it as disp(x)"},
    {"double", "double({})",
     "varnix:wrongType: double: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"endswith", "endswith(\"a\", 5)",
     "varnix:wrongType: endswith: argument 2 must be a text, not double"},
    {"eps", "eps(\"a\")", "varnix:wrongType: eps: argument 1 must be numeric, not a text"},
    {"error", "error(5)", "varnix:wrongType: error: argument 1 must be a text, not double"},
    {"error", "error(struct())",
     "varnix:badArgument: error: argument 1 is a struct without the texts message and identifier "
     "of "
     "a caught error"},
    {"eval", "eval(5)", "varnix:wrongType: eval: argument 1 must be a text, not double"},
    {"exists", "exists(5)", "varnix:wrongType: exists: argument 1 must be a text, not double"},
    {"exit", "exit(256)",
     "varnix:badArgument: exit: argument 1 must be a whole number from 0 to 255, not 256"},
    {"exit", "exit(\"a\")",
     "varnix:wrongType: exit: argument 1 must be a numeric scalar, not a text"},
    {"exp", "exp({})", "varnix:wrongType: exp: argument 1 must be numeric, not 0 by 0 cell"},
    {"expm1", "expm1({})", "varnix:wrongType: expm1: argument 1 must be numeric, not 0 by 0 cell"},
    {"eye", "eye(1.5)",
     "varnix:badArgument: eye: argument 1 must be a whole number from 0 up, not 1.5"},
    {"factorial", "factorial(-1)",
     "varnix:badArgument: factorial: argument 1 must hold whole numbers from 0 up"},
    {"fields", "fields(5)", "varnix:wrongType: fields: argument 1 must be a struct, not double"},
    {"filter", "filter(5, [1])",
     "varnix:wrongType: filter: argument 1 must be a function, not double"},
    {"filter", "filter(fn sin, struct())",
     "varnix:wrongType: filter: argument 2 must be a cell or an array, not a struct"},
    {"find", "find([1], 0)",
     "varnix:badArgument: find: argument 2 must be a whole number from 1 to 1099511627776, not 0"},
    {"findall", "findall(\"a\", \"(\")",
     "varnix:badArgument: findall: argument 2 is no regular expression: missing ): ("},
    {"flip", "flip(struct())", "varnix:wrongType: flip: argument 1 must be an array, not a struct"},
    {"floor", "floor({})", "varnix:wrongType: floor: argument 1 must be numeric, not 0 by 0 cell"},
    {"functions", "functions(1)",
     "varnix:tooManyInputs: functions takes no arguments, not 1; call it as functions"},
    {"gcd", "gcd(1.5, 2)", "varnix:badArgument: gcd: argument 1 must hold whole numbers"},
    {"getenv", "getenv(\"a=b\")", "varnix:badArgument: getenv: argument 1 holds the character ="},
    {"getfield", "getfield(struct(), \"a\")", "varnix:noSuchMember: getfield: there is no field a"},
    {"getproperty", "getproperty(5, \"a\")",
     "varnix:wrongType: getproperty: argument 1 must be an object, not double"},
    {"hasfield", "hasfield(struct(), 5)",
     "varnix:wrongType: hasfield: argument 2 must be a text, not double"},
    {"help", "help(5)",
     "varnix:wrongType: help: argument 1 must be a name, an object or a named function, not "
     "double"},
    {"hypot", "hypot(1, {})",
     "varnix:wrongType: hypot: argument 2 must be numeric, not 0 by 0 cell"},
    {"inf", "inf(\"a\")", "varnix:wrongType: inf: argument 1 must be numeric, not a text"},
    {"int16", "int16({})",
     "varnix:wrongType: int16: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"int32", "int32({})",
     "varnix:wrongType: int32: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"int64", "int64({})",
     "varnix:wrongType: int64: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"int8", "int8({})",
     "varnix:wrongType: int8: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"intmax", "intmax(\"double\")",
     "varnix:badArgument: intmax: argument 1 is no integer class: \"double\""},
    {"intmin", "intmin(5)",
     "varnix:wrongType: intmin: argument 1 must be an integer or the name of "
     "an integer class, not double"},
    {"inv", "inv([1, 1; 1, 1])",
     "varnix:singularMatrix: inv: the matrix is singular to working precision"},
    {"isa", "isa(5, 5)", "varnix:wrongType: isa: argument 2 must be a text, not double"},
    {"iscell", "iscell()",
     "varnix:notEnoughInputs: iscell needs 1 argument, not 0; call it as iscell(x)"},
    {"ischar", "ischar()",
     "varnix:notEnoughInputs: ischar needs 1 argument, not 0; call it as ischar(x)"},
    {"isempty", "isempty(1, 2)",
     "varnix:tooManyInputs: isempty takes 1 argument, not 2; call it as isempty(x)"},
    {"isequal", "isequal(1)",
     "varnix:notEnoughInputs: isequal needs at least 2 arguments, not 1; "
     "call it as isequal(a, b, ...)"},
    {"isfile", "isfile(5)", "varnix:wrongType: isfile: argument 1 must be a text, not double"},
    {"isfinite", "isfinite({})",
     "varnix:wrongType: isfinite: argument 1 must be numeric, not 0 by 0 cell"},
    {"isfolder", "isfolder({})",
     "varnix:wrongType: isfolder: argument 1 must be a text, not 0 by 0 cell"},
    {"isfunction", "isfunction()",
     "varnix:notEnoughInputs: isfunction needs 1 argument, not 0; call it as isfunction(x)"},
    {"isinf", "isinf({})", "varnix:wrongType: isinf: argument 1 must be numeric, not 0 by 0 cell"},
    {"isinteger", "isinteger(1, 2)",
     "varnix:tooManyInputs: isinteger takes 1 argument, not 2; call it as isinteger(x)"},
    {"islogical", "islogical(1, 2)",
     "varnix:tooManyInputs: islogical takes 1 argument, not 2; call it as islogical(x)"},
    {"ismember", "ismember(5, {\"a\"})",
     "varnix:wrongType: ismember: argument 1 must be a text, not double"},
    {"isnan", "isnan({})", "varnix:wrongType: isnan: argument 1 must be numeric, not 0 by 0 cell"},
    {"isnumeric", "isnumeric()",
     "varnix:notEnoughInputs: isnumeric needs 1 argument, not 0; call it as isnumeric(x)"},
    {"isobject", "isobject()",
     "varnix:notEnoughInputs: isobject needs 1 argument, not 0; call it as isobject(x)"},
    {"isscalar", "isscalar()",
     "varnix:notEnoughInputs: isscalar needs 1 argument, not 0; call it as isscalar(x)"},
    {"isstruct", "isstruct()",
     "varnix:notEnoughInputs: isstruct needs 1 argument, not 0; call it as isstruct(x)"},
    {"istext", "istext()",
     "varnix:notEnoughInputs: istext needs 1 argument, not 0; call it as istext(x)"},
    {"isvalid", "isvalid(5)",
     "varnix:wrongType: isvalid: argument 1 must be an object, not double"},
    {"join", "join({1})",
     "varnix:wrongType: join: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"lcm", "lcm(1, 2.5)", "varnix:badArgument: lcm: argument 2 must hold whole numbers"},
    {"length", "length()",
     "varnix:notEnoughInputs: length needs 1 argument, not 0; call it as length(x)"},
    {"linspace", "linspace(0, 1, -1)",
     "varnix:badArgument: linspace: argument 3 must be a whole number from 0 to 1099511627776, not "
     "-1"},
    {"locate", "locate(\"a\", \"\")", "varnix:badArgument: locate: argument 2 is an empty text"},
    {"log", "log({})", "varnix:wrongType: log: argument 1 must be numeric, not 0 by 0 cell"},
    {"log10", "log10({})", "varnix:wrongType: log10: argument 1 must be numeric, not 0 by 0 cell"},
    {"log1p", "log1p({})", "varnix:wrongType: log1p: argument 1 must be numeric, not 0 by 0 cell"},
    {"log2", "log2({})", "varnix:wrongType: log2: argument 1 must be numeric, not 0 by 0 cell"},
    {"logical", "logical(nan)",
     "varnix:badArgument: logical: nan has no truth and cannot become a logical"},
    {"lower", "lower(5)", "varnix:wrongType: lower: argument 1 must be a text, not double"},
    {"ls", "ls(\"/nowhere\")",
     "varnix:ioError: ls: cannot list /nowhere: No such file or directory"},
    {"makefolder", "makefolder(\"/dev/null/x\")",
     "varnix:ioError: makefolder: cannot make /dev/null/x: Not a directory"},
    {"map", "map(fn max, [1, 2], [1, 2, 3])",
     "varnix:wrongSize: map: arguments 2 and 3 differ in size: 1 by 2 and 1 by 3"},
    {"map", "map(5, [1])", "varnix:wrongType: map: argument 1 must be a function, not double"},
    {"matches", "matches(\"a\", \"[\")",
     "varnix:badArgument: matches: argument 2 is no regular expression: missing ]: ["},
    {"max", "max({})", "varnix:wrongType: max: argument 1 must be numeric, not 0 by 0 cell"},
    {"max", "max(1, 2, 1)",
     "varnix:badArgument: max: argument 2 must be [] when there is a "
     "dimension"},
    {"mean", "mean(\"a\")", "varnix:wrongType: mean: argument 1 must be numeric, not a text"},
    {"median", "median({})",
     "varnix:wrongType: median: argument 1 must be numeric, not 0 by 0 cell"},
    {"methods", "methods(\"no.such\")", "varnix:undefined: methods: there is no class no.such"},
    {"min", "min(1i8, 1i16)",
     "varnix:wrongType: min of two different integer types, int8 and "
     "int16; convert one of them"},
    {"mod", "mod(1, {})", "varnix:wrongType: mod: argument 2 must be numeric, not 0 by 0 cell"},
    {"mod", "mod([1, 2], [1; 2])", "varnix:wrongSize: mod: sizes do not agree: 1 by 2 and 2 by 1"},
    {"nan", "nan(-1)",
     "varnix:badArgument: nan: argument 1 must be a whole number from 0 up, not -1"},
    {"norm", "norm([1, 2; 3, 4], 3)",
     "varnix:badArgument: norm: argument 2 must be 1, 2, inf or \"fro\""},
    {"norm", "norm([1, 2], 0.5)",
     "varnix:badArgument: norm: argument 2 must be a number from 1 up, inf or \"fro\""},
    {"now", "now(1)", "varnix:tooManyInputs: now takes no arguments, not 1; call it as now"},
    {"number", "number(\"12x\")", "varnix:badArgument: number: \"12x\" is no number"},
    {"number", "number(\"\")", "varnix:badArgument: number: \"\" is no number"},
    {"number", "number(struct())",
     "varnix:wrongType: number: argument 1 must be a text, not a struct"},
    {"numel", "numel()",
     "varnix:notEnoughInputs: numel needs 1 argument, not 0; call it as numel(x)"},
    {"ones", "ones(2, 2, \"cell\")",
     "varnix:badArgument: ones: argument 3 is no numeric class: \"cell\""},
    {"pad", "pad(\"a\", 0.5)",
     "varnix:badArgument: pad: argument 2 must be a whole number from "
     "-1073741824 to 1073741824, not 0.5"},
    {"pause", "pause(-1)",
     "varnix:badArgument: pause: argument 1 must be a number of seconds from 0 to 1e9"},
    {"pi", "pi(1)", "varnix:tooManyInputs: pi takes no arguments, not 1; call it as pi"},
    {"printf", "printf(\"%d\", \"a\")",
     "varnix:badArgument: printf: format \"%d\": a number is needed, not a text"},
    {"printf", "printf(5)", "varnix:wrongType: printf: argument 1 must be a text, not double"},
    {"prod", "prod({})", "varnix:wrongType: prod: argument 1 must be numeric, not 0 by 0 cell"},
    {"properties", "properties(5)",
     "varnix:wrongType: properties: argument 1 must be an object or "
     "the name of a class, not double"},
    {"pwd", "pwd(1)", "varnix:tooManyInputs: pwd takes no arguments, not 1; call it as pwd"},
    {"rand", "rand(\"a\")", "varnix:wrongType: rand: argument 1 must be numeric, not a text"},
    {"rand", "rand(1e9, 1e9)",
     "varnix:tooLarge: an array of 1000000000 by 1000000000 double elements is too large"},
    {"randi", "randi([3, 1])",
     "varnix:badArgument: randi: argument 1 must hold whole numbers, the least one first"},
    {"randn", "randn(-1)",
     "varnix:badArgument: randn: argument 1 must be a whole number from 0 up, not -1"},
    {"randperm", "randperm(-1)",
     "varnix:badArgument: randperm: argument 1 must be a whole number "
     "from 0 to 1073741824, not -1"},
    {"rank", "rank({})", "varnix:wrongType: rank: argument 1 must be numeric, not 0 by 0 cell"},
    {"readfile", "readfile(\"/nowhere\")",
     "varnix:ioError: readfile: cannot read /nowhere: No such file or directory"},
    {"readfile", "readfile(\"/\")", "varnix:ioError: readfile: cannot read /: Is a directory"},
    {"reduce", "reduce(fn max, [])",
     "varnix:badArgument: reduce: argument 2 is empty and there is no value to start from"},
    {"rem", "rem(1i8, 1i16)",
     "varnix:wrongType: rem of two different integer types, int8 and "
     "int16; convert one of them"},
    {"removefile", "removefile(\"/nowhere\")",
     "varnix:ioError: removefile: cannot remove /nowhere: No such file or directory"},
    {"replace", "replace(\"a\", \"\", \"b\")",
     "varnix:badArgument: replace: argument 2 is an empty text"},
    {"repmat", "repmat([1, 2], -1)",
     "varnix:badArgument: repmat: argument 2 must be a whole number from 0 up, not -1"},
    {"repmat", "repmat([1, 2], 4e9, 4e9)",
     "varnix:tooLarge: an array of 4000000000 by 8000000000 double elements is too large"},
    {"reshape", "reshape(1:6, 4, 2)", "varnix:wrongSize: reshape: 6 elements cannot become 4 by 2"},
    {"reshape", "reshape(1:6, 4, [])",
     "varnix:badArgument: reshape: argument 2 does not divide the 6 elements"},
    {"reshape", "reshape(1:6, [], [])",
     "varnix:badArgument: reshape: argument 3 may not be [] when argument 2 is"},
    {"rmfield", "rmfield(struct(), \"a\")", "varnix:noSuchMember: rmfield: there is no field a"},
    {"round", "round({})", "varnix:wrongType: round: argument 1 must be numeric, not 0 by 0 cell"},
    {"rows", "rows()", "varnix:notEnoughInputs: rows needs 1 argument, not 0; call it as rows(x)"},
    {"run", "run(5)", "varnix:wrongType: run: argument 1 must be a text, not double"},
    {"seed", "seed(-1)",
     "varnix:badArgument: seed: argument 1 must be a whole number from 0 to "
     "9007199254740992, not -1"},
    {"setenv", "setenv(\"\", \"b\")", "varnix:badArgument: setenv: argument 1 is an empty text"},
    {"setfield", "setfield(struct(), \"1a\", 5)",
     "varnix:badArgument: setfield: argument 2 is no name of a field: \"1a\""},
    {"setproperty", "setproperty(5, \"a\", 1)",
     "varnix:wrongType: setproperty: argument 1 must be an object, not double"},
    {"shell", "shell(5)", "varnix:wrongType: shell: argument 1 must be a text, not double"},
    {"sign", "sign({})", "varnix:wrongType: sign: argument 1 must be numeric, not 0 by 0 cell"},
    {"sin", "sin({})", "varnix:wrongType: sin: argument 1 must be numeric, not 0 by 0 cell"},
    {"sinh", "sinh({})", "varnix:wrongType: sinh: argument 1 must be numeric, not 0 by 0 cell"},
    {"size", "size(1, 3)",
     "varnix:badArgument: size: argument 2 must be a whole number from 1 to 2, not 3"},
    {"solve", "solve([1, 2], [1; 2])",
     "varnix:wrongSize: solve: numbers of rows do not agree: 1 by 2 and 2 by 1"},
    {"sort", "sort([1], \"up\")",
     "varnix:badArgument: sort: argument 2 must be \"ascend\" or \"descend\", not \"up\""},
    {"sort", "sort({1, 2})",
     "varnix:wrongType: sort: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"split", "split(\"a\", \"\")", "varnix:badArgument: split: argument 2 is an empty text"},
    {"sprintf", "sprintf(\"%\")",
     "varnix:badArgument: sprintf: format \"%\": it ends within a conversion"},
    {"sqrt", "sqrt({})", "varnix:wrongType: sqrt: argument 1 must be numeric, not 0 by 0 cell"},
    {"startswith", "startswith({5}, \"a\")",
     "varnix:wrongType: startswith: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"std", "std({})", "varnix:wrongType: std: argument 1 must be numeric, not 0 by 0 cell"},
    {"struct", "struct(\"a\")", "varnix:badArgument: struct: names and values must come in pairs"},
    {"struct", "struct(\"a b\", 1)",
     "varnix:badArgument: struct: argument 1 is no name of a field: \"a b\""},
    {"substitute", "substitute(\"a\", \"a\", '\\1')",
     "varnix:badArgument: substitute: argument 3 is no replacement for this pattern: Rewrite "
     "schema "
     "requests 1 matches, but the regexp only has 0 parenthesized subexpressions."},
    {"sum", "sum([1], 1.5)",
     "varnix:badArgument: sum: argument 2 must be a whole number from 1 to 2, not 1.5"},
    {"superclasses", "superclasses(\"no.such\")",
     "varnix:undefined: superclasses: there is no class no.such"},
    {"tan", "tan({})", "varnix:wrongType: tan: argument 1 must be numeric, not 0 by 0 cell"},
    {"tanh", "tanh({})", "varnix:wrongType: tanh: argument 1 must be numeric, not 0 by 0 cell"},
    {"tempname", "tempname(1)",
     "varnix:tooManyInputs: tempname takes no arguments, not 1; call it as tempname"},
    {"text", "text({})",
     "varnix:wrongType: text: argument 1 must be numeric, logical, a text or a "
     "function, not 0 by 0 cell"},
    {"tic", "tic(1)", "varnix:tooManyInputs: tic takes no arguments, not 1; call it as tic"},
    {"timestamp", "timestamp(inf)",
     "varnix:badArgument: timestamp: argument 1 is no time in seconds since 1970"},
    {"toc", "toc(5)", "varnix:wrongType: toc: argument 1 must be a result of tic, not double"},
    {"toc", "toc(18446744073709551615u64)",
     "varnix:badArgument: toc: argument 1 is no result of tic"},
    {"transpose", "transpose(struct())",
     "varnix:wrongType: transpose: argument 1 must be an array, not a struct"},
    {"trim", "trim(5)", "varnix:wrongType: trim: argument 1 must be a text, not double"},
    {"trunc", "trunc({})", "varnix:wrongType: trunc: argument 1 must be numeric, not 0 by 0 cell"},
    {"uint16", "uint16({})",
     "varnix:wrongType: uint16: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"uint32", "uint32({})",
     "varnix:wrongType: uint32: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"uint64", "uint64({})",
     "varnix:wrongType: uint64: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"uint8", "uint8({})",
     "varnix:wrongType: uint8: argument 1 must be numeric, logical or a text, not 0 by 0 cell"},
    {"unique", "unique({1})",
     "varnix:wrongType: unique: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"upper", "upper({5})",
     "varnix:wrongType: upper: argument 1 must be a cell of texts, but cell 1 holds double"},
    {"var", "var({})", "varnix:wrongType: var: argument 1 must be numeric, not 0 by 0 cell"},
    {"variables", "variables(1)",
     "varnix:tooManyInputs: variables takes no arguments, not 1; call it as variables"},
    {"writefile", "writefile(\"/nowhere/x\", \"\")",
     "varnix:ioError: writefile: cannot write /nowhere/x: No such file or directory"},
    {"writefile", "writefile(\"/\", \"\")",
     "varnix:ioError: writefile: cannot write /: Is a directory"},
    {"zeros", "zeros(1e300)", "varnix:tooLarge: zeros: an extent of 1e+300 is too large"},
    {"zeros", "zeros(1, 2, 3)",
     "varnix:badArgument: zeros: argument 3 must be the name of a class"},
    {"zeros", "zeros(100000, 1e6)",
     "varnix:tooLarge: an array of 100000 by 1000000 double elements is too large"},
};

TEST(BuiltinsTable, MisuseIsToldExactly) {
    for (const BadRow& row : badRows) {
        SCOPED_TRACE(row.code);
        EXPECT_EQ(errorOfCode(row.code), row.error);
    }
}

TEST(BuiltinsTable, EveryFunctionHasATestOfMisuse) {
    std::set<std::string> tested;
    for (const BadRow& row : badRows)
        tested.insert(row.name);
    for (const Builtin* builtin : allBuiltins())
        EXPECT_EQ(tested.count(builtin->name), 1u) << builtin->name << " has no row";
    for (const std::string& name : tested)
        EXPECT_NE(findBuiltin(name), nullptr) << name << " is no built-in function";
}

TEST(BuiltinsTable, ExamplesInHelpAreTrue) {
    const std::string_view start = "Example: ";
    const std::string_view middle = " gives ";
    std::size_t examples = 0;
    for (const Builtin* builtin : allBuiltins()) {
        const std::string_view help = builtin->help;
        const std::size_t at = help.find(start);
        if (at == std::string_view::npos)
            continue;
        const std::string_view example = help.substr(at + start.size());
        const std::size_t gives = example.find(middle);
        ASSERT_NE(gives, std::string_view::npos) << builtin->name;
        SCOPED_TRACE(example);
        ++examples;
        EXPECT_NE(example.substr(0, gives).find(builtin->name), std::string_view::npos);
        EXPECT_EQ(errorOf([&] {
                      EXPECT_TRUE(same(evaluate(example.substr(0, gives)),
                                       evaluate(example.substr(gives + middle.size()))));
                      return 0;
                  }),
                  "");
    }
    EXPECT_GT(examples, 120u);
}

TEST(BuiltinsTable, RowsAreWellFormed) {
    const auto all = allBuiltins();
    for (std::size_t i = 0; i < all.size(); ++i) {
        SCOPED_TRACE(all[i]->name);
        EXPECT_EQ(findBuiltin(all[i]->name), all[i]); // so no name is there twice
        if (i != 0) {
            EXPECT_LT(std::string_view(all[i - 1]->name), all[i]->name);
        }
        EXPECT_TRUE(std::string_view(all[i]->signature).starts_with(all[i]->name));
        EXPECT_LE(all[i]->minArguments, all[i]->maxArguments);
        EXPECT_GT(std::string_view(all[i]->help).size(), 10u);
    }
    EXPECT_EQ(findBuiltin("no such function"), nullptr);
    EXPECT_EQ(findBuiltin(""), nullptr);
}

TEST(BuiltinsTable, FunctionsListsThemAllByFamily) {
    EXPECT_EQ(evaluate("functions").count(), allBuiltins().size());
    interpreter().runCode("names, families = functions;", "<test>");
    EXPECT_TRUE(same(evaluate("families[ismember(names, {\"sin\"})]"), cellRow({text("Numbers")})));
}

TEST(BuiltinsTable, ResultsAreCounted) {
    EXPECT_EQ(errorOfCode("x = disp(5)"), "varnix:tooManyOutputs: disp gives no result, not 1");
    EXPECT_EQ(errorOfCode("a, b = sin(5)"), "varnix:tooManyOutputs: sin gives 1 result, not 2");
    EXPECT_EQ(errorOfCode("a, b = size(5, 1)"),
              "varnix:tooManyOutputs: size: one dimension is one result");
    EXPECT_EQ(errorOfCode("a, b = max(5, 1)"),
              "varnix:tooManyOutputs: max: places are given for one array only");
}

} // namespace
} // namespace varnix::testing
