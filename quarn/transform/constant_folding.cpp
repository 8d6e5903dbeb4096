// Constant folding: computes pure operations on constants, and applies identities that hold to the
// last bit. One pass in an order in which definitions come before uses, so chains fold in one run.
//
// Requires: valid IR. Keeps: blocks and edges, bounds and order of effects. Invalidates: use lists
// of the values that it replaces. Never folds what would trap; see control-flow for branches on
// constants.
#include "transform/transforms.hpp"

#include <qn/arithmetic.hpp>
#include <qn/function.hpp>

#include <array>

namespace QN::transforms {

namespace {

bool isBits(Entity* entity, std::uint64_t bits) noexcept {
    const Const* const constant = asConst(entity);
    return constant != nullptr && constant->bits() == bits;
}

/// The constant `n` of the type, as it would be in a Const.
std::uint64_t bitsOfNumber(const Type& type, int n) noexcept {
    return type.isDouble() ? bitsOf(n) : static_cast<std::uint64_t>(n);
}

Const* computed(Cfg& cfg, const Node& node) {
    if (!node.has(OpFlag::Pure) && node.op() != Op::ToIndex) {
        return nullptr;
    }
    std::array<std::uint64_t, 3> bits;
    if (node.numOperands() == 0 || node.numOperands() > bits.size() || !node.type()->isScalar()) {
        return nullptr;
    }
    for (std::size_t i = 0; i < node.numOperands(); ++i) {
        const Const* const constant = asConst(node.operand(i));
        if (constant == nullptr) {
            return nullptr;
        }
        bits[i] = constant->bits();
    }
    const Type& operandType = *typeOf(node.operand(node.op() == Op::Select ? 1 : 0));
    std::uint64_t result;
    return computeScalar(node.op(), node.mode(), *node.type(), operandType, bits.data(), result)
               ? cfg.constant(node.type(), result)
               : nullptr;
}

/// What an arithmetic node is equal to, if that is one of its operands or a constant.
Entity* simplifiedArithmetic(Cfg& cfg, const Node& node) {
    const Type& type = *node.type();
    const bool integer = type.isInteger();
    Entity* const x = node.operand(0);
    Entity* const y = node.numOperands() > 1 ? node.operand(1) : nullptr;
    const std::uint64_t one = bitsOfNumber(type, 1);
    switch (node.op()) {
    case Op::Add: // x + 0.0 is not x for x = -0.0, but x + -0.0 is
        if (isBits(y, integer ? 0 : bitsOf(-0.0))) {
            return x;
        }
        return isBits(x, integer ? 0 : bitsOf(-0.0)) ? y : nullptr;
    case Op::Sub:
        return isBits(y, 0) ? x : nullptr;
    case Op::Mul:
        if (isBits(y, one)) {
            return x;
        }
        if (isBits(x, one)) {
            return y;
        }
        return integer && (isBits(x, 0) || isBits(y, 0)) ? cfg.constant(node.type(), 0) : nullptr;
    case Op::Div:
        return isBits(y, one) ? x : nullptr;
    case Op::Neg: {
        // -(-x) is x for doubles; a saturating integer loses its smallest value on the way.
        const Node* const inner = asNode(x);
        return !integer && inner != nullptr && inner->op() == Op::Neg ? inner->operand(0) : nullptr;
    }
    default:
        return nullptr;
    }
}

Entity* simplifiedLogical(Cfg& cfg, const Node& node) {
    Entity* const x = node.operand(0);
    if (node.op() == Op::Not) {
        const Node* const inner = asNode(x);
        return inner != nullptr && inner->op() == Op::Not ? inner->operand(0) : nullptr;
    }
    Entity* const y = node.operand(1);
    // What leaves the other operand as it is, and what decides the result.
    const std::uint64_t neutral = node.op() == Op::And ? 1 : 0;
    if (isBits(x, neutral)) {
        return y;
    }
    if (isBits(y, neutral)) {
        return x;
    }
    if (node.op() == Op::Xor) {
        return x == y ? cfg.constantLogical(false) : nullptr;
    }
    if (x == y) {
        return x;
    }
    return isBits(x, 1 - neutral) || isBits(y, 1 - neutral) ? cfg.constantLogical(neutral == 0)
                                                            : nullptr;
}

Entity* simplified(Cfg& cfg, const Node& node) {
    switch (node.op()) {
    case Op::Add:
    case Op::Sub:
    case Op::Mul:
    case Op::Div:
    case Op::Neg:
        return simplifiedArithmetic(cfg, node);
    case Op::And:
    case Op::Or:
    case Op::Xor:
    case Op::Not:
        return simplifiedLogical(cfg, node);
    case Op::Select:
        if (const Const* const condition = asConst(node.operand(0)); condition != nullptr) {
            return node.operand(condition->bits() != 0 ? 1 : 2);
        }
        return node.operand(1) == node.operand(2) ? node.operand(1) : nullptr;
    case Op::Convert:
        return typeOf(node.operand(0)) == node.type() ? node.operand(0) : nullptr;
    default:
        if (node.has(OpFlag::Compares) && node.operand(0) == node.operand(1) &&
            !typeOf(node.operand(0))->isDouble()) { // a NaN is not equal to itself
            return cfg.constantLogical(node.op() == Op::Eq || node.op() == Op::Le ||
                                       node.op() == Op::Ge);
        }
        return nullptr;
    }
}

/// Whether the node is a check that its constant operands pass.
bool isPassedCheck(const Node& node) {
    switch (node.op()) {
    case Op::ChkBounds: {
        const Const* const index = asConst(node.operand(0));
        const Const* const limit = asConst(node.operand(1));
        return index != nullptr && limit != nullptr && index->asInt() >= 1 &&
               index->asInt() <= limit->asInt();
    }
    case Op::ChkZero: {
        const Const* const value = asConst(node.operand(0));
        return value != nullptr &&
               (value->type()->isDouble() ? value->asDouble() != 0 : value->bits() != 0);
    }
    default:
        return false;
    }
}

} // namespace

bool foldConstants(Function& function) {
    Cfg& cfg = function.cfg();
    bool changed = false;
    for (Block* const block : cfg.dominators().order()) {
        for (Node* node = block->first(); node != nullptr;) {
            Node* const next = node->next();
            Entity* replacement = computed(cfg, *node);
            if (replacement == nullptr) {
                replacement = simplified(cfg, *node);
            }
            if (replacement != nullptr) {
                cfg.replaceUses(node, replacement);
            }
            if (replacement != nullptr || isPassedCheck(*node)) {
                cfg.remove(node);
                changed = true;
            }
            node = next;
        }
    }
    return changed;
}

} // namespace QN::transforms
