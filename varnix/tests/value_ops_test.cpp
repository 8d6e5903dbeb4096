// Operators on values: classes, sizes, rounding, saturation, exactness.
#include "tests/value_helpers.hpp"

#include <cmath>
#include <limits>

namespace varnix::testing {
namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

Value i64(std::int64_t v) {
    return Value::ofInt64(v);
}
Value u64(std::uint64_t v) {
    return Value::ofUInt64(v);
}
Value i32(std::int32_t v) {
    return Value::ofInt32(v);
}
Value i8(std::int8_t v) {
    return Value::ofSigned(Tag::Int8, v);
}
Value u8(std::uint8_t v) {
    return Value::ofUnsigned(Tag::UInt8, v);
}

TEST(Ops, ScalarDoubles) {
    EXPECT_TRUE(same(binary(BinaryOp::Add, number(2), number(3)), number(5)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, number(1), number(0)), number(inf)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, number(2), number(0.5)), number(std::sqrt(2.0))));
    EXPECT_TRUE(same(binary(BinaryOp::Or, number(0), number(nan)), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::NotEqual, number(nan), number(nan)), Value::ofLogical(true)));
}

TEST(Ops, LogicalsAndCharactersComputeAsDoubles) {
    EXPECT_TRUE(
        same(binary(BinaryOp::Add, Value::ofLogical(true), Value::ofLogical(true)), number(2)));
    EXPECT_TRUE(same(binary(BinaryOp::Add, text("ab"), number(1)), row({98, 99})));
    EXPECT_TRUE(same(binary(BinaryOp::Add, text("\xff"), number(0)), number(255)));
    EXPECT_TRUE(same(unary(UnaryOp::Plus, Value::ofLogical(true)), number(1)));
    EXPECT_TRUE(same(unary(UnaryOp::Negate, text("a")), number(-97)));
}

TEST(Ops, ScalarsExpandAndOtherSizesMustAgree) {
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, number(1), row({1, 2, 3})), row({0, -1, -2})));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, column({1, 2}), number(3)), column({3, 6})));
    EXPECT_TRUE(same(binary(BinaryOp::TimesElement, row({1, 2}), row({3, 4})), row({3, 8})));
    EXPECT_TRUE(same(binary(BinaryOp::Add, empty(), number(1)), empty()));
    EXPECT_EQ(errorOf([] {
                  return binary(BinaryOp::Add, row({1, 2}), column({1, 2}));
              }),
              "varnix:wrongSize: sizes do not agree for +: 1 by 2 and 2 by 1");
    EXPECT_EQ(errorOf([] {
                  return binary(BinaryOp::And, row({1, 2}), row({1, 2, 3}));
              }),
              "varnix:wrongSize: sizes do not agree for &: 1 by 2 and 1 by 3");
}

TEST(Ops, LongArraysCrossBlocks) {
    hvArray* array = newArray(hvDOUBLE_CLASS, 1, 2000);
    for (std::size_t i = 0; i < 2000; ++i)
        elements<double>(array)[i] = static_cast<double>(i);
    const Value x = Value::fromArray(array);
    const Value y = binary(BinaryOp::Add, x, Value::ofLogical(true));
    for (std::size_t i : {0u, 511u, 512u, 1999u})
        EXPECT_EQ(elements<double>(y.array())[i], static_cast<double>(i) + 1);
}

TEST(Ops, IntegersRoundHalfAwayFromZeroAndSaturate) {
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i32(7), i32(2)), i32(4)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i32(-7), i32(2)), i32(-4)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i32(5), i32(3)), i32(2)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i32(4), i32(3)), i32(1)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, i32(5), number(0.5)), i32(3)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, number(-0.5), i32(5)), i32(-3)));
    EXPECT_TRUE(same(binary(BinaryOp::Add, i8(100), i8(100)), i8(127)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, i8(-100), i8(100)), i8(-128)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, u8(3), u8(5)), u8(0)));
    EXPECT_TRUE(same(unary(UnaryOp::Negate, i8(-128)), i8(127)));
    EXPECT_TRUE(same(unary(UnaryOp::Negate, u8(5)), u8(0)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i8(1), i8(0)), i8(127)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i8(-1), number(0)), i8(-128)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i8(0), i8(0)), i8(0)));
    EXPECT_TRUE(same(binary(BinaryOp::Add, i8(1), number(nan)), i8(0)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, i8(1), number(inf)), i8(-128)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, number(inf), i8(-1)), i8(-128)));
}

