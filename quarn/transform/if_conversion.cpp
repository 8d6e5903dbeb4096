// If-conversion: where both sides of a branch only compute an integer and store it into the same
// variable, both numbers are computed and one is selected. Processors do not foresee branches on
// the numbers that a program works on, and a wrong guess costs more than a few operations.
//
//   br c, x, y                     the nodes of x and of y
//   x: ...; store v, a; jump z     store v, select c, a, b
//   y: ...; store v, b; jump z     jump z
//
// The sides are to be cheap: at most four operations together, and none that takes long. One that
// runs only where mod(n, d) or rem(n, d) is 0 may divide n by d. Nothing is left to be rounded
// then, and rounding down, a shift where d is a power of two, takes the place of any other.
//
// Requires: valid IR. Keeps: effects and their order, variables. Invalidates: blocks and dominance.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

#include <bit>
#include <vector>

namespace QN::transforms {

namespace {

constexpr std::size_t mostOperations = 4;

/// What a side of a branch stores, and how many operations that takes.
struct Side {
    Block* block = nullptr;
    Node* store = nullptr; // null if the side does anything else
    std::size_t operations = 0;
};

const Const* integerConstant(const Node& node, std::size_t operand) {
    const Const* const constant = asConst(node.operand(operand));
    return constant != nullptr && constant->type()->isInteger() ? constant : nullptr;
}

bool isCheap(const Node& node) {
    if (!node.type()->isInteger()) {
        return false;
    }
    switch (node.op()) {
    case Op::Add:
    case Op::Sub:
    case Op::Neg:
    case Op::Min:
    case Op::Max:
        return true;
    case Op::Mul:
        return integerConstant(node, 0) != nullptr || integerConstant(node, 1) != nullptr;
    case Op::Div: {
        const Const* const divisor = integerConstant(node, 1);
        return divisor != nullptr && divisor->asInt() > 0 && std::has_single_bit(divisor->bits());
    }
    default:
        return false;
    }
}

Side sideOf(Block* block, const Block* before) {
    Side side{block, nullptr, 0};
    if (block->singlePredecessor() != before || block->terminator()->op() != Op::Jump) {
        return {};
    }
    for (Node& node : block->nodes()) {
        if (node.isTerminator()) {
            return side.store != nullptr ? side : Side{};
        }
        const bool isStore = node.op() == Op::Store && asVar(node.operand(0))->type()->isInteger();
        const bool isLoad = node.op() == Op::Load && node.type()->isInteger();
        if (side.store != nullptr || !(isStore || isLoad || isCheap(node))) {
            return {};
        }
        side.store = isStore ? &node : nullptr;
        side.operations += isStore || isLoad ? 0 : 1;
    }
    return {};
}

/// The remainder that is 0 on one side of the branch, and the number of that side.
struct Guard {
    const Node* remainder = nullptr;
    std::size_t side = 0;
};

Guard guardOf(const Node& branch) {
    const Node* const test = asNode(branch.operand(0));
    if (test == nullptr || (test->op() != Op::Eq && test->op() != Op::Ne)) {
        return {};
    }
    for (const std::size_t operand : {0U, 1U}) {
        const Node* const remainder = asNode(test->operand(operand));
        const Const* const zero = integerConstant(*test, 1 - operand);
        if (remainder != nullptr && zero != nullptr && zero->bits() == 0 &&
            (remainder->op() == Op::Mod || remainder->op() == Op::Rem)) {
            return {remainder, test->op() == Op::Eq ? 0U : 1U};
        }
    }
    return {};
}

void markExact(Block& block, const Node& remainder) {
    for (Node& node : block.nodes()) {
        if (node.op() == Op::Div && node.operand(0) == remainder.operand(0) &&
            node.operand(1) == remainder.operand(1)) {
            node.setMode(Mode(Rounding::Down, node.mode().overflow()));
        }
    }
}

/// What the variable holds at the end of the block, if a node on the only way there says so.
Entity* valueAtEnd(const Block* block, const Var* var) {
    for (; block != nullptr; block = block->singlePredecessor()) {
        for (Node* node = block->last(); node != nullptr; node = node->previous()) {
            if (node->op() == Op::StoreP || node->has(OpFlag::Calls)) {
                return nullptr; // which may reach it through a pointer
            }
            if ((node->op() == Op::Load || node->op() == Op::Store) && node->operand(0) == var) {
                return node->op() == Op::Load ? node : node->operand(1);
            }
        }
    }
    return nullptr;
}

/// Takes values that are there already instead of loading them again.
void reuseValues(Cfg& cfg, const Side& side, const Block* before) {
    for (Node* node = side.block->first(); node != side.store;) {
        Node* const next = node->next();
        Entity* const known =
            node->op() == Op::Load ? valueAtEnd(before, asVar(node->operand(0))) : nullptr;
        if (known != nullptr) {
            cfg.replaceUses(node, known);
            cfg.remove(node);
        }
        node = next;
    }
}

void moveBefore(Cfg& cfg, Node* branch, const Side& side) {
    while (side.block->first() != side.store) {
        Node* const node = side.block->first();
        cfg.unlink(node);
        cfg.insertBefore(branch, node);
    }
}

bool convert(Cfg& cfg, Block* block) {
    Node* const branch = block->terminator();
    if (branch->op() != Op::Br || block->successor(0) == block->successor(1)) {
        return false;
    }
    const Side sides[2] = {sideOf(block->successor(0), block), sideOf(block->successor(1), block)};
    if (sides[0].store == nullptr || sides[1].store == nullptr ||
        sides[0].store->operand(0) != sides[1].store->operand(0) ||
        sides[0].block->successor(0) != sides[1].block->successor(0) ||
        sides[0].operations + sides[1].operations > mostOperations) {
        return false;
    }
    reuseValues(cfg, sides[0], block);
    reuseValues(cfg, sides[1], block);
    if (const Guard guard = guardOf(*branch); guard.remainder != nullptr) {
        markExact(*sides[guard.side].block, *guard.remainder);
    }
    Block* const behind = sides[0].block->successor(0);
    Entity* const results[2] = {sides[0].store->operand(1), sides[1].store->operand(1)};
    Var* const var = asVar(sides[0].store->operand(0));
    moveBefore(cfg, branch, sides[0]);
    moveBefore(cfg, branch, sides[1]);
    Builder builder(cfg, *branch);
    builder.store(var, builder.select(branch->operand(0), results[0], results[1]));
    cfg.remove(branch);
    builder.atEndOf(block);
    builder.jump(behind);
    cfg.removeBlock(sides[0].block);
    cfg.removeBlock(sides[1].block);
    return true;
}

} // namespace

bool convertBranches(Function& function) {
    Cfg& cfg = function.cfg();
    // The last come first: what goes comes behind the branch that leads to it.
    const std::span<Block* const> order = cfg.dominators().order();
    const std::vector<Block*> blocks(order.rbegin(), order.rend());
    bool changed = false;
    for (Block* const block : blocks) {
        changed = convert(cfg, block) || changed;
    }
    return changed;
}

} // namespace QN::transforms
