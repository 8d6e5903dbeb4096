// Writes IR, or only pretends to.
//
// The translation of a function runs several times: first without a graph, to learn the types of
// all variables, then once with one. Both are the same code; without a graph an emitter gives null
// for everything that it is asked to make, and nobody looks at it.
#pragma once

#include "codegen/value_type.hpp"

#include <qn/array_value.hpp>
#include <qn/builder.hpp>
#include <qn/trap.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace varnix::codegen {

/// Why compiled code gives up, beyond what the IR has numbers for.
enum class HostTrap : std::int64_t {
    /// The compiler took something for granted that is not so; the interpreter is to do it all.
    Assumption = static_cast<std::int64_t>(QN::TrapCode::FirstOfHost),
    /// A script error, which the interpreter raises in its own words.
    WrongSize,
    BadArgument,
};

class Emitter {
public:
    using Ref = QN::Entity*;

    /// Without a graph.
    Emitter() noexcept = default;
    explicit Emitter(QN::Cfg& cfg) : builder_(std::in_place, cfg) {}

    [[nodiscard]] bool isDry() const noexcept { return !builder_; }
    void setLine(std::uint32_t line) noexcept {
        if (builder_)
            builder_->setLine(line);
    }

    // ---- constants
    [[nodiscard]] Ref number(double value) {
        return builder_ ? cfg().constantDouble(value) : nullptr;
    }
    [[nodiscard]] Ref truth(bool value) {
        return builder_ ? cfg().constantLogical(value) : nullptr;
    }
    [[nodiscard]] Ref index(std::int64_t value) {
        return builder_ ? cfg().constantInt(QN::Type::i64(), value) : nullptr;
    }
    /// `bits` as a scalar Value holds them.
    [[nodiscard]] Ref constant(QN::ScalarKind kind, std::uint64_t bits) {
        return builder_ ? cfg().constant(QN::Type::scalar(kind), bits) : nullptr;
    }
    /// A small number of any kind.
    [[nodiscard]] Ref small(QN::ScalarKind kind, int value);

    // ---- scalars
    Ref unary(QN::Op op, Ref x) { return builder_ ? builder_->unary(op, x) : nullptr; }
    Ref binary(QN::Op op, Ref x, Ref y) { return builder_ ? builder_->binary(op, x, y) : nullptr; }
    /// Of sizes and places, which are far from the ends of their type.
    Ref plainly(QN::Op op, Ref x, Ref y) {
        return builder_ ? builder_->binary(op, x, y,
                                           QN::Mode(QN::Rounding::NearestAway, QN::Overflow::Wrap))
                        : nullptr;
    }
    Ref towardZero(QN::Op op, Ref x, Ref y) {
        return builder_ ? builder_->binary(
                              op, x, y, QN::Mode(QN::Rounding::TowardZero, QN::Overflow::Saturate))
                        : nullptr;
    }
    Ref compare(QN::Op op, Ref x, Ref y) {
        return builder_ ? builder_->compare(op, x, y) : nullptr;
    }
    Ref select(Ref condition, Ref x, Ref y) {
        return builder_ ? builder_->select(condition, x, y) : nullptr;
    }
    /// As the language converts; nothing where the kinds are the same.
    Ref convert(Ref x, QN::ScalarKind from, QN::ScalarKind to) {
        return builder_ && from != to ? builder_->convert(x, QN::Type::scalar(to)) : x;
    }
    /// A double without its fraction, in i64. Where `isTruncated` holds as well, they are the same
    /// number; the LLVM runtime knows the pair.
    Ref truncated(Ref x) {
        return builder_
                   ? builder_->convert(x, QN::Type::i64(),
                                       QN::Mode(QN::Rounding::TowardZero, QN::Overflow::Saturate))
                   : nullptr;
    }
    Ref isTruncated(Ref x, Ref whole) {
        return builder_
                   ? builder_->compare(QN::Op::Eq, builder_->convert(whole, QN::Type::f64()), x)
                   : nullptr;
    }
    Ref toIndex(Ref x) { return builder_ ? builder_->toIndex(x) : nullptr; }
    Ref both(Ref x, Ref y) { return binary(QN::Op::And, x, y); }
    Ref either(Ref x, Ref y) { return binary(QN::Op::Or, x, y); }
    Ref negation(Ref x) { return unary(QN::Op::Not, x); }

    // ---- variables
    [[nodiscard]] QN::Var* variable(QN::VarKind kind, const QN::Type* type, std::string_view name,
                                    std::uint32_t line) {
        return builder_ ? cfg().addVar(kind, type, name, line) : nullptr;
    }
    [[nodiscard]] QN::Var* temporary(const QN::Type* type) {
        return variable(QN::VarKind::Temp, type, "", 0);
    }
    Ref load(QN::Var* var) { return builder_ ? builder_->load(var) : nullptr; }
    void store(QN::Var* var, Ref value) {
        if (builder_)
            builder_->store(var, value);
    }
    Ref addressOf(QN::Var* var) { return builder_ ? builder_->addressOf(var) : nullptr; }
    void storeThrough(QN::Var* pointer, Ref value) {
        if (builder_)
            builder_->storeThrough(builder_->load(pointer), value);
    }

