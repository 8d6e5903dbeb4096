// See node_rules.hpp.
#include "verify/node_rules.hpp"

#include <cstdint>
#include <string_view>

namespace QN::verification {

namespace {

// Sets of types, bit N for the type of code N.
using TypeSet = std::uint64_t;

constexpr TypeSet only(std::uint32_t code) {
    return TypeSet{1} << code;
}
constexpr TypeSet scalarsFrom(ScalarKind first, ScalarKind last) {
    TypeSet set = 0;
    for (auto kind = static_cast<int>(first); kind <= static_cast<int>(last); ++kind) {
        set |= only(TypeCode::scalar(static_cast<ScalarKind>(kind)));
    }
    return set;
}

constexpr std::uint32_t f64 = TypeCode::scalar(ScalarKind::Double);
constexpr std::uint32_t i64 = TypeCode::scalar(ScalarKind::Int64);
constexpr std::uint32_t logical = TypeCode::scalar(ScalarKind::Logical);
constexpr TypeSet scalars = scalarsFrom(ScalarKind::Double, ScalarKind::Uint64);
constexpr TypeSet integers = scalarsFrom(ScalarKind::Int8, ScalarKind::Uint64);
constexpr TypeSet numbers = integers | only(f64);
constexpr TypeSet arrays = scalars << TypeCode::fromScalarToArray;
constexpr TypeSet pointers = (scalars | arrays) << TypeCode::fromPointeeToPointer;

constexpr bool isIn(TypeSet set, std::uint32_t code) {
    return (set >> code & 1) != 0;
}

/// What a pointer points to, or none.
constexpr std::uint32_t pointee(std::uint32_t code) {
    return isIn(pointers, code) ? code - TypeCode::fromPointeeToPointer : TypeCode::none;
}

bool isTakenAs(std::uint32_t byte, char letter) {
    switch (letter) {
    case 'V':
        return OperandByte::isVariable(byte);
    case 'a': // of constants none is a pointer
        return OperandByte::isVariable(byte) || OperandByte::isValue(byte);
    case 'B':
        return byte == OperandByte::block;
    default:
        return OperandByte::isValue(byte);
    }
}

bool kindsAreRight(Signature signature) {
    const std::string_view letters = infoOf(static_cast<Op>(signature.op())).operands;
    for (std::uint32_t i = 0; i < signature.numOperands(); ++i) {
        if (!isTakenAs(signature.operand(i), letters[i])) {
            return false;
        }
    }
    return true;
}

bool modeIsRight(Mode mode, std::uint16_t flags) {
    const unsigned arithmetic = (flags & OpFlag::Arithmetic) != 0 ? 0x0F : 0;
    const unsigned inBounds =
        (flags & OpFlag::Indexes) != 0 ? Mode().withInBounds(true).bits() : 0U;
    return (mode.bits() & ~(arithmetic | inBounds)) == 0 && mode.rounding() <= Rounding::Up;
}

} // namespace

static_assert([] {
    for (std::size_t i = 0; i < opCount; ++i) {
        const std::string_view operands = detail::opTable[i].operands;
        if ((operands.find('K') != operands.npos) != wantsConstant(static_cast<Op>(i)) ||
            (wantsConstant(static_cast<Op>(i)) && operands != "K")) {
            return false;
        }
    }
    return true;
}());

bool formIsRight(Signature signature) noexcept {
    if (signature.op() >= opCount || signature.type() == TypeCode::none) {
        return false;
    }
    const OpInfo& info = infoOf(static_cast<Op>(signature.op()));
    const std::size_t count = signature.numOperands();
    const char last = info.operands.back(); // each operation has a letter
    const std::size_t named = info.operands.size();
    const bool countIsRight = last == '*'   ? count + 1 >= named
                              : last == '?' ? count + 1 >= named && count <= named
                                            : count == named;
    return countIsRight && modeIsRight(signature.mode(), info.flags) &&
           ((info.flags & OpFlag::Terminator) != 0) == signature.isLast();
}

bool operandsAreRight(Signature signature) noexcept {
    if (!kindsAreRight(signature)) {
        return false;
    }
    const std::uint32_t type = signature.type();
    const bool isVoid = type == TypeCode::voidType;
    const auto typeOf = [signature](std::uint32_t index) {
        return signature.operand(index) & OperandByte::typeMask;
    };
    const auto is = [type](TypeSet set) { return isIn(set, type); };
    const auto operandIs = [typeOf](std::uint32_t index, TypeSet set) {
        return isIn(set, typeOf(index));
    };
    /// The element type of the array variable, or of the array that the pointer points to, or none.
    const auto element = [signature, typeOf] {
        const bool isVar = OperandByte::isVariable(signature.operand(0));
        const std::uint32_t array = isVar ? typeOf(0) : pointee(typeOf(0));
        return isIn(arrays, array) ? array - TypeCode::fromScalarToArray : TypeCode::none;
    };

    switch (const auto op = static_cast<Op>(signature.op())) {
    case Op::Load:
        return type == typeOf(0);
    case Op::Store:
        return isVoid && typeOf(1) == typeOf(0);
    case Op::AddrOf:
        return pointee(type) == typeOf(0);
    case Op::LoadP:
        return type != TypeCode::none && pointee(typeOf(0)) == type;
    case Op::StoreP:
        return isVoid && pointee(typeOf(0)) == typeOf(1);
    case Op::Add:
    case Op::Sub:
    case Op::Mul:
    case Op::Div:
    case Op::Min:
    case Op::Max:
    case Op::Mod:
    case Op::Rem:
        return is(numbers) && typeOf(0) == type && typeOf(1) == type;
    case Op::Neg:
    case Op::Abs:
        return is(numbers) && typeOf(0) == type;
    case Op::Pow:
    case Op::Atan2:
        return type == f64 && typeOf(0) == f64 && typeOf(1) == f64;
    case Op::Sqrt:
    case Op::Exp:
    case Op::Log:
    case Op::Sin:
    case Op::Cos:
    case Op::Tan:
    case Op::Floor:
    case Op::Ceil:
    case Op::Round:
    case Op::Trunc:
        return type == f64 && typeOf(0) == f64;
    case Op::Eq:
    case Op::Ne:
    case Op::Lt:
    case Op::Le:
    case Op::Gt:
    case Op::Ge:
        return type == logical && operandIs(0, scalars) && typeOf(1) == typeOf(0);
    case Op::And:
    case Op::Or:
    case Op::Xor:
        return type == logical && typeOf(0) == logical && typeOf(1) == logical;
    case Op::Not:
        return type == logical && typeOf(0) == logical;
    case Op::Select:
        return typeOf(0) == logical && typeOf(1) == type && typeOf(2) == type;
    case Op::Convert:
        return is(scalars) && operandIs(0, scalars);
    case Op::ToIndex:
        return type == i64 && operandIs(0, numbers);
    case Op::NewArray:
        return is(arrays) && typeOf(0) == i64 && typeOf(1) == i64;
    case Op::Rows:
    case Op::Cols:
    case Op::Numel:
        return type == i64 && element() != TypeCode::none;
    case Op::LdElem:
    case Op::LdElem2:
        return type != TypeCode::none && type == element() && typeOf(1) == i64 &&
               (op == Op::LdElem || typeOf(2) == i64);
    case Op::StElem:
        return isVoid && typeOf(1) == i64 && typeOf(2) == element();
    case Op::StElem2:
        return isVoid && typeOf(1) == i64 && typeOf(2) == i64 && typeOf(3) == element();
    case Op::Resize:
        return isVoid && element() != TypeCode::none && typeOf(1) == i64 && typeOf(2) == i64;
    case Op::ChkBounds:
        return isVoid && typeOf(0) == i64 && typeOf(1) == i64;
    case Op::ChkZero:
        return isVoid && operandIs(0, numbers);
    case Op::ChkLossy:
        return isVoid && typeOf(0) == f64 && operandIs(1, integers);
    case Op::Count:
    case Op::Trap:
        return isVoid && operandIs(0, integers);
    case Op::Jump:
        return isVoid;
    case Op::Br:
        return isVoid && typeOf(0) == logical;
    case Op::Call:
    case Op::Ret:
        break;
    }
    return false;
}

} // namespace QN::verification
