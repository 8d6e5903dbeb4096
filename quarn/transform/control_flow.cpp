// Control-flow clean-up: decides branches on constants, skips blocks that only jump on, removes
// unreachable blocks, and merges a block with the only one that leads to it.
//
// Requires: every block ends with a terminator. Keeps: the order of effects on every way through
// the function. Invalidates: blocks and dominance.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

#include <vector>

namespace QN::transforms {

namespace {

void replaceByJump(Cfg& cfg, Node* branch, Block* target) {
    Block* const block = branch->block();
    Builder builder(cfg, block);
    builder.setLine(branch->line());
    cfg.remove(branch);
    builder.jump(target);
}

bool decideBranches(Cfg& cfg) {
    bool changed = false;
    for (Block& block : cfg.blocks()) {
        Node* const end = block.terminator();
        if (end == nullptr || end->op() != Op::Br) {
            continue;
        }
        const Const* const condition = asConst(end->operand(0));
        if (condition != nullptr) {
            replaceByJump(cfg, end, block.successor(condition->bits() != 0 ? 0 : 1));
            changed = true;
        } else if (block.successor(0) == block.successor(1)) {
            replaceByJump(cfg, end, block.successor(0));
            changed = true;
        }
    }
    return changed;
}

/// Where a chain of blocks that only jump on ends; `block` itself if it does more, or in a circle.
Block* endOfChain(Block* block, std::vector<Block*>& path) {
    path.clear();
    Block* at = block;
    while (at->numNodes() == 1 && at->last()->op() == Op::Jump && at->successor(0) != at &&
           path.size() < 64) { // longer chains take another run
        path.push_back(at);
        at = at->successor(0);
        if (at == block) {
            return block;
        }
    }
    return at;
}

bool skipEmptyBlocks(Cfg& cfg) {
    bool changed = false;
    std::vector<Block*> path;
    for (Block& block : cfg.blocks()) {
        for (std::size_t i = 0; i < block.numSuccessors(); ++i) {
            Block* const target = block.successor(i);
            Block* const end = endOfChain(target, path);
            if (end != target) {
                cfg.setSuccessor(block.terminator(), i, end);
                changed = true;
            }
        }
    }
    return changed;
}

bool removeUnreachable(Cfg& cfg) {
    const Dominators& dominators = cfg.dominators();
    std::vector<Block*> unreachable;
    for (Block& block : cfg.blocks()) {
        if (!dominators.isReachable(block)) {
            unreachable.push_back(&block);
        }
    }
    // They may use each other's values and lead to each other in any order.
    for (Block* const block : unreachable) {
        for (Node& node : block->nodes()) {
            for (Operand& operand : node.operands()) {
                operand.set(nullptr);
            }
        }
    }
    for (Block* const block : unreachable) {
        cfg.removeBlock(block);
    }
    return !unreachable.empty();
}

bool mergeChains(Cfg& cfg) {
    bool changed = false;
    // In an order in which heads of chains come first, each node is moved once.
    const std::vector<Block*> order(cfg.dominators().order().begin(),
                                    cfg.dominators().order().end());
    std::vector<bool> gone(cfg.blockIdLimit(), false);
    std::vector<std::uint32_t> ids;
    for (Block* const block : order) {
        ids.push_back(block->id()); // a merged block is released, so its id is kept apart
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (gone[ids[i]]) {
            continue;
        }
        Block* const block = order[i];
        while (block->terminator()->op() == Op::Jump) {
            Block* const next = block->successor(0);
            if (next == block || next == cfg.entry() || next->singlePredecessor() != block) {
                break;
            }
            cfg.remove(block->terminator());
            while (Node* const node = next->first()) {
                cfg.unlink(node);
                cfg.append(block, node);
            }
            gone[next->id()] = true;
            cfg.removeBlock(next);
            changed = true;
        }
    }
    return changed;
}

} // namespace

bool cleanUpControlFlow(Function& function) {
    Cfg& cfg = function.cfg();
    if (cfg.entry() == nullptr) {
        return false;
    }
    bool changed = decideBranches(cfg);
    changed = skipEmptyBlocks(cfg) || changed;
    changed = decideBranches(cfg) || changed; // both sides of a branch may lead to one block now
    changed = removeUnreachable(cfg) || changed;
    return mergeChains(cfg) || changed;
}

} // namespace QN::transforms
