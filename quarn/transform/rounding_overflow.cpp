// Lowering of rounding and overflow: writes the saturating, rounding arithmetic of integers out in
// operations that wrap and cut, for engines that have only those.
//
// Requires: valid IR. Keeps: blocks, edges, results to the last bit. Invalidates: use lists.
//
// Integers of up to 32 bits are computed in i64, where nothing overflows, and brought into range
// there. Of 64-bit integers, sums and differences are written out with comparisons; products and
// quotients stay, as there is nothing wider to compute them in. Conversions from doubles to up to
// 32 bits are rounded and clamped as doubles.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

#include <cstdint>
#include <utility>

namespace QN::transforms {

namespace {

constexpr Mode wrap{Rounding::TowardZero, Overflow::Wrap};

struct Range {
    std::int64_t low;
    std::int64_t high;
};

Range rangeOf(const Type& type) {
    const int bits = type.bits();
    return type.isSigned()
               ? Range{-(std::int64_t{1} << (bits - 1)), (std::int64_t{1} << (bits - 1)) - 1}
               : Range{0, (std::int64_t{1} << bits) - 1};
}

class Lowering {
public:
    Lowering(Cfg& cfg, Node& node) : cfg_(cfg), node_(node), builder_(cfg, node) {}

    /// What stands for the node from now on; null if it stays.
    Entity* run() {
        const Type& type = *node_.type();
        if (!type.isInteger() || !node_.has(OpFlag::Arithmetic) || node_.mode() == wrap) {
            return nullptr;
        }
        if (node_.op() == Op::Convert) {
            return convert(type, *typeOf(node_.operand(0)));
        }
        return type.bits() < 64 ? narrow(type) : wide(type);
    }

private:
    Entity* constant(std::int64_t value) { return cfg_.constantInt(Type::i64(), value); }

    Entity* widened(std::size_t operand) {
        return builder_.convert(node_.operand(operand), Type::i64(), wrap);
    }

    Entity* clamped(Entity* value, Range range) {
        value = builder_.binary(Op::Max, value, constant(range.low));
        return builder_.binary(Op::Min, value, constant(range.high));
    }

    /// From i64 into the type.
    Entity* fitted(Entity* value, const Type& type) {
        if (node_.mode().overflow() == Overflow::Saturate) {
            value = clamped(value, rangeOf(type));
        }
        return builder_.convert(value, &type, wrap);
    }

    Entity* narrow(const Type& type) {
        Entity* const a = widened(0);
        switch (node_.op()) {
        case Op::Add:
        case Op::Sub:
        case Op::Mul: // of u32: the product reaches 2^64 and needs more than i64 has
            if (node_.op() == Op::Mul && type.bits() == 32 && !type.isSigned()) {
                return productOfUnsigned(type);
            }
            return fitted(builder_.binary(node_.op(), a, widened(1), wrap), type);
        case Op::Div:
            return fitted(quotient(a, widened(1), type), type);
        case Op::Neg:
            return fitted(builder_.unary(Op::Neg, a, wrap), type);
        default:
            return fitted(builder_.unary(Op::Abs, a, wrap), type);
        }
    }

    Entity* productOfUnsigned(const Type& type) {
        const Type* const u64 = Type::scalar(ScalarKind::Uint64);
        Entity* const a = builder_.convert(node_.operand(0), u64, wrap);
        Entity* const b = builder_.convert(node_.operand(1), u64, wrap);
        Entity* product = builder_.binary(Op::Mul, a, b, wrap);
        if (node_.mode().overflow() == Overflow::Saturate) {
            product = builder_.binary(Op::Min, product, cfg_.constant(u64, UINT32_MAX));
        }
        return builder_.convert(product, &type, wrap);
    }

    /// The rounded quotient in i64, of the type's own value for a division by zero.
    Entity* quotient(Entity* a, Entity* b, const Type& type) {
        Entity* const cut = builder_.binary(Op::Div, a, b, wrap);
        Entity* const zero = constant(0);
        Entity* const byZero = builder_.compare(Op::Eq, b, zero);
        Entity* const ofZero = clamped(cut, rangeOf(type));
        if (node_.mode().rounding() == Rounding::TowardZero) {
            return builder_.select(byZero, ofZero, cut);
        }
        Entity* const product = builder_.binary(Op::Mul, cut, b, wrap);
        Entity* const remainder = builder_.binary(Op::Sub, a, product, wrap);
        Entity* const inexact = builder_.compare(Op::Ne, remainder, zero);
        Entity* const byNegative = builder_.compare(Op::Lt, b, zero);
        Entity* const ofNegative = builder_.compare(Op::Lt, a, zero);
        Entity* const negative = builder_.binary(Op::Xor, ofNegative, byNegative);
        Entity* const up = constant(1);
        Entity* const away = builder_.select(negative, constant(-1), up);
        Entity* const adjusts =
            builder_.binary(Op::And, inexact, roundsAway(cut, remainder, b, negative));
        Entity* const adjustment = builder_.select(adjusts, away, zero);
        return builder_.select(byZero, ofZero, builder_.binary(Op::Add, cut, adjustment, wrap));
    }

