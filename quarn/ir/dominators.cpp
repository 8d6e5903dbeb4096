// Reverse postorder by an explicit stack, then immediate dominators by intersection along the order
// (Cooper, Harvey, Kennedy), then intervals of the dominator tree for constant-time queries.
#include <qn/cfg.hpp>
#include <qn/dominators.hpp>

#include <algorithm>
#include <utility>

namespace QN {

Dominators::Dominators(const Cfg& cfg) : rows_(cfg.blockIdLimit()) {
    if (cfg.entry() == nullptr) {
        return;
    }
    // Postorder. A row's index tells of a visited block; the real numbers follow below.
    std::vector<std::pair<Block*, std::size_t>> stack;
    order_.reserve(cfg.numBlocks());
    stack.emplace_back(cfg.entry(), 0);
    rows_[cfg.entry()->id()].index = 0;
    while (!stack.empty()) {
        auto& [block, side] = stack.back();
        if (side == block->numSuccessors()) {
            order_.push_back(block);
            stack.pop_back();
            continue;
        }
        Block* const target = block->successor(side++);
        if (target != nullptr && rows_[target->id()].index == none) {
            rows_[target->id()].index = 0;
            stack.emplace_back(target, 0);
        }
    }
    std::reverse(order_.begin(), order_.end());
    for (std::uint32_t i = 0; i < order_.size(); ++i) {
        rows_[order_[i]->id()].index = i;
    }

    std::vector<std::uint32_t> immediate(order_.size(), none);
    immediate[0] = 0;
    const auto meet = [&](std::uint32_t a, std::uint32_t b) {
        while (a != b) {
            while (a > b) {
                a = immediate[a];
            }
            while (b > a) {
                b = immediate[b];
            }
        }
        return a;
    };
    for (bool changed = true; changed;) {
        changed = false;
        for (std::uint32_t i = 1; i < order_.size(); ++i) {
            std::uint32_t meeting = none;
            order_[i]->forEachPredecessor([&](const Block& from) {
                const std::uint32_t index = rows_[from.id()].index;
                if (index != none && immediate[index] != none) {
                    meeting = meeting == none ? index : meet(meeting, index);
                }
            });
            if (immediate[i] != meeting) {
                immediate[i] = meeting;
                changed = true;
            }
        }
    }

    // Children come behind their parents in the order, so one pass backwards counts the subtrees
    // and one forwards hands out the intervals.
    std::vector<std::uint32_t> size(order_.size(), 1);
    for (std::size_t i = order_.size(); i-- > 1;) {
        size[immediate[i]] += size[i];
    }
    std::vector<std::uint32_t> nextFree(order_.size(), 0);
    for (std::uint32_t i = 0; i < order_.size(); ++i) {
        Row& row = rows_[order_[i]->id()];
        if (i > 0) {
            row.immediate = immediate[i];
            row.enter = nextFree[immediate[i]];
            nextFree[immediate[i]] += size[i];
        }
        row.leave = row.enter + size[i];
        nextFree[i] = row.enter + 1;
    }
}

bool Dominators::isReachable(const Block& block) const noexcept {
    return block.id() < rows_.size() && rows_[block.id()].index != none;
}

std::uint32_t Dominators::indexOf(const Block& block) const noexcept {
    return rows_[block.id()].index;
}

Block* Dominators::immediate(const Block& block) const noexcept {
    const std::uint32_t index = block.id() < rows_.size() ? rows_[block.id()].immediate : none;
    return index == none ? nullptr : order_[index];
}

bool Dominators::dominates(const Block& a, const Block& b) const noexcept {
    if (!isReachable(a) || !isReachable(b)) {
        return false;
    }
    const Row& over = rows_[a.id()];
    const Row& under = rows_[b.id()];
    return over.enter <= under.enter && under.leave <= over.leave;
}

NodeOrder::NodeOrder(const Cfg& cfg) : numbers_(cfg.nodeIdLimit(), 0) {
    for (const Block& block : cfg.blocks()) {
        std::uint32_t number = 0;
        for (const Node& node : block.nodes()) {
            numbers_[node.id()] = ++number;
        }
    }
}

} // namespace QN
