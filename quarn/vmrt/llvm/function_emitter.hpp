// From one function's graph to LLVM's IR.
//
// Variables become stack slots, which LLVM turns into values (at all levels but None). An array in
// a variable becomes five of them, data, rows, columns, buffer and whether the buffer is known to
// be the array's own: so nothing that is stored into an element can be taken for a change of an
// array's size or place, and loops keep all of these in registers. The array's form in memory is
// put together where a host function or a callee needs it. Variables whose address is taken are in
// memory from the start.
//
// A trap leaves the function through one block, which releases the arrays, and comes back as the
// number of its site. Owner: one compilation of one function.
#pragma once

#include "vmrt/llvm/array_uses.hpp"
#include "vmrt/llvm/scalar_emitter.hpp"

#include <qn/loops.hpp>

#include <optional>

namespace QN::VMRT {

/// An array in slots of its own, or in memory in its full form.
struct ArrayPlace {
    ScalarKind kind = ScalarKind::Double;
    llvm::Value* memory = nullptr; // an ArrayValue; the slots are unused then
    llvm::AllocaInst* data = nullptr;
    llvm::AllocaInst* rows = nullptr;
    llvm::AllocaInst* cols = nullptr;
    llvm::AllocaInst* buffer = nullptr;
    llvm::AllocaInst* writable = nullptr; // the buffer is known to belong to this place alone
    bool owned = true;                    // holds a reference to its buffer
};

/// A 64-bit integer beside a double, and whether both are the same number; or the slots of both.
struct Whole {
    llvm::Value* number = nullptr;
    llvm::Value* isSame = nullptr;
};

/// An index that was not looked at yet: the check of its bounds, which follows, says it all.
struct WaitingIndex {
    const Node* node = nullptr;
    llvm::Value* number = nullptr;
    llvm::Value* isSame =
        nullptr; // the number is the one that it was made of; null if it surely is
};

class FunctionEmitter {
public:
    FunctionEmitter(UnitEmitter& unit, UnitFunction& function);
    void run();

private:
    // The frame: function_emitter.cpp.
    void beginDebugInfo();
    void makeSlots();
    void makeParameters();
    void takeParameter(const Var& var, llvm::Value* value, bool hasPointerToArray);
    void zero(const Var& var);
    llvm::AllocaInst* slot(llvm::Type* type, const llvm::Twine& name);
    void finishTraps();
    void releaseAll();
    void returnStatus(llvm::Value* status);
    [[noreturn]] void refuse(const Node& node, const char* what) const;

    // Blocks and edges: flow_emitter.cpp.
    void findRareBlocks();
    llvm::MDNode* weightsOf(const Node& branch) const;
    void emitBlock(const Block& block);
    void emitNode(const Node& node);
    void emitTerminator(const Node& node);
    void emitReturn(const Node& node);
    void emitCall(const Node& node);
    void emitCheck(const Node& node);
    void emitCount(const Node& node);
    llvm::BasicBlock* edge(const Block& from, const Block& to);
    llvm::BasicBlock* poll(const Block& header, llvm::BasicBlock* target);
    llvm::BasicBlock* wayBack(const Block& header);
    llvm::PHINode& interrupted();
    [[nodiscard]] bool looksInside(const Block& header) const;
    void guardCall(const Node& node, const UnitFunction& callee);
    llvm::BasicBlock* newBlock(const llvm::Twine& name);
    llvm::Value* load(llvm::Type* type, llvm::Value* from, Memory memory);
    void store(llvm::Value* value, llvm::Value* to, Memory memory);

    // Traps: flow_emitter.cpp.
    void trapIf(llvm::Value* condition, TrapCode code, std::uint32_t line, std::string detail = {});
    void trapUnless(llvm::Value* condition, TrapCode code, std::uint32_t line);
    void trap(TrapCode code, std::uint32_t line, std::string detail = {});
    /// Ends with what a host function came back with, unless that is Fine.
    void endUnlessFine(llvm::Value* outcome, std::uint32_t line);
    void leaveIf(llvm::Value* condition, llvm::Value* status);

    // Scalars and pointers: flow_emitter.cpp.
    llvm::Value* value(const Node& node, std::size_t operand);
    const Type& operandType(const Node& node, std::size_t operand) const;
    llvm::Value* pointer(const Node& node);
    void emitScalar(const Node& node);
    void emitVariable(const Node& node);

    // Integers that surely stay inside their type: range_emitter.cpp.
    [[nodiscard]] bool runsInUncountedLoop(const Node& node) const;
    llvm::Value* emitUnsaturated(const Node& node);

