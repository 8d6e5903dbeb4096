// The language from end to end: statements, values, functions, names, errors.
#include "tests/lang_helpers.hpp"
#include "value/array.hpp"
#include "value/format.hpp"
#include "value/ops.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace varnix;
using namespace varnix::test;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Machine, EvaluatesByPrecedence) {
    EXPECT_EQ(printed("disp(1 + 2 * 3 ^ 2)"), "19\n");
    EXPECT_EQ(printed("disp(-2 ^ 2)"), "-4\n");
    EXPECT_EQ(printed("disp(2 ^ -1)"), "0.5\n");
    EXPECT_EQ(printed("disp(2 ^ 3 ^ 2)"), "64\n");
    EXPECT_EQ(printed("disp(!true == false)"), "true\n");
    EXPECT_EQ(printed("disp(true || false && false)"), "true\n");
    EXPECT_EQ(printed("disp(1 + 1:2 + 2)"), "2  3  4\n");
    EXPECT_EQ(printed("disp(10:-4:1)"), "10  6  2\n");
    EXPECT_EQ(printed("disp(1 < 2 == true)"), "true\n");
}

TEST(Machine, ShortCircuitsAndKeepsTheVariable) {
    EXPECT_EQ(printed("x = true; x = false || x; disp(x)"), "true\n");
    EXPECT_EQ(printed("x = 5; x = x > 3 && x < 6; disp(x)"), "true\n");
    EXPECT_EQ(printed("if false && error(\"no\") disp(1) else disp(2) end"), "2\n");
    EXPECT_EQ(printed("if true || error(\"no\") disp(1) end"), "1\n");
    EXPECT_EQ(printed("if !(1 > 2) && (3 > 2 || 1 > 2) disp(1) end"), "1\n");
}

TEST(Machine, ComparesNanInBranches) {
    EXPECT_EQ(printed("x = nan; if x < 1 disp(1) else disp(2) end"), "2\n");
    EXPECT_EQ(printed("x = nan; while !(x >= 1) disp(3); break; end"), "3\n");
    EXPECT_EQ(printed("x = nan; if x != x disp(4) end"), "4\n");
}

TEST(Machine, LoopsOverRangesWithoutMakingThem) {
    EXPECT_EQ(printed("n = 0; for i = 1:1e15 n = i; if i == 3 break; end; end; disp(n)"), "3\n");
    EXPECT_EQ(printed("for i = 3:1 disp(i) end; disp(exists(\"i\"))"), printed("disp(false)"));
    EXPECT_EQ(printed("for i = 0:0.1:0.3 printf(\"%g \", i); end"), "0 0.1 0.2 0.3 ");
    EXPECT_EQ(printed("for i = 5:-2:1 printf(\"%g \", i); i = 100; end"), "5 3 1 ");
    EXPECT_EQ(printed("for i = 250u8:255u8 printf(\"%s%d \", class(i), i); end"),
              "uint8250 uint8251 uint8252 uint8253 uint8254 uint8255 ");
    EXPECT_EQ(errorOf("for i = 1:nan end").identifier(), "varnix:badArgument");
    EXPECT_EQ(errorOf("for i = 1:\"ab\" end").identifier(), "varnix:wrongType");
}

TEST(Machine, RangeLoopsGiveTheValuesOfTheRange) {
    EXPECT_EQ(printed("bad = 0;\n"
                      "for s = [0.1, 0.3, 1/3, 0.7, -0.1, 1e-3]\n"
                      "  for e = [1, 0.9, 2.1, -3, 0]\n"
                      "    r = 0:s:e; k = 0;\n"
                      "    for v = 0:s:e k = k + 1; if v != r[k] bad = bad + 1; end; end\n"
                      "    if k != length(r) bad = bad + 1; end\n"
                      "  end\n"
                      "end\n"
                      "disp(bad)"),
              "0\n");
}