TEST(Ops, SixtyFourBitsStayExact) {
    const std::int64_t big = std::numeric_limits<std::int64_t>::max();
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, i64(big), i64(1)), i64(big - 1)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, i64(big), number(1)), i64(big - 1)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, i64(big), number(1)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i64(big), number(1)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, i64(9007199254740993), number(0.5)),
                     i64(4503599627370497)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, u64(~std::uint64_t{0}), u64(2)),
                     u64(std::uint64_t{1} << 63)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, u64(std::uint64_t{1} << 40), u64(1 << 24)),
                     u64(~std::uint64_t{0})));
    EXPECT_TRUE(same(binary(BinaryOp::Add, i64(1), number(0.49999999999999994)), i64(1)));
    EXPECT_TRUE(same(binary(BinaryOp::Add, i64(1), number(0.5)), i64(2)));
    EXPECT_TRUE(same(binary(BinaryOp::Add, i64(-2), number(0.5)), i64(-2)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, number(0.5), i64(2)), i64(-2)));
    EXPECT_TRUE(same(binary(BinaryOp::Subtract, i64(big), number(0.25)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, number(0x1p70), i64(64)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, number(0x1p68), i64(64)), i64(0x1p62)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i64(1), number(0x1p-62)), i64(0x1p62)));
    EXPECT_TRUE(same(binary(BinaryOp::Divide, i64(1), number(5e-324)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, i64(big), number(5e-324)), i64(0)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, i64(3), number(1e300)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, i64(3), i64(39)), i64(4052555153018976267)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, i64(3), i64(40)), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, i64(-2), number(63)),
                     i64(std::numeric_limits<std::int64_t>::min())));
    EXPECT_TRUE(same(binary(BinaryOp::Power, i32(2), i32(-1)), i32(1)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, i32(3), i32(-1)), i32(0)));
    EXPECT_TRUE(same(binary(BinaryOp::Power, number(2.5), i32(2)), i32(6)));
}

TEST(Ops, ClassesThatDoNotMix) {
    EXPECT_EQ(errorOf([] { return binary(BinaryOp::Add, i8(1), i32(1)); }),
              "varnix:wrongType: + of two different integer types, int8 and int32; convert one of "
              "them");
    EXPECT_EQ(errorOf([] { return binary(BinaryOp::Add, cellRow({}), number(1)); }),
              "varnix:wrongType: + needs numbers, logicals or characters, not cell");
    EXPECT_EQ(errorOf([] { return unary(UnaryOp::Not, cellRow({})); }),
              "varnix:wrongType: unary ! needs numbers, logicals or characters, not cell");
    EXPECT_EQ(errorOf([] { return binary(BinaryOp::Less, number(1), cellRow({})); }),
              "varnix:wrongType: < does not compare double with cell; isequal compares any values");
    EXPECT_EQ(errorOf([] { return binary(BinaryOp::And, newStruct(), number(1)); }),
              "varnix:wrongType: & needs numbers, logicals or characters, not struct");
}

TEST(Ops, ComparisonsAreExactAcrossClasses) {
    const std::int64_t odd = 9007199254740993; // 2^53 + 1, no double
    EXPECT_TRUE(
        same(binary(BinaryOp::Equal, i64(odd), number(9007199254740992)), Value::ofLogical(false)));
    EXPECT_TRUE(same(binary(BinaryOp::Greater, i64(odd), number(9007199254740992)),
                     Value::ofLogical(true)));
    EXPECT_TRUE(
        same(binary(BinaryOp::Less, number(9007199254740992), i64(odd)), Value::ofLogical(true)));
    EXPECT_TRUE(
        same(binary(BinaryOp::Less, i64(-1), u64(~std::uint64_t{0})), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Less, u64(~std::uint64_t{0}), number(0x1p64)),
                     Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::GreaterEqual, i64(0), number(nan)), Value::ofLogical(false)));
    EXPECT_TRUE(same(binary(BinaryOp::NotEqual, i64(0), number(nan)), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Equal, i8(5), u8(5)), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Less, i64(1), number(1.5)), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Greater, i64(-1), number(-1.5)), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Equal, text("abc"), text("abd")), mask({true, true, false})));
    EXPECT_TRUE(same(binary(BinaryOp::Equal, text("abc"), text("b")), mask({false, true, false})));
    EXPECT_EQ(errorOf([] { return binary(BinaryOp::Equal, text("abc"), text("ab")); }),
              "varnix:wrongSize: sizes do not agree for ==: 1 by 3 and 1 by 2");
}

TEST(Ops, LogicCountsNonZero) {
    EXPECT_TRUE(
        same(binary(BinaryOp::And, row({0, 1, nan}), number(2)), mask({false, true, true})));
    EXPECT_TRUE(same(unary(UnaryOp::Not, row({0, 3})), mask({true, false})));
    EXPECT_TRUE(isTrue(row({1, 2})));
    EXPECT_FALSE(isTrue(row({1, 0})));
    EXPECT_FALSE(isTrue(empty()));
    EXPECT_TRUE(isTrue(text("a")));
    EXPECT_FALSE(isTrue(text("")));
    EXPECT_EQ(errorOf([] { return isTrue(newStruct()); }),
              "varnix:wrongType: a condition must be a number, a logical or a text, not struct");
}

