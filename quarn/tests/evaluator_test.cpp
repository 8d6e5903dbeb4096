// The evaluator: exact arithmetic, arrays with value semantics, calls, traps with their lines.
#include <qn/arithmetic.hpp>
#include <qn/evaluator.hpp>
#include <qn/scope.hpp>
#include <qn/text.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace QN;

namespace {

/// A scope from QNEL; the test fails on a mistake in it.
std::unique_ptr<Scope> scopeOf(const std::string& qnel) {
    ParseError error;
    auto scope = parseQnel(qnel, error);
    EXPECT_NE(scope, nullptr) << error.format("qnel");
    return scope;
}

Value run(const std::string& qnel, std::vector<Value> arguments = {}) {
    const auto scope = scopeOf(qnel);
    Evaluator evaluator(*scope);
    return evaluator.call(*scope->functions().front(), arguments);
}

/// The trap of a function whose body is `nodes`.
TrapCode trapOf(const std::string& nodes) {
    try {
        run("(function f void (user $a f64[]) (user $p f64) (user $k i32[])\n (block b0\n" + nodes +
            "\n (ret)))");
    } catch (const EvaluationError& error) {
        return error.code();
    }
    return TrapCode{0};
}

std::uint64_t bits(const std::string& type, const std::string& expression) {
    return run("(function f " + type + " (block b0 (%1 " + type + " " + expression + ") (ret %1)))")
        .bits;
}
std::int64_t integer(const std::string& type, const std::string& expression) {
    return static_cast<std::int64_t>(bits(type, expression));
}
double number(const std::string& expression) {
    return asDouble(bits("f64", expression));
}

} // namespace

TEST(Arithmetic, IntegersSaturateAndRoundAwayFromZero) {
    EXPECT_EQ(integer("i8", "add 100i8 100i8"), 127);
    EXPECT_EQ(integer("i8", "sub -100i8 100i8"), -128);
    EXPECT_EQ(integer("i8", "neg -128i8"), 127);
    EXPECT_EQ(integer("i8", "abs -128i8"), 127);
    EXPECT_EQ(integer("u8", "sub 3u8 5u8"), 0);
    EXPECT_EQ(integer("u8", "neg 3u8"), 0);
    EXPECT_EQ(integer("i32", "mul 65536i32 65536i32"), 2147483647);
    EXPECT_EQ(integer("i32", "div 5i32 2i32"), 3);
    EXPECT_EQ(integer("i32", "div -5i32 2i32"), -3);
    EXPECT_EQ(integer("i32", "div 7i32 -2i32"), -4);
    EXPECT_EQ(integer("i32", "div 4i32 3i32"), 1);
    EXPECT_EQ(integer("i32", "div 5i32 3i32"), 2);
    EXPECT_EQ(integer("i64", "mul -9223372036854775808i64 -1i64"), INT64_MAX);
    EXPECT_EQ(integer("i64", "div -9223372036854775808i64 -1i64"), INT64_MAX);
    EXPECT_EQ(bits("u64", "mul 18446744073709551615u64 18446744073709551615u64"), UINT64_MAX);
    EXPECT_EQ(bits("u64", "add 18446744073709551615u64 1u64"), UINT64_MAX);
}

TEST(Arithmetic, DivisionByIntegerZeroSaturates) {
    EXPECT_EQ(integer("i16", "div 1i16 0i16"), 32767);
    EXPECT_EQ(integer("i16", "div -1i16 0i16"), -32768);
    EXPECT_EQ(integer("i16", "div 0i16 0i16"), 0);
    EXPECT_EQ(integer("i16", "mod 7i16 0i16"), 7);
    EXPECT_EQ(integer("i16", "rem -7i16 0i16"), -7);
}

TEST(Arithmetic, WrapsAndRoundsAsAsked) {
    EXPECT_EQ(integer("i8", "add:wrap 100i8 100i8"), -56);
    EXPECT_EQ(integer("u8", "sub:wrap 3u8 5u8"), 254);
    EXPECT_EQ(integer("i64", "mul:wrap 9223372036854775807i64 2i64"), -2);
    EXPECT_EQ(bits("u64", "mul:wrap 18446744073709551615u64 18446744073709551615u64"), 1U);
    EXPECT_EQ(integer("i32", "div:even 5i32 2i32"), 2);
    EXPECT_EQ(integer("i32", "div:even 7i32 2i32"), 4);
    EXPECT_EQ(integer("i32", "div:zero -5i32 2i32"), -2);
    EXPECT_EQ(integer("i32", "div:down -5i32 2i32"), -3);
    EXPECT_EQ(integer("i32", "div:up -5i32 2i32"), -2);
    EXPECT_EQ(integer("i32", "div:up 5i32 2i32"), 3);
}

