// What must hold of a node by itself: its operation, mode, number of operands and whether it ends a
// block, the kinds of its operands, and all types. A node's signature is all of that in one word of
// 64 bits, so nodes with equal signatures are right or wrong together; programs have few different
// ones, and a table of signatures known to be right answers for nearly all nodes.
//
// The rules are those of the checks in operands.cpp, modes.cpp, flow.cpp and types_*.cpp, which
// name what is wrong. A test damages IR at random and holds one against the other.
//
// Owner: the QuickLook.
#pragma once

#include "verify/type_table.hpp"

#include <qn/node.hpp>
#include <qn/opcode.hpp>

#include <array>
#include <cstddef>
#include <cstdint>

namespace QN::verification {

/// What an entity is as an operand, in one byte: its kind and, but for blocks and callees, the code
/// of its type. Nodes and constants are the same here: nearly every operation that takes one takes
/// the other, and so there are fewer different signatures.
namespace OperandByte {
inline constexpr std::uint32_t typeMask = 0x3F;
inline constexpr std::uint32_t value = 0x00; // a node or a constant
inline constexpr std::uint32_t variable = 0x80;
inline constexpr std::uint32_t block = variable | TypeCode::none; // which no variable is of
inline constexpr std::uint32_t callee = variable | TypeCode::voidType;
static_assert(TypeCode::limit <= typeMask + 1);
static_assert(TypeCode::none < TypeCode::voidType && TypeCode::voidType < TypeCode::scalar({}));

[[nodiscard]] constexpr bool isVariable(std::uint32_t byte) noexcept {
    return byte > callee;
}
/// A node that gives a value, or a constant.
[[nodiscard]] constexpr bool isValue(std::uint32_t byte) noexcept {
    return (byte & variable) == 0 && byte > TypeCode::voidType;
}
} // namespace OperandByte

class Signature {
public:
    /// Signatures tell of this many operands, which only calls have more of.
    static constexpr std::uint32_t mostOperands = 4;

    /// `operands` has a byte for each, the last one's lowest. Of a node with more operands than
    /// there is room for, the signature says nothing of use.
    Signature(const Node& node, std::uint32_t type, bool isLast, std::uint32_t operands) noexcept
        : word_(std::uint64_t{(node.head() & ~0xFFU) | type | (isLast ? lastBit : 0)} << 32 |
                operands) {}

    [[nodiscard]] std::uint64_t word() const noexcept { return word_; }
    [[nodiscard]] bool isLast() const noexcept { return (word_ >> 32 & lastBit) != 0; }
    [[nodiscard]] std::uint32_t type() const noexcept {
        return static_cast<std::uint32_t>(word_ >> 32) & OperandByte::typeMask;
    }
    [[nodiscard]] std::size_t op() const noexcept { return word_ >> 40 & 0xFF; } // of any number
    [[nodiscard]] Mode mode() const noexcept {
        return Mode::fromBits(static_cast<std::uint8_t>(word_ >> 48));
    }
    [[nodiscard]] std::uint32_t numOperands() const noexcept {
        return static_cast<std::uint32_t>(word_ >> 56);
    }
    [[nodiscard]] std::uint32_t operand(std::uint32_t index) const noexcept {
        return static_cast<std::uint32_t>(word_ >> 8 * (numOperands() - 1 - index)) & 0xFF;
    }

private:
    static constexpr std::uint32_t lastBit = 0x80;
    std::uint64_t word_; // as in Node::head(), but for the lowest byte there; then the operands
};

/// Whether operation, type, mode and number of operands of a node exist and go together, and
/// whether it stands where it may.
[[nodiscard]] bool formIsRight(Signature signature) noexcept;

/// Whether kinds and types are as the operation wants them, but that a node may stand where there
/// must be a constant; see wantsConstant(). Not for calls and returns, about which a signature does
/// not say enough. The form must be right.
[[nodiscard]] bool operandsAreRight(Signature signature) noexcept;

/// Whether the only operand must be a constant.
[[nodiscard]] constexpr bool wantsConstant(Op op) noexcept {
    return op == Op::Count || op == Op::Trap;
}

/// The values of each type as a range of signed 64-bit numbers; an empty one if it is no scalar.
struct ValueRange {
    std::int64_t least;
    std::int64_t most;
};
inline constexpr auto valueRanges = [] {
    std::array<ValueRange, TypeCode::limit> table = {};
    table.fill({0, -1});
    constexpr ValueRange everything = {INT64_MIN, INT64_MAX};
    const auto at = [&table](ScalarKind kind) -> ValueRange& {
        return table[TypeCode::scalar(kind)];
    };
    at(ScalarKind::Double) = everything;
    at(ScalarKind::Logical) = {0, 1};
    at(ScalarKind::Int8) = {INT8_MIN, INT8_MAX};
    at(ScalarKind::Int16) = {INT16_MIN, INT16_MAX};
    at(ScalarKind::Int32) = {INT32_MIN, INT32_MAX};
    at(ScalarKind::Int64) = everything;
    at(ScalarKind::Uint8) = {0, UINT8_MAX};
    at(ScalarKind::Uint16) = {0, UINT16_MAX};
    at(ScalarKind::Uint32) = {0, UINT32_MAX};
    at(ScalarKind::Uint64) = everything;
    return table;
}();

/// Whether the code is that of a scalar type and the bits are one of its values; see Const.
[[nodiscard]] inline bool isScalarWith(std::uint32_t code, std::uint64_t bits) noexcept {
    const ValueRange range = valueRanges[code];
    const auto value = static_cast<std::int64_t>(bits);
    return range.least <= value && value <= range.most;
}

/// Signatures that are known to be right; of two that want the same place, the later one.
class KnownSignatures {
public:
    [[nodiscard]] bool contains(Signature signature) const noexcept {
        return words_[placeOf(signature)] == signature.word();
    }
    void add(Signature signature) noexcept { words_[placeOf(signature)] = signature.word(); }

private:
    static constexpr int placeBits = 12;
    static std::size_t placeOf(Signature signature) noexcept {
        return signature.word() * 0x9E3779B97F4A7C15 >> (64 - placeBits);
    }
    std::array<std::uint64_t, std::size_t{1} << placeBits> words_ = {}; // 0 is none's
};

} // namespace QN::verification
