// Where the machine hands calls to compiled code. What is behind it is codegen/'s business; the
// machine goes on without it when there is none.
#pragma once

#include "lang/bytecode.hpp"
#include "lang/engine_choice.hpp"
#include "value/value.hpp"

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace varnix {

class NameResolver;

class CompiledFunctions {
public:
    enum class Outcome : std::uint8_t {
        Done,
        Interpret, ///< nothing has happened; the interpreter is to do it
        /// The same, and the interpreter is to raise an error: the code has met one.
        InterpretToFail,
    };

    CompiledFunctions() = default;
    CompiledFunctions(const CompiledFunctions&) = delete;
    CompiledFunctions& operator=(const CompiledFunctions&) = delete;
    virtual ~CompiledFunctions() = default;

    /// Calls a function, compiling it first if need be; `arguments` stay as they are. `requested`
    /// is how many results the caller takes; `takesAny`: with 0, it takes one if there is one.
    /// Results go to `results`, which has room for max(requested, 1); one that is missing stays
    /// unset. `depthLeft` calls inside this one are allowed. Raises host errors: an interrupt, or a
    /// compilation that was stopped.
    virtual Outcome call(const Code& code, std::span<const Value> arguments, std::size_t requested,
                         bool takesAny, std::size_t depthLeft, std::span<Value> results) = 0;
};

/// Null for EngineChoice::None. `names` must live as long as the object.
[[nodiscard]] std::unique_ptr<CompiledFunctions>
makeCompiledFunctions(const CompilerOptions& options, NameResolver& names);

} // namespace varnix
