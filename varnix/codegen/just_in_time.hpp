// The compiled code of script functions: made at the first call with given types of arguments,
// kept with the function, made anew when something that it depends on has changed.
//
// Owner: the machine owns the one JustInTime; each function (Code) owns its own compiled code. The
// code keeps alive what it needs, so either may go first.
#pragma once

#include "codegen/program.hpp"
#include "lang/compiled_functions.hpp"

#include <qn/engine.hpp>
#include <qn/profile_counts.hpp>

#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace varnix::codegen {

/// The engine of a choice other than None. Throws std::runtime_error where it cannot be had.
[[nodiscard]] std::unique_ptr<QN::Engine> makeEngine(EngineChoice choice);

/// Where the functions of a session are while they are compiled, and as long as their code needs
/// them.
struct Session {
    QN::Scope scope{QN::ScopeFlavor::Session, "session"};
    std::unique_ptr<QN::Engine> engine; ///< made with the settings of `settings`
    std::uint64_t settings = 0;
};

/// A function with one list of types of arguments: its code, or that there is none.
class Variant {
public:
    Variant() = default;
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() { discard(); }

    /// Frees the code and the scope it was made in. What its profiling counters have counted is
    /// written to the debug log's folder first.
    void discard() noexcept;
    [[nodiscard]] bool fits(std::span<const Value> values, std::size_t wanted) const noexcept {
        if (wanted != requested || values.size() != tags.size())
            return false;
        for (std::size_t i = 0; i < values.size(); ++i)
            if (values[i].tag() != tags[i] ||
                (tags[i] == Tag::Array && values[i].array()->classID != classes[i]))
                return false;
        return true;
    }

    // What it is for.
    std::vector<Tag> tags;
    std::vector<hvClassID> classes;
    std::vector<ValueType> types;
    std::size_t requested = 0;

    // What it depends on.
    std::uint64_t epoch = 0;    ///< of names
    std::uint64_t services = 0; ///< changes of services, features and testing hooks
    std::uint64_t settings = 0; ///< the generation of the machine-code engine's settings
    std::vector<Dependency> dependencies;

    // What it is.
    std::unique_ptr<QN::Executable> code; ///< null: the function is interpreted
    std::vector<ValueType> results;
    bool onlyScalars = false;               ///< no array goes in or out, and there is one result
    std::vector<QN::ArrayValue> arrays;     ///< arguments and results of the running call
    std::string signature;                  ///< of what was compiled: "mandel(f64)"
    std::vector<QN::CounterPlace> counters; ///< where the code counts; none as a rule
    std::shared_ptr<Session> session;
    QN::Scope* unit = nullptr;
    int wrongAssumptions = 0;

private:
    void writeCounts() noexcept;
};

/// What is kept with a function.
class CompiledFunction final : public CompiledCode {
public:
    ReturnCounts returns;
    std::vector<std::unique_ptr<Variant>> variants;
    Variant* last = nullptr; ///< the one that was called last
};

class JustInTime final : public CompiledFunctions {
public:
    JustInTime(const CompilerOptions& options, NameResolver& names)
        : options_(options), names_(names) {}

    Outcome call(const Code& code, const Value* arguments, std::size_t count, Wish wish,
                 std::size_t depthLeft, Value* results) override;

private:
    /// call() for whatever is not as the last time.
    [[gnu::noinline, nodiscard]] Outcome callAny(const Code& code, const Value* arguments,
                                                 std::size_t count, Wish wish,
                                                 std::size_t depthLeft, Value* results);
    [[nodiscard]] bool isCurrent(const Variant& variant) const noexcept;
    [[nodiscard]] bool dependenciesHold(const Variant& variant);
    /// Brings a variant up to date; it may be without code then.
    void refresh(const Code& code, Variant& variant);
    void compile(const Code& code, Variant& variant);
    [[nodiscard]] Variant* addVariant(CompiledFunction& function, std::span<const Value> arguments,
                                      std::size_t requested);
    [[nodiscard]] Outcome run(const Code& code, Variant& variant, const Value* arguments,
                              std::size_t depthLeft, Value* results);
    /// Runs the code of the variant over slots that are filled.
    [[nodiscard]] Outcome execute(const Code& code, Variant& variant, std::uint64_t* slots,
                                  std::size_t depthLeft) const;
    [[gnu::noinline, gnu::cold, nodiscard]] Outcome trapped(const Code& code, Variant& variant,
                                                            const QN::EvaluationError& error) const;
    [[nodiscard]] std::shared_ptr<Session> session();
    void report(const Code& code, const std::string& reason) const;

    CompilerOptions options_;
    NameResolver& names_;
    std::shared_ptr<Session> session_;
};

} // namespace varnix::codegen
