// The reference evaluator: runs IR as it is, and so defines what IR means. Every other engine is
// tested against it.
//
// A function is decoded at its first call into a flat list of instructions, which the evaluator
// keeps; forget() drops them after the function has been changed. Calls inside calls use no native
// stack.
//
// Owner: whoever makes one. It refers to a scope, which must outlive it. IR that was not verified
// gives an EvaluationError at worst.
#pragma once

#include <qn/array_value.hpp>
#include <qn/trap.hpp>

#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN {

class Function;
class Scope;

/// An argument or a result: a scalar in its bits, or an array.
struct Value {
    const Type* type = Type::voidType();
    std::uint64_t bits = 0;
    ArrayValue array;

    [[nodiscard]] static Value ofDouble(double value);
    [[nodiscard]] static Value ofLogical(bool value);
    [[nodiscard]] static Value ofInt(const Type* type, std::int64_t value);
    [[nodiscard]] static Value ofArray(ArrayValue array);
    [[nodiscard]] double asDouble() const noexcept;
};

class Evaluator {
public:
    /// A function that the scope does not have. Returns false if it does not know the name either;
    /// otherwise `result` has the type asked for. May throw; the exception passes through call().
    using External = std::function<bool(std::string_view name, std::span<const Value> arguments,
                                        const Type& resultType, Value& result)>;

    explicit Evaluator(const Scope& scope);
    Evaluator(const Evaluator&) = delete;
    Evaluator& operator=(const Evaluator&) = delete;
    ~Evaluator();

    /// Callees are looked up in the scope and the ones around it first, and here when it has none.
    void setExternal(External external);
    /// At most that many blocks are entered per call; 0, as at start, means no limit.
    void setStepLimit(std::uint64_t blocks) noexcept;
    /// At most that many calls inside calls; 100,000 at start.
    void setDepthLimit(std::size_t calls) noexcept;
    /// Where a signal handler asks for an end by something other than zero; branches and calls look
    /// there and end with TrapCode::Interrupted. Null, as at start: nobody asks.
    void setInterruptFlag(const volatile std::sig_atomic_t* flag) noexcept;

    /// Runs `function`, which has a graph, with arguments of its parameters' types. Throws
    /// EvaluationError.
    Value call(const Function& function, std::span<const Value> arguments);

    /// Drops what is kept of a function, of which nothing is running.
    void forget(const Function& function);

    /// How often `count N` has run in the function.
    [[nodiscard]] std::uint64_t counter(const Function& function, std::int64_t number) const;
    /// One more than the largest number of a counter that the function has; 0 before its first
    /// call.
    [[nodiscard]] std::int64_t counterLimit(const Function& function) const;

    struct State;

private:
    std::unique_ptr<State> state_;
};

} // namespace QN
