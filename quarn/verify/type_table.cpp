// See type_table.hpp.
#include "verify/type_table.hpp"

#include <vector>

namespace QN::verification {

TypeTable::TypeTable() {
    std::vector<std::uint32_t> all = {Ref<const Type>(Type::voidType()).bits()};
    const auto add = [&](const Type* type) { all.push_back(Ref<const Type>(type).bits()); };
    for (int i = 0; i < scalarKindCount; ++i) {
        const auto kind = static_cast<ScalarKind>(i);
        add(Type::scalar(kind));
        add(Type::array(kind));
        add(Type::pointer(Type::scalar(kind)));
        add(Type::pointer(Type::array(kind)));
    }
    // One multiplier in five or so will do.
    const auto gives = [&](std::uint32_t multiplier) {
        slots_.fill(0);
        for (const std::uint32_t bits : all) {
            std::uint32_t& slot = slots_[slotOf(bits, multiplier)];
            if (slot != 0) {
                return false;
            }
            slot = bits;
        }
        return true;
    };
    while (!gives(multiplier_)) {
        multiplier_ = multiplier_ * 747796405U + 2U; // stays odd
    }
}

const TypeTable& typeTable() noexcept {
    // Lives as long as the process, because types do.
    static const TypeTable table;
    return table;
}

} // namespace QN::verification
