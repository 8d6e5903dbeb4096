// Strength reduction: puts cheaper operations in the place of dearer ones where the result is the
// same to the last bit.
//
// Requires: valid IR. Keeps: blocks, edges, variables, effects. Invalidates: use lists of the
// values that it replaces.
//
//   x * 2          x + x
//   x / c          x * (1 / c), if 1 / c is exact and normal
//   0 - x          -x, for integers
//   pow(x, 1)      x             pow(x, 0)   1
//   !(x < y)       x >= y, for integers and logicals; the same for all comparisons
//   |-x|           |x|, for doubles
//   toindex(double(x))   toindex(x), for integers of up to 32 bits
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

#include <cmath>
#include <optional>

namespace QN::transforms {

namespace {

const Const* constantOf(const Node& node, std::size_t operand, const Type* type) {
    const Const* const constant = asConst(node.operand(operand));
    return constant != nullptr && constant->type() == type ? constant : nullptr;
}

bool isNumber(const Const* constant, int number) {
    return constant != nullptr && (constant->type()->isDouble() ? constant->asDouble() == number
                                                                : constant->asInt() == number);
}

/// The reciprocal of `value` if multiplying by it is dividing by `value`.
std::optional<double> exactReciprocal(double value) {
    int exponent = 0;
    if (!std::isnormal(value) || std::fabs(std::frexp(value, &exponent)) != 0.5) {
        return std::nullopt; // no power of two
    }
    const double reciprocal = 1 / value;
    return std::isnormal(reciprocal) ? std::optional(reciprocal) : std::nullopt;
}

Op inverseOf(Op comparison) {
    switch (comparison) {
    case Op::Eq:
        return Op::Ne;
    case Op::Ne:
        return Op::Eq;
    case Op::Lt:
        return Op::Ge;
    case Op::Le:
        return Op::Gt;
    case Op::Gt:
        return Op::Le;
    default:
        return Op::Lt;
    }
}

Entity* cheaper(Cfg& cfg, Node& node) {
    Builder builder(cfg, node);
    const Type* const type = node.type();
    switch (node.op()) {
    case Op::Mul:
        for (const std::size_t side : {0U, 1U}) {
            if (isNumber(constantOf(node, side, type), 2)) {
                Entity* const x = node.operand(1 - side);
                return builder.binary(Op::Add, x, x, node.mode());
            }
        }
        return nullptr;
    case Op::Div:
        if (const Const* const divisor = constantOf(node, 1, Type::f64()); divisor != nullptr) {
            if (const auto reciprocal = exactReciprocal(divisor->asDouble())) {
                return builder.binary(Op::Mul, node.operand(0), cfg.constantDouble(*reciprocal));
            }
        }
        return nullptr;
    case Op::Sub:
        return type->isInteger() && isNumber(constantOf(node, 0, type), 0)
                   ? builder.unary(Op::Neg, node.operand(1), node.mode())
                   : nullptr;
    case Op::Pow: {
        const Const* const exponent = constantOf(node, 1, type);
        if (isNumber(exponent, 1)) {
            return node.operand(0);
        }
        return isNumber(exponent, 0) ? cfg.constantDouble(1) : nullptr;
    }
    case Op::Not: {
        const Node* const inner = asNode(node.operand(0));
        if (inner == nullptr || !inner->has(OpFlag::Compares) ||
            typeOf(inner->operand(0))->isDouble()) { // of a NaN, both < and >= are false
            return nullptr;
        }
        return builder.compare(inverseOf(inner->op()), inner->operand(0), inner->operand(1));
    }
    case Op::Abs: {
        const Node* const inner = asNode(node.operand(0));
        return type->isDouble() && inner != nullptr && inner->op() == Op::Neg
                   ? builder.unary(Op::Abs, inner->operand(0))
                   : nullptr;
    }
    case Op::ToIndex: {
        const Node* const inner = asNode(node.operand(0));
        if (inner == nullptr || inner->op() != Op::Convert || !inner->type()->isDouble()) {
            return nullptr;
        }
        const Type* const from = typeOf(inner->operand(0));
        return from->isInteger() && from->bits() <= 32 ? builder.toIndex(inner->operand(0))
                                                       : nullptr;
    }
    default:
        return nullptr;
    }
}

} // namespace

bool reduceStrength(Function& function) {
    Cfg& cfg = function.cfg();
    bool changed = false;
    for (Block* const block : cfg.dominators().order()) {
        for (Node* node = block->first(); node != nullptr;) {
            Node* const next = node->next();
            if (Entity* const replacement = cheaper(cfg, *node); replacement != nullptr) {
                cfg.replaceUses(node, replacement);
                cfg.remove(node);
                changed = true;
            }
            node = next;
        }
    }
    return changed;
}

} // namespace QN::transforms
