// Types of the IR. There are few: scalars, two-dimensional arrays of scalars, pointers to variables
// of either, and void. Each exists once in the process, so equality is pointer equality.
//
// Owner: the process; types are made at their first use and never freed.
#pragma once

#include <qn/entity.hpp>

#include <cstdint>
#include <string_view>

namespace QN {

enum class ScalarKind : std::uint8_t {
    Double,
    Logical,
    Int8,
    Int16,
    Int32,
    Int64,
    Uint8,
    Uint16,
    Uint32,
    Uint64
};
inline constexpr int scalarKindCount = 10;

enum class TypeForm : std::uint8_t { Void, Scalar, Array, Pointer };

class Type : public Entity {
public:
    [[nodiscard]] static const Type* voidType();
    [[nodiscard]] static const Type* scalar(ScalarKind kind);
    /// A two-dimensional array of scalars, stored column by column.
    [[nodiscard]] static const Type* array(ScalarKind element);
    /// A pointer to a variable of `pointee`, which is a scalar or an array.
    [[nodiscard]] static const Type* pointer(const Type* pointee);

    [[nodiscard]] static const Type* f64() { return scalar(ScalarKind::Double); }
    [[nodiscard]] static const Type* logical() { return scalar(ScalarKind::Logical); }
    [[nodiscard]] static const Type* i32() { return scalar(ScalarKind::Int32); }
    [[nodiscard]] static const Type* i64() { return scalar(ScalarKind::Int64); }

    /// The type that is written as `text` ("f64", "i32[]", "logical*"), null if there is none.
    [[nodiscard]] static const Type* named(std::string_view text);

    [[nodiscard]] TypeForm form() const noexcept { return static_cast<TypeForm>(small_[0]); }
    /// The kind of a scalar or of an array's elements.
    [[nodiscard]] ScalarKind scalarKind() const noexcept {
        return static_cast<ScalarKind>(small_[1]);
    }
    /// What a pointer points to; the element type of an array; null otherwise.
    [[nodiscard]] const Type* element() const noexcept { return element_.get(); }
    /// How the type is written.
    [[nodiscard]] std::string_view name() const noexcept { return {name_.get(), small_[2]}; }

    [[nodiscard]] bool isVoid() const noexcept { return form() == TypeForm::Void; }
    [[nodiscard]] bool isScalar() const noexcept { return form() == TypeForm::Scalar; }
    [[nodiscard]] bool isArray() const noexcept { return form() == TypeForm::Array; }
    [[nodiscard]] bool isPointer() const noexcept { return form() == TypeForm::Pointer; }
    [[nodiscard]] bool isDouble() const noexcept {
        return isScalar() && scalarKind() == ScalarKind::Double;
    }
    [[nodiscard]] bool isLogical() const noexcept {
        return isScalar() && scalarKind() == ScalarKind::Logical;
    }
    [[nodiscard]] bool isInteger() const noexcept {
        return isScalar() && scalarKind() >= ScalarKind::Int8;
    }
    [[nodiscard]] bool isSigned() const noexcept {
        return scalarKind() >= ScalarKind::Int8 && scalarKind() <= ScalarKind::Int64;
    }
    /// Bits of an integer scalar or of an array's elements; 64 for double, 1 for logical.
    [[nodiscard]] int bits() const noexcept;

private:
    friend class Pool;
    Type(TypeForm form, ScalarKind kind, const Type* element, std::string_view nameInPool) noexcept
        : Entity(EntityKind::Type), element_(element), name_(nameInPool.data()) {
        small_[0] = static_cast<std::uint8_t>(form);
        small_[1] = static_cast<std::uint8_t>(kind);
        small_[2] = static_cast<std::uint8_t>(nameInPool.size());
    }
    static const Type* make(TypeForm form, ScalarKind kind, const Type* element);

    Ref<const Type> element_;
    Ref<const char> name_;
};

} // namespace QN
