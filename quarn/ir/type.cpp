// The table of types. Process-wide, because types are compared by address and there are only 41 of
// them; their pool is never freed.
#include <qn/cfg.hpp>
#include <qn/type.hpp>

#include <array>
#include <string>

namespace QN {

namespace {

constexpr std::string_view scalarNames[scalarKindCount] = {"f64", "logical", "i8",  "i16", "i32",
                                                           "i64", "u8",      "u16", "u32", "u64"};
constexpr int scalarBits[scalarKindCount] = {64, 1, 8, 16, 32, 64, 8, 16, 32, 64};

// One row per form: void, scalars, arrays, pointers to scalars, pointers to arrays.
constexpr std::size_t scalars = 1;
constexpr std::size_t arrays = scalars + scalarKindCount;
constexpr std::size_t scalarPointers = arrays + scalarKindCount;
constexpr std::size_t arrayPointers = scalarPointers + scalarKindCount;
constexpr std::size_t typeCount = arrayPointers + scalarKindCount;

constinit std::array<const Type*, typeCount> table = {};

} // namespace

const Type* Type::make(TypeForm form, ScalarKind kind, const Type* element) {
    static Pool& pool = *new Pool(PoolKind::Scope);
    std::string name;
    switch (form) {
    case TypeForm::Void:
        name = "void";
        break;
    case TypeForm::Scalar:
        name = scalarNames[static_cast<std::size_t>(kind)];
        break;
    case TypeForm::Array:
        name = std::string(element->name()) + "[]";
        break;
    case TypeForm::Pointer:
        name = std::string(element->name()) + "*";
        break;
    }
    // Printers copy names in pieces of this size.
    constexpr std::size_t room = 16;
    const std::size_t length = name.size();
    name.resize(length + room);
    Type* const type =
        pool.make<Type>(EntityKind::Type, form, kind, element, pool.copy(name).substr(0, length));
    detail::noteMade(nullptr, *type);
    return type;
}

const Type* Type::voidType() {
    const Type*& slot = table[0];
    return slot != nullptr ? slot : slot = make(TypeForm::Void, ScalarKind::Double, nullptr);
}

const Type* Type::scalar(ScalarKind kind) {
    const Type*& slot = table[scalars + static_cast<std::size_t>(kind)];
    return slot != nullptr ? slot : slot = make(TypeForm::Scalar, kind, nullptr);
}

const Type* Type::array(ScalarKind element) {
    const Type*& slot = table[arrays + static_cast<std::size_t>(element)];
    return slot != nullptr ? slot : slot = make(TypeForm::Array, element, scalar(element));
}

const Type* Type::pointer(const Type* pointee) {
    const ScalarKind kind = pointee->scalarKind();
    const Type*& slot = table[(pointee->isArray() ? arrayPointers : scalarPointers) +
                              static_cast<std::size_t>(kind)];
    return slot != nullptr ? slot : slot = make(TypeForm::Pointer, kind, pointee);
}

const Type* Type::named(std::string_view text) {
    if (text == "void") {
        return voidType();
    }
    const bool isPointer = text.ends_with('*');
    text.remove_suffix(isPointer ? 1 : 0);
    const bool isArray = text.ends_with("[]");
    text.remove_suffix(isArray ? 2 : 0);
    for (std::size_t i = 0; i < scalarKindCount; ++i) {
        if (scalarNames[i] == text) {
            const auto kind = static_cast<ScalarKind>(i);
            const Type* const base = isArray ? array(kind) : scalar(kind);
            return isPointer ? pointer(base) : base;
        }
    }
    return nullptr;
}

int Type::bits() const noexcept {
    return scalarBits[static_cast<std::size_t>(scalarKind())];
}

} // namespace QN
