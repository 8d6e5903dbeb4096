// Finds natural loops from the inside out: the body of a loop is walked backwards from its latches,
// and what an inner loop has already taken is skipped in one step, to the way into it.
#include <qn/cfg.hpp>
#include <qn/loops.hpp>

#include <algorithm>

namespace QN {

Loops::Loops(const Cfg& cfg) : innermost_(cfg.blockIdLimit(), Loop::none) {
    const Dominators& dominators = cfg.dominators();
    const auto order = dominators.order();
    // The outermost loop known so far around each loop, with the ways there cut short as they are
    // walked.
    std::vector<std::uint32_t> around;
    const auto outermostOf = [&](std::uint32_t loop) {
        while (around[loop] != loop) {
            around[loop] = around[around[loop]];
            loop = around[loop];
        }
        return loop;
    };
    std::vector<Block*> pending;
    for (std::size_t i = order.size(); i-- > 0;) {
        Block* const header = order[i];
        pending.clear();
        header->forEachPredecessor([&](Block& latch) {
            if (dominators.dominates(*header, latch)) {
                pending.push_back(&latch);
            }
        });
        if (pending.empty()) {
            continue;
        }
        const auto self = static_cast<std::uint32_t>(loops_.size());
        loops_.push_back({header, Loop::none, 0, {header}});
        around.push_back(self);
        innermost_[header->id()] = self;
        while (!pending.empty()) {
            Block* const block = pending.back();
            pending.pop_back();
            if (!dominators.isReachable(*block)) {
                continue;
            }
            Block* wayIn = block;
            if (const std::uint32_t known = innermost_[block->id()]; known != Loop::none) {
                const std::uint32_t inner = outermostOf(known);
                if (inner == self) {
                    continue;
                }
                loops_[inner].parent = self;
                around[inner] = self;
                wayIn = loops_[inner].header;
            } else {
                innermost_[block->id()] = self;
                loops_[self].ownBlocks.push_back(block);
            }
            wayIn->forEachPredecessor([&](Block& before) {
                // An inner loop's own latches are part of it already.
                if (const std::uint32_t known = innermost_[before.id()];
                    known == Loop::none || outermostOf(known) != self) {
                    pending.push_back(&before);
                }
            });
        }
    }
    // Found from the inside out; told from the outside in.
    std::reverse(loops_.begin(), loops_.end());
    const auto last = static_cast<std::uint32_t>(loops_.size()) - 1;
    for (std::uint32_t& loop : innermost_) {
        loop = loop == Loop::none ? loop : last - loop;
    }
    for (Loop& loop : loops_) {
        loop.parent = loop.parent == Loop::none ? loop.parent : last - loop.parent;
        loop.depth = loop.parent == Loop::none ? 1 : loops_[loop.parent].depth + 1;
    }
    numberSpans();
}

std::uint32_t Loops::innermost(const Block& block) const noexcept {
    return block.id() < innermost_.size() ? innermost_[block.id()] : Loop::none;
}

// One pass from the inside out counts the loops inside each, one back hands out the spans.
void Loops::numberSpans() {
    std::vector<std::uint32_t> size(loops_.size(), 1);
    for (std::size_t i = loops_.size(); i-- > 0;) {
        if (loops_[i].parent != Loop::none) {
            size[loops_[i].parent] += size[i];
        }
    }
    std::vector<std::uint32_t> next(loops_.size(), 0);
    std::uint32_t nextOutermost = 0;
    spans_.resize(loops_.size());
    for (std::size_t i = 0; i < loops_.size(); ++i) {
        const std::uint32_t parent = loops_[i].parent;
        std::uint32_t& free = parent == Loop::none ? nextOutermost : next[parent];
        spans_[i] = {free, free + size[i]};
        next[i] = free + 1;
        free += size[i];
    }
}

} // namespace QN
