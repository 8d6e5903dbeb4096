// Whether something that claims to be a type is one: the addresses of all types that there can be,
// and a small number for each.
//
// Owner: the process, as for types themselves.
#pragma once

#include <qn/type.hpp>

#include <array>
#include <cstddef>
#include <cstdint>

namespace QN::verification {

/// Numbers of types: void, and four for each kind of scalar, one behind the other. So the element
/// type of an array, what a pointer points to, and the pointer to a type lie at fixed distances.
namespace TypeCode {
inline constexpr std::uint32_t none = 0; // of what is no type
inline constexpr std::uint32_t voidType = 1;
inline constexpr std::uint32_t limit = 64; // sets of types are words of 64 bits
[[nodiscard]] constexpr std::uint32_t scalar(ScalarKind kind) noexcept {
    return 2 + 4 * static_cast<std::uint32_t>(kind);
}
inline constexpr int fromScalarToArray = 1;
inline constexpr int fromPointeeToPointer = 2;
} // namespace TypeCode

/// Makes the types that have not been needed yet. There are so few that the table never changes
/// after that, and that a multiplier is found which gives each a slot of its own: a question is one
/// look, without a branch.
class TypeTable {
public:
    TypeTable();

    [[nodiscard]] bool contains(Ref<const Type> type) const noexcept {
        return codeOf(type) != TypeCode::none;
    }
    [[nodiscard]] bool contains(const Type* type) const noexcept {
        return codeOf(type) != TypeCode::none;
    }
    /// none for what is no type, null too.
    [[nodiscard]] std::uint32_t codeOf(Ref<const Type> type) const noexcept {
        const Slot slot = slots_[slotOf(type.bits(), multiplier_)];
        return slot.bits == type.bits() ? slot.code : TypeCode::none;
    }
    [[nodiscard]] std::uint32_t codeOf(const Type* type) const noexcept {
        const Ref<const Type> reference(type);
        return reference.get() == type ? codeOf(reference) : TypeCode::none;
    }

private:
    struct Slot {
        std::uint32_t bits;
        std::uint32_t code;
    };
    static constexpr int slotBits = 9;
    static std::size_t slotOf(std::uint32_t bits, std::uint32_t multiplier) noexcept {
        return static_cast<std::uint32_t>(bits * multiplier) >> (32 - slotBits);
    }
    std::array<Slot, std::size_t{1} << slotBits> slots_ = {};
    std::uint32_t multiplier_ = 0x9E3779B1U;
};

[[nodiscard]] const TypeTable& typeTable() noexcept;

/// Whether the address is that of one of the process's types. Any address may be asked for.
[[nodiscard]] inline bool isType(const Type* type) noexcept {
    return typeTable().contains(type);
}

} // namespace QN::verification