TEST(Ops, MatrixProduct) {
    const Value a = matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 3, 2, 4});
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, a, column({1, 1})), column({3, 7})));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, row({1, 2, 3}), column({1, 1, 1})), number(6)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, Value::fromArray(newArray(hvDOUBLE_CLASS, 2, 0)),
                            Value::fromArray(newArray(hvDOUBLE_CLASS, 0, 2))),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {0, 0, 0, 0})));
    EXPECT_EQ(errorOf([&] {
                  return binary(BinaryOp::Multiply, a, row({1, 2, 3}));
              }),
              "varnix:wrongSize: inner sizes do not agree for *: 2 by 2 and 1 by 3; .* multiplies "
              "element by element");
}

TEST(Ops, IntegerMatrixProductIsExactAndSaturates) {
    const std::int64_t big = std::int64_t{1} << 62;
    const Value a = matrix<std::int64_t>(hvINT64_CLASS, 1, 3, {big, big, -big});
    const Value ones = matrix<std::int64_t>(hvINT64_CLASS, 3, 1, {1, 1, 1});
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, a, ones), i64(big)));
    EXPECT_TRUE(same(binary(BinaryOp::Multiply, int32s({1, 2}), column({0.5, 1})), i32(3)));
}

TEST(Ops, MatrixDivisionSolves) {
    const Value a = matrix<double>(hvDOUBLE_CLASS, 2, 2, {2, 0, 0, 4});
    EXPECT_TRUE(same(binary(BinaryOp::Divide, row({2, 4}), a), row({1, 1})));
    EXPECT_EQ(errorOf([] {
                  return binary(BinaryOp::Divide, row({1, 1}),
                                matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 1, 1, 1}));
              }),
              "varnix:singularMatrix: /: the matrix is singular to working precision");
    EXPECT_EQ(errorOf([&] {
                  return binary(BinaryOp::Divide, row({1, 2, 3}), a);
              }),
              "varnix:wrongSize: numbers of columns do not agree for /: 1 by 3 and 2 by 2; ./ "
              "divides element by element");
    // Least squares: the slope through (1, 2), (2, 4), (3, 6).
    const Value slope = binary(BinaryOp::Divide, row({2, 4, 6}), row({1, 2, 3}));
    EXPECT_NEAR(toDouble(slope, "slope"), 2, 1e-12);
}

TEST(Ops, MatrixPower) {
    const Value a = matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 0, 1, 1});
    EXPECT_TRUE(same(binary(BinaryOp::Power, a, number(5)),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 0, 5, 1})));
    EXPECT_TRUE(same(binary(BinaryOp::Power, a, number(0)),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 0, 0, 1})));
    EXPECT_TRUE(same(binary(BinaryOp::Power, a, number(-1)),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 0, -1, 1})));
    EXPECT_EQ(errorOf([&] { return binary(BinaryOp::Power, a, number(0.5)); }),
              "varnix:badArgument: the exponent of a matrix power must be a whole number");
    EXPECT_EQ(errorOf([&] {
                  return binary(BinaryOp::Power, row({1, 2}), number(2));
              }),
              "varnix:wrongSize: ^ needs a square matrix and a scalar exponent, not 1 by 2 and 1 "
              "by 1; .^ works element by element");
}

TEST(Ops, Ranges) {
    EXPECT_TRUE(same(range(number(1), number(1), number(4)), row({1, 2, 3, 4})));
    EXPECT_TRUE(same(range(number(5), number(-2), number(0)), row({5, 3, 1})));
    EXPECT_EQ(range(number(0), number(0.1), number(1)).count(), 11u);
    EXPECT_EQ(range(number(0), number(0.1), number(0.3)).count(), 4u);
    EXPECT_TRUE(same(range(number(2), number(1), number(2)), number(2)));
    const Value none = range(number(3), number(1), number(2));
    EXPECT_EQ(none.rows(), 1u);
    EXPECT_EQ(none.columns(), 0u);
    EXPECT_EQ(range(number(1), number(0), number(2)).count(), 0u);
    EXPECT_TRUE(same(range(Value::ofInt32(1), number(2), number(5)), int32s({1, 3, 5})));
    EXPECT_TRUE(same(range(text("a"), number(1), text("c")), row({97, 98, 99})));
    EXPECT_EQ(errorOf([] { return range(number(1), number(1), number(inf)); }),
              "varnix:tooLarge: the range is too large");
    EXPECT_EQ(errorOf([] { return range(number(1), number(nan), number(2)); }),
              "varnix:badArgument: the step of a range is nan");
    EXPECT_EQ(errorOf([] { return range(i32(1), number(0.5), number(2)); }),
              "varnix:badArgument: the step of a range of integers must be a whole number");
    EXPECT_EQ(errorOf([] { return range(i8(1), number(100), number(500)); }),
              "varnix:badArgument: the range leaves the class int8");
    EXPECT_EQ(errorOf([] { return range(i8(1), i32(1), number(5)); }),
              "varnix:wrongType: a range of two different integer types, int8 and int32");
    EXPECT_EQ(errorOf([] { return range(cellRow({}), number(1), number(5)); }),
              "varnix:wrongType: the first value must be a numeric scalar, not 1 by 0 cell");
}

