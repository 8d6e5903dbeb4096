// The machine: runs compiled code.
//
// One loop (execute.cpp) dispatches instructions; calls of script functions push a frame and go on
// in the same loop, so that the depth of calls is limited by `maxCallDepth` and not by the C++
// stack. C++ recursion happens only where a built-in or a native method calls back into scripts;
// each such entry checks that enough stack is left.
//
// Errors are C++ exceptions inside execute(); run() catches them, makes host errors of foreign
// exceptions, records the places they pass, and either resumes at a handler or unwinds.
#pragma once

#include "lang/bytecode.hpp"
#include "lang/compiled_functions.hpp"
#include "lang/compiler.hpp"
#include "lang/frames.hpp"
#include "lang/functions.hpp"
#include "lang/interpreter.hpp"
#include "lang/names.hpp"
#include "value/index.hpp"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace varnix {

class Machine {
public:
    Machine(Interpreter& interpreter, InterpreterOptions options);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    [[nodiscard]] const InterpreterOptions& options() const { return options_; }
    [[nodiscard]] NameResolver& names() { return names_; }

    // ---- entries from C++

    /// What a source is run for.
    enum class Purpose {
        Statements, ///< its effects
        Prompt,     ///< its effects and echoes
        Value,      ///< it is an expression
    };
    /// Compiles and runs a source in a workspace. For Value, the value.
    Value runSource(const Source& source, Purpose purpose, std::uint32_t workspace,
                    const std::shared_ptr<Unit>& parent);
    std::vector<Value> call(const Value& function, std::span<const Value> arguments,
                            std::size_t requested);
    std::vector<Value> callNamed(std::string_view name, std::span<const Value> arguments,
                                 std::size_t requested);

    // ---- workspaces: 0 is the global one, others are numbers of frames

    /// The workspace of the code that runs now, on whose behalf a built-in was called.
    [[nodiscard]] std::uint32_t currentWorkspace() const {
        return static_cast<std::uint32_t>(depth_);
    }
    /// The global workspace, or the running code that has its variables at the moment.
    [[nodiscard]] std::uint32_t globalWorkspace() const;
    /// The unit of the code that runs now; null outside any.
    [[nodiscard]] std::shared_ptr<Unit> currentUnit() const;
    /// The variable's place; null when the workspace has none of that name. It may be unset.
    [[nodiscard]] Value* findVariable(std::uint32_t workspace, objsys::COSNameID name);
    void setVariable(std::uint32_t workspace, objsys::COSNameID name, Value value);
    /// Names of variables with values, sorted.
    [[nodiscard]] std::vector<std::string> variableNames(std::uint32_t workspace) const;

private:
    /// Where results go: to R[result] ... of a frame, or, without `base`, to returned_.
    struct Sink {
        Value* base = nullptr;
        std::uint16_t result = noSlot; ///< noSlot: nobody wants it
        std::uint16_t requested = 1;
    };
    [[nodiscard]] static Sink sinkOf(const Frame& frame, const CallShape& shape) {
        return {frame.base, shape.result, shape.requested};
    }
    [[nodiscard]] static std::span<Value> argumentsOf(const Frame& frame, const CallShape& shape) {
        return {frame.base + shape.window, shape.arguments};
    }

    // ---- frames (machine.cpp)
    [[nodiscard]] Frame& top() { return frames_[depth_]; }
    /// Pushes a frame for a script function and moves its arguments into it.
    Frame& enter(const Code& code, std::span<Value> arguments, const Sink& sink);
    /// Calls a script function: its compiled code, or pushes its frame, which is true then.
    [[nodiscard]] bool begin(const Code& code, std::span<Value> arguments, const Sink& sink) {
        if (compiled_ == nullptr || !code.mayBeCompiled) {
            enter(code, arguments, sink);
            return true;
        }
        return beginCompiled(code, arguments, sink);
    }
    [[nodiscard]] bool beginCompiled(const Code& code, std::span<Value> arguments,
                                     const Sink& sink);
    /// The same for calls that nobody makes often: for several results, from outside, too deep.
    [[gnu::noinline, nodiscard]] bool
    beginCompiledForMany(const Code& code, std::span<Value> arguments, const Sink& sink);
    /// Pushes the frame of a call that the compiled code has left to the interpreter.
    [[gnu::noinline, nodiscard]] bool enterInstead(CompiledFunctions::Outcome outcome,
                                                   const Code& code, std::span<Value> arguments,
                                                   const Sink& sink);
    void enterAnonymous(const Value& function, std::span<Value> arguments, const Sink& sink);
    void popFrame() noexcept;
    void moveIn(Frame& frame);
    void moveOut(Frame& frame) noexcept;

