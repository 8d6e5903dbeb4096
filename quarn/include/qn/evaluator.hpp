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

#include <qn/trap.hpp>
#include <qn/type.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace QN {

class Function;
class Scope;

/// An array value: copies share the elements until one of them is written to.
class ArrayValue {
public:
    /// 0 by 0 doubles.
    ArrayValue() noexcept = default;
    /// Zeros. The product of the sizes must be at most maxElements.
    ArrayValue(ScalarKind kind, std::int64_t rows, std::int64_t cols);

    static constexpr std::int64_t maxElements = std::int64_t{1} << 40;

    [[nodiscard]] ScalarKind kind() const noexcept { return kind_; }
    [[nodiscard]] std::int64_t rows() const noexcept { return rows_; }
    [[nodiscard]] std::int64_t cols() const noexcept { return cols_; }
    [[nodiscard]] std::int64_t numel() const noexcept { return rows_ * cols_; }

    /// Element `index`, counted from 1 column by column, as the bits of a scalar. Inside the
    /// bounds.
    [[nodiscard]] std::uint64_t get(std::int64_t index) const noexcept;
    void set(std::int64_t index, std::uint64_t bits);
    /// Keeps the elements that have a place in the new size; new ones are zero.
    void resize(std::int64_t rows, std::int64_t cols);

    /// The elements, column by column: doubles; one byte per logical; integers of their width. Null
    /// if there are none. The writable form first makes sure that nobody shares them.
    [[nodiscard]] const void* data() const noexcept {
        return elements_ == nullptr ? nullptr : elements_->data();
    }
    [[nodiscard]] void* writableData();

    /// Bytes of one element.
    [[nodiscard]] static std::size_t elementBytes(ScalarKind kind) noexcept;

private:
    ScalarKind kind_ = ScalarKind::Double;
    std::int64_t rows_ = 0;
    std::int64_t cols_ = 0;
    std::shared_ptr<std::vector<std::byte>> elements_;
};

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

/// Why an execution ended early, and where.
class EvaluationError : public std::runtime_error {
public:
    EvaluationError(TrapCode code, std::string function, std::uint32_t line,
                    const std::string& detail = {});
    [[nodiscard]] TrapCode code() const noexcept { return code_; }
    [[nodiscard]] const std::string& function() const noexcept { return function_; }
    /// The line of the source, 0 if unknown.
    [[nodiscard]] std::uint32_t line() const noexcept { return line_; }

private:
    TrapCode code_;
    std::string function_;
    std::uint32_t line_;
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

    /// Runs `function`, which has a graph, with arguments of its parameters' types. Throws
    /// EvaluationError.
    Value call(const Function& function, std::span<const Value> arguments);

    /// Drops what is kept of a function, of which nothing is running.
    void forget(const Function& function);

    /// How often `count N` has run in the function.
    [[nodiscard]] std::uint64_t counter(const Function& function, std::int64_t number) const;

    struct State;

private:
    std::unique_ptr<State> state_;
};

} // namespace QN
