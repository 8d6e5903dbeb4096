// Engines run compiled IR: the reference evaluator, and machine code made with LLVM (see
// vmrt/engine.hpp). A host that knows this page can use either.
//
// A unit is a scope with the functions of one compilation, complete in itself: every callee is in
// it or in a scope around it. prepare() makes an Executable out of it, whose life is the life of
// the code. One thread only.
#pragma once

#include <qn/array_value.hpp>
#include <qn/trap.hpp>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace QN {

class Function;
class Scope;

/// What a running function needs to know of the world around it. One is shared by nested calls.
struct ExecutionContext {
    /// Calls inside calls that are still allowed; the code counts it down and up. A call that finds
    /// 0 is TrapCode::StackOverflow. It has its old value again after a call, however that ended.
    std::int64_t depthLeft = 2000;
    /// Where a signal handler asks for an end by something other than zero: loops and calls look
    /// there and end with TrapCode::Interrupted. Null if nobody asks.
    const volatile std::sig_atomic_t* interruptRequested = nullptr;
};

/// A value of a profiling counter.
struct CounterValue {
    std::string function;
    std::int64_t number = 0;
    std::uint64_t count = 0;
};

/// Code that can be run.
class Executable {
public:
    Executable() = default;
    Executable(const Executable&) = delete;
    Executable& operator=(const Executable&) = delete;
    /// Frees the code. Nothing of it may be running.
    virtual ~Executable() = default;

    /// Runs the entry function. `slots` holds one word for each parameter, in order, and behind
    /// them, if there is a result, one for it:
    ///   - a scalar parameter: its bits, as a Const holds them (extended by its type);
    ///   - an array parameter: the address of an ArrayValue, which is read and not changed;
    ///   - a pointer parameter: the address of the variable, a 64-bit word for a scalar or an
    ///     ArrayValue of the element's kind, which the function may read and change;
    ///   - the result: a scalar's bits are left there; for an array the word is the address of an
    ///     ArrayValue, which is assigned.
    /// Throws EvaluationError when the program traps; the result is then unset, and variables
    /// behind pointers hold valid values, which may be old or new ones. Throws std::bad_alloc.
    virtual void call(std::uint64_t* slots, ExecutionContext& context) = 0;

    /// The counters of `count` nodes, functions in the order of the unit, numbers rising.
    [[nodiscard]] virtual std::vector<CounterValue> counters() const = 0;

    /// Whether the scope must stay as it is while this lives; otherwise it may be freed at once.
    [[nodiscard]] virtual bool needsScope() const noexcept = 0;
};

/// An engine does not take a function; the function is to be run in another way.
class CompilationRefused : public std::runtime_error {
public:
    CompilationRefused(std::string function, const std::string& reason)
        : std::runtime_error(function + ": " + reason), function_(std::move(function)) {}
    [[nodiscard]] const std::string& function() const noexcept { return function_; }

private:
    std::string function_;
};

class Engine {
public:
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    /// All its executables are gone by then.
    virtual ~Engine() = default;

    /// Makes code of the functions of `unit`, to be entered at `entry`, which is one of them.
    /// `sourceFile` is where the lines of the nodes are, for debuggers; may be empty. Throws
    /// CompilationRefused, and leaves nothing behind then.
    [[nodiscard]] virtual std::unique_ptr<Executable> prepare(Scope& unit, Function& entry,
                                                              std::string_view sourceFile) = 0;

    /// "evaluator", "llvm".
    [[nodiscard]] virtual std::string_view name() const noexcept = 0;
};

/// An engine over the reference evaluator. Its executables need their scope.
[[nodiscard]] std::unique_ptr<Engine> makeEvaluatorEngine();

} // namespace QN
