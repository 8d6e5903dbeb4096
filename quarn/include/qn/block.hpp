// A basic block: a list of nodes of which the last, and only the last, is a terminator. Its uses
// are the operands of terminators that lead to it.
//
// Owner: the graph pool of the function.
#pragma once

#include <qn/node.hpp>

namespace QN {

class Block : public Entity {
public:
    /// Unique in the function; compaction renumbers.
    [[nodiscard]] std::uint32_t id() const noexcept { return id_; }
    [[nodiscard]] Node* first() const noexcept { return first_.get(); }
    [[nodiscard]] Node* last() const noexcept { return last_.get(); }
    [[nodiscard]] bool empty() const noexcept { return !first_; }
    [[nodiscard]] std::uint32_t numNodes() const noexcept { return numNodes_; }
    /// The last node if it is a terminator, else null: the block is still being built.
    [[nodiscard]] Node* terminator() const noexcept {
        Node* const node = last_.get();
        return node != nullptr && node->isTerminator() ? node : nullptr;
    }
    /// The nodes as a range of Node&.
    [[nodiscard]] auto nodes() const noexcept { return Chain<Node, &Node::next>(first()); }

    /// Blocks in the order of the layout, the entry first.
    [[nodiscard]] Block* next() const noexcept { return next_.get(); }
    [[nodiscard]] Block* previous() const noexcept { return previous_.get(); }

    /// The number of blocks that the terminator leads to: 0, 1 or 2.
    [[nodiscard]] std::size_t numSuccessors() const noexcept;
    [[nodiscard]] Block* successor(std::size_t index) const noexcept;
    /// Whether no terminator leads here.
    [[nodiscard]] bool hasPredecessors() const noexcept { return hasUses(); }
    /// Calls `visit(Block&)` for the block of each terminator operand that leads here: twice for a
    /// branch whose both sides do.
    template <typename Visitor>
    void forEachPredecessor(Visitor&& visit) const {
        for (Operand* use = firstUse(); use != nullptr;) {
            Operand* const following = use->nextUse();
            if (Block* const block = use->user()->block(); block != nullptr) {
                visit(*block);
            }
            use = following;
        }
    }
    /// The block before this one if there is just one edge to here, else null.
    [[nodiscard]] Block* singlePredecessor() const noexcept {
        return hasOneUse() ? firstUse()->user()->block() : nullptr;
    }

    [[nodiscard]] Cfg& cfg() const noexcept { return *cfg_; }

private:
    friend class Cfg;
    friend class Pool;
    Block(Cfg& cfg, std::uint32_t id) noexcept : Entity(EntityKind::Block), id_(id), cfg_(&cfg) {}

    std::uint32_t id_;
    std::uint32_t numNodes_ = 0;
    Cfg* cfg_;
    Ref<Node> first_;
    Ref<Node> last_;
    Ref<Block> next_;
    Ref<Block> previous_;
};

inline Block* asBlock(Entity* e) noexcept {
    return e != nullptr && e->kind() == EntityKind::Block ? static_cast<Block*>(e) : nullptr;
}

inline std::size_t Block::numSuccessors() const noexcept {
    const Node* const end = terminator();
    if (end == nullptr) {
        return 0;
    }
    return end->op() == Op::Jump ? 1 : end->op() == Op::Br ? 2 : 0;
}

inline Block* Block::successor(std::size_t index) const noexcept {
    const Node* const end = terminator();
    return asBlock(end->operand(end->op() == Op::Jump ? 0 : 1 + index));
}

} // namespace QN
