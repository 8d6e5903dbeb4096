// The parser: where mistakes are found and what is said about them, limits, unfinished input.
#include "lang/parser.hpp"
#include "tests/lang_helpers.hpp"

namespace {

using namespace varnix;
using namespace varnix::test;
using testing::HasSubstr;

/// "line:column message" of a syntax error.
std::string mistake(const std::string& code) {
    const objsys::COSError error = errorOf(code);
    EXPECT_EQ(error.identifier(), "varnix:syntax") << code;
    if (error.stack().size() != 1)
        return "no place";
    EXPECT_EQ(error.stack()[0].file, "<test>");
    return std::to_string(error.stack()[0].line) + ":" + std::to_string(error.stack()[0].column) +
           " " + error.message();
}

TEST(Parser, SaysWhatWasExpected) {
    EXPECT_EQ(mistake("x = "), "1:5 expected an expression, found end of input");
    EXPECT_EQ(mistake("x = \ny = 1"), "1:5 expected an expression, found end of line");
    EXPECT_EQ(mistake("x = 3 4"), "1:7 expected end of line or ';', found '4'");
    EXPECT_EQ(mistake("f(1, 2"), "1:2 expected ',' or ')' for this '(', found end of input");
    EXPECT_EQ(mistake("f(1 2)"), "1:5 expected ',' or ')', found '2'");
    EXPECT_EQ(mistake("[1, 2 3]"), "1:7 expected ',', ';' or ']', found '3'");
    EXPECT_EQ(mistake("{1, 2)"), "1:6 expected ',', ';' or '}', found ')'");
    EXPECT_EQ(mistake("x = (1 + 2"), "1:5 expected ')' for this '(', found end of input");
    EXPECT_EQ(mistake("x[]"), "1:3 expected an index");
    EXPECT_EQ(mistake("x[1, 2, 3]"), "1:9 expected one or two indices; arrays have two dimensions");
    EXPECT_EQ(mistake("x.3"), "1:2 expected end of line, ';' or '=', found '.3'");
    EXPECT_EQ(mistake("x. + 1"), "1:4 expected the name of a member after '.', found '+'");
    EXPECT_EQ(mistake("1:2:3:4"), "1:6 a range has at most three parts, first:step:last");
    EXPECT_EQ(mistake("fn + 1"),
              "1:4 expected '(' or the name of a function after 'fn', found '+'");
    EXPECT_EQ(mistake("fn(a, a) a"), "1:7 the parameter 'a' is there twice");
    EXPECT_EQ(mistake("fn(a b) a"), "1:6 expected ',' or ')', found 'b'");
    EXPECT_EQ(mistake("1 = 2"),
              "1:1 expected a variable, an element or a field on the left of '='");
    EXPECT_EQ(mistake("f(1) = 2"), "1:2 a call cannot be assigned to; elements are written x[i], "
                                   "what a cell holds c{i}");
    EXPECT_THAT(mistake("[a, b] = f(1)"), HasSubstr("a, b = f(x)"));
    EXPECT_EQ(mistake("a, b"), "1:5 expected '=', found end of input");
    EXPECT_THAT(mistake("a, b = 3"), HasSubstr("1:8 expected a call on the right of '='"));
    EXPECT_THAT(mistake("a, b = c[1]"), HasSubstr("1:9 expected a call on the right of '='"));
    EXPECT_EQ(mistake("x.(n)"), "1:3 expected the name of a member after '.'; there are no "
                                "computed member names");
}

TEST(Parser, SaysWhichBlockIsOpen) {
    EXPECT_EQ(mistake("x = 1\nif x\n  y = 2\n"),
              "2:1 expected 'elseif', 'else' or 'end' for this 'if', found end of input");
    EXPECT_EQ(mistake("for i = 1:3\n"), "1:1 expected 'end' for this 'for', found end of input");
    EXPECT_EQ(mistake("while true\nif x\nend\n"),
              "1:1 expected 'end' for this 'while', found end of input");
    EXPECT_EQ(mistake("try\nx = 1\nend"), "3:1 expected 'catch', found 'end'");
    EXPECT_EQ(mistake("switch 3\nx = 1\nend"),
              "2:1 expected 'case', 'otherwise' or 'end', found 'x'");
    EXPECT_EQ(mistake("function f(x)\n"), "1:1 expected 'end' for this 'function', found end of "
                                          "input");
    EXPECT_EQ(mistake("end"), "1:1 expected a statement, found 'end' that belongs to no block");
    EXPECT_EQ(mistake("if true\nelse\nelse\nend"), "3:1 expected 'end', found 'else'");
}

TEST(Parser, KnowsWhereWordsBelong) {
    EXPECT_EQ(mistake("break"), "1:1 'break' stands outside a loop");
    EXPECT_EQ(mistake("if true\ncontinue\nend"), "2:1 'continue' stands outside a loop");
    EXPECT_EQ(mistake("return 3"), "1:8 only a function returns values");
    EXPECT_THAT(mistake("if true\nfunction f\nend\nend"), HasSubstr("2:1 a function stands by"));
    EXPECT_EQ(mistake("x = end"), "1:5 expected an expression, found 'end'");
    EXPECT_EQ(mistake("x[fn() end]"), "1:8 expected an expression, found 'end'");
    EXPECT_EQ(mistake("if x = 3\nend"),
              "1:6 expected a condition, found '='; a comparison is written '=='");
    EXPECT_EQ(mistake("f(x = 3)"), "1:5 expected ',' or ')', found '='; arguments have no names");
    EXPECT_EQ(mistake("function f(a)\nend\nfunction f(b)\nend"),
              "3:10 the function 'f' is there twice; the first one is in line 1");
    EXPECT_EQ(mistake("function f(a, b, a)\nend"), "1:18 the parameter 'a' is there twice");
    EXPECT_EQ(mistake("function f(a) x = 1\nend"),
              "1:15 expected end of line or ';' after the head of the function, found 'x'");
}

TEST(Parser, ChecksIntegerLiterals) {
    EXPECT_EQ(mistake("300u8"), "1:1 the number does not fit in uint8");
    EXPECT_EQ(mistake("128i8"), "1:1 the number does not fit in int8");
    EXPECT_EQ(mistake("-129i8"), "1:2 the number does not fit in int8");
    EXPECT_EQ(mistake("-1u8"), "1:2 the number does not fit in uint8");
    EXPECT_EQ(printed("disp(-128i8); disp(-9223372036854775808i64); "
                      "disp(18446744073709551615u64)"),
              "-128\n-9223372036854775808\n18446744073709551615\n");
}

TEST(Parser, NothingRunsBeforeAllIsRead) {
    Interpreter interpreter;
    const console::Capture capture;
    EXPECT_THROW(interpreter.runCode("disp(1)\nx = )", "<test>"), objsys::COSError);
    EXPECT_EQ(capture.text(), "");
}

// ---- limits

std::string repeated(const char* text, std::size_t bytes) {
    std::string result;
    const std::string piece(text);
    while (result.size() < bytes)
        result += piece;
    return result;
}

constexpr std::size_t megabyte = std::size_t{1} << 20;

TEST(ParserLimits, AMegabyteOfAnyNestingIsAnError) {
    for (const char* const piece : {"(",
                                    "[",
                                    "{",
                                    "f(",
                                    "x[",
                                    "x{",
                                    "if 1\n",
                                    "while 1\n",
                                    "for i = 1:2\n",
                                    "try\n",
                                    "switch 1\ncase 2\n",
                                    "- ",
                                    "!",
                                    "+",
                                    "fn() ",
                                    "fn(x) ",

                                    "a.b(",
                                    "{[(",
                                    "1+(",
                                    "a||(b&&("})
        EXPECT_THAT(errorOf(repeated(piece, megabyte)).identifier(), "varnix:tooDeep") << piece;
}

TEST(ParserLimits, AMegabyteOfClosingBracketsIsAnError) {
    EXPECT_EQ(errorOf(repeated(")", megabyte)).identifier(), "varnix:syntax");
    EXPECT_EQ(errorOf(repeated("]", megabyte)).identifier(), "varnix:syntax");
    EXPECT_EQ(errorOf(repeated("end\n", megabyte)).identifier(), "varnix:syntax");
}

TEST(ParserLimits, AMegabyteOfLinksIsAnError) {
    EXPECT_EQ(errorOf("x" + repeated(".a", megabyte) + " = 1").identifier(), "varnix:tooDeep");
    EXPECT_EQ(errorOf("x" + repeated("{1}", megabyte) + " = 1").identifier(), "varnix:tooDeep");
    EXPECT_EQ(errorOf("x" + repeated("[1]", megabyte) + " = 1").identifier(), "varnix:tooDeep");
    EXPECT_EQ(errorOf("x = 1; y = x" + repeated(".a", megabyte)).identifier(), "varnix:tooLarge");
    EXPECT_EQ(errorOf("y = pi" + repeated(".a", megabyte)).identifier(), "varnix:noSuchMember");
    EXPECT_EQ(printed("x = 1; disp(x" + repeated("[1]", megabyte) + ")"), "1\n");
}

TEST(ParserLimits, LongIsNotDeep) {
    // Two hundred thousand terms, elements, links, alternatives: no nesting, so no limit.
    EXPECT_EQ(printed("x = 0" + repeated("+1", 400000) + "; disp(x)"), "200000\n");
    EXPECT_EQ(printed("x = true" + repeated("&& true", 70000) + "; disp(x)"), "true\n");
    EXPECT_EQ(printed("x = [" + repeated("1,", 400000) + "]; disp(length(x))"), "200000\n");
    EXPECT_EQ(printed("y = 1; x = [" + repeated("y,", 100000) + "]; disp(length(x))"), "50000\n");
    EXPECT_EQ(printed("x = {" + repeated("1,", 100000) + "}; disp(length(x))"), "50000\n");
    EXPECT_EQ(printed("x = [" + repeated("1;\n", 100000) + "]; disp(size(x))"), "33334  1\n");
    EXPECT_EQ(printed("x = 3\n" + repeated("if x == 4 disp(4)\nend\n", megabyte)), "");
    EXPECT_EQ(printed("if 0\n" + repeated("elseif 0\n", 200000) + "else disp(1)\nend"), "1\n");
}

TEST(ParserLimits, NestingWithinTheLimitWorks) {
    EXPECT_EQ(printed("disp(" + std::string(200, '(') + "7" + std::string(200, ')') + ")"), "7\n");
    EXPECT_EQ(printed("disp(" + repeated("-", 200) + "7)"), "7\n");
}

// ---- unfinished input

TEST(Unfinished, OpenBlocksBracketsAndJoinsNeedMore) {
    for (const char* const code :
         {"if x", "if x\n y = 1", "for i = 1:3", "while true", "function f(x)", "switch x",
          "switch x\ncase 1", "try", "try\ncatch err", "x = [1, 2", "x = {", "f(1,", "f(1,\n2",
          "x = 3 + ...", "x = 3 + ...\n", "if x\n else", "x = [1, 2;"})
        EXPECT_TRUE(endsUnfinished(code)) << code;
}

TEST(Unfinished, CompleteAndWrongInputDoesNot) {
    for (const char* const code :
         {"", "x = 3", "if x\nend", "x = ", "x = [1, 2)", "f(1))", "\"abc", "if x = 3", "end",
          "x = 3 + ...\n4", "for 3", "# comment", "x $ y"})
        EXPECT_FALSE(endsUnfinished(code)) << code;
}

} // namespace