TEST(Arithmetic, Conversions) {
    EXPECT_EQ(integer("i32", "convert 2.5"), 3);
    EXPECT_EQ(integer("i32", "convert -2.5"), -3);
    EXPECT_EQ(integer("i32", "convert:even 2.5"), 2);
    EXPECT_EQ(integer("i32", "convert:zero -2.9"), -2);
    EXPECT_EQ(integer("i32", "convert nan"), 0);
    EXPECT_EQ(integer("i32", "convert inf"), 2147483647);
    EXPECT_EQ(integer("i32", "convert -1e300"), -2147483648LL);
    EXPECT_EQ(integer("i64", "convert 9.3e18"), INT64_MAX);
    EXPECT_EQ(bits("u64", "convert 1.8e19"), 18000000000000000000U);
    EXPECT_EQ(bits("u64", "convert -1"), 0U);
    EXPECT_EQ(integer("i8", "convert:wrap 300"), 44);
    EXPECT_EQ(integer("i8", "convert 300i32"), 127);
    EXPECT_EQ(integer("u8", "convert -1i32"), 0);
    EXPECT_EQ(bits("logical", "convert 0.5"), 1U);
    EXPECT_EQ(bits("logical", "convert 0i8"), 0U);
    EXPECT_EQ(number("convert 18446744073709551615u64"), 18446744073709551616.0);
    EXPECT_EQ(number("convert true"), 1.0);
}

TEST(Arithmetic, Remainders) {
    EXPECT_EQ(number("mod -1 3"), 2);
    EXPECT_EQ(number("mod 1 -3"), -2);
    EXPECT_EQ(number("mod 5 0"), 5);
    EXPECT_EQ(number("rem -7 3"), -1);
    EXPECT_EQ(number("rem 5 0"), 5);
    EXPECT_EQ(integer("i32", "mod -7i32 3i32"), 2);
    EXPECT_EQ(integer("i32", "rem -7i32 3i32"), -1);
    EXPECT_EQ(integer("i64", "rem -9223372036854775808i64 -1i64"), 0);
}

TEST(Arithmetic, MinimumAndMaximumPassOverNaN) {
    EXPECT_EQ(number("min 1 nan"), 1);
    EXPECT_EQ(number("min nan 1"), 1);
    EXPECT_EQ(number("max nan -1"), -1);
    EXPECT_EQ(number("max 1 2"), 2);
    EXPECT_EQ(integer("i32", "min -1i32 1i32"), -1);
    EXPECT_EQ(bits("u64", "max 18446744073709551615u64 1u64"), UINT64_MAX);
}

TEST(Arithmetic, FunctionsAndRounding) {
    EXPECT_EQ(number("round 2.5"), 3);
    EXPECT_EQ(number("round -2.5"), -3);
    EXPECT_EQ(number("round 0.49999999999999994"), 0);
    EXPECT_EQ(number("trunc -2.7"), -2);
    EXPECT_EQ(number("sin 1"), std::sin(1.0));
    EXPECT_EQ(number("pow 2 0.5"), std::pow(2.0, 0.5));
    EXPECT_EQ(number("atan2 1 -1"), std::atan2(1.0, -1.0));
}

TEST(Evaluator, ALoopWithAVariable) {
    const std::string sum = R"((function sum f64 (param $n f64) (user $k f64) (user $s f64)
      (block b0 (store $k 1) (jump b1))
      (block b1 (%1 f64 load $k) (%2 f64 load $n) (%3 logical le %1 %2) (br %3 b2 b3))
      (block b2 (%4 f64 load $s) (%5 f64 add %4 %1) (store $s %5)
                (%6 f64 add %1 1) (store $k %6) (jump b1))
      (block b3 (%7 f64 load $s) (ret %7))))";
    EXPECT_EQ(run(sum, {Value::ofDouble(100)}).asDouble(), 5050);
    EXPECT_EQ(run(sum, {Value::ofDouble(0)}).asDouble(), 0);
}

TEST(Evaluator, CallsReachTheScopeAndRecurse) {
    const std::string fib = R"((function fib i64 (param $n i64)
      (block b0 (%1 i64 load $n) (%2 logical lt %1 2i64) (br %2 b1 b2))
      (block b1 (ret %1))
      (block b2 (%3 i64 sub %1 1i64) (%4 i64 sub %1 2i64)
        (%5 i64 call &fib %3) (%6 i64 call &fib %4) (%7 i64 add %5 %6) (ret %7))))";
    EXPECT_EQ(run(fib, {Value::ofInt(Type::i64(), 15)}).bits, 610U);
}