TEST(Machine, LoopsOverColumns) {
    EXPECT_EQ(printed("for v = [1, 2; 3, 4] printf(\"%d,\", v); printf(\";\"); end"), "1,3,;2,4,;");
    EXPECT_EQ(printed("for v = {1, \"ab\", {2}} disp(class(v)) end"), "double\nchar\ncell\n");
    EXPECT_EQ(printed("for v = \"abc\" printf(\"%s.\", v); end"), "a.b.c.");
    EXPECT_EQ(printed("for v = 7 disp(v) end"), "7\n");
    EXPECT_EQ(printed("for v = [] disp(v) end; for v = {} disp(v) end"), "");
    EXPECT_EQ(printed("for v = {1; 2} disp(size(v)) end"), "2  1\n");
    EXPECT_EQ(printed("x = [1, 2, 3]; for v = x x[1] = 9; printf(\"%d\", v); end; disp(x)"),
              "1239  2  3\n");
}

TEST(Machine, BreaksAndContinues) {
    EXPECT_EQ(printed("for i = 1:5 if i == 2 continue; end; if i == 4 break; end; disp(i); end"),
              "1\n3\n");
    EXPECT_EQ(printed("i = 0; while true i = i + 1; if i < 3 continue; end; break; end; disp(i)"),
              "3\n");
    EXPECT_EQ(printed("for i = 1:2 for j = 1:3 if j == 2 break; end; printf(\"%d%d \", i, j); end; "
                      "end"),
              "11 21 ");
}

TEST(Machine, SwitchesOverNumbersTextsAndAlternatives) {
    const std::string code = "function f(x)\n"
                             "switch x\n"
                             "case 1\n return \"one\"\n"
                             "case \"two\"\n return \"text\"\n"
                             "case {3, \"three\"}\n return \"either\"\n"
                             "otherwise\n return \"none\"\n"
                             "end\nend\n";
    EXPECT_EQ(printed(code + "disp(f(1)); disp(f(\"two\")); disp(f(3)); disp(f(\"three\")); "
                             "disp(f(\"tw\")); disp(f(4)); disp(f(1u8))"),
              "one\ntext\neither\neither\nnone\nnone\none\n");
    EXPECT_EQ(printed("switch \"a\" case 97 disp(1) otherwise disp(2) end"), "2\n");
    EXPECT_EQ(printed("switch 1 case 2 disp(1) end; disp(3)"), "3\n");
}

TEST(Machine, IndexesAndAssigns) {
    EXPECT_EQ(printed("x = [1, 2; 3, 4]; disp(x[2, 1]); disp(x[3]); disp(x[end]); disp(x[end, 1])"),
              "3\n2\n4\n3\n");
    EXPECT_EQ(printed("x = 1:5; disp(x[x > 3]); disp(x[end - 1]); disp(x[[1, end]])"),
              "4  5\n4\n1  5\n");
    EXPECT_EQ(printed("x = [1, 2; 3, 4]; disp(x[:, 1]); disp(x[:])"), "1\n3\n1\n3\n2\n4\n");
    EXPECT_EQ(printed("x = 1:3; y = [2, 3]; disp(x[y[end]])"), "3\n");
    EXPECT_EQ(printed("x[3] = 5; disp(x); x[end + 1] = 6; disp(x)"), "0  0  5\n0  0  5  6\n");
    EXPECT_EQ(printed("x = 1:3; y = x; y[1] = 9; disp(x); disp(y)"), "1  2  3\n9  2  3\n");
    EXPECT_EQ(printed("x = zeros(2, 2); x[2, 1] = 5; x[:, 2] = [7; 8]; disp(x)"), "0  7\n5  8\n");
    EXPECT_EQ(printed("c{3} = 1; disp(length(c)); c{2}.a = 4; disp(c{2}.a)"), "3\n4\n");
    EXPECT_EQ(errorOf("x = 1:3; x[4]").identifier(), "varnix:badIndex");
    EXPECT_EQ(errorOf("x = 1:3; x[1.5]").identifier(), "varnix:badIndex");
    EXPECT_EQ(errorOf("x = 1:3; x[0] = 1").identifier(), "varnix:badIndex");
}

