// QNEL and the text form: identity, every kind of operand, malformed input.
#include <qn/ir.hpp>
#include <qn/text.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

using namespace QN;

namespace {

std::string qnelOf(const Scope& scope) {
    std::string text;
    printQnel(scope, text);
    return text;
}

std::string errorOf(const std::string& text) {
    ParseError error;
    return parseQnel(text, error) == nullptr ? error.format("f") : "no error";
}

/// The text printed again after a parse.
std::string again(const std::string& text) {
    ParseError error;
    const auto scope = parseQnel(text, error);
    return scope != nullptr ? qnelOf(*scope) : error.format("again");
}

constexpr const char* everything = R"((scope unit "all of it"
  (declare outside f64 f64 i32[])
  (function f f64 local @3
    (param $x f64 @3)
    (param $n i32)
    (user $a f64[] @4)
    (user $y.3 f64)
    (user $y.4 f64)
    (user $.5 "odd name" f64)
    (temp $.6 f64*)
    (block b0
      (%1 f64 load $x @5)
      (%2 i32 load $n)
      (%3 i32 add %2 5i32)
      (%4 i32 div:even:wrap %3 -7i32)
      (%5 f64 convert %4)
      (%6 f64[] newarray 2i64 3i64)
      (store $a %6)
      (stelem2 $a 1i64 1i64 1.5)
      (%7 f64 ldelem:inb $a 2i64)
      (%8 f64* addrof $y.3)
      (storep %8 -inf)
      (%9 f64 call &outside %7 nan)
      (call &"odd callee" true)
      (%10 logical lt %5 1e-07)
      (br %10 b7 b2))
    (block b7
      (%11 f64 loadp %8)
      (ret %11))
    (block b2
      (count 3i64)
      (trap 10i64)))
  (scope session inner))
)";

} // namespace

TEST(Qnel, PrintsWhatItParsed) {
    EXPECT_EQ(again(everything), everything);
}

TEST(Qnel, FunctionsAloneFormAUnit) {
    EXPECT_EQ(again("(function f void (block b0 (ret)))"), R"((scope unit main
  (function f void
    (block b0
      (ret))))
)");
    EXPECT_EQ(again(""), "(scope unit main)\n");
    EXPECT_EQ(again("; only a comment"), "(scope unit main)\n");
}

TEST(Qnel, OneFunctionPrintsByItself) {
    ParseError error;
    const auto scope = parseQnel("(function f void (block b0 (ret)))", error);
    std::string text;
    printQnel(*scope->find("f"), text);
    EXPECT_EQ(text, "(function f void\n  (block b0\n    (ret)))\n");
}

TEST(Qnel, ValuesMayBeUsedBeforeTheirText) {
    const std::string text = again(R"((function f f64
      (block b0 (jump b2))
      (block b1 (ret %9))
      (block b2 (%9 f64 add 1 2) (jump b1))))");
    EXPECT_NE(text.find("(ret %9)"), std::string::npos) << text;
    EXPECT_EQ(again(text), text);
}

TEST(Qnel, EveryDoubleSurvives) {
    std::mt19937_64 random(1);
    Scope scope(ScopeFlavor::Unit, "u");
    Function* const f = scope.addFunction("f", Type::voidType());
    Cfg& g = f->cfg();
    Builder b(g, g.addBlock());
    Var* const x = f->addParam(Type::f64(), "x");
    for (const double value : {0.0, -0.0, 0.1, 1e300, 5e-324, HUGE_VAL, -HUGE_VAL,
                               std::numeric_limits<double>::quiet_NaN()}) {
        b.store(x, g.constantDouble(value));
    }
    for (int i = 0; i < 2000; ++i) {
        b.store(x, g.constant(Type::f64(), random()));
    }
    b.ret();
    ParseError error;
    const auto parsed = parseQnel(qnelOf(scope), error);
    ASSERT_NE(parsed, nullptr) << error.format("");
    const Node* left = g.entry()->first();
    const Node* right = parsed->find("f")->cfg().entry()->first();
    for (; left->op() == Op::Store; left = left->next(), right = right->next()) {
        EXPECT_EQ(asConst(left->operand(1))->bits(), asConst(right->operand(1))->bits());
    }
}

