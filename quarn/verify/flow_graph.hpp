// The graph of blocks by number: who follows whom, what can be reached, who dominates whom. It is
// computed from what a survey found, apart from the graph's own dominators, so that each can be
// held against the other.
//
// Dominators by Lengauer and Tarjan with path compression: n log n for any graph, however it is
// nested and in whatever order its edges come.
//
// Owner: the Survey.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace QN::verification {

class FlowGraph {
public:
    static constexpr std::uint32_t none = UINT32_MAX;
    using Successors = std::array<std::uint32_t, 2>; // none for no successor

    /// Block 0 is the entry.
    void build(const std::vector<Successors>& successors);

    [[nodiscard]] bool isReachable(std::uint32_t block) const noexcept {
        return rows_[block].number != none;
    }
    [[nodiscard]] std::uint32_t numReachable() const noexcept {
        return static_cast<std::uint32_t>(order_.size());
    }
    /// none for the entry and for what cannot be reached.
    [[nodiscard]] std::uint32_t immediateDominator(std::uint32_t block) const noexcept {
        return rows_[block].immediate;
    }
    /// Both must be reachable.
    [[nodiscard]] bool dominates(std::uint32_t a, std::uint32_t b) const noexcept {
        return rows_[a].enter <= rows_[b].enter && rows_[b].leave <= rows_[a].leave;
    }

private:
    struct Row {
        std::uint32_t number = none; // in the depth-first walk
        std::uint32_t immediate = none;
        std::uint32_t enter = 0; // interval in a walk of the dominator tree
        std::uint32_t leave = 0;
    };
    void walk(const std::vector<Successors>& successors);
    void findDominators(const std::vector<Successors>& successors);
    void nest();
    std::uint32_t best(std::uint32_t vertex);

    std::vector<Row> rows_;            // by block
    std::vector<std::uint32_t> order_; // blocks by number in the depth-first walk

    // By number in the walk.
    std::vector<std::uint32_t> parent_;
    std::vector<std::uint32_t> semi_;
    std::vector<std::uint32_t> dominator_;
    std::vector<std::uint32_t> ancestor_;
    std::vector<std::uint32_t> label_;
    std::vector<std::uint32_t> stack_;
    std::vector<std::uint32_t> firstIn_; // where the predecessors of each begin in in_
    std::vector<std::uint32_t> in_;
    std::vector<std::uint32_t> bucket_; // heads of lists of vertices by semidominator
    std::vector<std::uint32_t> nextInBucket_;
};

} // namespace QN::verification