TEST(Machine, AssignsDeepIntoValues) {
    EXPECT_EQ(errorOf("s.a.b[2].c = 1;").identifier(), "varnix:badIndex");
    EXPECT_EQ(printed("s.a = 1; t = s; t.a = 2; disp(s.a); disp(t.a)"), "1\n2\n");
    EXPECT_EQ(printed("s.a.b = 1; t = s; t.a.b = 2; disp(s.a.b)"), "1\n");
    EXPECT_EQ(printed("s.l{2}.x[3] = 7; disp(s.l{2}.x)"), "0  0  7\n");
    EXPECT_EQ(printed("s.l = [1, 2]; s.l[end + 1] = 3; s.l[end + 1] = 4; disp(s.l)"),
              "1  2  3  4\n");
    EXPECT_EQ(printed("c = {1, {2, 3}}; d = c; d{2}{1} = 9; disp(c{2}{1}); disp(d{2}{1})"),
              "2\n9\n");
    EXPECT_EQ(printed("s.a = 5; s.b = s; disp(s.b.a)"), "5\n");
}

TEST(Machine, AnAssignmentThatFailsChangesNothing) {
    EXPECT_EQ(printed("s.a = 1; try s.b.c[0] = 2; catch err disp(fields(s)) end"),
              printed("s.a = 1; disp(fields(s))"));
    EXPECT_EQ(printed("c = {1, [1, 2]}; try c{2}[0] = 5; catch err disp(c{2}) end"), "1  2\n");
    EXPECT_EQ(printed("x = 1; try x = error(\"no\"); catch err disp(x) end"), "1\n");
}

TEST(Machine, CallsFunctions) {
    EXPECT_EQ(printed("disp(f(3))\nfunction f(x)\nreturn x + 1\nend"), "4\n");
    EXPECT_EQ(printed("function f\ndisp(7)\nend\nf\nf()"), "7\n7\n");
    EXPECT_EQ(printed("function f(x)\nreturn x, x * 2\nend\na, b = f(4); disp([a, b]); disp(f(1))"),
              "4  8\n1\n");
    EXPECT_EQ(printed("function f(x)\nreturn x, 2\nend\nc = {}; s.a = 0; c{2}, s.a = f(5); "
                      "disp(c{2}); disp(s.a)"),
              "5\n2\n");
    EXPECT_EQ(printed("function f(n)\nif n < 2 return n; end\nreturn f(n - 1) + f(n - 2)\nend\n"
                      "disp(f(20))"),
              "6765\n");
    EXPECT_EQ(printed("function f(x)\nx = x + 1;\nend\nx = 1; f(x); disp(x)"), "1\n");
}

TEST(Machine, CountsArgumentsAndResults) {
    const std::string f = "function f(x)\nreturn x\nend\n";
    EXPECT_EQ(errorOf(f + "f()").identifier(), "varnix:notEnoughInputs");
    EXPECT_EQ(errorOf(f + "f(1, 2)").identifier(), "varnix:tooManyInputs");
    EXPECT_EQ(errorOf(f + "a, b = f(1)").identifier(), "varnix:tooManyOutputs");
    EXPECT_EQ(errorOf("function g\nend\nx = g()").identifier(), "varnix:tooManyOutputs");
    EXPECT_EQ(errorOf("x = disp(1)").identifier(), "varnix:tooManyOutputs");
    EXPECT_EQ(errorOf("g = fn(x) x; g(1, 2)").message(),
              "the anonymous function takes 1 argument, not 2");
}

TEST(Machine, AnonymousFunctionsKeepWhatTheySaw) {
    EXPECT_EQ(printed("k = 2; f = fn(x) x * k; k = 100; disp(f(4))"), "8\n");
    EXPECT_EQ(printed("f = fn(a) fn(b) a - b; g = f(10); disp(g(3))"), "7\n");
    EXPECT_EQ(printed("f = fn() 5; disp(f()); disp(f)"), "5\nfn() 5\n");
    EXPECT_EQ(printed("c = {fn(x) x + 1, fn(x) x * 2}; disp(c{2}(21)); disp(c{1}(1))"), "42\n2\n");
    EXPECT_EQ(printed("s.f = fn(x) x + 1; disp(s.f(1))"), "2\n");
    EXPECT_EQ(printed("f = fn(x) disp(x); f(3)"), "3\n");
    EXPECT_EQ(printed("f = fn(n) [n, zeros(1, n)]; disp(f(2))"), "2  0  0\n");
    EXPECT_EQ(printed("disp(isequal(fn(x) x, fn(x) x)); f = fn(x) x; g = f; disp(isequal(f, g))"),
              "false\ntrue\n");
}