TEST(Evaluator, DeepRecursionIsATrapNotACrash) {
    const std::string down = R"((function down i64 (param $n i64)
      (block b0 (%1 i64 load $n) (%2 i64 add %1 1i64) (%3 i64 call &down %2) (ret %3))))";
    try {
        run(down, {Value::ofInt(Type::i64(), 0)});
        FAIL();
    } catch (const EvaluationError& error) {
        EXPECT_EQ(error.code(), TrapCode::StackOverflow);
    }
}

TEST(Evaluator, StepLimitEndsAnEndlessLoop) {
    const auto scope = scopeOf("(function f void (block b0 (jump b0)))");
    Evaluator evaluator(*scope);
    evaluator.setStepLimit(1000);
    try {
        evaluator.call(*scope->find("f"), {});
        FAIL();
    } catch (const EvaluationError& error) {
        EXPECT_EQ(error.code(), TrapCode::StepLimit);
    }
}

TEST(Evaluator, ArraysAreValues) {
    const std::string text = R"((function f f64[] (param $a f64[]) (user $b f64[])
      (block b0
        (%1 f64[] load $a)
        (store $b %1)
        (stelem $b 2i64 9)
        (%2 f64 ldelem $a 2i64)
        (stelem2 $b 1i64 2i64 %2)
        (resize $b 3i64 2i64)
        (%3 f64[] load $b)
        (ret %3))))";
    ArrayValue given(ScalarKind::Double, 2, 2);
    for (int i = 1; i <= 4; ++i) {
        given.set(i, bitsOf(i));
    }
    const Value result = run(text, {Value::ofArray(given)});
    ASSERT_EQ(result.array.rows(), 3);
    ASSERT_EQ(result.array.cols(), 2);
    const double expected[] = {1, 9, 0, 2, 4, 0};
    for (int i = 1; i <= 6; ++i) {
        EXPECT_EQ(asDouble(result.array.get(i)), expected[i - 1]) << i;
    }
    EXPECT_EQ(asDouble(given.get(2)), 2);
}

TEST(Evaluator, ElementsOfEveryKindKeepTheirValue) {
    for (const auto& [type, value] :
         std::vector<std::pair<std::string, std::string>>{{"i8", "-5i8"},
                                                          {"u8", "250u8"},
                                                          {"i16", "-300i16"},
                                                          {"u16", "65535u16"},
                                                          {"i32", "-70000i32"},
                                                          {"u32", "4294967295u32"},
                                                          {"i64", "-5i64"},
                                                          {"u64", "18446744073709551615u64"},
                                                          {"logical", "true"},
                                                          {"f64", "-0.5"}}) {
        const std::string text =
            "(function f logical (user $a " + type + "[]) (block b0 (%1 " + type +
            "[] newarray 2i64 2i64)"
            "(store $a %1) (stelem2 $a 2i64 2i64 " +
            value +
            ")"
            "(%2 " +
            type + " ldelem $a 4i64) (%3 logical eq %2 " + value + ") (ret %3)))";
        EXPECT_EQ(run(text).bits, 1U) << type;
    }
}

TEST(Evaluator, PointersReachVariablesOfTheCaller) {
    const auto scope = scopeOf(R"(
      (function f f64 (user $x f64) (user $a f64[])
        (block b0
          (%1 f64* addrof $x)
          (%2 f64[]* addrof $a)
          (call &set %1 %2)
          (%3 f64 load $x)
          (%4 f64 ldelem $a 1i64)
          (%5 f64 loadp %1)
          (%6 f64 add %3 %4)
          (%7 f64 add %6 %5)
          (ret %7)))
      (function set void (param $p f64*) (param $q f64[]*)
        (block b0
          (%1 f64* load $p)
          (storep %1 5)
          (%2 f64[]* load $q)
          (resize %2 1i64 1i64)
          (stelem %2 1i64 7)
          (ret))))");
    Evaluator evaluator(*scope);
    EXPECT_EQ(evaluator.call(*scope->find("f"), {}).asDouble(), 17);
}

TEST(Evaluator, AsksTheHostForFunctionsItDoesNotHave) {
    const auto scope = scopeOf("(function f f64 (block b0 (%1 f64 call &host 4) (ret %1)))");
    Evaluator evaluator(*scope);
    EXPECT_THROW(evaluator.call(*scope->find("f"), {}), EvaluationError);
    evaluator.setExternal([](std::string_view name, std::span<const Value> arguments,
                             const Type& type, Value& result) {
        EXPECT_EQ(name, "host");
        EXPECT_EQ(&type, Type::f64());
        result = Value::ofDouble(arguments[0].asDouble() * 2);
        return true;
    });
    EXPECT_EQ(evaluator.call(*scope->find("f"), {}).asDouble(), 8);
    evaluator.setExternal([](std::string_view, std::span<const Value>, const Type&, Value& result) {
        result = Value::ofLogical(true);
        return true;
    });
    EXPECT_THROW(evaluator.call(*scope->find("f"), {}), EvaluationError);
}