    // ---- running (machine.cpp)
    /// Runs the top frame, which was entered from C++, until it is left; its results are in
    /// returned_ then.
    void run();
    void execute();
    /// Leaves the running function with its results; true when that ends a run().
    [[nodiscard]] bool leave(Frame& frame, std::size_t first, std::size_t count);
    /// Resumes at a handler above `floor`, or unwinds to it and throws.
    void handle(objsys::COSError error, std::size_t floor);
    [[nodiscard]] static objsys::StackFrame placeOf(const Frame& frame);
    void checkStack() const;
    void startOutermost();
    Value runCompiled(const Source& source, Purpose purpose, std::uint32_t workspace,
                      const std::shared_ptr<Unit>& parent);

    // ---- slow halves of instructions (slow_paths.cpp)
    /// The value in a register, or of the function that an unassigned variable's name means.
    [[nodiscard]] const Value& operand(const Frame& frame, std::size_t r, Value& holder);
    [[nodiscard]] Value nameValue(const Frame& frame, std::size_t slot);
    [[noreturn]] void raiseUndefined(objsys::COSNameID name, const Unit* unit);
    void binarySlow(Frame& frame, BinaryOp op, const Instruction& at);
    void binaryConstantSlow(Frame& frame, BinaryOp op, const Instruction& at);
    [[nodiscard]] bool testSlow(Frame& frame, BinaryOp op, const Instruction& at);
    [[nodiscard]] bool testConstantSlow(Frame& frame, BinaryOp op, const Instruction& at);
    void unarySlow(Frame& frame, UnaryOp op, const Instruction& at);
    [[nodiscard]] bool truthSlow(Frame& frame, std::size_t r);
    [[nodiscard]] bool caseMatches(Frame& frame, const Instruction& at);
    void clearTemporary(Frame& frame, std::size_t r) {
        if (frame.code->isTemporary(r))
            frame.base[r] = Value();
    }
    void makeRange(Frame& frame, const Instruction& at);
    void gather(Frame& frame, const Instruction& at);
    void makeFunction(Frame& frame, const Instruction& at);
    void makeHandle(Frame& frame, const Instruction& at);
    void echo(Frame& frame, std::size_t slot);
    void echoResult(Frame& frame, const Instruction& at);
    [[nodiscard]] Value errorValue() const;

    // ---- loops.cpp
    void forRange(Frame& frame, std::size_t state);
    [[nodiscard]] bool forRangeEnd(Frame& frame, std::size_t state, std::size_t variable);
    void forEach(Frame& frame, std::size_t state);
    [[nodiscard]] bool forEachStep(Frame& frame, std::size_t state, std::size_t variable);

    // ---- elements.cpp
    void index(Frame& frame, const Instruction& at);
    void indexConstant(Frame& frame, const Instruction& at);
    void indexTwo(Frame& frame, const Instruction& at);
    void indexSite(Frame& frame, const IndexShape& shape);
    void brace(Frame& frame, const Instruction& at);
    void endOfIndex(Frame& frame, const Instruction& at, bool target);
    void storeIndex(Frame& frame, const Instruction& at);
    void storeIndexConstant(Frame& frame, const Instruction& at);
    void storeIndexTwo(Frame& frame, const Instruction& at);
    void storePath(Frame& frame, const PathSite& site);
    void storeInto(const Frame& frame, Value& place, std::span<const PathSite::Step> steps,
                   const Value& value);
    void storeIntoMember(const Frame& frame, Value& place, std::span<const PathSite::Step> steps,
                         const Value& value);
    void storeIntoCell(const Frame& frame, Value& place, std::span<const PathSite::Step> steps,
                       const Value& value);

