// Immediate dominators by semidominators (the semi-NCA form of Lengauer and Tarjan), which stays
// close to linear whatever the graph and the order of its edges; then intervals of the dominator
// tree for constant-time queries.
#include <qn/cfg.hpp>
#include <qn/dominators.hpp>

#include <algorithm>
#include <utility>

namespace QN {

namespace {

constexpr std::uint32_t none = UINT32_MAX;

/// The reachable blocks numbered in the order in which a depth-first walk meets them.
struct Walk {
    explicit Walk(const Cfg& cfg) : numbers(cfg.blockIdLimit(), none) {
        std::vector<std::pair<std::uint32_t, std::size_t>> stack; // number, next side
        const auto meet = [&](Block* block, std::uint32_t from) {
            numbers[block->id()] = static_cast<std::uint32_t>(blocks.size());
            stack.emplace_back(numbers[block->id()], 0);
            blocks.push_back(block);
            parents.push_back(from);
        };
        meet(cfg.entry(), 0);
        while (!stack.empty()) {
            auto& [number, side] = stack.back();
            if (side == blocks[number]->numSuccessors()) {
                postorder.push_back(blocks[number]);
                stack.pop_back();
                continue;
            }
            Block* const target = blocks[number]->successor(side++);
            if (target != nullptr && numbers[target->id()] == none) {
                meet(target, number);
            }
        }
    }

    std::vector<std::uint32_t> numbers; // by block id
    std::vector<Block*> blocks;         // by number
    std::vector<std::uint32_t> parents; // by number
    std::vector<Block*> postorder;
};

/// Immediate dominators by number; the entry's is itself.
std::vector<std::uint32_t> immediateDominators(const Walk& walk) {
    const auto count = static_cast<std::uint32_t>(walk.blocks.size());
    std::vector<std::uint32_t> semi(count);
    std::vector<std::uint32_t> label(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        semi[i] = label[i] = i;
    }
    std::vector<std::uint32_t> ancestor = walk.parents;
    std::vector<std::uint32_t> path;
    // Of the blocks on the tree path from `v` up to those not linked yet, the one with the least
    // semidominator. Blocks from `linked` on are linked to their parents.
    const auto evaluate = [&](std::uint32_t v, std::uint32_t linked) {
        if (v < linked) {
            return v;
        }
        std::uint32_t at = v;
        for (; ancestor[at] >= linked; at = ancestor[at]) {
            path.push_back(at);
        }
        std::uint32_t best = label[at];
        for (const std::uint32_t top = ancestor[at]; !path.empty(); path.pop_back()) {
            const std::uint32_t below = path.back();
            ancestor[below] = top;
            if (semi[best] < semi[label[below]]) {
                label[below] = best;
            } else {
                best = label[below];
            }
        }
        return label[v];
    };
    for (std::uint32_t i = count; i-- > 1;) {
        semi[i] = walk.parents[i];
        walk.blocks[i]->forEachPredecessor([&](const Block& from) {
            if (const std::uint32_t number = walk.numbers[from.id()]; number != none) {
                semi[i] = std::min(semi[i], semi[evaluate(number, i + 1)]);
            }
        });
    }
    std::vector<std::uint32_t> immediate = walk.parents;
    for (std::uint32_t i = 1; i < count; ++i) {
        while (immediate[i] > semi[i]) {
            immediate[i] = immediate[immediate[i]];
        }
    }
    return immediate;
}

} // namespace

Dominators::Dominators(const Cfg& cfg) : rows_(cfg.blockIdLimit()) {
    if (cfg.entry() == nullptr) {
        return;
    }
    const Walk walk(cfg);
    order_.assign(walk.postorder.rbegin(), walk.postorder.rend());
    for (std::uint32_t i = 0; i < order_.size(); ++i) {
        rows_[order_[i]->id()].index = i;
    }
    const std::vector<std::uint32_t> immediate = immediateDominators(walk);

    // A block has a larger number than its dominators, so one pass backwards counts the subtrees
    // and one forwards hands out the intervals.
    std::vector<std::uint32_t> size(immediate.size(), 1);
    for (std::size_t i = immediate.size(); i-- > 1;) {
        size[immediate[i]] += size[i];
    }
    std::vector<std::uint32_t> nextFree(immediate.size(), 0);
    for (std::uint32_t i = 0; i < immediate.size(); ++i) {
        Row& row = rows_[walk.blocks[i]->id()];
        if (i > 0) {
            row.immediate = indexOf(*walk.blocks[immediate[i]]);
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
