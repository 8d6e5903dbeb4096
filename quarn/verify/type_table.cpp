// See type_table.hpp.
#include "verify/type_table.hpp"

#include <vector>

namespace QN::verification {

TypeTable::TypeTable() {
    std::vector<Slot> all;
    const auto add = [&](const Type* type, std::uint32_t code) {
        all.push_back({Ref<const Type>(type).bits(), code});
    };
    add(Type::voidType(), TypeCode::voidType);
    for (int i = 0; i < scalarKindCount; ++i) {
        using namespace TypeCode;
        const auto kind = static_cast<ScalarKind>(i);
        const std::uint32_t code = TypeCode::scalar(kind);
        add(Type::scalar(kind), code);
        add(Type::array(kind), code + fromScalarToArray);
        add(Type::pointer(Type::scalar(kind)), code + fromPointeeToPointer);
        add(Type::pointer(Type::array(kind)), code + fromScalarToArray + fromPointeeToPointer);
    }
    // One multiplier in five or so will do.
    const auto gives = [&](std::uint32_t multiplier) {
        slots_.fill({0, TypeCode::none});
        for (const Slot& type : all) {
            Slot& slot = slots_[slotOf(type.bits, multiplier)];
            if (slot.bits != 0) {
                return false;
            }
            slot = type;
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
