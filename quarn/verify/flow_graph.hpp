// The graph of blocks by number: who follows whom, what can be reached, who dominates whom. It is
// computed from what a survey found, apart from the graph's own dominators, so that each can be
// held against the other.
//
// In most graphs each edge leads forward in reverse postorder, or back to a dominator. Then one
// pass in that order gives the tree of dominators: a block hangs where the ways to it part. Graphs
// with other edges are left to Lengauer and Tarjan's algorithm with path compression. Both are n
// log n for any graph, however it is nested and in whatever order its edges come.
//
// Ways up the tree go by jumps to far ancestors, after Myers, "An applicative random-access stack":
// the depth to which a block's jump leads is a function of its own depth, and few jumps lead
// anywhere.
//
// Owner: the Survey, the QuickLook.
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
        return rows_[block].depth != 0;
    }
    [[nodiscard]] std::uint32_t numReachable() const noexcept { return numReachable_; }
    /// none for the entry and for what cannot be reached.
    [[nodiscard]] std::uint32_t immediateDominator(std::uint32_t block) const noexcept {
        return rows_[block].immediate;
    }
    /// Both must be reachable. Takes time that grows with the logarithm of the depth of `b`.
    [[nodiscard]] bool dominates(std::uint32_t a, std::uint32_t b) const noexcept {
        return ancestorAt(rows_[a].depth, b) == a;
    }

private:
    struct Row {
        std::uint32_t immediate = none;
        std::uint32_t depth = 0;                                 // 1 for the entry
        std::uint32_t jump = 0;                                  // an ancestor, or the entry itself
        enum : std::uint32_t { New, Entered, Left } state = New; // in the walk
    };

    void walkInPostorder(const std::vector<Successors>& successors);
    bool takeInOrder(const std::vector<Successors>& successors);
    void hang(std::uint32_t block, std::uint32_t under) noexcept;
    [[nodiscard]] std::uint32_t ancestorAt(std::uint32_t depth, std::uint32_t block) const noexcept;
    [[nodiscard]] std::uint32_t common(std::uint32_t a, std::uint32_t b) const noexcept;

    void takeInAnyOrder(const std::vector<Successors>& successors);
    void walk(const std::vector<Successors>& successors);
    void findDominators(const std::vector<Successors>& successors);
    std::uint32_t best(std::uint32_t vertex);

    std::vector<Row> rows_; // by block
    std::uint32_t numReachable_ = 0;
    std::vector<std::uint32_t> order_; // blocks in postorder, or by number in the other walk
    std::vector<std::uint32_t> stack_;

    // Of the second algorithm. Vertices are the numbers of blocks in a depth-first walk.
    std::vector<std::uint32_t> number_; // by block, none if it was not met
    std::vector<std::uint32_t> parent_; // by number, as all that follows
    std::vector<std::uint32_t> semi_;
    std::vector<std::uint32_t> dominator_;
    std::vector<std::uint32_t> ancestor_;
    std::vector<std::uint32_t> label_;
    std::vector<std::uint32_t> firstIn_; // where the predecessors of each begin in in_
    std::vector<std::uint32_t> in_;
    std::vector<std::uint32_t> bucket_; // heads of lists of vertices by semidominator
    std::vector<std::uint32_t> nextInBucket_;
};

} // namespace QN::verification
