// Arrays between the host and compiled code: arguments are lent without copying, results are copied
// once.
#pragma once

#include "codegen/value_type.hpp"

#include <qn/array_value.hpp>

#include <span>

namespace varnix::codegen {

/// Whether compiled code takes an array of that size: one without elements may have more rows.
[[nodiscard]] inline bool canBeLent(const Value& value) {
    return QN::ArrayValue::isPossibleSize(static_cast<std::int64_t>(value.rows()),
                                          static_cast<std::int64_t>(value.columns()));
}
/// The array of a value, which is kept alive as long as somebody refers to the result.
[[nodiscard]] QN::ArrayValue lend(const Value& value);
/// An array as a value in canonical form. One of the arguments, if it is that unchanged.
[[nodiscard]] Value takeBack(const QN::ArrayValue& array, std::span<const Value> arguments);

/// A scalar from the bits that compiled code gives, which are those of a Value.
[[nodiscard]] inline Value scalarValue(QN::ScalarKind kind, std::uint64_t bits) {
    return Value::ofUnsigned(tagOfKind(kind), bits);
}

} // namespace varnix::codegen
