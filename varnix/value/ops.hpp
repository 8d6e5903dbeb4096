// Operators of the script language on values. Scalars expand over arrays; integer arithmetic
// rounds to nearest (ties away from zero) and saturates; an integer with a double gives the
// integer class; two different integer classes are an error. Matrix product, division and solve
// are Eigen's.
#pragma once

#include "value/value.hpp"

namespace varnix {

enum class BinaryOp : std::uint8_t {
    Add,
    Subtract,
    Multiply,      // * : matrix product, or scalar expansion
    Divide,        // / : matrix right division, or by a scalar
    TimesElement,  // .*
    DivideElement, // ./
    Power,         // ^ : matrix power with an integer exponent, or scalars
    PowerElement,  // .^
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    And, // & element by element
    Or,  // |
};

enum class UnaryOp : std::uint8_t { Plus, Negate, Not };

/// The operator as written, for messages.
[[nodiscard]] const char* spelling(BinaryOp op);
[[nodiscard]] const char* spelling(UnaryOp op);

/// Raises "varnix:wrongType" or "varnix:wrongSize" where the operands do not fit.
[[nodiscard]] Value binary(BinaryOp op, const Value& left, const Value& right);
[[nodiscard]] Value unary(UnaryOp op, const Value& operand);

/// first:step:last as a 1 by N array of doubles (or of the integer class of the operands).
[[nodiscard]] Value range(const Value& first, const Value& step, const Value& last);

/// The truth of a condition: true when the value is not empty and every element is non-zero.
/// Raises "varnix:wrongType" for what has no truth (texts count by their characters; cells,
/// structs, functions and objects do not).
[[nodiscard]] bool isTrue(const Value& value);

/// isequal(a, b): same size and same contents; numeric classes compare by value; objects by
/// identity.
[[nodiscard]] bool isEqual(const Value& a, const Value& b);

/// A numeric or logical scalar as a double; raises "varnix:wrongType" naming `what`.
[[nodiscard]] double toDouble(const Value& value, const char* what);

/// Converts a numeric, logical or character value to another numeric or logical class, rounding
/// and saturating; NaN becomes 0 in integer classes and is an error for logical.
[[nodiscard]] Value convertTo(hvClassID id, const Value& value);

} // namespace varnix
