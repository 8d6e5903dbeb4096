// Changes of a function's graph. Every function here leaves lists, edges and counts consistent.
#include <qn/cfg.hpp>

#include <bit>
#include <cassert>

namespace QN {

namespace detail {
std::uint32_t observedKinds = 0;
void (*entityMade)(Cfg* cfg, Entity& entity) = nullptr;
void (*nodeDerived)(Cfg& cfg, Node& from, Node& to) = nullptr;
void (*cfgGone)(Cfg& cfg) = nullptr;
} // namespace detail

double Const::asDouble() const noexcept {
    return std::bit_cast<double>(bits_);
}

const Type* typeOf(const Entity* e) noexcept {
    switch (e->kind()) {
    case EntityKind::Node:
        return static_cast<const Node*>(e)->type();
    case EntityKind::Const:
        return static_cast<const Const*>(e)->type();
    case EntityKind::Var:
        return static_cast<const Var*>(e)->type();
    default:
        return nullptr;
    }
}

Cfg::Cfg(Function& function) : function_(&function), pool_(PoolKind::Graph) {}
Cfg::~Cfg() {
    if (detail::cfgGone != nullptr) [[unlikely]] {
        detail::cfgGone(*this);
    }
}

// Blocks

Block* Cfg::addBlock(Block* after) {
    Block* const block = pool_.make<Block>(EntityKind::Block, *this, nextBlockId_++);
    linkBlock(block, after != nullptr ? after : lastBlock_.get());
    edgesChanged();
    return block;
}

Block* Cfg::addBlockAs(std::uint32_t id) {
    const std::uint32_t next = nextBlockId_ > id ? nextBlockId_ : id + 1;
    nextBlockId_ = id;
    Block* const block = addBlock();
    nextBlockId_ = next;
    return block;
}

void Cfg::linkBlock(Block* block, Block* after) noexcept {
    block->previous_ = after;
    block->next_ = after != nullptr ? after->next_ : firstBlock_;
    (block->next_ ? block->next_->previous_ : lastBlock_) = block;
    (after != nullptr ? after->next_ : firstBlock_) = block;
    ++numBlocks_;
}

void Cfg::unlinkBlock(Block* block) noexcept {
    (block->next_ ? block->next_->previous_ : lastBlock_) = block->previous_;
    (block->previous_ ? block->previous_->next_ : firstBlock_) = block->next_;
    --numBlocks_;
}

void Cfg::removeBlock(Block* block) {
    assert(!block->hasUses());
    // Later nodes use earlier ones, so the last goes first.
    while (Node* const node = block->last()) {
        remove(node);
    }
    unlinkBlock(block);
    pool_.release(block, sizeof(Block));
    edgesChanged();
}

void Cfg::moveBlock(Block* block, Block* after) {
    if (block == after) {
        return;
    }
    unlinkBlock(block);
    linkBlock(block, after);
    edgesChanged();
}

// Variables

Var* Cfg::addVar(VarKind kind, const Type* type, std::string_view name, std::uint32_t line) {
    Var* const var =
        pool_.make<Var>(EntityKind::Var, kind, type, pool_.copy(name), nextVarId_++, line);
    if (kind == VarKind::Param) {
        linkVar(var, lastParam_.get());
        lastParam_ = var;
        ++numParams_;
    } else {
        linkVar(var, lastVar_.get());
    }
    detail::noteMade(this, *var);
    return var;
}

void Cfg::linkVar(Var* var, Var* after) noexcept {
    var->previous_ = after;
    var->next_ = after != nullptr ? after->next_ : firstVar_;
    (var->next_ ? var->next_->previous_ : lastVar_) = var;
    (after != nullptr ? after->next_ : firstVar_) = var;
    ++numVars_;
}

void Cfg::removeVar(Var* var) {
    assert(!var->hasUses() && var->varKind() != VarKind::Param);
    (var->next_ ? var->next_->previous_ : lastVar_) = var->previous_;
    (var->previous_ ? var->previous_->next_ : firstVar_) = var->next_;
    --numVars_;
    pool_.release(var, sizeof(Var));
}

void Cfg::reorderLocals(std::span<Var* const> order) {
    assert(order.size() == numVars_ - numParams_);
    Ref<Var> last = lastParam_;
    for (Var* const var : order) {
        var->previous_ = last;
        (last ? last->next_ : firstVar_) = var;
        last = var;
    }
    (last ? last->next_ : firstVar_) = nullptr;
    lastVar_ = last;
}

// Constants and callees

namespace {

std::size_t hashOf(const Type* type, std::uint64_t bits) noexcept {
    // Most doubles have nothing in their low bits, which a product would carry no further down.
    bits ^= bits >> 32;
    std::uint64_t hash = (bits ^ Ref<const Type>(type).bits()) * 0x9E3779B97F4A7C15;
    hash ^= hash >> 32;
    return static_cast<std::size_t>(hash);
}

} // namespace

Const* Cfg::constant(const Type* type, std::uint64_t bits) {
    assert(type->isScalar());
    if (constTable_.size() < 2 * (numConsts_ + 1)) {
        growConstants();
    }
    const std::size_t mask = constTable_.size() - 1;
    std::size_t slot = hashOf(type, bits) & mask;
    for (; constTable_[slot]; slot = (slot + 1) & mask) {
        Const* const old = constTable_[slot].get();
        if (old->bits_ == bits && old->type() == type) {
            return old;
        }
    }
    Const* const made =
        pool_.make<Const>(EntityKind::Const, type, bits, static_cast<std::uint32_t>(numConsts_++));
    (lastConst_ ? lastConst_->next_ : firstConst_) = made;
    lastConst_ = made;
    constTable_[slot] = made;
    detail::noteMade(this, *made);
    return made;
}

void Cfg::growConstants() {
    std::vector<Ref<Const>> larger(constTable_.empty() ? 16 : 2 * constTable_.size());
    const std::size_t mask = larger.size() - 1;
    for (const Const& constant : constants()) {
        std::size_t slot = hashOf(constant.type(), constant.bits()) & mask;
        while (larger[slot]) {
            slot = (slot + 1) & mask;
        }
        larger[slot] = &constant;
    }
    constTable_.swap(larger);
}

Const* Cfg::constantDouble(double value) {
    return constant(Type::f64(), std::bit_cast<std::uint64_t>(value));
}

Const* Cfg::constantLogical(bool value) {
    return constant(Type::logical(), value ? 1 : 0);
}

Const* Cfg::constantInt(const Type* type, std::int64_t value) {
    return constant(type, static_cast<std::uint64_t>(value));
}

Callee* Cfg::callee(std::string_view name) {
    // A function calls few others.
    for (Callee& old : callees()) {
        if (old.name() == name) {
            return &old;
        }
    }
    Callee* const made = pool_.make<Callee>(EntityKind::Callee, pool_.copy(name));
    (lastCallee_ ? lastCallee_->next_ : firstCallee_) = made;
    lastCallee_ = made;
    return made;
}

// Nodes

Node* Cfg::makeNodeAs(std::uint32_t id, Op op, Mode mode, const Type* type,
                      std::span<Entity* const> operands, std::uint32_t line) {
    assert(operands.size() <= Node::maxOperands);
    void* const memory =
        pool_.allocate(sizeof(Node) + operands.size() * sizeof(Operand), EntityKind::Node);
    Node* const node = ::new (memory) Node(op, mode, type, operands.size(), id, line);
    nextNodeId_ = nextNodeId_ > id ? nextNodeId_ : id + 1;
    Operand* at = node->firstOperand();
    for (Entity* const value : operands) {
        ::new (static_cast<void*>(at)) Operand(node);
        if (value != nullptr) {
            at->link(value);
        }
        ++at;
    }
    detail::noteMade(this, *node);
    return node;
}

void Cfg::linkNode(Block* block, Node* previous, Node* next, Node* node) noexcept {
    assert(node->block() == nullptr);
    node->block_ = block;
    node->previous_ = previous;
    node->next_ = next;
    (previous != nullptr ? previous->next_ : block->first_) = node;
    (next != nullptr ? next->previous_ : block->last_) = node;
    ++block->numNodes_;
    ++numNodes_;
    if (node->isTerminator()) {
        edgesChanged();
    }
}

void Cfg::append(Block* block, Node* node) noexcept {
    linkNode(block, block->last(), nullptr, node);
}

void Cfg::insertBefore(Node* at, Node* node) noexcept {
    linkNode(at->block(), at->previous(), at, node);
}

void Cfg::insertAfter(Node* at, Node* node) noexcept {
    linkNode(at->block(), at, at->next(), node);
}

void Cfg::unlink(Node* node) noexcept {
    Block* const block = node->block();
    if (block == nullptr) {
        return;
    }
    (node->previous_ ? node->previous_->next_ : block->first_) = node->next_;
    (node->next_ ? node->next_->previous_ : block->last_) = node->previous_;
    node->block_ = nullptr;
    node->next_ = nullptr;
    node->previous_ = nullptr;
    --block->numNodes_;
    --numNodes_;
    if (node->isTerminator()) {
        edgesChanged();
    }
}

void Cfg::remove(Node* node) noexcept {
    assert(!node->hasUses());
    unlink(node);
    for (Operand& operand : node->operands()) {
        operand.unlink();
    }
    pool_.release(node, node->bytes());
}

void Cfg::replaceUses(Entity* from, Entity* to) noexcept {
    assert(from != to);
    if (detail::nodeDerived != nullptr) [[unlikely]] {
        if (Node* const old = asNode(from), * const replacement = asNode(to);
            old != nullptr && replacement != nullptr) {
            detail::nodeDerived(*this, *old, *replacement);
        }
    }
    while (Operand* const use = from->firstUse()) {
        use->set(to);
    }
    if (from->kind() == EntityKind::Block) {
        edgesChanged();
    }
}

void Cfg::setSuccessor(Node* terminator, std::size_t index, Block* target) noexcept {
    terminator->setOperand(terminator->op() == Op::Jump ? 0 : 1 + index, target);
    edgesChanged();
}

const Dominators& Cfg::dominators() const {
    if (!dominatorsAreValid_) {
        dominators_ = Dominators(*this);
        dominatorsAreValid_ = true;
    }
    return dominators_;
}

} // namespace QN