TEST(Evaluator, TrapsSayWhatAndWhere) {
    EXPECT_EQ(trapOf("(%1 f64 ldelem $a 1i64)"), TrapCode::IndexOutOfBounds);
    EXPECT_EQ(trapOf("(stelem2 $k 1i64 1i64 1i32)"), TrapCode::IndexOutOfBounds);
    EXPECT_EQ(trapOf("(%1 i64 toindex 1.5)"), TrapCode::BadIndex);
    EXPECT_EQ(trapOf("(%1 i64 toindex 0)"), TrapCode::BadIndex);
    EXPECT_EQ(trapOf("(%1 i64 toindex nan)"), TrapCode::BadIndex);
    EXPECT_EQ(trapOf("(%1 i64 toindex 0i8)"), TrapCode::BadIndex);
    EXPECT_EQ(trapOf("(%1 i64 toindex 3)"), TrapCode{0});
    EXPECT_EQ(trapOf("(chkbounds 3i64 2i64)"), TrapCode::IndexOutOfBounds);
    EXPECT_EQ(trapOf("(chkbounds 0i64 2i64)"), TrapCode::IndexOutOfBounds);
    EXPECT_EQ(trapOf("(chkbounds 2i64 2i64)"), TrapCode{0});
    EXPECT_EQ(trapOf("(chkzero 0)"), TrapCode::DivisionByZero);
    EXPECT_EQ(trapOf("(chkzero 0i8)"), TrapCode::DivisionByZero);
    EXPECT_EQ(trapOf("(chklossy 2.5 3i32)"), TrapCode::LossyConversion);
    EXPECT_EQ(trapOf("(chklossy 9223372036854775808 9223372036854775807i64)"),
              TrapCode::LossyConversion);
    EXPECT_EQ(trapOf("(chklossy 3 3i32)"), TrapCode{0});
    EXPECT_EQ(trapOf("(%1 f64[] newarray -1i64 2i64)"), TrapCode::BadSize);
    EXPECT_EQ(trapOf("(%1 f64[] newarray 9223372036854775807i64 2i64)"), TrapCode::BadSize);
    EXPECT_EQ(trapOf("(resize $a 1i64 -2i64)"), TrapCode::BadSize);
    EXPECT_EQ(trapOf("(call &nobody)"), TrapCode::UnknownFunction);
    try {
        run("(function f void (block b0 (trap 1007i64 @12)))");
        FAIL();
    } catch (const EvaluationError& error) {
        EXPECT_EQ(static_cast<std::int64_t>(error.code()), 1007);
        EXPECT_EQ(error.line(), 12U);
        EXPECT_EQ(error.function(), "f");
    }
}

TEST(Evaluator, InvalidIrIsAnError) {
    for (const char* nodes :
         {"(%1 f64 add 1 2i32)", "(%1 i32 add 1 2)", "(%1 f64 sqrt true)", "(store $p 1i32)",
          "(%1 f64 ldelem $p 1i64)", "(%1 i32 ldelem $a 1i64)", "(%1 f64 ldelem $a 1)",
          "(%1 logical add true true)", "(%1 i32 sin 1i32)", "(storep 5 5)", "(stelem 5 1i64 5)",
          "(%1 i32* addrof $p)", "(%1 f64 rows $a)", "(%1 f64 lt 1 2)", "(count -1i64)"}) {
        EXPECT_EQ(trapOf(nodes), TrapCode::InvalidIr) << nodes;
    }
    EXPECT_THROW(run("(function f f64)"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (block b0))"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (block b0 (ret)))"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (block b0 (ret 1i32)))"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (block b0 (br 1 b0 b0)))"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (param $x f64) (block b0 (ret 1)))"), EvaluationError);
    EXPECT_THROW(run("(function f f64 (block b0 (%1 f64 call &f 1) (ret %1)))"), EvaluationError);
}

TEST(Evaluator, CountersCount) {
    const auto scope = scopeOf("(function f void (block b0 (count 2i64) (count 2i64) (ret)))");
    Evaluator evaluator(*scope);
    const Function& f = *scope->find("f");
    EXPECT_EQ(evaluator.counter(f, 2), 0U);
    evaluator.call(f, {});
    EXPECT_EQ(evaluator.counter(f, 2), 2U);
    EXPECT_EQ(evaluator.counter(f, 1), 0U);
    EXPECT_EQ(evaluator.counter(f, 99), 0U);
    evaluator.forget(f);
    EXPECT_EQ(evaluator.counter(f, 2), 0U);
}