    // ---- members.cpp
    void getMember(Frame& frame, const Instruction& at);
    void setMember(Frame& frame, const Instruction& at);
    [[nodiscard]] Value memberOf(const Value& base, objsys::COSNameID name, MemberSite* site);
    void assignMember(Value& base, objsys::COSNameID name, const Value& value, MemberSite* site);
    /// True: a frame was pushed for it.
    [[nodiscard]] bool callMember(Frame& frame, MemberSite& site);
    [[nodiscard]] bool callMemberOf(const Value& base, objsys::COSNameID name, bool written,
                                    std::span<Value> arguments, const Sink& sink, MemberSite* site);

    // ---- calls.cpp; true: a frame was pushed
    [[nodiscard]] bool callSite(Frame& frame, CallSite& site);
    [[nodiscard]] bool callValue(Frame& frame, const CallSite& site);
    [[nodiscard]] bool callPath(Frame& frame, NamePathSite& site);
    [[nodiscard]] bool beginFunction(const Value& function, std::span<Value> arguments,
                                     const Sink& sink);
    [[nodiscard]] bool beginNamed(const NamedFunction& function, std::span<Value> arguments,
                                  const Sink& sink);
    [[nodiscard]] bool beginPath(std::span<const objsys::COSNameID> path, const Unit* unit,
                                 bool written, std::span<Value> arguments, const Sink& sink,
                                 NamePathSite* site);
    void invokeMethod(const objsys::COSMethod& method, std::span<Value> arguments,
                      const Sink& sink);
    void invokeBuiltin(const Builtin& builtin, std::span<Value> arguments, const Sink& sink);
    /// Hands results over; `what` gave them, for the error when they are too few.
    void deliver(Value result, const Sink& sink, const char* what);
    void deliver(std::span<Value> results, const Sink& sink, const char* what);
    /// After a begin...() with a sink without base: the results, when it has run to its end.
    [[nodiscard]] std::vector<Value> finish(bool pushed);
    /// The same for one that must give a value.
    [[nodiscard]] Value finishOne(bool pushed);

    /// A results vector for one call of a built-in, with room from earlier calls.
    class ResultList {
    public:
        explicit ResultList(Machine& machine)
            : machine_(machine), list_(machine.nextResultList()) {}
        ~ResultList() {
            list_.clear();
            --machine_.resultLists_;
        }
        ResultList(const ResultList&) = delete;
        ResultList& operator=(const ResultList&) = delete;
        [[nodiscard]] std::vector<Value>& list() { return list_; }

    private:
        Machine& machine_;
        std::vector<Value>& list_;
    };
    [[nodiscard]] std::vector<Value>& nextResultList() {
        if (resultLists_ == resultListPool_.size()) [[unlikely]]
            resultListPool_.push_back(std::make_unique<std::vector<Value>>());
        return *resultListPool_[resultLists_++];
    }

    Interpreter& interpreter_;
    InterpreterOptions options_;
    NameResolver names_;
    std::unique_ptr<CompiledFunctions> compiled_; ///< null: everything is interpreted
    RegisterStack registers_;
    std::unique_ptr<Frame[]> frames_; // [1] is the outermost one
    std::size_t depth_ = 0;
    Variables globals_;
    std::vector<Value> returned_;
    /// One for each built-in that has ever run inside others; the first resultLists_ are in use.
    std::vector<std::unique_ptr<std::vector<Value>>> resultListPool_;
    std::size_t resultLists_ = 0;
    std::optional<objsys::COSError> caught_; // what the running handler handles
    const char* stackLimit_ = nullptr;
};

} // namespace varnix