TEST(Machine, FunctionsAreValuesByName) {
    EXPECT_EQ(printed("f = fn abs; disp(f(-3)); disp(f)"), "3\nfn abs\n");
    EXPECT_EQ(printed("function two(x)\nreturn x, 2\nend\nf = fn two; a, b = f(1); disp([a, b])"),
              "1  2\n");
    EXPECT_EQ(printed("disp(isequal(fn abs, fn abs)); disp(isequal(fn abs, fn sin))"),
              "true\nfalse\n");
    EXPECT_EQ(errorOf("f = fn nothingLikeThis; f(1)").identifier(), "varnix:undefined");
    EXPECT_EQ(errorOf("x = 3; x(1)").identifier(), "varnix:wrongType");
}

TEST(Machine, NamesWithoutParenthesesAreCalled) {
    EXPECT_EQ(printed("disp(pi > 3)"), "true\n");
    EXPECT_EQ(printed("pi = 5; disp(pi); clear(\"pi\"); disp(pi > 3 && pi < 4)"), "5\ntrue\n");
    EXPECT_EQ(printed("function five\nreturn 5\nend\nx = five + five; disp(x); disp([five, 1][1])"),
              "10\n5\n");
    EXPECT_EQ(printed("function v\nreturn [4, 5, 6]\nend\ndisp(v[2]); disp(v[end])"), "5\n6\n");
    // The second turn finds a variable where the first one found a function.
    EXPECT_EQ(printed("for i = 1:2 if i == 2 abs = 7; end; try disp(abs(-1)); catch e "
                      "disp(e.identifier); end; end"),
              "1\nvarnix:wrongType\n");
}

TEST(Machine, UndefinedNamesComeWithASuggestion) {
    EXPECT_EQ(errorOf("counter = 1; disp(countr)").message(),
              "'countr' is not defined; did you mean 'counter'?");
    EXPECT_THAT(errorOf("dsip(1)").message(), HasSubstr("did you mean 'disp'?"));
    EXPECT_EQ(errorOf("xyzzyplugh").message(), "'xyzzyplugh' is not defined");
    EXPECT_EQ(errorOf("internal").message(),
              "'internal' is a package; a class in it is written internal.NAME");
    EXPECT_EQ(errorOf("x = 1; clear(\"x\"); x + 1").identifier(), "varnix:undefined");
}

// ---- errors

TEST(Errors, AreCaughtWithMessageIdentifierAndStack) {
    EXPECT_EQ(printed("try error(\"a:b\", \"n = %d\", 3); catch e disp(e.message); "
                      "disp(e.identifier); end"),
              "n = 3\na:b\n");
    EXPECT_EQ(printed("function g\nerror(\"x\");\nend\nfunction f\n g();\nend\n"
                      "try\n f();\ncatch e\n"
                      "for p = e.stack printf(\"%s %s %d:%d\\n\", p.function, p.file, p.line, "
                      "p.column); end\nend"),
              "g <test> 2:1\nf <test> 5:2\n <test> 8:2\n");
    EXPECT_EQ(printed("try x = [1, 2; 3]; catch disp(1) end; disp(2)"), "1\n2\n");
}

