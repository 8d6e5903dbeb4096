// Scalar arithmetic. Integers are computed exactly in 128 bits, rounded, and then brought into
// range.
#include <qn/arithmetic.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace QN {

namespace {

__extension__ using Wide = __int128;

struct Range {
    Wide low;
    Wide high;
};

Range rangeOf(const Type& type) noexcept {
    const int bits = type.bits();
    return type.isSigned() ? Range{-(Wide{1} << (bits - 1)), (Wide{1} << (bits - 1)) - 1}
                           : Range{0, (Wide{1} << bits) - 1};
}

Wide widen(const Type& type, std::uint64_t bits) noexcept {
    return type.isSigned() ? Wide{static_cast<std::int64_t>(bits)} : Wide{bits};
}

std::uint64_t intoRange(const Type& type, Mode mode, Wide exact) noexcept {
    if (mode.overflow() == Overflow::Wrap) {
        return normalizeScalar(type, static_cast<std::uint64_t>(exact));
    }
    const Range range = rangeOf(type);
    return static_cast<std::uint64_t>(std::clamp(exact, range.low, range.high));
}

// Product of two values of up to 64 bits. Two large unsigned ones do not fit into 127 bits.
std::uint64_t multiply(const Type& type, Mode mode, Wide a, Wide b) noexcept {
    Wide product;
    if (__builtin_mul_overflow(a, b, &product)) { // only for u64, so both are positive
        return mode.overflow() == Overflow::Wrap
                   ? static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b)
                   : std::numeric_limits<std::uint64_t>::max();
    }
    return intoRange(type, mode, product);
}

Wide divideRounded(Wide a, Wide b, Rounding rounding) noexcept {
    const Wide quotient = a / b;
    const Wide remainder = a % b;
    if (remainder == 0) {
        return quotient;
    }
    const bool negative = (a < 0) != (b < 0);
    const Wide away = quotient + (negative ? -1 : 1);
    const Wide twice = 2 * (remainder < 0 ? -remainder : remainder);
    const Wide divisor = b < 0 ? -b : b;
    switch (rounding) {
    case Rounding::NearestAway:
        return twice >= divisor ? away : quotient;
    case Rounding::NearestEven:
        return twice > divisor || (twice == divisor && quotient % 2 != 0) ? away : quotient;
    case Rounding::Down:
        return negative ? away : quotient;
    case Rounding::Up:
        return negative ? quotient : away;
    case Rounding::TowardZero:
        break;
    }
    return quotient;
}

std::uint64_t divide(const Type& type, Mode mode, Wide a, Wide b) noexcept {
    if (b == 0) {
        const Range range = rangeOf(type);
        return static_cast<std::uint64_t>(a == 0 ? Wide{0} : a > 0 ? range.high : range.low);
    }
    return intoRange(type, mode, divideRounded(a, b, mode.rounding()));
}

Wide modInteger(Wide a, Wide b) noexcept {
    if (b == 0) {
        return a;
    }
    const Wide remainder = a % b;
    return remainder != 0 && (remainder < 0) != (b < 0) ? remainder + b : remainder;
}

double roundBy(Rounding rounding, double value) noexcept {
    switch (rounding) {
    case Rounding::NearestAway:
        return std::round(value);
    case Rounding::NearestEven:
        return std::nearbyint(value);
    case Rounding::TowardZero:
        return std::trunc(value);
    case Rounding::Down:
        return std::floor(value);
    case Rounding::Up:
        return std::ceil(value);
    }
    return value;
}

std::uint64_t doubleToInteger(const Type& to, Mode mode, double value) noexcept {
    if (std::isnan(value)) {
        return 0;
    }
    double whole = roundBy(mode.rounding(), value);
    if (mode.overflow() == Overflow::Wrap) {
        if (std::isinf(whole)) {
            return 0;
        }
        whole = std::fmod(whole, 0x1p64); // exact, and the bits above do not matter
        return intoRange(to, mode, static_cast<Wide>(whole));
    }
    // Far outside any range, but inside 128 bits.
    return intoRange(to, mode, static_cast<Wide>(std::clamp(whole, -0x1p80, 0x1p80)));
}

bool computeDouble(Op op, double a, double b, double& result) noexcept {
    switch (op) {
    case Op::Add:
        result = a + b;
        return true;
    case Op::Sub:
        result = a - b;
        return true;
    case Op::Mul:
        result = a * b;
        return true;
    case Op::Div:
        result = a / b;
        return true;
    case Op::Neg:
        result = -a;
        return true;
    case Op::Abs:
        result = std::fabs(a);
        return true;
    case Op::Min:
        result = minOf(a, b);
        return true;
    case Op::Max:
        result = maxOf(a, b);
        return true;
    case Op::Mod:
        result = modOf(a, b);
        return true;
    case Op::Rem:
        result = remOf(a, b);
        return true;
    case Op::Pow:
        result = std::pow(a, b);
        return true;
    case Op::Atan2:
        result = std::atan2(a, b);
        return true;
    case Op::Sqrt:
        result = std::sqrt(a);
        return true;
    case Op::Exp:
        result = std::exp(a);
        return true;
    case Op::Log:
        result = std::log(a);
        return true;
    case Op::Sin:
        result = std::sin(a);
        return true;
    case Op::Cos:
        result = std::cos(a);
        return true;
    case Op::Tan:
        result = std::tan(a);
        return true;
    case Op::Floor:
        result = std::floor(a);
        return true;
    case Op::Ceil:
        result = std::ceil(a);
        return true;
    case Op::Round:
        result = std::round(a);
        return true;
    case Op::Trunc:
        result = std::trunc(a);
        return true;
    default:
        return false;
    }
}

