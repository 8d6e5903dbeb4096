// Exact integer arithmetic with integers and doubles, and the helpers of element loops.
//
// A double is a whole number of at most 53 bits times a power of two, and an integer element has at
// most 64 bits, so products and quotients of the two can be made exactly in 128 bits. That is why
// no rounding happens before the one that the language promises.
#include "value/numeric.hpp"

#include "value/errors.hpp"

#include <algorithm>
#include <bit>

namespace varnix::numeric {
namespace {

[[nodiscard]] UInt128 magnitude(Int128 v) {
    return v < 0 ? UInt128{0} - static_cast<UInt128>(v) : static_cast<UInt128>(v);
}
[[nodiscard]] Int128 withSign(bool negative, UInt128 m) {
    const Int128 v = m > static_cast<UInt128>(huge) ? huge : static_cast<Int128>(m);
    return negative ? -v : v;
}
[[nodiscard]] int bitWidth(UInt128 m) {
    const auto high = static_cast<std::uint64_t>(m >> 64);
    return high != 0 ? 64 + static_cast<int>(std::bit_width(high))
                     : static_cast<int>(std::bit_width(static_cast<std::uint64_t>(m)));
}
/// m * 2^exponent, rounded to nearest, ties up.
[[nodiscard]] UInt128 scaled(UInt128 m, int exponent) {
    if (m == 0)
        return 0;
    if (exponent >= 0)
        return bitWidth(m) + exponent > 121 ? static_cast<UInt128>(huge) : m << exponent;
    const int shift = -exponent;
    if (shift > 127)
        return 0; // m stays below 2^120: less than one half
    const UInt128 half = UInt128{1} << (shift - 1);
    return (m >> shift) + ((m & half) != 0 ? 1 : 0);
}
/// a / b * 2^exponent for b > 0, rounded to nearest, ties up.
[[nodiscard]] UInt128 ratio(UInt128 a, UInt128 b, int exponent) {
    if (a == 0)
        return 0;
    if (exponent >= 0) {
        if (bitWidth(a) + exponent > 128)
            return static_cast<UInt128>(huge); // at least 2^128 / 2^64
        a <<= exponent;
    } else {
        if (bitWidth(b) - exponent > 128)
            return 0; // below 2^64 / 2^128
        b <<= -exponent;
    }
    const UInt128 quotient = a / b;
    const UInt128 rest = a % b;
    return quotient + (rest >= b - rest ? 1 : 0);
}

/// A finite double as sign, whole number and power of two.
struct Parts {
    bool negative;
    UInt128 mantissa;
    int exponent;
    explicit Parts(double d) : negative(std::signbit(d)), exponent(0) {
        const double fraction = std::frexp(std::fabs(d), &exponent);
        mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
        exponent -= 53;
    }
};

/// n + d for a finite d: the whole part is added exactly, the fraction decides the rounding.
[[nodiscard]] Int128 add(Int128 n, double d) {
    if (std::fabs(d) >= 0x1p100)
        return d < 0 ? -huge : huge;
    const double whole = std::trunc(d);
    const double fraction = d - whole; // exact, same sign as d
    const Int128 sum = n + static_cast<Int128>(whole);
    if (fraction > 0) // between sum and sum + 1; a tie goes away from zero
        return sum + ((sum >= 0 ? fraction >= 0.5 : fraction > 0.5) ? 1 : 0);
    if (fraction < 0)
        return sum - ((sum <= 0 ? fraction <= -0.5 : fraction < -0.5) ? 1 : 0);
    return sum;
}

[[nodiscard]] Int128 wholePower(Int128 base, Int128 exponent) {
    if (exponent < 0) {
        if (base == 0)
            return huge;
        if (base == 1)
            return 1;
        if (base == -1)
            return exponent % 2 == 0 ? 1 : -1;
        if ((base == 2 || base == -2) && exponent == -1)
            return base / 2; // one half, away from zero
        return 0;
    }
    if (exponent == 0 || base == 1)
        return 1;
    if (base == 0)
        return 0;
    if (base == -1)
        return exponent % 2 == 0 ? 1 : -1;
    const bool negative = base < 0 && exponent % 2 != 0;
    const UInt128 factor = magnitude(base);
    UInt128 result = 1;
    for (Int128 i = 0; i < exponent; ++i) { // at most 120 turns: the factor is 2 or more
        if (bitWidth(result) + bitWidth(factor) > 121)
            return negative ? -huge : huge;
        result *= factor;
    }
    return withSign(negative, result);
}

[[nodiscard]] Int128 fromLongDouble(long double v) {
    if (std::isnan(v))
        return 0;
    const long double rounded = std::round(v);
    if (std::fabs(rounded) >= 0x1p120L)
        return rounded < 0 ? -huge : huge;
    return static_cast<Int128>(rounded);
}

} // namespace

Int128 wholeArithmetic(Arithmetic op, Int128 a, Int128 b) {
    switch (op) {
    case Arithmetic::Add:
        return a + b;
    case Arithmetic::Subtract:
        return a - b;
    case Arithmetic::Multiply: {
        const UInt128 x = magnitude(a);
        const UInt128 y = magnitude(b);
        if (bitWidth(x) + bitWidth(y) > 121)
            return (a < 0) != (b < 0) ? -huge : huge;
        return withSign((a < 0) != (b < 0), x * y);
    }
    case Arithmetic::Divide:
        if (b == 0)
            return a == 0 ? Int128{0} : (a < 0 ? -huge : huge);
        return withSign((a < 0) != (b < 0), ratio(magnitude(a), magnitude(b), 0));
    case Arithmetic::Power:
        return wholePower(a, b);
    }
    return 0;
}

Int128 mixedArithmetic(Arithmetic op, Int128 n, double d, bool swapped) {
    if (std::fabs(d) < 0x1p63 && d == std::trunc(d)) {
        const auto whole = static_cast<Int128>(d);
        return swapped ? wholeArithmetic(op, whole, n) : wholeArithmetic(op, n, whole);
    }
    if (op == Arithmetic::Power) {
        const auto x = static_cast<long double>(n);
        const auto y = static_cast<long double>(d);
        return fromLongDouble(swapped ? std::pow(y, x) : std::pow(x, y));
    }
    if (std::isnan(d))
        return 0;
    if (std::isinf(d)) {
        const bool negative = d < 0;
        switch (op) {
        case Arithmetic::Add:
            return negative ? -huge : huge;
        case Arithmetic::Subtract:
            return negative == swapped ? -huge : huge;
        case Arithmetic::Multiply:
            return n == 0 ? Int128{0} : ((n < 0) != negative ? -huge : huge);
        default:
            return swapped ? ((n < 0) != negative ? -huge : huge) : Int128{0};
        }
    }
    switch (op) {
    case Arithmetic::Add:
        return add(n, d);
    case Arithmetic::Subtract:
        return swapped ? add(-n, d) : add(n, -d);
    default:
        break;
    }
    const Parts parts(d);
    const bool negative = (n < 0) != parts.negative;
    if (op == Arithmetic::Multiply)
        return withSign(negative, scaled(magnitude(n) * parts.mantissa, parts.exponent));
    if (!swapped)
        return withSign(negative, ratio(magnitude(n), parts.mantissa, -parts.exponent));
    if (n == 0)
        return parts.negative ? -huge : huge;
    return withSign(negative, ratio(parts.mantissa, magnitude(n), parts.exponent));
}

void loadDoubles(const View& view, std::size_t from, std::size_t n, double* out) {
    withElementType(view.classID(), [&]<class T>(T) {
        const T* in = view.as<T>() + from;
        for (std::size_t i = 0; i < n; ++i)
            out[i] = static_cast<double>(in[i]);
    });
}

hvClassID arithmeticClass(const char* what, hvClassID left, hvClassID right) {
    const bool leftFits = isArithmeticClass(left);
    if (!leftFits || !isArithmeticClass(right))
        fail(id::wrongType, "{} needs numbers, logicals or characters, not {}", what,
             className(leftFits ? right : left));
    const bool leftInteger = isIntegerClass(left);
    const bool rightInteger = isIntegerClass(right);
    if (leftInteger && rightInteger && left != right)
        fail(id::wrongType, "{} of two different integer types, {} and {}; convert one of them",
             what, className(left), className(right));
    return leftInteger ? left : (rightInteger ? right : hvDOUBLE_CLASS);
}

std::string sizeText(std::size_t rows, std::size_t columns) {
    return fmt::format("{} by {}", rows, columns);
}

} // namespace varnix::numeric