TEST(Ops, Conversions) {
    EXPECT_TRUE(same(convertTo(hvINT8_CLASS, row({-200, 2.5, -2.5, nan, 1e9})),
                     matrix<std::int8_t>(hvINT8_CLASS, 1, 5, {-128, 3, -3, 0, 127})));
    EXPECT_TRUE(same(convertTo(hvUINT64_CLASS, number(0x1p64)), u64(~std::uint64_t{0})));
    EXPECT_TRUE(same(convertTo(hvINT64_CLASS, u64(~std::uint64_t{0})),
                     i64(std::numeric_limits<std::int64_t>::max())));
    EXPECT_TRUE(same(convertTo(hvLOGICAL_CLASS, row({0, 2})), mask({false, true})));
    EXPECT_TRUE(same(convertTo(hvDOUBLE_CLASS, text("a")), number(97)));
    EXPECT_TRUE(same(convertTo(hvCHAR_CLASS, row({104, 105})), text("hi")));
    EXPECT_EQ(errorOf([] { return convertTo(hvLOGICAL_CLASS, number(nan)); }),
              "varnix:badArgument: nan has no truth and cannot become a logical");
    EXPECT_EQ(errorOf([] { return convertTo(hvCHAR_CLASS, number(256)); }),
              "varnix:badArgument: a character's code must be a whole number from 0 to 255");
    EXPECT_EQ(errorOf([] { return convertTo(hvDOUBLE_CLASS, cellRow({})); }),
              "varnix:wrongType: cell cannot be converted to double");
}

TEST(Ops, IsEqualComparesWhole) {
    EXPECT_TRUE(isEqual(number(1), Value::ofLogical(true)));
    EXPECT_TRUE(isEqual(i8(5), number(5)));
    EXPECT_FALSE(isEqual(number(nan), number(nan)));
    EXPECT_FALSE(isEqual(row({1, 2}), column({1, 2})));
    EXPECT_FALSE(isEqual(text("a"), number(97)));
    EXPECT_TRUE(isEqual(cellRow({text("a"), row({1, 2})}), cellRow({text("a"), row({1, 2})})));
    EXPECT_FALSE(isEqual(cellRow({text("a"), row({1, nan})}), cellRow({text("a"), row({1, nan})})));
    Value s = newStruct();
    structOf(s.array()).place(objsys::COSNameID("a")) = number(1);
    structOf(s.array()).place(objsys::COSNameID("b")) = number(2);
    Value t = newStruct();
    structOf(t.array()).place(objsys::COSNameID("b")) = number(2);
    structOf(t.array()).place(objsys::COSNameID("a")) = number(1);
    EXPECT_TRUE(isEqual(s, t));
    structOf(t.array()).place(objsys::COSNameID("c")) = number(1);
    EXPECT_FALSE(isEqual(s, t));
    EXPECT_FALSE(isEqual(s, cellRow({})));
}

TEST(Ops, NestingOfAnyDepthIsComparedAndFreed) {
    const auto nest = [] {
        Value v = number(1);
        for (int i = 0; i < 1000000; ++i)
            v = cellRow({v});
        return v;
    };
    const Value a = nest();
    const Value b = nest();
    EXPECT_TRUE(isEqual(a, b));
}

TEST(Ops, SharedCellsAreComparedOnce) {
    const auto doubled = [] {
        Value v = cellRow({number(1)});
        for (int i = 0; i < 100; ++i)
            v = cellRow({v, v});
        return v;
    };
    EXPECT_TRUE(isEqual(doubled(), doubled()));
}

TEST(Ops, SpellingsAreAsWritten) {
    EXPECT_STREQ(spelling(BinaryOp::TimesElement), ".*");
    EXPECT_STREQ(spelling(BinaryOp::Or), "|");
    EXPECT_STREQ(spelling(BinaryOp::GreaterEqual), ">=");
    EXPECT_STREQ(spelling(UnaryOp::Not), "!");
}

} // namespace
} // namespace varnix::testing
