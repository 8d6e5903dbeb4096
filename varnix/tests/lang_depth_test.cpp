// Endless recursion in all its forms is a script error that can be caught, and the machine goes on.
#include "tests/lang_helpers.hpp"

namespace {

using namespace varnix;
using namespace varnix::test;

constexpr const char* tooDeep = "varnix:tooDeep";

TEST(Depth, FunctionsThatCallThemselves) {
    const objsys::COSError error = errorOf("function f(n)\nreturn f(n + 1)\nend\nf(1)");
    EXPECT_EQ(error.identifier(), tooDeep);
    EXPECT_EQ(error.stack().size(), 2000u);
    EXPECT_EQ(errorOf("function f\ng()\nend\nfunction g\nf()\nend\nf").identifier(), tooDeep);
}

TEST(Depth, AnonymousFunctions) {
    EXPECT_EQ(errorOf("f = fn(g) g(g); f(f)").identifier(), tooDeep);
    EXPECT_EQ(errorOf("s.f = fn(s) s.f(s); s.f(s)").identifier(), tooDeep);
}

TEST(Depth, EvalAndCapture) {
    EXPECT_EQ(errorOf("s = \"eval(s)\"; eval(s)").identifier(), tooDeep);
    EXPECT_EQ(errorOf("s = \"capture(s)\"; capture(s)").identifier(), tooDeep);
    EXPECT_EQ(errorOf("function f\nreturn eval(\"f()\")\nend\nf()").identifier(), tooDeep);
}

TEST(Depth, BuiltInsThatCallBack) {
    EXPECT_EQ(errorOf("function f(x)\nreturn map(fn f, [x])\nend\nf(1)").identifier(), tooDeep);
}

TEST(Depth, ErrorsOfDepthAreCaughtAndTheMachineGoesOn) {
    EXPECT_EQ(printed("function f(n)\nreturn f(n + 1)\nend\n"
                      "for i = 1:3 try f(1); catch e disp(e.identifier); end; end; disp(4)"),
              "varnix:tooDeep\nvarnix:tooDeep\nvarnix:tooDeep\n4\n");
}

TEST(Depth, TheLimitIsAnOption) {
    InterpreterOptions options;
    options.maxCallDepth = 10;
    Interpreter interpreter(options);
    const std::string f = "function f(n)\nif n > 0 return f(n - 1); end\nreturn 0\nend\n";
    EXPECT_EQ(errorOf(interpreter, f + "f(8)").identifier(), "");
    EXPECT_EQ(errorOf(interpreter, f + "f(9)").identifier(), tooDeep);
}

TEST(Depth, WithinTheLimitFunctionsMayBeLarge) {
    // Frames of many registers do not fit into the first piece of the register stack.
    std::string code = "function f(n)\nif n == 0 return 0; end\n";
    for (int i = 0; i < 500; ++i)
        code += "v" + std::to_string(i) + " = n;\n";
    code += "return f(n - 1) + v499\nend\ndisp(f(1000))";
    EXPECT_EQ(printed(code), "500500\n");
}

TEST(Depth, RangesOfDeepArgumentsStayAlive) {
    EXPECT_EQ(printed("function f(n, x)\nif n == 0 return x; end\nreturn f(n - 1, [x, n])\nend\n"
                      "disp(length(f(1500, [])))"),
              "1500\n");
}

} // namespace