    // ---- arrays
    Ref newArray(QN::ScalarKind kind, Ref rows, Ref columns) {
        return builder_ ? builder_->newArray(kind, rows, columns) : nullptr;
    }
    Ref rows(QN::Var* array) { return sizeOf(QN::Op::Rows, array); }
    Ref columns(QN::Var* array) { return sizeOf(QN::Op::Cols, array); }
    Ref count(QN::Var* array) { return sizeOf(QN::Op::Numel, array); }
    Ref element(QN::Var* array, Ref place) {
        return builder_ ? builder_->loadElement(array, place) : nullptr;
    }
    Ref element(QN::Var* array, Ref row, Ref column) {
        return builder_ ? builder_->loadElement(array, row, column) : nullptr;
    }
    void setElement(QN::Var* array, Ref place, Ref value) {
        if (builder_)
            builder_->storeElement(array, place, value);
    }
    void setElement(QN::Var* array, Ref row, Ref column, Ref value) {
        if (builder_)
            builder_->storeElement(array, row, column, value);
    }
    /// Where the array is known to have the element.
    void setElementInside(QN::Var* array, Ref place, Ref value) {
        if (builder_)
            markInside(builder_->storeElement(array, place, value));
    }
    void setElementInside(QN::Var* array, Ref row, Ref column, Ref value) {
        if (builder_)
            markInside(builder_->storeElement(array, row, column, value));
    }
    void resize(QN::Var* array, Ref rows, Ref columns) {
        if (builder_)
            builder_->resize(array, rows, columns);
    }

    // ---- control
    [[nodiscard]] QN::Block* newBlock() { return builder_ ? cfg().addBlock() : nullptr; }
    void at(QN::Block* block) {
        if (builder_)
            builder_->atEndOf(block);
    }
    void jump(QN::Block* target) {
        if (builder_)
            builder_->jump(target);
    }
    void branch(Ref condition, QN::Block* ifTrue, QN::Block* ifFalse) {
        if (builder_)
            builder_->branch(condition, ifTrue, ifFalse);
    }
    Ref call(std::string_view name, const QN::Type* result, std::span<QN::Entity* const> operands) {
        return builder_ ? builder_->call(name, result, operands) : nullptr;
    }
    void giveBack(Ref value) {
        if (builder_ && value != nullptr)
            builder_->ret(value);
        else if (builder_)
            builder_->ret();
    }
    /// Ends the block.
    void trap(std::int64_t code) {
        if (builder_)
            builder_->trap(code);
    }
    /// Goes on only where `condition` holds.
    void require(Ref condition, std::int64_t code);
    void require(Ref condition, HostTrap code) {
        require(condition, static_cast<std::int64_t>(code));
    }
    void require(Ref condition, QN::TrapCode code) {
        require(condition, static_cast<std::int64_t>(code));
    }

    /// for k = first..last: body(k), in i64. `body` may not leave the loop.
    template <typename Body>
    void loop(Ref first, Ref last, Body&& body) {
        QN::Var* const counter = temporary(QN::Type::i64());
        QN::Block* const head = newBlock();
        QN::Block* const turn = newBlock();
        QN::Block* const done = newBlock();
        store(counter, first);
        jump(head);
        at(head);
        const Ref k = load(counter);
        branch(compare(QN::Op::Le, k, last), turn, done);
        at(turn);
        body(k);
        store(counter, plainly(QN::Op::Add, k, index(1)));
        jump(head);
        at(done);
    }
    /// if condition: body().
    template <typename Body>
    void when(Ref condition, Body&& body) {
        QN::Block* const inside = newBlock();
        QN::Block* const after = newBlock();
        branch(condition, inside, after);
        at(inside);
        body();
        jump(after);
        at(after);
    }

    template <typename Body>
    void unless(Ref condition, Body&& body) {
        QN::Block* const inside = newBlock();
        QN::Block* const after = newBlock();
        branch(condition, after, inside);
        at(inside);
        body();
        jump(after);
        at(after);
    }

    [[nodiscard]] QN::Cfg& cfg() noexcept { return builder_->cfg(); }

private:
    static void markInside(QN::Node* access) { access->setMode(access->mode().withInBounds(true)); }
    Ref sizeOf(QN::Op op, QN::Var* array) {
        return builder_ ? builder_->sizeOf(op, array) : nullptr;
    }

    std::optional<QN::Builder> builder_;
};

} // namespace varnix::codegen