bool computeInteger(Op op, Mode mode, const Type& type, const std::uint64_t* operands,
                    std::uint64_t& result) noexcept {
    const Wide a = widen(type, operands[0]);
    const auto b = [&] { return widen(type, operands[1]); };
    switch (op) {
    case Op::Add:
        result = intoRange(type, mode, a + b());
        return true;
    case Op::Sub:
        result = intoRange(type, mode, a - b());
        return true;
    case Op::Mul:
        result = multiply(type, mode, a, b());
        return true;
    case Op::Div:
        result = divide(type, mode, a, b());
        return true;
    case Op::Neg:
        result = intoRange(type, mode, -a);
        return true;
    case Op::Abs:
        result = intoRange(type, mode, a < 0 ? -a : a);
        return true;
    case Op::Min:
        result = static_cast<std::uint64_t>(std::min(a, b()));
        return true;
    case Op::Max:
        result = static_cast<std::uint64_t>(std::max(a, b()));
        return true;
    case Op::Mod:
        result = static_cast<std::uint64_t>(modInteger(a, b()));
        return true;
    case Op::Rem:
        result = b() == 0 ? operands[0] : static_cast<std::uint64_t>(a % b());
        return true;
    default:
        return false;
    }
}

template <typename T>
bool compare(Op op, T a, T b) noexcept {
    switch (op) {
    case Op::Eq:
        return a == b;
    case Op::Ne:
        return a != b;
    case Op::Lt:
        return a < b;
    case Op::Le:
        return a <= b;
    case Op::Gt:
        return a > b;
    default:
        return a >= b;
    }
}

bool computeLogical(Op op, const std::uint64_t* operands, std::uint64_t& result) noexcept {
    switch (op) {
    case Op::And:
        result = operands[0] & operands[1];
        return true;
    case Op::Or:
        result = operands[0] | operands[1];
        return true;
    case Op::Xor:
        result = operands[0] ^ operands[1];
        return true;
    case Op::Not:
        result = operands[0] ^ 1;
        return true;
    default:
        return false;
    }
}

} // namespace

double modOf(double a, double b) noexcept {
    if (b == 0) {
        return a;
    }
    const double remainder = std::fmod(a, b);
    return remainder != 0 && (remainder < 0) != (b < 0) ? remainder + b : remainder;
}

double remOf(double a, double b) noexcept {
    return b == 0 ? a : std::fmod(a, b);
}

bool isSameNumber(double value, const Type& integerType, std::uint64_t bits) noexcept {
    if (!(value >= -0x1p63 && value < 0x1p64)) {
        return false;
    }
    const Wide whole = static_cast<Wide>(value);
    return static_cast<double>(whole) == value && whole == widen(integerType, bits);
}

std::uint64_t normalizeScalar(const Type& type, std::uint64_t bits) noexcept {
    const int width = type.bits();
    if (width == 64) {
        return bits;
    }
    const int unused = 64 - width;
    return type.isInteger() && type.isSigned()
               ? static_cast<std::uint64_t>(static_cast<std::int64_t>(bits << unused) >> unused)
               : (bits << unused) >> unused;
}

std::uint64_t convertScalar(const Type& from, const Type& to, Mode mode,
                            std::uint64_t bits) noexcept {
    if (to.isLogical()) {
        return from.isDouble() ? (asDouble(bits) != 0 ? 1 : 0) : (bits != 0 ? 1 : 0);
    }
    if (to.isDouble()) {
        if (from.isDouble()) {
            return bits;
        }
        return bitsOf(from.isSigned() ? static_cast<double>(static_cast<std::int64_t>(bits))
                                      : static_cast<double>(bits));
    }
    return from.isDouble() ? doubleToInteger(to, mode, asDouble(bits))
                           : intoRange(to, mode, widen(from, bits));
}

bool computeScalar(Op op, Mode mode, const Type& resultType, const Type& operandType,
                   const std::uint64_t* operands, std::uint64_t& result) noexcept {
    if (!resultType.isScalar() || !operandType.isScalar()) {
        return false;
    }
    switch (op) {
    case Op::Select:
        result = operands[0] != 0 ? operands[1] : operands[2];
        return true;
    case Op::Convert:
        result = convertScalar(operandType, resultType, mode, operands[0]);
        return true;
    case Op::ToIndex: {
        std::int64_t index;
        if (operandType.isDouble() ? !toIndex(asDouble(operands[0]), index)
                                   : widen(operandType, operands[0]) < 1 ||
                                         widen(operandType, operands[0]) > (Wide{1} << 53)) {
            return false;
        }
        result = operandType.isDouble() ? static_cast<std::uint64_t>(index) : operands[0];
        return true;
    }
    default:
        break;
    }
    if (hasFlag(op, OpFlag::Compares)) {
        if (operandType.isDouble()) {
            result = compare(op, asDouble(operands[0]), asDouble(operands[1])) ? 1 : 0;
        } else {
            result = compare(op, widen(operandType, operands[0]), widen(operandType, operands[1]));
        }
        return true;
    }
    if (operandType.isDouble()) {
        const bool binary = infoOf(op).operands.size() == 2;
        double value;
        if (!hasFlag(op, OpFlag::Pure) ||
            !computeDouble(op, asDouble(operands[0]), binary ? asDouble(operands[1]) : 0, value)) {
            return false;
        }
        result = bitsOf(value);
        return true;
    }
    return operandType.isLogical() ? computeLogical(op, operands, result)
                                   : computeInteger(op, mode, operandType, operands, result);
}

} // namespace QN
