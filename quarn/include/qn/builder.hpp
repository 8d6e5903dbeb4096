// Writes nodes at the end of a block, or before a node, with the types that the operation implies.
//
// A builder holds a place in a graph, owns nothing, and is cheap to make and copy. Operand types
// are the caller's business here; the verifier checks them.
#pragma once

#include <qn/cfg.hpp>

#include <initializer_list>

namespace QN {

class Builder {
public:
    explicit Builder(Cfg& cfg) noexcept : cfg_(&cfg), block_(cfg.lastBlock()) {}
    Builder(Cfg& cfg, Block* end) noexcept : cfg_(&cfg), block_(end) {}
    /// Writes before `at`, with its line.
    Builder(Cfg& cfg, Node& at) noexcept
        : cfg_(&cfg), block_(at.block()), at_(&at), line_(at.line()) {}

    [[nodiscard]] Cfg& cfg() const noexcept { return *cfg_; }
    [[nodiscard]] Block* block() const noexcept { return block_; }
    void atEndOf(Block* block) noexcept {
        block_ = block;
        at_ = nullptr;
    }
    /// The line that new nodes get.
    void setLine(std::uint32_t line) noexcept { line_ = line; }
    /// Whether the block still lacks its terminator.
    [[nodiscard]] bool isOpen() const noexcept { return block_->terminator() == nullptr; }

    Node* node(Op op, const Type* type, std::span<Entity* const> operands, Mode mode = {}) {
        Node* const made = cfg_->makeNode(op, mode, type, operands, line_);
        if (at_ != nullptr) {
            cfg_->insertBefore(at_, made);
        } else {
            cfg_->append(block_, made);
        }
        return made;
    }
    Node* node(Op op, const Type* type, std::initializer_list<Entity*> operands, Mode mode = {}) {
        return node(op, type, std::span<Entity* const>(operands.begin(), operands.size()), mode);
    }

    Node* load(Var* var) { return node(Op::Load, var->type(), {var}); }
    Node* store(Var* var, Entity* value) { return node(Op::Store, Type::voidType(), {var, value}); }
    Node* addressOf(Var* var) { return node(Op::AddrOf, Type::pointer(var->type()), {var}); }
    /// `pointer` points to a scalar or an array.
    Node* loadThrough(Entity* pointer) {
        return node(Op::LoadP, typeOf(pointer)->element(), {pointer});
    }
    Node* storeThrough(Entity* pointer, Entity* value) {
        return node(Op::StoreP, Type::voidType(), {pointer, value});
    }

    /// Any operation whose result has the type of its first operand: arithmetic, min, max, the
    /// functions of doubles, and, or, xor, not.
    Node* unary(Op op, Entity* x, Mode mode = {}) { return node(op, typeOf(x), {x}, mode); }
    Node* binary(Op op, Entity* x, Entity* y, Mode mode = {}) {
        return node(op, typeOf(x), {x, y}, mode);
    }
    Node* compare(Op op, Entity* x, Entity* y) { return node(op, Type::logical(), {x, y}); }
    Node* select(Entity* condition, Entity* x, Entity* y) {
        return node(Op::Select, typeOf(x), {condition, x, y});
    }
    Node* convert(Entity* x, const Type* to, Mode mode = {}) {
        return node(Op::Convert, to, {x}, mode);
    }
    Node* toIndex(Entity* x) { return node(Op::ToIndex, Type::i64(), {x}); }

    Node* newArray(ScalarKind element, Entity* rows, Entity* cols) {
        return node(Op::NewArray, Type::array(element), {rows, cols});
    }
    /// rows, cols or numel of an aggregate variable or of what a pointer points to.
    Node* sizeOf(Op op, Entity* aggregate) { return node(op, Type::i64(), {aggregate}); }
    Node* loadElement(Entity* aggregate, Entity* index) {
        return node(Op::LdElem, elementOf(aggregate), {aggregate, index});
    }
    Node* loadElement(Entity* aggregate, Entity* row, Entity* col) {
        return node(Op::LdElem2, elementOf(aggregate), {aggregate, row, col});
    }
    Node* storeElement(Entity* aggregate, Entity* index, Entity* value) {
        return node(Op::StElem, Type::voidType(), {aggregate, index, value});
    }
    Node* storeElement(Entity* aggregate, Entity* row, Entity* col, Entity* value) {
        return node(Op::StElem2, Type::voidType(), {aggregate, row, col, value});
    }
    Node* resize(Entity* aggregate, Entity* rows, Entity* cols) {
        return node(Op::Resize, Type::voidType(), {aggregate, rows, cols});
    }

    /// A call with a result of type `result`, which may be void.
    Node* call(std::string_view name, const Type* result, std::span<Entity* const> arguments);

    Node* checkBounds(Entity* index, Entity* limit) {
        return node(Op::ChkBounds, Type::voidType(), {index, limit});
    }

    // Terminators.
    Node* jump(Block* target) { return node(Op::Jump, Type::voidType(), {target}); }
    Node* branch(Entity* condition, Block* ifTrue, Block* ifFalse) {
        return node(Op::Br, Type::voidType(), {condition, ifTrue, ifFalse});
    }
    Node* ret() { return node(Op::Ret, Type::voidType(), std::span<Entity* const>()); }
    Node* ret(Entity* value) { return node(Op::Ret, Type::voidType(), {value}); }
    Node* trap(std::int64_t code) {
        return node(Op::Trap, Type::voidType(), {cfg_->constantInt(Type::i64(), code)});
    }

private:
    /// The element type of an array variable or of the array that a pointer points to.
    static const Type* elementOf(const Entity* aggregate) noexcept {
        const Type* const type = typeOf(aggregate);
        return (type->isPointer() ? type->element() : type)->element();
    }

    Cfg* cfg_;
    Block* block_;
    Node* at_ = nullptr;
    std::uint32_t line_ = 0;
};

} // namespace QN