TEST(Qnel, IntegersAtTheEdges) {
    for (const char* good :
         {"-128i8", "127i8", "255u8", "-32768i16", "65535u16", "-2147483648i32", "4294967295u32",
          "-9223372036854775808i64", "9223372036854775807i64", "18446744073709551615u64", "0u8"}) {
        const std::string text =
            std::string("(function f void (block b0 (chkzero ") + good + ") (ret)))";
        EXPECT_NE(again(text).find(good), std::string::npos) << again(text);
    }
    for (const char* bad :
         {"-129i8", "128i8", "256u8", "-1u8", "9223372036854775808i64", "18446744073709551616u64",
          "5f64", "5logical", "i32", "--1i8", "5i32[]"}) {
        const std::string text =
            std::string("(function f void (block b0 (chkzero ") + bad + ") (ret)))";
        EXPECT_EQ(errorOf(text).rfind("f:1:37: error: ", 0), 0U) << errorOf(text);
    }
}

TEST(Qnel, ErrorsNameTheirPlace) {
    EXPECT_EQ(errorOf("(function f f64\n  (block b0\n    (%1 f64 addd 1 2)))"),
              "f:3:13: error: 'addd' is no operation");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (ret %4)))"),
              "f:1:32: error: value '%4' is not defined");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (jump b3)))"),
              "f:1:33: error: block 'b3' is not defined");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 f64 load $q)))"),
              "f:1:40: error: variable '$q' is not declared");
    EXPECT_EQ(errorOf("(function f f64 (block b0) (block b0))"),
              "f:1:35: error: block 'b0' is defined twice");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 f64 neg 1) (%1 f64 neg 1)))"),
              "f:1:43: error: value '%1' is defined twice");
    EXPECT_EQ(errorOf("(function f f64 (user $x f64) (user $x f64))"),
              "f:1:37: error: variable '$x' is declared twice");
    EXPECT_EQ(errorOf("(function f f64) (function f f64)"),
              "f:1:28: error: function 'f' is defined twice");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 f64 add 1)))"),
              "f:1:40: error: too few operands for 'add'");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 f64 neg 1 2)))"),
              "f:1:41: error: too many operands for 'neg'");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 f64 store $x 2)))"),
              "f:1:28: error: 'store' gives no value");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (add 1 2)))"),
              "f:1:28: error: 'add' gives a value, which needs a number and a type");
    EXPECT_EQ(errorOf("(function f f64 (user $x f64) (param $y f64))"),
              "f:1:32: error: parameters come before other variables");
    EXPECT_EQ(errorOf("(function f f64"), "f:1:1: error: '(' without its ')'");
    EXPECT_EQ(errorOf("(function \"f f64"), "f:1:11: error: a string without its end");
    EXPECT_EQ(errorOf("(function \"\\q\" f64)"), "f:1:11: error: malformed escape in a string");
    EXPECT_EQ(errorOf("(scope here x)"), "f:1:8: error: 'here' is no flavor of scope");
    EXPECT_EQ(errorOf("(scope unit x) y"),
              "f:1:16: error: expected the end of the text, found 'y'");
    EXPECT_EQ(errorOf("(function f f65)"), "f:1:13: error: 'f65' is no type");
    EXPECT_EQ(errorOf("(function f f64 (block b9999999))"),
              "f:1:24: error: a block number is too large");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 i32 add:odd 1i32 2i32)))"),
              "f:1:35: error: 'odd' is no mode of an operation");
}

