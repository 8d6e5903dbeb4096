// The natural loops of a function and how they lie in each other.
//
// A value like any other: it describes the graph at the moment at which it was computed. Ways of
// control flow that enter a circle at several places are no natural loops and are not listed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace QN {

class Block;
class Cfg;

struct Loop {
    static constexpr std::uint32_t none = UINT32_MAX;
    /// Dominates all blocks of the loop.
    Block* header = nullptr;
    /// The loop directly around this one, none if there is none.
    std::uint32_t parent = none;
    /// 1 for an outermost loop.
    std::uint32_t depth = 0;
    /// The blocks of the loop that are in no loop inside it, the header first.
    std::vector<Block*> ownBlocks;
};

class Loops {
public:
    /// Close to linear in blocks and edges.
    explicit Loops(const Cfg& cfg);

    /// All loops; one comes behind the one around it.
    [[nodiscard]] std::span<const Loop> all() const noexcept { return loops_; }
    /// The innermost loop of a block, Loop::none if there is none or the block came later.
    [[nodiscard]] std::uint32_t innermost(const Block& block) const noexcept;
    /// Whether the loop `inner` (or none) lies in `outer` or is it; `outer` is a loop.
    [[nodiscard]] bool isInside(std::uint32_t inner, std::uint32_t outer) const noexcept {
        return inner != Loop::none && spans_[outer].first <= spans_[inner].first &&
               spans_[inner].second <= spans_[outer].second;
    }

private:
    void numberSpans();

    std::vector<Loop> loops_;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> spans_; // a loop's holds those inside it
    std::vector<std::uint32_t> innermost_;                       // by block id
};

} // namespace QN