TEST(Errors, CarryTheStackOutOfScripts) {
    const objsys::COSError error =
        errorOf("function g(x)\n  return x + undefinedName\nend\nf = fn(y) g(y);\nf(1)");
    EXPECT_EQ(error.identifier(), "varnix:undefined");
    ASSERT_EQ(error.stack().size(), 3u);
    EXPECT_EQ(error.stack()[0].function, "g");
    EXPECT_EQ(error.stack()[0].line, 2);
    EXPECT_EQ(error.stack()[0].column, 14);
    EXPECT_EQ(error.stack()[1].function, "anonymous function");
    EXPECT_EQ(error.stack()[2].line, 5);
    EXPECT_EQ(formatError(error),
              "error: 'undefinedName' is not defined\n  at <test>:2:14\n  at <test>:4:11\n"
              "  at <test>:5:1\n");
}

TEST(Errors, InsideHandlersAndNested) {
    EXPECT_EQ(printed("try try error(\"a\"); catch e error(\"b\"); end; catch e disp(e.message); "
                      "end"),
              "b\n");
    EXPECT_EQ(printed("function f\ntry return 1; catch e\nend\nend\ndisp(f())"), "1\n");
    EXPECT_EQ(printed("for i = 1:3 try if i == 2 error(\"x\"); end; disp(i); catch e disp(\"c\"); "
                      "continue; end; end"),
              "1\nc\n3\n");
    EXPECT_EQ(printed("function f\nerror(\"deep\");\nend\n"
                      "try x = [1, f(), 3]; catch e disp(e.message); end"),
              "deep\n");
}

TEST(Errors, ALongStackIsShownByItsEnds) {
    objsys::COSError error("a:b", "m");
    for (int i = 1; i <= 100; ++i)
        error.addFrame({.function = "f", .file = "x.vx", .line = i, .column = 1});
    const std::string text = formatError(error);
    EXPECT_THAT(text, HasSubstr("  at x.vx:12:1\n  ... 84 more ...\n  at x.vx:97:1\n"));
    EXPECT_THAT(text, HasSubstr("  at x.vx:100:1\n"));
}

TEST(Errors, ExitPassesThroughTryAndLeavesTheMachineClean) {
    Interpreter interpreter;
    try {
        interpreter.runCode("x = 1; try y = 2; exit(3); catch e disp(9) end", "<test>");
        FAIL();
    } catch (const ExitRequest& request) {
        EXPECT_EQ(request.status, 3);
    }
    ASSERT_TRUE(interpreter.global("y").has_value());
    interpreter.runCode("x = x + 1;", "<test>");
    EXPECT_EQ(interpreter.global("x")->asDouble(), 2);
}

// ---- interrupts

TEST(Interrupts, StopLoopsAndCallsAndCannotBeCaught) {
    for (const char* const code :
         {"while true end", "for i = 1:1e15 end", "for i = 1i32:2000000000i32 end",
          "function f(n)\nreturn n\nend\nwhile true try f(1); catch e end; end",
          "for v = {1, 2} end", "f = fn() 1; f()"}) {
        Interpreter::interrupt();
        EXPECT_EQ(errorOf(code).identifier(), "varnix:interrupted") << code;
        EXPECT_NO_THROW(Interpreter::checkInterrupt());
    }
    Interpreter::interrupt();
    EXPECT_EQ(errorOf("try while true end; catch e disp(1) end").identifier(),
              "varnix:interrupted");
}

TEST(Interrupts, AScriptsErrorOfThatNameIsAnError) {
    constexpr const char* forged = "try error(\"varnix:interrupted\", \"mine\"); "
                                   "catch e disp(e.message) end";
    EXPECT_EQ(printed(forged), "mine\n");
    Interpreter::interrupt();
    EXPECT_EQ(errorOf("try while true end; catch e disp(1) end").identifier(),
              "varnix:interrupted");
    EXPECT_EQ(printed(forged), "mine\n");
    EXPECT_EQ(errorOf("error(\"varnix:interrupted\", \"mine\")").message(), "mine");
}

// ---- workspaces

