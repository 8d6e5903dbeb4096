// Whether something that claims to be a type is one: the addresses of all types that there can be.
//
// Owner: the process, as for types themselves.
#pragma once

#include <qn/type.hpp>

#include <array>
#include <cstddef>
#include <cstdint>

namespace QN::verification {

/// Makes the types that have not been needed yet. There are so few that the table never changes
/// after that, and that a multiplier is found which gives each a slot of its own: a question is one
/// look, without a branch.
class TypeTable {
public:
    TypeTable();

    [[nodiscard]] bool contains(Ref<const Type> type) const noexcept {
        return slots_[slotOf(type.bits(), multiplier_)] == type.bits() && type;
    }
    [[nodiscard]] bool contains(const Type* type) const noexcept {
        return contains(Ref<const Type>(type)) && Ref<const Type>(type).get() == type;
    }

private:
    static constexpr std::size_t slotCount = 512;
    static std::size_t slotOf(std::uint32_t bits, std::uint32_t multiplier) noexcept {
        static_assert(slotCount == std::size_t{1} << 9);
        return static_cast<std::uint32_t>(bits * multiplier) >> (32 - 9);
    }
    std::array<std::uint32_t, slotCount> slots_ = {};
    std::uint32_t multiplier_ = 0x9E3779B1U;
};

[[nodiscard]] const TypeTable& typeTable() noexcept;

/// Whether the address is that of one of the process's types. Any address may be asked for.
[[nodiscard]] inline bool isType(const Type* type) noexcept {
    return typeTable().contains(type);
}

} // namespace QN::verification