TEST(Qnel, ErrorsShowWhatATerminalWouldNot) {
    EXPECT_EQ(errorOf({"\177ELF\0\033[1m", 9}),
              "f:1:1: error: expected '(', found '\\x7fELF\\x00\\x1b[1m'");
    EXPECT_EQ(errorOf("(function f \xC3\xB6)"), "f:1:13: error: '\\xc3\\xb6' is no type");
    EXPECT_EQ(errorOf("(function f " + std::string(50, 't') + ")"),
              "f:1:13: error: '" + std::string(40, 't') + "...' is no type");
    EXPECT_EQ(errorOf("(function f f64 (block b0 (%1 i32 add:\x07 1i32 2i32)))"),
              "f:1:35: error: '\\x07' is no mode of an operation");
}

TEST(Qnel, AByteOrderMarkInFrontIsSkipped) {
    EXPECT_EQ(errorOf("\xEF\xBB\xBF(function f f64)"), "no error");
    EXPECT_EQ(errorOf("\xEF\xBB\xBF"), "no error");
    EXPECT_EQ(errorOf("(function f f64)\xEF\xBB\xBF"),
              "f:1:17: error: expected '(', found '\\xef\\xbb\\xbf'");
}

TEST(Qnel, DeepNestingIsRefused) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "(scope unit x ";
    }
    EXPECT_NE(errorOf(text).find("scopes are nested too deeply"), std::string::npos);
    EXPECT_NE(errorOf("(function f f64 " + std::string(1000000, '(')), "no error");
}

TEST(Qnel, TheDeepestScopesComeBack) {
    Scope root(ScopeFlavor::Unit, "s0");
    Scope* at = &root;
    for (std::size_t i = 0; i < Scope::lastLevel; ++i) {
        at = &at->addChild(ScopeFlavor::Unit, "s" + std::to_string(i + 1));
    }
    EXPECT_THROW(at->addChild(ScopeFlavor::Unit, "one more"), std::length_error);
    EXPECT_TRUE(at->children().empty());
    EXPECT_EQ(at->level(), Scope::lastLevel);
    const std::string text = qnelOf(root);
    EXPECT_EQ(again(text), text);
}

TEST(Qnel, ATextCutOrChangedAnywhereNeverCrashes) {
    const std::string text = everything;
    for (std::size_t length = 0; length < text.size(); ++length) {
        (void)errorOf(text.substr(0, length));
    }
    std::mt19937 random(7);
    constexpr char letters[] = "()\"%$&@b:;.0129-ifu \n\\x";
    for (int round = 0; round < 20000; ++round) {
        std::string changed = text;
        for (int i = 0; i < 3; ++i) {
            changed[random() % changed.size()] = letters[random() % (sizeof letters - 1)];
        }
        ParseError error;
        if (const auto scope = parseQnel(changed, error)) {
            const std::string once = qnelOf(*scope);
            EXPECT_EQ(again(once), once);
        }
    }
}

TEST(Qnel, AddingToAScopeKeepsWhatWasThere) {
    Scope scope(ScopeFlavor::Session, "s");
    scope.addFunction("f", Type::voidType());
    ParseError error;
    EXPECT_TRUE(parseQnelInto(scope, "(function g void (block b0 (ret)))", error));
    EXPECT_FALSE(parseQnelInto(scope, "(function h void) (function f void)", error));
    EXPECT_NE(scope.find("f"), nullptr);
    EXPECT_NE(scope.find("g"), nullptr);
    EXPECT_NE(scope.find("h"), nullptr);
}

TEST(Qnel, BrokenGraphsArePrintedToo) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function* const f = scope.addFunction("f", Type::f64());
    Builder b(f->cfg(), f->cfg().addBlock());
    Node* const sum = b.binary(Op::Add, f->cfg().constantDouble(1), f->cfg().constantDouble(2));
    sum->setOperand(1, nullptr);
    EXPECT_NE(qnelOf(scope).find("(%1 f64 add 1 null)"), std::string::npos);
    std::string text;
    printText(scope, text);
    EXPECT_NE(text.find("add 1, null"), std::string::npos);
}

