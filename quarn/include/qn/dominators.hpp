// The order of a function's blocks and which block dominates which.
//
// A value like any other: it describes the graph at the moment at which it was computed and refers
// to its blocks. See Cfg::dominators() for the one that is kept up to date.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace QN {

class Block;
class Cfg;

class Dominators {
public:
    /// Empty: nothing is reachable.
    Dominators() = default;
    /// Linear in blocks and edges for the graphs that structured programs give.
    explicit Dominators(const Cfg& cfg);

    /// The reachable blocks in reverse postorder; the entry is first, and every block comes behind
    /// its dominators.
    [[nodiscard]] std::span<Block* const> order() const noexcept { return order_; }
    [[nodiscard]] bool isReachable(const Block& block) const noexcept;
    /// Place in order(); only for a reachable block.
    [[nodiscard]] std::uint32_t indexOf(const Block& block) const noexcept;
    /// The immediate dominator; null for the entry and for unreachable blocks.
    [[nodiscard]] Block* immediate(const Block& block) const noexcept;
    /// Whether every way to `b` passes through `a`; a block dominates itself. Constant time. False
    /// if either is unreachable.
    [[nodiscard]] bool dominates(const Block& a, const Block& b) const noexcept;

private:
    static constexpr std::uint32_t none = UINT32_MAX;
    struct Row {
        std::uint32_t index = none;     // in order_
        std::uint32_t immediate = none; // in order_
        std::uint32_t enter = 0;        // walk of the dominator tree: a dominates b if b's interval
        std::uint32_t leave = 0;        // lies inside a's
    };
    std::vector<Block*> order_;
    std::vector<Row> rows_; // by block id
};

/// Gives the nodes of a block numbers that grow from the first to the last, for questions about
/// which of two comes first. Holds until nodes are put in or moved.
class NodeOrder {
public:
    explicit NodeOrder(const Cfg& cfg);
    [[nodiscard]] std::uint32_t operator[](std::uint32_t nodeId) const noexcept {
        return numbers_[nodeId];
    }

private:
    std::vector<std::uint32_t> numbers_;
};

} // namespace QN
