// Whether something that claims to be a type is one: the addresses of all types that there can be.
//
// Owner: the process, as for types themselves.
#pragma once

#include <qn/type.hpp>

#include <array>
#include <cstddef>

namespace QN::verification {

/// Makes the types that have not been needed yet. There are so few that the table never changes
/// after that.
class TypeTable {
public:
    TypeTable();

    [[nodiscard]] bool contains(const Type* type) const noexcept {
        std::size_t slot = slotOf(type);
        while (slots_[slot] != type && slots_[slot] != nullptr) {
            slot = (slot + 1) % slots_.size();
        }
        return slots_[slot] == type && type != nullptr;
    }

private:
    static std::size_t slotOf(const Type* type) noexcept {
        const std::uint32_t hash = Ref<const Type>(type).bits() * 0x9E3779B1U;
        return hash >> 24; // 256 slots
    }
    void add(const Type* type) noexcept;
    std::array<const Type*, 256> slots_ = {};
};

[[nodiscard]] const TypeTable& typeTable() noexcept;

/// Whether the address is that of one of the process's types. Any address may be asked for.
[[nodiscard]] inline bool isType(const Type* type) noexcept {
    return typeTable().contains(type);
}

} // namespace QN::verification
