// Built-in functions on texts, patterns, cells, structs, functions, types, and what prints.
#include "tests/builtins_helpers.hpp"

namespace varnix::testing {
namespace {

TEST(BuiltinsConsole, Print) {
    EXPECT_EQ(printed("disp(5); disp(\"a b\"); disp([1, 2])"), "5\na b\n1  2\n");
    EXPECT_EQ(printed("printf(\"%d,\", [1, 2]); printf(\"end\\n\")"), "1,2,end\n");
}

TEST(BuiltinsConsole, TextsAndNumbers) {
    expectRows(std::vector<GoodRow>{
        {"sprintf(\"%5.2f|%s|%d\", 3.14159, \"x\", true)", "\" 3.14|x|1\""},
        {"text(0.1)", "\"0.1\""},
        {"text(true)", "\"true\""},
        {"text(\"as it is\")", "\"as it is\""},
        {"text([1, 2; 3, 4])", "\"[1, 2; 3, 4]\""},
        {"text([])", "\"[]\""},
        {"text(zeros(0, 2))", "\"zeros(0, 2)\""},
        {"text(fn sin)", "\"fn sin\""},
        {"text(18446744073709551615u64)", "\"18446744073709551615\""},
        {"number(\"12\")", "12"},
        {"number(\" -1.5e-3 \")", "-0.0015"},
        {"number(\"0xff\")", "255"},
        {"number(\"-inf\")", "-inf"},
        {"isnan(number(\"nan\"))", "true"},
        {"number({\"1\"; \"2\"})", "[1; 2]"},
        {"number(\"1e999\")", "inf"},
        {"number(5i8)", "5"},
    });
}

TEST(BuiltinsConsole, Errors) {
    EXPECT_EQ(errorOfCode("error(\"plain %d\")"), "varnix:error: plain %d");
    EXPECT_EQ(errorOfCode("error(\"area:what\", \"%d of %s\", 1, \"x\")"), "area:what: 1 of x");
    EXPECT_EQ(errorOfCode("error(\"value %d\", 5)"), "varnix:error: value 5");
    EXPECT_EQ(errorOfCode("error(\"area:what\")"), "varnix:error: area:what");
    EXPECT_EQ(errorOfCode("try\n error(\"a:b\", \"inner\")\ncatch err\n error(err)\nend"),
              "a:b: inner");
    EXPECT_EQ(errorOfCode("assert(true); assert([1, 1], \"fine\")"), "");
    EXPECT_EQ(errorOfCode("assert(1 == 2)"), "varnix:assertion: assertion failed");
    EXPECT_EQ(errorOfCode("assert(false, \"because\")"), "varnix:assertion: because");
    EXPECT_EQ(errorOfCode("assert(false, \"100%\")"), "varnix:assertion: 100%");
    EXPECT_EQ(errorOfCode("assert([], \"%d is wrong\", 5)"), "varnix:assertion: 5 is wrong");
}

TEST(BuiltinsTexts, SplitAndJoin) {
    expectRows(std::vector<GoodRow>{
        {"split(\"  a b\\tc \")", "{\"a\", \"b\", \"c\"}"},
        {"split(\"a,b,,\", \",\")", "{\"a\", \"b\", \"\", \"\"}"},
        {"split(\"\", \",\")", "{\"\"}"},
        {"size(split(\"\"))", "[1, 0]"},
        {"split(\"a--b\", \"--\")", "{\"a\", \"b\"}"},
        {"join({\"a\", \"b\", \"c\"})", "\"abc\""},
        {"join({\"a\"; \"b\"}, \", \")", "\"a, b\""},
        {"join({}, \",\")", "\"\""},
        {"trim(\"\\n a \")", "\"a\""},
        {"trim({\" a\", \"b \"})", "{\"a\", \"b\"}"},
        {"trim(\"   \")", "\"\""},
        {"replace(\"aaa\", \"aa\", \"b\")", "\"ba\""},
        {"replace({\"x-y\"}, \"-\", \"\")", "{\"xy\"}"},
        {"upper(\"abz1\")", "\"ABZ1\""},
        {"lower({\"ABZ\"})", "{\"abz\"}"},
        {"contains({\"abc\", \"x\"}, \"b\")", "[true, false]"},
        {"contains(\"abc\", \"\")", "true"},
        {"startswith(\"abc\", \"abcd\")", "false"},
        {"endswith({\"a.vx\"; \"b\"}, \".vx\")", "[true; false]"},
        {"locate(\"aaa\", \"aa\")", "[1, 2]"},
        {"size(locate(\"abc\", \"x\"))", "[1, 0]"},
        {"pad(\"ab\", 4)", "\"ab  \""},
        {"pad({\"a\", \"long\"}, -3)", "{\"  a\", \"long\"}"},
    });
}

TEST(BuiltinsPatterns, RegularExpressions) {
    expectRows(std::vector<GoodRow>{
        {"matches(\"abc\", \"b\")", "true"},
        {"matches(\"abc\", \"^b\")", "false"},
        {"matches({\"a1\"; \"b\"}, '\\d')", "[true; false]"},
        {"findall(\"one two\", '\\w+')", "{\"one\", \"two\"}"},
        {"findall(\"ab\", \"x*\")", "{\"\", \"\", \"\"}"},
        {"size(findall(\"ab\", \"x\"))", "[1, 0]"},
        {"substitute(\"2026-11\", '(\\d+)-(\\d+)', '\\2/\\1')", "\"11/2026\""},
        {"substitute({\"aa\"}, \"a\", \"b\")", "{\"bb\"}"},
    });
    interpreter().runCode("ok, groups = matches(\"key=7\", '(\\w+)=(\\d)'); "
                          "no, none = matches(\"key\", '=');",
                          "<test>");
    EXPECT_TRUE(same(evaluate("groups"), cellRow({text("key=7"), text("key"), text("7")})));
    EXPECT_TRUE(same(evaluate("ok"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("no"), Value::ofLogical(false)));
    EXPECT_TRUE(same(evaluate("isempty(none)"), Value::ofLogical(true)));
}

TEST(BuiltinsRecords, CellsStructsFunctions) {
    expectRows(std::vector<GoodRow>{
        {"size(cell(2, 3))", "[2, 3]"},
        {"cell()", "{}"},
        {"isequal(cell(1, 2), {[], []})", "true"},
        {"fields(struct(\"b\", 1, \"a\", 2))", "{\"b\"; \"a\"}"},
        {"size(fields(struct()))", "[0, 1]"},
        {"hasfield(struct(\"a\", 1), {\"a\", \"b\"})", "[true, false]"},
        {"hasfield(5, \"a\")", "false"},
        {"getfield(struct(\"a\", {1}), \"a\")", "{1}"},
        {"setfield(struct(\"a\", 1), \"a\", 2)", "struct(\"a\", 2)"},
        {"rmfield(struct(\"a\", 1, \"b\", 2), \"a\")", "struct(\"b\", 2)"},
        {"map(fn(x) x + 1, [1, 2; 3, 4])", "[2, 3; 4, 5]"},
        {"map(fn(x) x > 1, [1, 2])", "[false, true]"},
        {"map(\"upper\", {\"a\", \"b\"})", "{\"A\", \"B\"}"},
        {"map(fn length, {\"a\", \"bc\"})", "{1, 2}"},
        {"map(fn(a, b) a * b, [1, 2], [3, 4])", "[3, 8]"},
        {"map(fn(x) [x, x], [1, 2])", "{[1, 1], [2, 2]}"},
        {"map(fn(x) x, [])", "[]"},
        {"filter(fn(x) x > 1, [3, 1, 2])", "[3, 2]"},
        {"filter(fn istext, {1, \"a\"})", "{\"a\"}"},
        {"reduce(fn(a, b) a + b, [1, 2, 3])", "6"},
        {"reduce(fn(a, b) [a, b], {\"b\", \"c\"}, \"a\")", "\"abc\""},
        {"reduce(fn max, [], 5)", "5"},
        {"call(fn(a, b) a - b, 5, 3)", "2"},
        {"call(\"sin\", 0)", "0"},
    });
    // A changed copy leaves the struct as it was.
    interpreter().runCode("s = struct(\"a\", 1); t = setfield(s, \"a\", 2);", "<test>");
    EXPECT_TRUE(same(evaluate("s.a"), number(1)));
    EXPECT_EQ(printed("map(fn disp, [1, 2])"), "1\n2\n");
}

TEST(BuiltinsTypes, AskAndConvert) {
    expectRows(std::vector<GoodRow>{
        {"class(true)", "\"logical\""},
        {"class(\"a\")", "\"char\""},
        {"class({})", "\"cell\""},
        {"class(struct())", "\"struct\""},
        {"class(fn sin)", "\"function\""},
        {"class(5u16)", "\"uint16\""},
        {"isa(5, \"double\")", "true"},
        {"isa(5i8, \"numeric\")", "true"},
        {"isa(true, \"numeric\")", "false"},
        {"istext(\"\")", "true"},
        {"istext([\"ab\"; \"cd\"])", "false"},
        {"ischar([\"ab\"; \"cd\"])", "true"},
        {"iscell({1})", "true"},
        {"isstruct(5)", "false"},
        {"isnumeric(5i8)", "true"},
        {"isinteger(5)", "false"},
        {"islogical([true, false])", "true"},
        {"isobject({})", "false"},
        {"isfunction(fn(x) x)", "true"},
        {"isscalar(5)", "true"},
        {"double([true, false])", "[1, 0]"},
        {"logical([2, 0])", "[true, false]"},
        {"char({\"a\", \"bcd\"})", "[\"a  \"; \"bcd\"]"},
        {"char(\"stays\")", "\"stays\""},
        {"int8([-1000, 2.5, nan])", "[-128i8, 3i8, 0i8]"},
        {"int16(1e9)", "32767i16"},
        {"int32(\"a\")", "97i32"},
        {"int64(18446744073709551615u64)", "9223372036854775807i64"},
        {"uint8(300i16)", "255u8"},
        {"uint16(-1)", "0u16"},
        {"uint32(inf)", "4294967295u32"},
        {"uint64(1e30)", "18446744073709551615u64"},
        {"intmax()", "2147483647i32"},
        {"intmax(\"uint64\")", "18446744073709551615u64"},
        {"intmin(5i16)", "-32768i16"},
        {"pi", "3.141592653589793"},
        {"eps(1)", "2 ^ -52"},
        {"eps([1, 2])", "[2 ^ -52, 2 ^ -51]"},
    });
}

} // namespace
} // namespace varnix::testing
