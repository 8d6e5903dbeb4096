// What is on record about one graph before the checks look at it: the entities that its lists lead
// to, in order, with the numbers under which side tables know them, and the flaws that were met on
// the way.
//
// A survey follows every link of the graph with care, once. Checks then work on what it found and
// never walk the graph's own lists.
//
// Owner: one verification; a survey is used for one graph after another to keep its memory. It
// refers to the graph, which must not change meanwhile.
#pragma once

#include "verify/flow_graph.hpp"
#include "verify/memory_map.hpp"
#include "verify/numbering.hpp"
#include "verify/type_table.hpp"

#include <qn/scope.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace QN::verification {

inline constexpr std::uint32_t noIndex = UINT32_MAX;

/// Something in the graph: at most one of block and node is given.
struct Where {
    std::uint32_t block = noIndex; // in Survey::blocks
    std::uint32_t node = noIndex;  // in Survey::nodes
    std::uint32_t line = 0;        // for what is neither

    static Where atBlock(std::size_t index) noexcept {
        return {static_cast<std::uint32_t>(index), noIndex, 0};
    }
    static Where atNode(std::size_t index) noexcept {
        return {noIndex, static_cast<std::uint32_t>(index), 0};
    }
};

/// A flaw that the survey met while it followed links; each kind is reported by one check.
struct Flaw {
    enum class Of : std::uint8_t {
        BlockList,
        NodeList,
        VarList,
        ConstList,
        CalleeList,
        Uses,         // of a value, variable or callee
        DetachedUse,  // of the same
        Predecessors, // uses of a block
    };
    Of of;
    Where where;
    std::string text;
};

class Survey {
public:
    /// Surveys the graph of `function`, if it has one. Names of callees are looked up from `scope`
    /// on; null if nothing is to be looked up.
    void take(const Function& function, const Scope* scope);

    [[nodiscard]] const Function& function() const noexcept { return *function_; }
    [[nodiscard]] const Cfg& cfg() const noexcept { return function_->cfg(); }

    [[nodiscard]] const MemoryMap& memory() const noexcept { return memory_; }
    [[nodiscard]] const std::vector<const Block*>& blocks() const noexcept { return blocks_; }
    /// All nodes in layout order.
    [[nodiscard]] const std::vector<Ref<const Node>>& nodes() const noexcept { return nodes_; }
    [[nodiscard]] const std::vector<const Var*>& vars() const noexcept { return vars_; }
    [[nodiscard]] const std::vector<const Const*>& consts() const noexcept { return consts_; }
    [[nodiscard]] const std::vector<const Callee*>& callees() const noexcept { return callees_; }

    /// The range of a block's nodes in nodes().
    [[nodiscard]] std::uint32_t firstNode(std::size_t block) const noexcept {
        return firstNodes_[block];
    }
    [[nodiscard]] std::uint32_t endNode(std::size_t block) const noexcept {
        return firstNodes_[block + 1];
    }
    /// The last node that the block's list leads to, null if there is none.
    [[nodiscard]] const Node* lastNode(std::size_t block) const noexcept {
        return firstNode(block) == endNode(block) ? nullptr : nodes_[endNode(block) - 1].get();
    }
    /// The block in whose list a node is, both by number.
    [[nodiscard]] std::uint32_t blockOf(std::uint32_t node) const;

    [[nodiscard]] const Numbering<Block>& blockNumbers() const noexcept { return blockNumbers_; }
    [[nodiscard]] const Numbering<Node>& nodeNumbers() const noexcept { return nodeNumbers_; }
    [[nodiscard]] const FlowGraph& flow() const noexcept { return flow_; }

    /// The function that a listed callee's name finds, null if there is none.
    [[nodiscard]] const Function* target(const Callee* callee) const;

    /// Room for whatever a check computes, which the next one overwrites.
    [[nodiscard]] std::vector<std::uint32_t>& scratch() const noexcept { return scratch_; }

    [[nodiscard]] const std::vector<Flaw>& flaws() const noexcept { return flaws_; }

