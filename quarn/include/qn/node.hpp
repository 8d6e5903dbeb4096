// Operands that are not blocks, and the node itself.
//
// Node: one operation in a block, 32 bytes, with its operands of 16 bytes each behind it. A node
// that gives a value is that value: other nodes refer to it directly, in its own block or in any
// block that its own dominates. State that changes lives in variables, which are read and written
// by explicit nodes; so there are no phi nodes and no block parameters.
//
// Owner: the graph pool of the function. Nodes are made, moved and removed through Cfg and Builder,
// which keep the lists and edges right.
#pragma once

#include <qn/entity.hpp>
#include <qn/opcode.hpp>
#include <qn/type.hpp>

#include <cassert>
#include <cstdint>
#include <span>
#include <string_view>

namespace QN {

class Block;

/// A scalar constant; each value of a type exists once in a function. The bits are those of the
/// double; 0 or 1 for a logical; the integer sign- or zero-extended to 64 bits by its type.
class Const : public Entity {
public:
    [[nodiscard]] const Type* type() const noexcept { return type_.get(); }
    [[nodiscard]] Ref<const Type> typeRef() const noexcept { return type_; }
    [[nodiscard]] std::uint64_t bits() const noexcept { return bits_; }
    /// The value of a double constant.
    [[nodiscard]] double asDouble() const noexcept;
    /// The value of an integer or logical constant, as signed 64-bit.
    [[nodiscard]] std::int64_t asInt() const noexcept { return static_cast<std::int64_t>(bits_); }
    /// Place in the order in which the function's constants were made.
    [[nodiscard]] std::uint32_t id() const noexcept { return id_; }
    [[nodiscard]] Const* next() const noexcept { return next_.get(); }
    [[nodiscard]] Ref<Const> nextRef() const noexcept { return next_; }

private:
    friend class Cfg;
    friend class Pool;
    Const(const Type* type, std::uint64_t bits, std::uint32_t id) noexcept
        : Entity(EntityKind::Const), type_(type), id_(id), bits_(bits) {}
    Ref<const Type> type_;
    std::uint32_t id_;
    std::uint64_t bits_;
    Ref<Const> next_;
};

enum class VarKind : std::uint8_t { Param, User, Temp };

/// A variable of a function: a parameter, a local of the user's program, or a temporary of the
/// compiler. Scalar variables start as zero, arrays as 0 by 0.
class Var : public Entity {
public:
    [[nodiscard]] VarKind varKind() const noexcept { return static_cast<VarKind>(small_[0]); }
    [[nodiscard]] const Type* type() const noexcept { return type_.get(); }
    [[nodiscard]] Ref<const Type> typeRef() const noexcept { return type_; }
    [[nodiscard]] bool isAggregate() const noexcept { return type_->isArray(); }
    /// Names need not be unique; a temporary's may be empty.
    [[nodiscard]] std::string_view name() const noexcept {
        return {nameLength_ == 0 ? "" : name_.get(), nameLength_};
    }
    /// Unique in the function and never given twice.
    [[nodiscard]] std::uint32_t id() const noexcept { return id_; }
    [[nodiscard]] std::uint32_t line() const noexcept { return line_; }
    /// The next variable in the order of declaration; parameters come first.
    [[nodiscard]] Var* next() const noexcept { return next_.get(); }
    [[nodiscard]] Var* previous() const noexcept { return previous_.get(); }
    [[nodiscard]] Ref<Var> nextRef() const noexcept { return next_; }
    [[nodiscard]] Ref<Var> previousRef() const noexcept { return previous_; }

private:
    friend class Cfg;
    friend class Pool;
    Var(VarKind kind, const Type* type, std::string_view nameInPool, std::uint32_t id,
        std::uint32_t line) noexcept
        : Entity(EntityKind::Var), type_(type), id_(id), line_(line), name_(nameInPool.data()),
          nameLength_(static_cast<std::uint32_t>(nameInPool.size())) {
        small_[0] = static_cast<std::uint8_t>(kind);
    }
    Ref<const Type> type_;
    std::uint32_t id_;
    std::uint32_t line_;
    Ref<const char> name_;
    std::uint32_t nameLength_;
    Ref<Var> next_;
    Ref<Var> previous_;
};

/// The name of a function that is called; each name exists once in the calling function. It is
/// looked up in the scope when the call is compiled or run, so that functions can come and go.
class Callee : public Entity {
public:
    [[nodiscard]] std::string_view name() const noexcept {
        return {nameLength_ == 0 ? "" : name_.get(), nameLength_};
    }
    [[nodiscard]] Callee* next() const noexcept { return next_.get(); }

private:
    friend class Cfg;
    friend class Pool;
    explicit Callee(std::string_view nameInPool) noexcept
        : Entity(EntityKind::Callee), name_(nameInPool.data()),
          nameLength_(static_cast<std::uint32_t>(nameInPool.size())) {}
    Ref<const char> name_;
    std::uint32_t nameLength_;
    Ref<Callee> next_;
    // No entity is smaller than 32 bytes, so that tables by address can have one slot for each.
    [[maybe_unused]] std::uint32_t unused_[3] = {};
};

class Node : public Entity {
public:
    static constexpr std::size_t maxOperands = 255;