    // Arrays: array_emitter.cpp.
    ArrayPlace makePlace(ScalarKind kind, const llvm::Twine& name);
    ArrayPlace& placeOf(const Node& node, std::size_t operand);
    ArrayPlace aggregate(const Node& node);
    void emitArray(const Node& node);
    void emitArrayLoad(const Node& node);
    void emitArrayStore(const Node& node);
    void emitArraySelect(const Node& node);
    void emitElement(const Node& node);
    llvm::Value* elementIndex(const Node& node, const ArrayPlace& array);
    void makeWritable(const ArrayPlace& array, std::uint32_t line);
    llvm::Value* dataOf(const ArrayPlace& array);
    llvm::Value* rowsOf(const ArrayPlace& array);
    llvm::Value* colsOf(const ArrayPlace& array);
    llvm::Value* bufferOf(const ArrayPlace& array);
    llvm::Value* numelOf(const ArrayPlace& array);
    llvm::Value* sizeField(const ArrayPlace& array, llvm::AllocaInst* own, std::size_t offset);
    llvm::Value* at(llvm::Value* base, std::size_t offset);
    void setEmpty(const ArrayPlace& array);
    void copyPlace(const ArrayPlace& from, const ArrayPlace& to);
    /// The array in its full form in memory, for a call.
    llvm::Value* inMemory(const ArrayPlace& array);
    void writeHeader(const ArrayPlace& array, llvm::Value* to);
    void readHeader(llvm::Value* from, const ArrayPlace& to, bool writable);
    llvm::Value* scratch(std::size_t index);
    void retain(const ArrayPlace& array);
    void release(const ArrayPlace& array);
    void assign(const ArrayPlace& to, const ArrayPlace& from, bool moves);
    /// The place of an array value, with whether `user` may take it over.
    ArrayPlace& arrayValue(const Node& user, std::size_t operand, bool& moves);
    void dropDeadValues(const Node& user);

    // Whole numbers beside doubles: whole_emitter.cpp.
    void findWholes();
    void emitWhole(const Node& node);
    Whole wholeOf(const Node& user, std::size_t operand);
    Whole ofDouble(llvm::Value* number);
    llvm::Value* isExact(llvm::Value* whole, unsigned bits = 52);
    [[nodiscard]] bool staysIn(std::uint32_t loop, const Entity* operand) const;
    [[nodiscard]] const Node* turnTest(const Entity* turn, const Block& at) const;
    std::optional<Whole> wholeOfTurn(const Node& sum);
    void storeWhole(const Var& var, const Whole& whole);
    /// True: it was a truncation or the test of one, and is done.
    bool emitTruncation(const Node& node);
    [[nodiscard]] bool countsIn(std::uint32_t loop, const Entity* operand) const;
    bool emitWholeBranch(const Node& branch);

    // Indices and their bounds: index_emitter.cpp.
    [[nodiscard]] bool mayWait(const Node& index) const;
    WaitingIndex numberOf(const Node& node);
    llvm::Value* isIndex(const WaitingIndex& index, llvm::Value* limit);
    llvm::Value* indexOf(const Node& node);
    void checkWaiting();
    void emitIndex(const Node& node);
    llvm::Value* beyondSize(const Node& node);
    void emitBounds(const Node& node);

    // Loops: loop_emitter.cpp.
    void findHoists();
    void emitPreheader(const Loop& loop);

    // Debug prints: print_emitter.cpp.
    void printNode(const Node& node);
    void printInstructions();
    void print(const std::string& line, llvm::Instruction* before);

    UnitEmitter& unit_;
    UnitFunction& function_;
    const Cfg& cfg_;
    llvm::Function* code_;
    llvm::IRBuilder<> ir_;
    ScalarEmitter scalars_;
    ArrayUses arrayUses_;
    const Dominators& order_;
    Loops loops_;

    llvm::Value* state_ = nullptr;
    llvm::Value* depthLeft_ = nullptr;
    llvm::Value* interrupt_ = nullptr;
    llvm::Value* words_ = nullptr;       // of an entry
    llvm::Value* arrayResult_ = nullptr; // where an array goes that is returned
    llvm::BasicBlock* frame_ = nullptr;  // slots, in front of everything
    llvm::BasicBlock* traps_ = nullptr;
    llvm::PHINode* trapStatus_ = nullptr;
    llvm::PHINode* interruptStatus_ = nullptr; // null while nobody polls

    std::vector<llvm::BasicBlock*> blocks_;             // by block id
    std::vector<llvm::BasicBlock*> polls_;              // by block id
    std::vector<llvm::BasicBlock*> waysBack_;           // by the header's id
    std::vector<llvm::BasicBlock*> preheaders_;         // by block id
    std::vector<bool> isRare_;                          // by block id
    std::vector<llvm::Value*> values_;                  // by node id
    std::vector<llvm::Value*> vars_;                    // by variable id; scalars
    std::vector<std::optional<ArrayPlace>> arrayVars_;  // by variable id
    std::vector<std::optional<ArrayPlace>> arrayNodes_; // by node id; not those that are aliases
    std::vector<llvm::Value*> scratches_;
    std::vector<std::vector<const Node*>> hoists_; // by loop: arrays made writable before it
    std::vector<bool> isWritable_;                 // by node id: its array was made so
    std::vector<bool> wantsWhole_;                 // by node id: indices come from it
    std::vector<Whole> wholes_;                    // by node id
    std::vector<Whole> wholeVars_;                 // by variable id: slots
    std::vector<WaitingIndex> waiting_;            // in the order of their nodes
    llvm::DISubprogram* subprogram_ = nullptr;
};

/// Whether a condition asks for doubles that are whole numbers, which they nearly always are.
[[nodiscard]] bool testsTruncation(const Entity* condition);

/// A function with the convention of entries that calls `function`, which has the other one.
llvm::Function* emitDoor(UnitEmitter& unit, UnitFunction& function);

} // namespace QN::VMRT