TEST(Text, ReadsLikeAProgram) {
    ParseError error;
    const auto scope = parseQnel(everything, error);
    std::string text;
    printText(*scope, text, {true, true});
    EXPECT_EQ(text, R"(scope all of it (unit)

function outside(f64, i32[]) -> f64

function f(x: f64, n: i32) -> f64    # line 3
    user a: f64[]
    user y: f64
    user y_1: f64
    user odd name: f64
    temp t6: f64*
  b0:
    %1: f64 = load x  # 5
    %2: i32 = load n
    %3: i32 = add<away,sat> %2, 5i32
    %4: i32 = div<even,wrap> %3, -7i32
    %5: f64 = convert %4
    %6: f64[] = newarray 2i64, 3i64
    store a, %6
    stelem2 a, 1i64, 1i64, 1.5
    %7: f64 = ldelem a, 2i64
    %8: f64* = addrof y
    storep %8, -inf
    %9: f64 = call outside, %7, nan
    call odd callee, true
    %10: logical = lt %5, 1e-07
    br %10, b7, b2
  b7:
    %11: f64 = loadp %8
    ret %11
  b2:
    count 3i64
    trap 10i64

scope inner (session)
)");
}

TEST(Text, NamesAreToldApartOnlyOnDemand) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function* const f = scope.addFunction("f", Type::voidType());
    for (const char* name : {"x", "x", "x_1", "x"}) {
        f->cfg().addVar(VarKind::User, Type::f64(), name);
    }
    std::string plain;
    printText(*f, plain);
    EXPECT_EQ(
        plain,
        "function f()\n    user x: f64\n    user x: f64\n    user x_1: f64\n    user x: f64\n");
    std::string apart;
    printText(*f, apart, {true, false});
    EXPECT_EQ(
        apart,
        "function f()\n    user x: f64\n    user x_2: f64\n    user x_1: f64\n    user x_3: f64\n");
}

TEST(Text, NamesEndNoLine) {
    Scope scope(ScopeFlavor::Unit, "a\nscope");
    Function* const f = scope.addFunction("f\ng", Type::voidType());
    Builder b(f->cfg(), f->cfg().addBlock());
    Node* const load = b.load(f->addParam(Type::f64(), "x\r\"y"));
    Entity* const arguments[] = {load};
    Node* const call = b.call("to\x1b call", Type::f64(), arguments);
    b.store(f->cfg().addVar(VarKind::User, Type::f64(), "plain \"name\""), call);
    b.ret();
    std::string text;
    printText(scope, text);
    EXPECT_EQ(text, R"(scope "a\nscope" (unit)

function "f\ng"("x\x0d\"y": f64)
    user plain "name": f64
  b0:
    %1: f64 = load "x\x0d\"y"
    %2: f64 = call "to\x1b call", %1
    store plain "name", %2
    ret
)");
    std::string apart;
    printText(*f, apart, {true, false});
    EXPECT_NE(apart.find(R"(load "x\x0d\"y")"), std::string::npos) << apart;
    std::string alone;
    printText(*load, alone);
    printText(*call, alone);
    EXPECT_EQ(alone, R"(%1: f64 = load "x\x0d\"y"%2: f64 = call "to\x1b call", %1)");
}

TEST(Text, ANodeAlone) {
    ParseError error;
    const auto scope = parseQnel(everything, error);
    const Block& block = *scope->find("f")->cfg().entry();
    std::string text = "> ";
    printText(*block.first(), text);
    EXPECT_EQ(text, "> %1: f64 = load x");
    text.clear();
    printText(*block.terminator(), text);
    EXPECT_EQ(text, "br %10, b7, b2");
    text.clear();
    printText(*block.terminator()->previous()->previous(), text);
    EXPECT_EQ(text, "call odd callee, true");
}
