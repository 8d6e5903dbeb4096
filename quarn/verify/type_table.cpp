// See type_table.hpp.
#include "verify/type_table.hpp"

namespace QN::verification {

TypeTable::TypeTable() {
    add(Type::voidType());
    for (int i = 0; i < scalarKindCount; ++i) {
        const auto kind = static_cast<ScalarKind>(i);
        add(Type::scalar(kind));
        add(Type::array(kind));
        add(Type::pointer(Type::scalar(kind)));
        add(Type::pointer(Type::array(kind)));
    }
}

void TypeTable::add(const Type* type) noexcept {
    std::size_t slot = slotOf(type);
    while (slots_[slot] != nullptr) {
        slot = (slot + 1) % slots_.size();
    }
    slots_[slot] = type;
}

const TypeTable& typeTable() noexcept {
    // Lives as long as the process, because types do.
    static const TypeTable table;
    return table;
}

} // namespace QN::verification
