// From the bytecode of one function to IR; see program.hpp.
//
// Registers become variables: a named one a user's variable, the others temporaries, one for each
// type that a register has in the course of the function. What the machine does with an instruction
// is what is written here, for the types that it gets.
#pragma once

#include "codegen/program.hpp"

#include <map>

namespace varnix::codegen {

class Translator final : private ArrayPlaces {
public:
    /// Looks for types.
    Translator(Program& program, Instance& instance);
    /// Writes into the instance's function, which is empty but for its parameters.
    Translator(Program& program, Instance& instance, QN::Function& function);

    /// Looks for types until nothing changes. Throws Outside.
    void findTypes();
    void write();

private:
    using Ref = Emitter::Ref;

    // ---- blocks and flow
    void findBlocks();
    void block(const Instance::Block& block);
    /// True: the instruction ended the block, or took its successor with it.
    [[nodiscard]] bool instruction(std::uint32_t& at);
    void flowTo(std::uint32_t target);
    void branchTo(Ref condition, std::uint32_t ifTrue, std::uint32_t ifFalse);
    void merge(std::uint32_t target);
    void prepareEdge(std::uint32_t target);
    [[nodiscard]] QN::Block* blockFor(std::uint32_t target);
    [[nodiscard]] std::uint32_t targetOf(std::uint32_t at) const;

    // ---- registers
    [[nodiscard]] bool isNamed(std::size_t r) const { return r < code_.names.size(); }
    [[nodiscard]] RegisterState join(const RegisterState& a, const RegisterState& b,
                                     bool named) const;
    [[nodiscard]] QN::Var* variableFor(std::size_t r, ValueType type);
    [[nodiscard]] Operand read(std::size_t r);
    void write(std::size_t r, const Operand& value);
    void clear(std::size_t r);
    /// Gives registers that borrow a user's array a copy: all, or those that borrow what is about
    /// to change.
    void settle(const QN::Var* changing = nullptr);
    void settleOne(std::size_t r);
    [[nodiscard]] Operand constant(const Value& value);
    [[nodiscard]] Operand constantArray(const Value& value);
    [[nodiscard]] Operand promoted(const Operand& scalar);
    QN::Var* placeFor(QN::ScalarKind kind) override;

    // ---- instructions
    void binary(BinaryOp op, const Operand& left, const Operand& right, std::size_t to);
    void test(std::uint32_t at, BinaryOp op, const Operand& left, const Operand& right);
    void forRange(std::uint32_t at);
    void forRangeStep(std::uint32_t at);
    void forEach(std::uint32_t at);
    void forEachStep(std::uint32_t at);
    void endOf(const Instruction& at, bool target);
    void indexSite(const IndexShape& shape);
    [[nodiscard]] QN::Var* assigned(std::size_t r, QN::ScalarKind kindOfNew);
    void storePath(const PathSite& site);
    void gather(const Instruction& at);
    /// False: nothing behind it is reached, as far as is known.
    [[nodiscard]] bool call(const CallSite& site);
    void leave(const Instruction& at);

    Program& program_;
    Instance& instance_;
    const Code& code_;
    Emitter emitter_;
    Operations ops_;
    QN::Function* function_ = nullptr;

    State state_;
    std::vector<std::uint32_t> queue_;
    /// Values of registers that the current block has at hand.
    std::vector<Emitter::Ref> values_;
    /// The user's array variables that stand for temporary registers, such as the arguments of
    /// calls, until one of the two changes or the block ends.
    std::vector<QN::Var*> borrowed_;
    std::map<std::pair<std::size_t, int>, QN::Var*> variables_;
    std::map<std::uint32_t, QN::Block*> irBlocks_;
    std::vector<QN::Var*> resultPointers_; ///< of the second result on

    /// Where the array that the current instruction makes is to go.
    std::size_t target_ = noTarget;
    static constexpr std::size_t noTarget = ~std::size_t{0};
    std::vector<const QN::Var*> operands_; ///< arrays that the current instruction has read

    /// The state of a loop, by its register and the kind of its variable.
    struct LoopVars {
        QN::Var* index = nullptr;
        QN::Var* count = nullptr;
        QN::Var* first = nullptr;
        QN::Var* step = nullptr;
        QN::Var* last = nullptr;
        QN::Var* steps = nullptr; // turns whose value is a sum of steps
    };
    LoopVars& loopAt(std::size_t r, QN::ScalarKind kind);
    std::map<std::pair<std::size_t, int>, LoopVars> loops_;
};

} // namespace varnix::codegen
