// The operations by number, and what is known of each. The rows are in opcodes.def.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace QN {

enum class Op : std::uint8_t {
#define QN_OP(name, text, operands, flags) name,
#include <qn/opcodes.def>
#undef QN_OP
};

namespace OpFlag {
enum : std::uint16_t {
    None = 0,
    Pure = 1,        // the result depends on the operands only; may be removed, moved and shared
    Reads = 2,       // reads variables or memory
    Writes = 4,      // writes variables or memory
    Traps = 8,       // may end the execution, so its place matters
    Commutes = 16,   // the first two operands may be exchanged
    Arithmetic = 32, // the node's mode has a meaning
    Compares = 64,   // a comparison
    Indexes = 128,   // accesses an element
    Calls = 256,     // enters another function
    Terminator = 512 // ends a block
};
}

struct OpInfo {
    std::string_view text;
    std::string_view operands; // letters, see opcodes.def
    std::uint16_t flags;
};

namespace detail {
inline constexpr OpInfo opTable[] = {
#define Pure OpFlag::Pure
#define Reads OpFlag::Reads
#define Writes OpFlag::Writes
#define Traps OpFlag::Traps
#define Commutes OpFlag::Commutes
#define Arithmetic OpFlag::Arithmetic
#define Compares OpFlag::Compares
#define Indexes OpFlag::Indexes
#define Calls OpFlag::Calls
#define Terminator OpFlag::Terminator
#define QN_OP(name, text, operands, flags) {text, operands, static_cast<std::uint16_t>(flags)},
#include <qn/opcodes.def>
#undef QN_OP
#undef Pure
#undef Reads
#undef Writes
#undef Traps
#undef Commutes
#undef Arithmetic
#undef Compares
#undef Indexes
#undef Calls
#undef Terminator
};
} // namespace detail

inline constexpr std::size_t opCount = std::size(detail::opTable);

[[nodiscard]] constexpr const OpInfo& infoOf(Op op) noexcept {
    return detail::opTable[static_cast<std::size_t>(op)];
}
[[nodiscard]] constexpr bool hasFlag(Op op, std::uint16_t flag) noexcept {
    return (infoOf(op).flags & flag) != 0;
}
/// Whether nodes of the operation give a value: always, never, or as their type says (calls).
enum class GivesValue : std::uint8_t { Always, Never, ByType };
[[nodiscard]] constexpr GivesValue givesValue(Op op) noexcept {
    if (hasFlag(op, OpFlag::Calls)) {
        return GivesValue::ByType;
    }
    const bool check = op == Op::ChkBounds || op == Op::ChkZero || op == Op::ChkLossy;
    return check || hasFlag(op, OpFlag::Writes | OpFlag::Terminator) ? GivesValue::Never
                                                                     : GivesValue::Always;
}
/// The operation that is written as `text`.
[[nodiscard]] std::optional<Op> opNamed(std::string_view text) noexcept;

enum class Rounding : std::uint8_t { NearestAway, NearestEven, TowardZero, Down, Up };
enum class Overflow : std::uint8_t { Saturate, Wrap };

[[nodiscard]] std::string_view toString(Rounding rounding) noexcept;
[[nodiscard]] std::string_view toString(Overflow overflow) noexcept;

/// How an arithmetic node rounds and what it does outside the range of its type; one byte.
class Mode {
public:
    constexpr Mode() noexcept = default;
    constexpr Mode(Rounding rounding, Overflow overflow) noexcept
        : bits_(static_cast<std::uint8_t>(static_cast<unsigned>(rounding) |
                                          (static_cast<unsigned>(overflow) << 3))) {}
    /// From the byte that bits() gave.
    [[nodiscard]] static constexpr Mode fromBits(std::uint8_t bits) noexcept {
        Mode mode;
        mode.bits_ = bits;
        return mode;
    }

    [[nodiscard]] constexpr Rounding rounding() const noexcept {
        return static_cast<Rounding>(bits_ & 7);
    }
    [[nodiscard]] constexpr Overflow overflow() const noexcept {
        return static_cast<Overflow>((bits_ >> 3) & 1);
    }
    /// On an element access: the index is known to be inside the bounds.
    [[nodiscard]] constexpr bool inBounds() const noexcept { return (bits_ & 0x80) != 0; }
    [[nodiscard]] constexpr Mode withInBounds(bool known) const noexcept {
        return fromBits(static_cast<std::uint8_t>((bits_ & 0x7F) | (known ? 0x80 : 0)));
    }
    [[nodiscard]] constexpr std::uint8_t bits() const noexcept { return bits_; }
    friend constexpr bool operator==(Mode, Mode) noexcept = default;

private:
    std::uint8_t bits_ = 0; // nearest, ties away from zero; saturating: what the language means
};

} // namespace QN
