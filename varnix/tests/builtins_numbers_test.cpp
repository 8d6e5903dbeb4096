// Built-in functions on numbers, bits, arrays, matrices, reductions, order.
#include "tests/builtins_helpers.hpp"

namespace varnix::testing {
namespace {

TEST(BuiltinsNumbers, KeepTheClassWhereTheyCan) {
    expectRows(std::vector<GoodRow>{
        {"abs(-3)", "3"},
        {"abs(-128i8)", "127i8"},
        {"abs(int64([-9223372036854775807, 5]))", "int64([9223372036854775807, 5])"},
        {"abs(true)", "1"},
        {"sign([-2, 0, 3])", "[-1, 0, 1]"},
        {"sign(-5i32)", "-1i32"},
        {"floor([1.5, -1.5])", "[1, -2]"},
        {"floor(5i8)", "5i8"},
        {"ceil(-1.5)", "-1"},
        {"round([0.5, 1.5, -0.5, 0.49999999999999994])", "[1, 2, -1, 0]"},
        {"trunc([1.9, -1.9])", "[1, -1]"},
        {"trunc(\"a\")", "97"},
    });
}

TEST(BuiltinsNumbers, RemaindersAreExact) {
    expectRows(std::vector<GoodRow>{
        {"mod([-7, 7], [3, -3])", "[2, -2]"},
        {"mod(5.5, 2)", "1.5"},
        {"mod(5, 0)", "5"},
        {"mod(6, -3)", "0"},
        {"1 / mod(6, -3)", "inf"},
        {"rem([-7, 7], 3)", "[-1, 1]"},
        {"isnan(rem(5, 0))", "true"},
        {"rem(5i32, 0i32)", "0i32"},
        {"mod(-7i8, 3i8)", "2i8"},
        {"mod(9223372036854775807i64, 10)", "7i64"},
        {"mod(18446744073709551615u64, 1000u64)", "615u64"},
        {"mod(10, 3i16)", "1i16"},
        {"mod(5i32, 2.5)", "0i32"},
        {"gcd(12, [18, 8])", "[6, 4]"},
        {"gcd(-12i32, 18i32)", "6i32"},
        {"lcm(4i8, 100i8)", "100i8"},
        {"lcm(100i8, 99i8)", "127i8"},
        {"gcd(0, 0)", "0"},
        {"factorial([0, 1, 10])", "[1, 1, 3628800]"},
        {"factorial(200)", "inf"},
    });
}

TEST(BuiltinsNumbers, RealFunctions) {
    expectRows(std::vector<GoodRow>{
        {"sqrt([4, 2.25])", "[2, 1.5]"},
        {"isnan(sqrt(-1))", "true"},
        {"sqrt(16i8)", "4"},
        {"abs(cbrt(27) - 3) < 1e-15", "true"},
        {"exp(1) > 2.718", "true"},
        {"expm1(1e-20)", "1e-20"},
        {"log(exp(2))", "2"},
        {"log1p(1e-20)", "1e-20"},
        {"log2(8)", "3"},
        {"log10([0, 100])", "[-inf, 2]"},
        {"sin(pi / 2)", "1"},
        {"cos(0)", "1"},
        {"abs(tan(pi / 4) - 1) < 1e-15", "true"},
        {"asin(1)", "pi / 2"},
        {"acos(-1)", "pi"},
        {"atan(inf)", "pi / 2"},
        {"atan2([1, -1], 0)", "[pi / 2, -pi / 2]"},
        {"sinh(0)", "0"},
        {"cosh(0)", "1"},
        {"tanh(inf)", "1"},
        {"abs(hypot(3e200, 4e200) / 5e200 - 1) < 1e-15", "true"},
        {"isnan([1, nan; inf, 0])", "[false, true; false, false]"},
        {"isinf(-inf)", "true"},
        {"isinf(5i8)", "false"},
        {"isfinite([1, inf, nan])", "[true, false, false]"},
    });
}

TEST(BuiltinsBits, WorkOnWholeNumbers) {
    expectRows(std::vector<GoodRow>{
        {"bitand(255, [15, 240])", "[15, 240]"},
        {"bitand(-1i32, 255)", "255i32"},
        {"bitor(1u8, 2u8)", "3u8"},
        {"bitxor(18446744073709551615u64, 1u64)", "18446744073709551614u64"},
        {"bitshift(1, [0, 3, 52, 53])", "[1, 8, 4503599627370496, 0]"},
        {"bitshift(255u8, 4)", "240u8"},
        {"bitshift(255u8, -4)", "15u8"},
        {"bitshift(1i8, 7)", "0i8"},
        {"bitshift(1, -inf)", "0"},
    });
}

TEST(BuiltinsArrays, Making) {
    expectRows(std::vector<GoodRow>{
        {"zeros(2)", "[0, 0; 0, 0]"},
        {"zeros()", "0"},
        {"zeros([1, 2])", "[0, 0]"},
        {"zeros(1, 2, \"uint8\")", "[0u8, 0u8]"},
        {"zeros(1, 2, \"logical\")", "[false, false]"},
        {"size(zeros(0, 3))", "[0, 3]"},
        {"ones(1, 2)", "[1, 1]"},
        {"eye(2, 3)", "[1, 0, 0; 0, 1, 0]"},
        {"inf(1, 2)", "[inf, inf]"},
        {"all(isnan(nan(1, 2)))", "true"},
        {"linspace(0, 1, 5)", "[0, 0.25, 0.5, 0.75, 1]"},
        {"linspace(3, 7, 1)", "7"},
        {"size(linspace(0, 1))", "[1, 100]"},
        {"size(linspace(0, 1, 0))", "[1, 0]"},
        {"repmat([1, 2], 2, 1)", "[1, 2; 1, 2]"},
        {"repmat(7, 2)", "[7, 7; 7, 7]"},
        {"repmat({1}, 1, 2)", "{1, 1}"},
        {"size(repmat([1, 2], 0, 1))", "[0, 2]"},
        {"diag([1, 2])", "[1, 0; 0, 2]"},
    });
}

TEST(BuiltinsArrays, SizesAndShapes) {
    expectRows(std::vector<GoodRow>{
        {"size([1, 2, 3])", "[1, 3]"},
        {"size([1, 2, 3], 2)", "3"},
        {"length({1, 2; 3, 4})", "4"},
        {"numel([])", "0"},
        {"rows([1, 2, 3])", "1"},
        {"columns([1, 2, 3])", "3"},
        {"isempty([])", "true"},
        {"isempty(0)", "false"},
        {"reshape(1:6, 2, 3)", "[1, 3, 5; 2, 4, 6]"},
        {"reshape(1:6, [], 2)", "[1, 4; 2, 5; 3, 6]"},
        {"reshape(1:6, [6, 1])", "[1; 2; 3; 4; 5; 6]"},
        {"reshape({1, 2}, 2, 1)", "{1; 2}"},
        {"transpose([1, 2; 3, 4; 5, 6])", "[1, 3, 5; 2, 4, 6]"},
        {"transpose({1, \"a\"})", "{1; \"a\"}"},
        {"transpose(5)", "5"},
        {"flip([1, 2; 3, 4])", "[3, 4; 1, 2]"},
        {"flip([1, 2; 3, 4], 2)", "[2, 1; 4, 3]"},
        {"flip({1, 2})", "{2, 1}"},
        {"isequal(1, 1i8, true)", "true"},
        {"isequal([1, 2], [1; 2])", "false"},
    });
    interpreter().runCode("r, c = size([1, 2, 3]);", "<test>");
    EXPECT_TRUE(same(evaluate("[r, c]"), row({1, 3})));
    // The argument stays as it was.
    interpreter().runCode("x = [1, 2]; y = transpose(x);", "<test>");
    EXPECT_TRUE(same(evaluate("x"), row({1, 2})));
}

TEST(BuiltinsAlgebra, SolvesAndMeasures) {
    expectRows(std::vector<GoodRow>{
        {"solve([2, 0; 0, 4], [2; 8])", "[1; 2]"},
        {"abs(solve([1; 2; 3], [2; 4; 6]) - 2) < 1e-12", "true"},
        {"inv(4)", "0.25"},
        {"det([1, 2; 3, 4]) + 2 < 1e-12", "true"},
        {"det([])", "1"},
        {"rank(eye(3))", "3"},
        {"norm([3; 4])", "5"},
        {"norm([3, -4], 1)", "7"},
        {"norm([3, -4], inf)", "4"},
        {"norm([1, 2; 3, 4], 1)", "6"},
        {"norm([1, 2; 3, 4], inf)", "7"},
        {"norm([3, 0; 0, 4], \"fro\")", "5"},
        {"abs(norm([3, 0; 0, 4]) - 4) < 1e-12", "true"},
        {"abs(norm([1, 2; 3, 4]) - 5.464985704219043) < 1e-14", "true"},
        {"abs(norm([1, 2, 3; 4, 5, 6]) / 9.508032000695724 - 1) < 1e-15", "true"},
        {"abs(norm([1, 4; 2, 5; 3, 6] * 1e200) / 9.508032000695724e200 - 1) < 1e-15", "true"},
        {"isnan(norm([1, nan; 3, 4]))", "true"},
        {"norm([1, -inf; 3, 4])", "inf"},
        {"norm(zeros(2, 3))", "0"},
    });
}

TEST(BuiltinsRandom, RepeatsFromASeed) {
    interpreter().runCode("seed(1); a = rand(1, 1000); seed(1); b = rand(1, 1000); c = rand();",
                          "<test>");
    EXPECT_TRUE(
        same(evaluate("isequal(a, b) && all(a >= 0) && all(a < 1)"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("abs(mean(a) - 0.5) < 0.05"), Value::ofLogical(true)));
    interpreter().runCode("seed(7); n = randn(1, 1000); i = randi(6, 1, 1000); p = randperm(50);",
                          "<test>");
    EXPECT_TRUE(
        same(evaluate("abs(mean(n)) < 0.2 && abs(std(n) - 1) < 0.1"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("isequal(unique(i), 1:6)"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("isequal(sort(p), 1:50)"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("randi([-3, -3], 2, 1)"), column({-3, -3})));
    interpreter().runCode("seed(); s = rand(); seed(); t = rand();", "<test>");
    EXPECT_TRUE(same(evaluate("s == t"), Value::ofLogical(false)));
}

TEST(BuiltinsRandom, TheSequenceIsTheSameEverywhere) {
    // The first numbers of the 64-bit Mersenne Twister seeded with 5489, cut to 53 bits.
    interpreter().runCode("seed(5489);", "<test>");
    const double first = toDouble(evaluate("rand()"), "rand");
    EXPECT_EQ(first, static_cast<double>(14514284786278117030u >> 11) * 0x1p-53);
}

TEST(BuiltinsReductions, ByLines) {
    expectRows(std::vector<GoodRow>{
        {"sum([1, 2, 3])", "6"},
        {"sum([1, 2; 3, 4], 2)", "[3; 7]"},
        {"sum([1, 2, 3], 1)", "[1, 2, 3]"},
        {"sum([])", "0"},
        {"sum(zeros(0, 3))", "[0, 0, 0]"},
        {"sum([true, true])", "2"},
        {"sum([100i8, 100i8, -100i8])", "100i8"},
        {"sum([9223372036854775807i64, 1i64, -1i64])", "9223372036854775807i64"},
        {"prod([])", "1"},
        {"prod([1, 2; 3, 4])", "[3, 8]"},
        {"prod([100i8, 2i8])", "127i8"},
        {"cumsum([1, 2; 3, 4])", "[1, 2; 4, 6]"},
        {"cumsum([1, 2; 3, 4], 2)", "[1, 3; 3, 7]"},
        {"cumsum([100u8, 100u8, 100u8])", "[100u8, 200u8, 255u8]"},
        {"cumprod([1, 2, 3, 4])", "[1, 2, 6, 24]"},
        {"diff([1, 4, 9, 16])", "[3, 5, 7]"},
        {"diff([1, 2; 4, 8])", "[3, 6]"},
        {"diff([1, 2; 4, 8], 2)", "[1; 4]"},
        {"diff([5u8, 3u8])", "0u8"},
        {"size(diff(5))", "[1, 0]"},
        {"mean([1, 2; 3, 4])", "[2, 3]"},
        {"isnan(mean([]))", "true"},
        {"mean([1i8, 2i8])", "1.5"},
        {"median([3, 1, 2, 10])", "2.5"},
        {"isnan(median([1, nan]))", "true"},
        {"var([1, 2, 3, 4], 2)", "5 / 3"},
        {"std([2, 4])", "sqrt(2)"},
        {"var(5)", "0"},
        {"any([0, 0; 0, 1])", "[false, true]"},
        {"any([])", "false"},
        {"all([])", "true"},
        {"all([1, 2; 0, 1], 2)", "[true; false]"},
    });
}

TEST(BuiltinsReductions, Extremes) {
    expectRows(std::vector<GoodRow>{
        {"min([4, 2, 8])", "2"},
        {"min([4, 2; 1, 8])", "[1, 2]"},
        {"min([4, 2; 1, 8], [], 2)", "[2; 1]"},
        {"max([nan, 1, nan])", "1"},
        {"isnan(max([nan, nan]))", "true"},
        {"max([])", "[]"},
        {"size(max(zeros(0, 3)))", "[0, 3]"},
        {"min([1, 5], [3, 2])", "[1, 2]"},
        {"max([1, 5], 3)", "[3, 5]"},
        {"max(3, 2i8)", "3i8"},
        {"max(nan, 1)", "1"},
        {"min(true, false)", "0"},
        {"max(\"ab\")", "98"},
        {"max([1i64, 9223372036854775807i64])", "9223372036854775807i64"},
    });
    interpreter().runCode("m, i = max([3, 9, 9]);", "<test>");
    EXPECT_TRUE(same(evaluate("[m, i]"), row({9, 2})));
}

TEST(BuiltinsSearching, FindsAndSorts) {
    expectRows(std::vector<GoodRow>{
        {"find([0, 1; 1, 0])", "[2; 3]"},
        {"find([0, 1, 1], 1)", "2"},
        {"size(find([0, 0]))", "[1, 0]"},
        {"find([])", "[]"},
        {"sort([3, 1, 2], \"descend\")", "[3, 2, 1]"},
        {"sort([3, 1; 1, 2])", "[1, 1; 3, 2]"},
        {"isnan(sort([nan, 1]))", "[false, true]"},
        {"isnan(sort([nan, 1], \"descend\"))", "[false, true]"},
        {"sort({\"b\", \"a\", \"B\", \"\"})", "{\"\", \"B\", \"a\", \"b\"}"},
        {"sort({\"b\"; \"a\"}, \"descend\")", "{\"b\"; \"a\"}"},
        {"sort(\"hello\")", "\"ehllo\""},
        {"sort([5i8, -5i8])", "[-5i8, 5i8]"},
        {"sort([])", "[]"},
        {"sort({})", "{}"},
        {"unique([3, 1, 3, 2])", "[1, 2, 3]"},
        {"unique([3; 1; 3])", "[1; 3]"},
        {"unique({\"b\", \"a\", \"b\"})", "{\"a\", \"b\"}"},
        {"unique([])", "[]"},
        {"ismember([1, 5], [5, 6])", "[false, true]"},
        {"ismember({\"a\", \"z\"}, {\"z\"})", "[false, true]"},
        {"ismember(nan, nan)", "false"},
    });
    interpreter().runCode("s, i = sort([2, 1, 2, 1]); d, j = sort([2, 1, 2, 1], \"descend\");",
                          "<test>");
    EXPECT_TRUE(same(evaluate("i"), row({2, 4, 1, 3})));
    EXPECT_TRUE(same(evaluate("j"), row({1, 3, 2, 4}))); // stable in both directions
    interpreter().runCode("u, i, j = unique([7, 5, 7]);", "<test>");
    EXPECT_TRUE(same(evaluate("i"), row({2, 1})));
    EXPECT_TRUE(same(evaluate("j"), row({2, 1, 2})));
    interpreter().runCode("r, c = find([0, 1; 1, 0]);", "<test>");
    EXPECT_TRUE(same(evaluate("[r, c]"), evaluate("[2, 1; 1, 2]")));
    interpreter().runCode("is, at = ismember([5, 9], [9, 5, 5]);", "<test>");
    EXPECT_TRUE(same(evaluate("at"), row({2, 1})));
}

} // namespace
} // namespace varnix::testing
