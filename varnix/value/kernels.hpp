// The loops behind the operators. Inside value/ only; everyone else uses ops.hpp.
#pragma once

#include "value/numeric.hpp"
#include "value/ops.hpp"

namespace varnix::kernels {

/// The size of the result of an element-by-element operation: scalars expand, other sizes must
/// agree. Raises "varnix:wrongSize" naming the operator.
struct Shape {
    std::size_t rows;
    std::size_t columns;
    std::size_t leftStep;  ///< 0: the left operand is a scalar
    std::size_t rightStep; ///< 0: the right operand is a scalar
    [[nodiscard]] std::size_t count() const { return rows * columns; }
};
[[nodiscard]] Shape expand(const char* what, const Value& left, const Value& right);

/// Element by element; `what` is the operator for messages.
[[nodiscard]] Value arithmetic(numeric::Arithmetic op, const char* what, const Value& left,
                               const Value& right);
/// Equal to GreaterEqual, exact for every pair of numeric classes; objects by identity.
[[nodiscard]] Value compare(BinaryOp op, const Value& left, const Value& right);
/// And, Or. NaN counts as true.
[[nodiscard]] Value logic(BinaryOp op, const Value& left, const Value& right);

[[nodiscard]] Value matrixProduct(const Value& left, const Value& right);
/// x with x * right = left; least squares where `right` is not square. Raises
/// "varnix:singularMatrix".
[[nodiscard]] Value matrixRightDivide(const Value& left, const Value& right);
[[nodiscard]] Value matrixPower(const Value& base, const Value& exponent);

} // namespace varnix::kernels