TEST(Workspaces, EvalAndCaptureWorkInTheCallersWorkspace) {
    EXPECT_EQ(printed("x = 2; disp(eval(\"x * 3\"))"), "6\n");
    EXPECT_EQ(printed("t = capture(\"y = 5; disp(y)\"); disp(y); printf(\"%s\", t)"), "5\n5\n");
    EXPECT_EQ(printed("function f(a)\ncapture(\"a = a + 1; b = 7;\");\nreturn a + b\nend\n"
                      "disp(f(1)); disp(exists(\"b\"))"),
              printed("disp(9); disp(false)"));
    EXPECT_EQ(printed("function f\ncapture(\"hidden = 3;\");\nreturn eval(\"hidden + 1\")\nend\n"
                      "disp(f())"),
              "4\n");
    EXPECT_EQ(printed("x = 1; capture(\"capture(\\\"x = x + 1;\\\"); x = x * 10;\"); disp(x)"),
              "20\n");
    EXPECT_EQ(printed("function g\nreturn 8\nend\ndisp(eval(\"g() + 1\"))"), "9\n");
    EXPECT_EQ(printed("x = 1; try capture(\"x = 2; error(\\\"e\\\")\"); catch e disp(x) end"),
              "2\n");
}

TEST(Workspaces, TheGlobalOneOutlivesTheCode) {
    Interpreter interpreter;
    interpreter.runCode("x = [1, 2]; y = 3;", "<test>");
    EXPECT_THAT(interpreter.globalNames(), ElementsAre("x", "y"));
    interpreter.runCode("x[1] = 5; clear(\"y\")", "<test>");
    EXPECT_THAT(interpreter.globalNames(), ElementsAre("x"));
    EXPECT_EQ(elementAt(*interpreter.global("x"), 0).asDouble(), 5);
    interpreter.setGlobal("z", Value::ofDouble(7));
    interpreter.runCode("w = z + 1;", "<test>");
    EXPECT_EQ(interpreter.global("w")->asDouble(), 8);
    EXPECT_FALSE(interpreter.global("y").has_value());
    EXPECT_THROW(interpreter.runCode("x = 6; error(\"e\")", "<test>"), objsys::COSError);
    EXPECT_EQ(interpreter.global("x")->asDouble(), 6);
}

TEST(Workspaces, FunctionsDoNotSeeTheGlobalOne) {
    EXPECT_EQ(errorOf("x = 1;\nfunction f\nreturn x\nend\nf()").identifier(), "varnix:undefined");
}

// ---- the prompt

std::string prompted(std::initializer_list<const char*> lines) {
    Interpreter interpreter;
    const console::Capture capture;
    for (const char* const line : lines)
        interpreter.runPrompt(line);
    return capture.text();
}

TEST(Prompt, EchoesWithoutSemicolon) {
    EXPECT_EQ(prompted({"x = 3"}), formatEcho("x", Value::ofDouble(3)));
    EXPECT_EQ(prompted({"x = 3;"}), "");
    EXPECT_EQ(prompted({"x = 3;", "x"}), formatEcho("x", Value::ofDouble(3)));
    EXPECT_EQ(prompted({"1 + 1"}), formatEcho("ans", Value::ofDouble(2)));
    EXPECT_EQ(prompted({"1 + 1;", "ans + 1"}), formatEcho("ans", Value::ofDouble(3)));
    EXPECT_EQ(prompted({"disp(1)"}), "1\n");
    EXPECT_EQ(prompted({"abs(-2)"}), formatEcho("ans", Value::ofDouble(2)));
    EXPECT_EQ(prompted({"s.a = 1;", "s.a"}), formatEcho("ans", Value::ofDouble(1)));
    EXPECT_EQ(prompted({"for i = 1:2 i; end"}), "");
}

TEST(Prompt, FunctionsTypedThereStay) {
    EXPECT_EQ(prompted({"function f(x)\nreturn x * 2\nend", "disp(f(4))",
                        "function f(x)\nreturn x * 3\nend", "disp(f(4))"}),
              "8\n12\n");
}

// ---- files