    [[nodiscard]] Op op() const noexcept { return static_cast<Op>(small_[0]); }
    [[nodiscard]] Mode mode() const noexcept { return Mode::fromBits(small_[1]); }
    /// The type of the value that the node gives; void if it gives none.
    [[nodiscard]] const Type* type() const noexcept { return type_.get(); }
    [[nodiscard]] bool hasValue() const noexcept { return !type_->isVoid(); }
    /// Unique in the function; stays the same until a compaction renumbers.
    [[nodiscard]] std::uint32_t id() const noexcept { return id_; }
    /// The line of the source, 0 if none.
    [[nodiscard]] std::uint32_t line() const noexcept { return line_; }
    /// Null for a node that is not in a block.
    [[nodiscard]] Block* block() const noexcept { return block_.get(); }
    [[nodiscard]] Node* next() const noexcept { return next_.get(); }
    [[nodiscard]] Node* previous() const noexcept { return previous_.get(); }

    // The same as references, for who only compares them or looks them up.
    [[nodiscard]] Ref<const Type> typeRef() const noexcept { return type_; }
    [[nodiscard]] Ref<Block> blockRef() const noexcept { return block_; }
    [[nodiscard]] Ref<Node> nextRef() const noexcept { return next_; }
    [[nodiscard]] Ref<Node> previousRef() const noexcept { return previous_; }
    /// Kind, operation, mode and number of operands in one word, from the lowest byte up.
    [[nodiscard]] std::uint32_t head() const noexcept {
        return static_cast<std::uint32_t>(kind_) | std::uint32_t{small_[0]} << 8 |
               std::uint32_t{small_[1]} << 16 | std::uint32_t{small_[2]} << 24;
    }

    [[nodiscard]] std::size_t numOperands() const noexcept { return small_[2]; }
    [[nodiscard]] std::span<Operand> operands() noexcept { return {firstOperand(), small_[2]}; }
    [[nodiscard]] std::span<const Operand> operands() const noexcept {
        return {firstOperand(), small_[2]};
    }
    [[nodiscard]] Entity* operand(std::size_t index) const noexcept {
        assert(index < numOperands());
        return firstOperand()[index].value();
    }
    void setOperand(std::size_t index, Entity* value) noexcept {
        assert(index < numOperands());
        firstOperand()[index].set(value);
    }
    void setMode(Mode mode) noexcept { small_[1] = mode.bits(); }
    void setLine(std::uint32_t line) noexcept { line_ = line; }

    [[nodiscard]] bool has(std::uint16_t flag) const noexcept { return hasFlag(op(), flag); }
    [[nodiscard]] bool isTerminator() const noexcept { return has(OpFlag::Terminator); }
    /// Whether the node may end the execution; an element access may unless its index is known to
    /// be inside the bounds.
    [[nodiscard]] bool mayTrap() const noexcept {
        return has(OpFlag::Traps) || (has(OpFlag::Indexes) && !mode().inBounds());
    }
    /// Whether the node has an effect beside its value, so that it stays although nobody uses it.
    /// Reading a variable is no effect.
    [[nodiscard]] bool hasEffect() const noexcept {
        return has(OpFlag::Writes | OpFlag::Terminator) || mayTrap();
    }

    /// Bytes of the node with its operands.
    [[nodiscard]] std::size_t bytes() const noexcept {
        return sizeof(Node) + numOperands() * sizeof(Operand);
    }

private:
    friend class Cfg;
    Node(Op op, Mode mode, const Type* type, std::size_t numOperands, std::uint32_t id,
         std::uint32_t line) noexcept
        : Entity(EntityKind::Node), type_(type), id_(id), line_(line) {
        small_[0] = static_cast<std::uint8_t>(op);
        small_[1] = mode.bits();
        small_[2] = static_cast<std::uint8_t>(numOperands);
    }
    Operand* firstOperand() const noexcept {
        return reinterpret_cast<Operand*>(const_cast<Node*>(this) + 1);
    }

    Ref<const Type> type_;
    std::uint32_t id_;
    std::uint32_t line_;
    Ref<Node> next_;
    Ref<Node> previous_;
    Ref<Block> block_;
};
static_assert(sizeof(Node) == 32);

/// The entity as a node, constant, variable, callee or block; null if it is null or something else.
[[nodiscard]] inline Node* asNode(Entity* e) noexcept {
    return e != nullptr && e->kind() == EntityKind::Node ? static_cast<Node*>(e) : nullptr;
}
[[nodiscard]] inline Const* asConst(Entity* e) noexcept {
    return e != nullptr && e->kind() == EntityKind::Const ? static_cast<Const*>(e) : nullptr;
}
[[nodiscard]] inline Var* asVar(Entity* e) noexcept {
    return e != nullptr && e->kind() == EntityKind::Var ? static_cast<Var*>(e) : nullptr;
}
[[nodiscard]] inline Callee* asCallee(Entity* e) noexcept {
    return e != nullptr && e->kind() == EntityKind::Callee ? static_cast<Callee*>(e) : nullptr;
}
[[nodiscard]] Block* asBlock(Entity* e) noexcept;

/// The type of a node, constant or variable; null for anything else.
[[nodiscard]] const Type* typeOf(const Entity* e) noexcept;

} // namespace QN