    /// Has the lists of uses of the nodes from number `first` to before `end` followed: flaws are
    /// noted, and uses by listed nodes are counted.
    void followUsesOfNodes(std::uint32_t first, std::uint32_t end);
    /// Whether each operand of each listed node names that node as its user. As long as that has
    /// not been denied, it is taken for granted in following uses.
    [[nodiscard]] bool usersAreRight() const noexcept { return usersAreRight_; }
    void denyUsers() noexcept { usersAreRight_ = false; }
    /// To be called when all is done and users turned out not to be right: follows all uses once
    /// more without taking it for granted. `batches` says where each call of followUsesOfNodes()
    /// ended.
    void followUsesAgain(const std::vector<std::uint32_t>& batches);
    /// Counts uses that operands of listed nodes have; what both counts together say is whether
    /// every operand is in a list.
    void countLinked(std::size_t operands) noexcept { linked_ += operands; }
    [[nodiscard]] bool allOperandsAreListed() const noexcept { return linked_ == followed_; }

private:
    /// All but the first use wait for finishUses().
    void followUses(const Entity& entity, Where where) {
        const Ref<Operand> first = entity.firstUseRef();
        if (!first) {
            return;
        }
        if (!isSoundUse(first, &entity, nullptr)) [[unlikely]] {
            followOddUses(entity, where, first.get(), nullptr);
            return;
        }
        ++followed_;
        if (const Ref<Operand> second = first->nextUseRef(); second) {
            __builtin_prefetch(&*second);
            waiting_.push_back({&entity, second, first, where});
        }
    }
    void followUsesOfOthers();
    void finishUses();

    /// Whether `use`, come upon behind `previous` in the list of `entity`, is all that it should
    /// be. Such a use has not been met before: were it met twice, it would lead back to two places.
    [[nodiscard]] bool isSoundUse(Ref<Operand> use, Ref<const Entity> entity,
                                  Ref<Operand> previous) const noexcept {
        return memory_.isListedOperand(use) && use->previousUseRef() == previous &&
               use->valueRef().bits() == entity.bits();
    }
    /// Goes on from a use that is not sound.
    void followOddUses(const Entity& entity, Where where, const Operand* use,
                       const Operand* previous);

    void walkBlocks();
    void walkNodes(std::uint32_t block);
    /// A list of uses that is being followed: the next use, and the one before it.
    struct UseWalk {
        Ref<const Entity> entity;
        Ref<Operand> use;
        Ref<Operand> previous;
        Where where;
    };

    template <typename T>
    void walkList(const T* first, const T* last, EntityKind kind, Flaw::Of of,
                  std::vector<const T*>& found);
    void buildFlow();
    void lookUpCallees(const Scope* scope);
    void note(Flaw::Of of, Where where, std::string text) {
        flaws_.push_back({of, where, std::move(text)});
    }

    const Function* function_ = nullptr;
    MemoryMap memory_;
    std::vector<const Block*> blocks_;
    std::vector<Ref<const Node>> nodes_;
    std::vector<const Var*> vars_;
    std::vector<const Const*> consts_;
    std::vector<const Callee*> callees_;
    std::vector<std::uint32_t> firstNodes_; // one more than blocks
    Numbering<Block> blockNumbers_;
    Numbering<Node> nodeNumbers_;
    FlowGraph flow_;
    std::vector<std::pair<const Callee*, const Function*>> targets_; // by address
    mutable std::vector<std::uint32_t> scratch_;
    std::vector<FlowGraph::Successors> successors_;
    std::vector<UseWalk> waiting_;
    std::vector<std::uint32_t> used_;
    std::vector<Flaw> flaws_;
    std::size_t linked_ = 0;
    std::size_t followed_ = 0;
    std::size_t flawsBeforeUses_ = 0;
    bool usersAreRight_ = true;
};

/// "variable x (id 3)" and so on, for what is listed.
[[nodiscard]] std::string describe(const Survey& survey, const Entity& entity);

/// The text of a name if all of it lies in the graph's pool, else an empty one.
[[nodiscard]] std::string_view safeName(const MemoryMap& memory, std::string_view name) noexcept;

} // namespace QN::verification