class Folder {
public:
    Folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "vxlangXXXXXX";
        path_ = ::mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string write(const std::string& name, const std::string& text) const {
        const std::string path = path_ / name;
        std::ofstream(path) << text;
        return path;
    }
    [[nodiscard]] std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

TEST(Files, FunctionsBesideTheScriptAndOnThePath) {
    const Folder folder;
    const Folder other;
    folder.write("beside.vx",
                 "# Gives one more.\n# Second line.\nfunction beside(x)\n"
                 "return helper(x) + 1\nend\nfunction helper(x)\nreturn x * 10\nend\n");
    other.write("far.vx", "function far\n# Says where it is.\nreturn \"far\"\nend\n");
    const std::string script = folder.write("main.vx", "disp(beside(4)); disp(far)\n");
    Interpreter interpreter;
    interpreter.addPath(other.path());
    {
        const console::Capture capture;
        interpreter.runFile(script);
        EXPECT_EQ(capture.text(), "41\nfar\n");
    }
    EXPECT_EQ(interpreter.kindOfName("far"), "function");
    EXPECT_EQ(interpreter.kindOfName("beside"), "");
    EXPECT_EQ(interpreter.kindOfName("disp"), "builtin");
    EXPECT_EQ(interpreter.kindOfName("internal"), "package");
    EXPECT_EQ(interpreter.functionHelp("far"), "Says where it is.\n");
    EXPECT_THAT(interpreter.functionNames(), testing::Contains("far"));
    interpreter.addPath(folder.path());
    EXPECT_EQ(interpreter.functionHelp("beside"), "Gives one more.\nSecond line.\n");
}

TEST(Files, AChangedFileIsReadAgain) {
    const Folder folder;
    const std::string file = folder.write("f.vx", "function f\nreturn 1\nend\n");
    Interpreter interpreter;
    interpreter.addPath(folder.path());
    const console::Capture capture;
    interpreter.runPrompt("old = fn f; disp(f())");
    folder.write("f.vx", "function f\nreturn 2\nend\n");
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) +
                                               std::chrono::seconds(5));
    interpreter.runPrompt("disp(f())");
    interpreter.runPrompt("disp(old())"); // what was made from the old one stays what it was
    EXPECT_EQ(capture.text(), "1\n2\n1\n");
}

TEST(Files, MistakesInThemHaveTheirPlace) {
    const Folder folder;
    const std::string broken = folder.write("broken.vx", "function broken\n  x = )\nend\n");
    folder.write("empty.vx", "disp(1)\n");
    Interpreter interpreter;
    interpreter.addPath(folder.path());
    const objsys::COSError error = errorOf(interpreter, "y = 1;\nbroken()");
    EXPECT_EQ(error.identifier(), "varnix:syntax");
    ASSERT_EQ(error.stack().size(), 2u);
    EXPECT_EQ(error.stack()[0].file, broken);
    EXPECT_EQ(error.stack()[0].line, 2);
    EXPECT_EQ(error.stack()[1].line, 2);
    // A script of that name is no function.
    EXPECT_THAT(errorOf(interpreter, "empty()").message(),
                testing::StartsWith("'empty' is not defined"));
    EXPECT_THROW(interpreter.runFile(folder.path() + "/nothing.vx"), objsys::COSError);
}

// ---- calls from C++

TEST(MachineCalls, FromNativeCode) {
    Interpreter interpreter;
    interpreter.runCode("function add(a, b)\nreturn a + b, a\nend\nf = fn(x) x * 2;", "<test>");
    const Value two[] = {Value::ofDouble(2), Value::ofDouble(5)};
    EXPECT_EQ(interpreter.call("add", two, 1).at(0).asDouble(), 7);
    EXPECT_EQ(interpreter.call("add", two, 2).at(1).asDouble(), 2);
    EXPECT_EQ(interpreter.call(*interpreter.global("f"), {two, 1}, 1).at(0).asDouble(), 4);
    EXPECT_EQ(interpreter.call("abs", {two, 1}, 1).at(0).asDouble(), 2);
    EXPECT_THROW(interpreter.call("nothing", {}, 0), objsys::COSError);
    EXPECT_EQ(printed("disp(map(fn(x) x ^ 2, [1, 2, 3]))"), "1  4  9\n");
}

} // namespace