    /// Whether an inexact quotient is to be moved away from zero.
    Entity* roundsAway(Entity* cut, Entity* remainder, Entity* divisor, Entity* negative) {
        switch (node_.mode().rounding()) {
        case Rounding::Down:
            return negative;
        case Rounding::Up:
            return builder_.unary(Op::Not, negative);
        default:
            break;
        }
        Entity* const size = builder_.unary(Op::Abs, remainder, wrap);
        Entity* const twice = builder_.binary(Op::Add, size, size, wrap);
        Entity* const whole = builder_.unary(Op::Abs, divisor, wrap);
        if (node_.mode().rounding() == Rounding::NearestAway) {
            return builder_.compare(Op::Ge, twice, whole);
        }
        Entity* const rest = builder_.binary(Op::Rem, cut, constant(2));
        Entity* const odd = builder_.compare(Op::Ne, rest, constant(0));
        Entity* const tie = builder_.binary(Op::And, builder_.compare(Op::Eq, twice, whole), odd);
        return builder_.binary(Op::Or, builder_.compare(Op::Gt, twice, whole), tie);
    }

    Entity* bits64(const Type& type, std::uint64_t bits) { return cfg_.constant(&type, bits); }

    /// Sums, differences, negation and absolute value of 64-bit integers.
    Entity* wide(const Type& type) {
        if (node_.mode().overflow() == Overflow::Wrap) {
            return nullptr; // an exact result needs no rounding; quotients stay
        }
        Entity* const a = node_.operand(0);
        const bool isSigned = type.isSigned();
        Entity* const zero = bits64(type, 0);
        Entity* const low = bits64(type, isSigned ? std::uint64_t{1} << 63 : 0);
        Entity* const high =
            bits64(type, isSigned ? static_cast<std::uint64_t>(INT64_MAX) : UINT64_MAX);
        switch (node_.op()) {
        case Op::Add: {
            Entity* const b = node_.operand(1);
            Entity* const sum = builder_.binary(Op::Add, a, b, wrap);
            if (!isSigned) {
                return builder_.select(builder_.compare(Op::Lt, sum, a), high, sum);
            }
            Entity* const down = builder_.select(builder_.compare(Op::Gt, sum, a), low, sum);
            Entity* const up = builder_.select(builder_.compare(Op::Lt, sum, a), high, sum);
            return builder_.select(builder_.compare(Op::Lt, b, zero), down, up);
        }
        case Op::Sub: {
            Entity* const b = node_.operand(1);
            Entity* const difference = builder_.binary(Op::Sub, a, b, wrap);
            if (!isSigned) {
                return builder_.select(builder_.compare(Op::Lt, a, b), zero, difference);
            }
            Entity* const up =
                builder_.select(builder_.compare(Op::Lt, difference, a), high, difference);
            Entity* const down =
                builder_.select(builder_.compare(Op::Gt, difference, a), low, difference);
            return builder_.select(builder_.compare(Op::Lt, b, zero), up, down);
        }
        case Op::Neg: {
            if (!isSigned) {
                return zero;
            }
            Entity* const negated = builder_.unary(Op::Neg, a, wrap);
            return builder_.select(builder_.compare(Op::Eq, a, low), high, negated);
        }
        case Op::Abs: {
            if (!isSigned) {
                return a;
            }
            Entity* const size = builder_.unary(Op::Abs, a, wrap);
            return builder_.select(builder_.compare(Op::Eq, a, low), high, size);
        }
        default:
            return nullptr;
        }
    }

    Entity* convert(const Type& to, const Type& from) {
        if (to.bits() == 64) {
            return nullptr;
        }
        if (!from.isDouble()) {
            if (from.isLogical() || node_.mode().overflow() == Overflow::Wrap) {
                return nullptr;
            }
            if (from.bits() == 64 && !from.isSigned()) {
                Entity* const high =
                    cfg_.constant(&from, static_cast<std::uint64_t>(rangeOf(to).high));
                return builder_.convert(builder_.binary(Op::Min, node_.operand(0), high), &to,
                                        wrap);
            }
            return fitted(widened(0), to);
        }
        if (node_.mode().overflow() == Overflow::Wrap) {
            return nullptr; // what lies far outside is cut by the conversion alone
        }
        Entity* const x = node_.operand(0);
        Entity* rounded = nullptr;
        switch (node_.mode().rounding()) {
        case Rounding::NearestAway:
            rounded = builder_.unary(Op::Round, x);
            break;
        case Rounding::NearestEven:
            return nullptr; // there is no such operation on doubles
        case Rounding::TowardZero:
            rounded = builder_.unary(Op::Trunc, x);
            break;
        case Rounding::Down:
            rounded = builder_.unary(Op::Floor, x);
            break;
        case Rounding::Up:
            rounded = builder_.unary(Op::Ceil, x);
            break;
        }
        // min and max pass over a NaN, which must become zero.
        const Range range = rangeOf(to);
        Entity* const nan = builder_.compare(Op::Ne, x, x);
        rounded =
            builder_.binary(Op::Max, rounded, cfg_.constantDouble(static_cast<double>(range.low)));
        rounded =
            builder_.binary(Op::Min, rounded, cfg_.constantDouble(static_cast<double>(range.high)));
        return builder_.convert(builder_.select(nan, cfg_.constantDouble(0), rounded), &to, wrap);
    }

    Cfg& cfg_;
    Node& node_;
    Builder builder_;
};

} // namespace

bool lowerRoundingAndOverflow(Function& function) {
    Cfg& cfg = function.cfg();
    bool changed = false;
    for (Block* const block : cfg.dominators().order()) {
        for (Node* node = block->first(); node != nullptr;) {
            Node* const next = node->next();
            if (Entity* const lowered = Lowering(cfg, *node).run(); lowered != nullptr) {
                cfg.replaceUses(node, lowered);
                cfg.remove(node);
                changed = true;
            }
            node = next;
        }
    }
    return changed;
}

} // namespace QN::transforms
