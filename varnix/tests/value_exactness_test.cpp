// Integer arithmetic against real arithmetic: random operands, results checked in 113-bit floating
// point, where sums and products of these operands are exact.
#include "tests/value_helpers.hpp"
#include "value/numeric.hpp"

#include <random>

namespace varnix::testing {
namespace {

using numeric::Arithmetic;
__extension__ using Wide = __float128;

/// The language's result for an exact real number: nearest, ties away from zero, saturated.
template <class T>
T rounded(Wide exact) {
    const Wide least = std::numeric_limits<T>::min();
    const Wide most = std::numeric_limits<T>::max();
    if (exact >= most)
        return std::numeric_limits<T>::max();
    if (exact <= least)
        return std::numeric_limits<T>::min();
    const auto whole = static_cast<std::int64_t>(exact); // towards zero
    const Wide rest = exact - whole;
    const std::int64_t away = rest >= Wide(0.5) ? 1 : (rest <= Wide(-0.5) ? -1 : 0);
    return static_cast<T>(whole + away);
}

template <class T>
class Exactness : public ::testing::Test {
protected:
    std::mt19937_64 bits{12345};

    T integer() {
        const auto v = static_cast<T>(bits());
        return bits() % 4 == 0 ? static_cast<T>(v % 8) : v;
    }
    /// Magnitudes from 2^-20 to 2^34, often with a fraction of exactly or nearly one half.
    double real() {
        const double sign = bits() % 2 == 0 ? 1 : -1;
        const auto digits = static_cast<double>(bits() >> 40);
        const double whole = std::ldexp(digits, static_cast<int>(bits() % 11));
        switch (bits() % 5) {
        case 0:
            return sign * (std::floor(whole / 1024) + 0.5);
        case 1:
            return sign * std::nextafter(std::floor(whole / 1024) + 0.5, bits() % 2 == 0 ? 0 : 1e9);
        case 2:
            return sign * std::floor(whole / 65536);
        case 3:
            return sign * std::ldexp(static_cast<double>(bits() >> 11), -53);
        default:
            return sign * std::ldexp(whole, -20);
        }
    }
    void check(Arithmetic op, T n, double d) {
        const Wide x = n;
        const Wide y = d;
        const auto message = [&] {
            return ::testing::Message() << "operation " << static_cast<int>(op) << ": " << +n
                                        << " and " << formatNumber(d);
        };
        switch (op) {
        case Arithmetic::Add:
            ASSERT_EQ(numeric::arithmetic<T>(op, n, d), rounded<T>(x + y)) << message();
            ASSERT_EQ(numeric::arithmetic<T>(op, d, n), rounded<T>(x + y)) << message();
            break;
        case Arithmetic::Subtract:
            ASSERT_EQ(numeric::arithmetic<T>(op, n, d), rounded<T>(x - y)) << message();
            ASSERT_EQ(numeric::arithmetic<T>(op, d, n), rounded<T>(y - x)) << message();
            break;
        case Arithmetic::Multiply:
            ASSERT_EQ(numeric::arithmetic<T>(op, n, d), rounded<T>(x * y)) << message();
            ASSERT_EQ(numeric::arithmetic<T>(op, d, n), rounded<T>(x * y)) << message();
            break;
        default: // a quotient that is a tie is exact in 113 bits, others are far enough from one
            if (d != 0) {
                ASSERT_EQ(numeric::arithmetic<T>(op, n, d), rounded<T>(x / y)) << message();
            }
            if (n != 0) {
                ASSERT_EQ(numeric::arithmetic<T>(op, d, n), rounded<T>(y / x)) << message();
            }
            break;
        }
    }
    void checkPair(Arithmetic op, T a, T b) {
        const Wide x = a;
        const Wide y = b;
        if (op == Arithmetic::Divide && b == 0)
            return;
        const Wide exact = op == Arithmetic::Add        ? x + y
                           : op == Arithmetic::Subtract ? x - y
                           : op == Arithmetic::Multiply ? x * y
                                                        : x / y;
        ASSERT_EQ(numeric::arithmetic<T>(op, a, b), rounded<T>(exact)) << +a << " and " << +b;
    }
};

using Narrow = ::testing::Types<std::int8_t, std::int16_t, std::int32_t, std::uint8_t,
                                std::uint16_t, std::uint32_t>;
TYPED_TEST_SUITE(Exactness, Narrow);

TYPED_TEST(Exactness, IntegersWithDoubles) {
    for (int i = 0; i < 20000; ++i)
        for (const Arithmetic op :
             {Arithmetic::Add, Arithmetic::Subtract, Arithmetic::Multiply, Arithmetic::Divide})
            this->check(op, this->integer(), this->real());
}

TYPED_TEST(Exactness, IntegersWithIntegers) {
    for (int i = 0; i < 20000; ++i)
        for (const Arithmetic op :
             {Arithmetic::Add, Arithmetic::Subtract, Arithmetic::Multiply, Arithmetic::Divide})
            this->checkPair(op, this->integer(), this->integer());
}

TEST(ExactnessOfValues, ArraysComputeAsTheirElements) {
    std::mt19937_64 bits(99);
    for (int round = 0; round < 200; ++round) {
        const double d = static_cast<double>(static_cast<std::int64_t>(bits()) >> 40) / 16;
        const auto a = static_cast<std::int32_t>(bits());
        const auto b = static_cast<std::int32_t>(bits() % 100);
        for (const BinaryOp op : {BinaryOp::Add, BinaryOp::Subtract, BinaryOp::TimesElement,
                                  BinaryOp::DivideElement, BinaryOp::PowerElement}) {
            const Value scalar = binary(op, Value::ofInt32(a), number(d));
            EXPECT_TRUE(isEqual(indexValue(binary(op, int32s({a, b}), number(d)), at({number(1)})),
                                scalar));
            EXPECT_TRUE(isEqual(
                indexValue(binary(op, int32s({b, a}), row({1, d})), at({number(2)})), scalar));
            const Value pair = binary(op, Value::ofInt32(a), Value::ofInt32(b));
            EXPECT_TRUE(isEqual(
                indexValue(binary(op, int32s({a, 1}), int32s({b, 2})), at({number(1)})), pair));
            EXPECT_TRUE(isEqual(
                indexValue(binary(op, Value::ofInt32(a), int32s({b, 2})), at({number(1)})), pair));
        }
    }
}

} // namespace
} // namespace varnix::testing
