// What the compiler knows of a value before it runs: its class, and whether it is one number or an
// array.
//
// An array may turn out to have one element and then is, to a script, the number itself; so a
// number is always allowed where an array is expected, and never the other way round.
#pragma once

#include "value/value.hpp"

#include <qn/type.hpp>

#include <optional>

namespace varnix::codegen {

struct ValueType {
    QN::ScalarKind kind = QN::ScalarKind::Double;
    bool isArray = false;

    friend bool operator==(ValueType, ValueType) noexcept = default;
    [[nodiscard]] const QN::Type* ir() const {
        return isArray ? QN::Type::array(kind) : QN::Type::scalar(kind);
    }
};

[[nodiscard]] constexpr ValueType scalarType(QN::ScalarKind kind) noexcept {
    return {kind, false};
}
[[nodiscard]] constexpr ValueType arrayType(QN::ScalarKind kind) noexcept {
    return {kind, true};
}
[[nodiscard]] constexpr bool isInteger(QN::ScalarKind kind) noexcept {
    return kind >= QN::ScalarKind::Int8;
}
[[nodiscard]] constexpr bool isSigned(QN::ScalarKind kind) noexcept {
    return kind >= QN::ScalarKind::Int8 && kind <= QN::ScalarKind::Int64;
}
[[nodiscard]] constexpr bool isWide(QN::ScalarKind kind) noexcept {
    return kind == QN::ScalarKind::Int64 || kind == QN::ScalarKind::Uint64;
}

/// The kinds in the order of the tags of scalars, which is the same.
[[nodiscard]] constexpr QN::ScalarKind kindOfTag(Tag tag) noexcept {
    return static_cast<QN::ScalarKind>(static_cast<int>(tag) - static_cast<int>(Tag::Double));
}
[[nodiscard]] constexpr Tag tagOfKind(QN::ScalarKind kind) noexcept {
    return static_cast<Tag>(static_cast<int>(kind) + static_cast<int>(Tag::Double));
}
static_assert(kindOfTag(Tag::Logical) == QN::ScalarKind::Logical);
static_assert(kindOfTag(Tag::Int8) == QN::ScalarKind::Int8);
static_assert(kindOfTag(Tag::Int64) == QN::ScalarKind::Int64);
static_assert(kindOfTag(Tag::UInt64) == QN::ScalarKind::Uint64);

/// The type of a value that compiled code can take; nothing for any other value.
[[nodiscard]] inline std::optional<ValueType> typeOfValue(const Value& value) {
    if (value.isScalar())
        return scalarType(kindOfTag(value.tag()));
    if (value.tag() != Tag::Array)
        return std::nullopt;
    const Tag tag = tagOfClass(value.array()->classID);
    if (tag == Tag::Unset)
        return std::nullopt;
    return arrayType(kindOfTag(tag));
}

} // namespace varnix::codegen
