// What each pure scalar operation computes, to the last bit. Constant folding and the evaluator
// both use these functions, so they cannot differ; every code generator is tested against them.
//
// A scalar is held in 64 bits as in a Const: a double's bits; 0 or 1; an integer extended by its
// type.
#pragma once

#include <qn/opcode.hpp>
#include <qn/type.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>

namespace QN {

/// Computes a pure operation with scalar operands of type `operandType` (of a select: the type of
/// the two values; of a convert: the type converted from) and a result of `resultType`. Returns
/// false, and leaves `result` as it is, if the operation is not one on scalars, or if it would
/// trap.
[[nodiscard]] bool computeScalar(Op op, Mode mode, const Type& resultType, const Type& operandType,
                                 const std::uint64_t* operands, std::uint64_t& result) noexcept;

/// `bits` of scalar type `from` as a value of scalar type `to`; see opcodes.def, convert.
[[nodiscard]] std::uint64_t convertScalar(const Type& from, const Type& to, Mode mode,
                                          std::uint64_t bits) noexcept;

/// `bits` cut to the width of the scalar type and extended as the type says: a valid value of it.
[[nodiscard]] std::uint64_t normalizeScalar(const Type& type, std::uint64_t bits) noexcept;

/// Whether `bits` is a valid value of the scalar type.
[[nodiscard]] inline bool isNormalized(const Type& type, std::uint64_t bits) noexcept {
    return normalizeScalar(type, bits) == bits;
}

/// Whether a double and a value of an integer type are the same number.
[[nodiscard]] bool isSameNumber(double value, const Type& integerType, std::uint64_t bits) noexcept;

/// The index that a double means; false if it is not a whole number from 1 to 2^53.
[[nodiscard]] inline bool toIndex(double value, std::int64_t& index) noexcept {
    if (!(value >= 1.0 && value <= 9007199254740992.0)) {
        return false;
    }
    index = static_cast<std::int64_t>(value);
    return static_cast<double>(index) == value;
}

// The operations of doubles that the C library does not have as they are meant here.

/// The smaller one; of a NaN and a number the number; of two equal ones the first.
[[nodiscard]] inline double minOf(double a, double b) noexcept {
    return b < a || a != a ? b : a;
}
[[nodiscard]] inline double maxOf(double a, double b) noexcept {
    return b > a || a != a ? b : a;
}
/// The remainder with the sign of `b`; `a` if `b` is zero.
[[nodiscard]] double modOf(double a, double b) noexcept;
/// The remainder with the sign of `a`; `a` if `b` is zero.
[[nodiscard]] double remOf(double a, double b) noexcept;

[[nodiscard]] inline double asDouble(std::uint64_t bits) noexcept {
    return std::bit_cast<double>(bits);
}
[[nodiscard]] inline std::uint64_t bitsOf(double value) noexcept {
    return std::bit_cast<std::uint64_t>(value);
}

} // namespace QN
