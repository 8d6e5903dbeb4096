// The graph of one function: its blocks, nodes, variables and constants, and the pool that they
// live in.
//
// Owner: a Function owns its Cfg, the Cfg owns its pool, and frees it whole. All changes of the
// graph go through here (or through Operand::set), so that lists, edges and counts are right at
// every moment.
#pragma once

#include <qn/block.hpp>
#include <qn/dominators.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace QN {

class Cfg {
public:
    explicit Cfg(Function& function);
    Cfg(const Cfg&) = delete;
    Cfg& operator=(const Cfg&) = delete;
    ~Cfg();

    [[nodiscard]] Function& function() const noexcept { return *function_; }
    [[nodiscard]] Pool& pool() noexcept { return pool_; }
    [[nodiscard]] const Pool& pool() const noexcept { return pool_; }

    // Blocks -------------------------------------------------------------------------------------

    /// The block at which the function starts, the first in the layout; null if there is none yet.
    [[nodiscard]] Block* entry() const noexcept { return firstBlock_.get(); }
    [[nodiscard]] Block* lastBlock() const noexcept { return lastBlock_.get(); }
    /// All blocks in layout order, as a range of Block&.
    [[nodiscard]] auto blocks() const noexcept { return Chain<Block, &Block::next>(entry()); }
    [[nodiscard]] std::size_t numBlocks() const noexcept { return numBlocks_; }
    /// One more than the largest block id; the size of a side table by block id.
    [[nodiscard]] std::uint32_t blockIdLimit() const noexcept { return nextBlockId_; }

    /// A new empty block at the end of the layout, or behind `after`.
    Block* addBlock(Block* after = nullptr);
    /// The same with a chosen id that no block has; for parsers.
    Block* addBlockAs(std::uint32_t id);
    /// Removes a block to which no terminator leads, with its nodes. Their values must not be used
    /// elsewhere.
    void removeBlock(Block* block);
    /// Moves `block` in the layout to behind `after` (null: to the front, where it becomes the
    /// entry).
    void moveBlock(Block* block, Block* after);

    // Variables ----------------------------------------------------------------------------------

    /// All variables in the order of declaration, parameters first, as a range of Var&.
    [[nodiscard]] auto vars() const noexcept { return Chain<Var, &Var::next>(firstVar_.get()); }
    [[nodiscard]] Var* firstVar() const noexcept { return firstVar_.get(); }
    [[nodiscard]] Var* lastVar() const noexcept { return lastVar_.get(); }
    [[nodiscard]] Var* lastParam() const noexcept { return lastParam_.get(); }
    [[nodiscard]] std::size_t numVars() const noexcept { return numVars_; }
    [[nodiscard]] std::uint32_t varIdLimit() const noexcept { return nextVarId_; }
    [[nodiscard]] std::size_t numParams() const noexcept { return numParams_; }

    /// A new variable, declared last; a parameter is declared behind the other parameters.
    /// Parameters are added with Function::addParam(), which also notes their types.
    Var* addVar(VarKind kind, const Type* type, std::string_view name, std::uint32_t line = 0);
    /// Removes a variable that has no uses and is no parameter.
    void removeVar(Var* var);
    /// Puts the variables that are no parameters into the order given, which names each once.
    void reorderLocals(std::span<Var* const> order);

    // Constants and callees ----------------------------------------------------------------------

    /// The constant of scalar type `type` with these bits (see Const); made if it is new. Integer
    /// bits must be extended as the type says.
    Const* constant(const Type* type, std::uint64_t bits);
    Const* constantDouble(double value);
    Const* constantLogical(bool value);
    /// An integer constant; `value` must be inside the range of `type`.
    Const* constantInt(const Type* type, std::int64_t value);
    /// All constants in the order in which they were made, used or not.
    [[nodiscard]] auto constants() const noexcept {
        return Chain<Const, &Const::next>(firstConst_.get());
    }
    [[nodiscard]] std::size_t numConstants() const noexcept { return numConsts_; }
    [[nodiscard]] Const* lastConstant() const noexcept { return lastConst_.get(); }

    /// The callee of that name; made if it is new.
    Callee* callee(std::string_view name);
    [[nodiscard]] auto callees() const noexcept {
        return Chain<Callee, &Callee::next>(firstCallee_.get());
    }
    [[nodiscard]] Callee* lastCallee() const noexcept { return lastCallee_.get(); }

    // Nodes --------------------------------------------------------------------------------------

    /// A new node that is in no block yet. At most Node::maxOperands operands, each from this
    /// graph.
    Node* makeNode(Op op, Mode mode, const Type* type, std::span<Entity* const> operands,
                   std::uint32_t line = 0) {
        return makeNodeAs(nextNodeId_, op, mode, type, operands, line);
    }
    /// The same with a chosen id that no node has; for parsers.
    Node* makeNodeAs(std::uint32_t id, Op op, Mode mode, const Type* type,
                     std::span<Entity* const> operands, std::uint32_t line = 0);

    /// Put a node that is in no block at the end of `block`, or before or behind the node `at`.
    void append(Block* block, Node* node) noexcept;
    void insertBefore(Node* at, Node* node) noexcept;
    void insertAfter(Node* at, Node* node) noexcept;
    /// Takes a node out of its block; it stays alive and can be put elsewhere.
    void unlink(Node* node) noexcept;
    /// Removes a node whose value has no uses, for good.
    void remove(Node* node) noexcept;
    /// Makes every use of `from` a use of `to`; linear in the number of uses. Stack-trace tags
    /// follow.
    void replaceUses(Entity* from, Entity* to) noexcept;
    /// Makes `target` the successor number `index` of a terminator.
    void setSuccessor(Node* terminator, std::size_t index, Block* target) noexcept;

    /// Number of nodes that are in blocks.
    [[nodiscard]] std::size_t numNodes() const noexcept { return numNodes_; }
    /// One more than the largest node id; the size of a side table by node id.
    [[nodiscard]] std::uint32_t nodeIdLimit() const noexcept { return nextNodeId_; }

    // Analyses -----------------------------------------------------------------------------------

    /// Order and dominance of the blocks as they are now; computed again only after a change of
    /// edges. The reference holds until the next change.
    [[nodiscard]] const Dominators& dominators() const;
    /// The dominators if they are kept at the moment, else null; nothing is computed.
    [[nodiscard]] const Dominators* keptDominators() const noexcept {
        return dominatorsAreValid_ ? &dominators_ : nullptr;
    }
    /// To be called after changing block operands through Operand::set; all else here does so
    /// itself.
    void edgesChanged() noexcept { dominatorsAreValid_ = false; }

private:
    void linkBlock(Block* block, Block* after) noexcept;
    void unlinkBlock(Block* block) noexcept;
    void linkVar(Var* var, Var* after) noexcept;
    void growConstants();
    void linkNode(Block* block, Node* previous, Node* next, Node* node) noexcept;

    Function* function_;
    Pool pool_;
    Ref<Block> firstBlock_;
    Ref<Block> lastBlock_;
    Ref<Var> firstVar_;
    Ref<Var> lastVar_;
    Ref<Var> lastParam_;
    Ref<Const> firstConst_;
    Ref<Const> lastConst_;
    Ref<Callee> firstCallee_;
    Ref<Callee> lastCallee_;
    std::uint32_t nextBlockId_ = 0;
    std::uint32_t nextVarId_ = 0;
    std::uint32_t nextNodeId_ = 1;
    std::size_t numBlocks_ = 0;
    std::size_t numVars_ = 0;
    std::size_t numParams_ = 0;
    std::size_t numNodes_ = 0;
    std::size_t numConsts_ = 0;
    std::vector<Ref<Const>> constTable_; // open addressing, a power of two of slots
    mutable bool dominatorsAreValid_ = false;
    mutable Dominators dominators_;
};

namespace detail {

/// Bit N: entities of kind N are reported to entityMade. Off at start.
extern std::uint32_t observedKinds;
/// Called for each entity of an observed kind after it has been made; `cfg` is null for a type.
extern void (*entityMade)(Cfg* cfg, Entity& entity);
/// Called by replaceUses() from one node to another while it is not null.
extern void (*nodeDerived)(Cfg& cfg, Node& from, Node& to);
/// Called by the destructor of each graph while it is not null; the entities are still there.
extern void (*cfgGone)(Cfg& cfg);

inline void noteMade(Cfg* cfg, Entity& entity) {
    if ((observedKinds >> static_cast<unsigned>(entity.kind())) & 1U) [[unlikely]] {
        entityMade(cfg, entity);
    }
}

} // namespace detail

} // namespace QN
