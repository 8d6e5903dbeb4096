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

    /// What the caller takes: so many results; `any`: with 0, it takes one if there is one.
    struct Wish {
        std::uint32_t results = 0;
        bool any = false;
    };

    /// Calls a function, compiling it first if need be; the arguments stay as they are. Results go
    /// to `results`, which has room for as many as are wished, and for one; what is missing stays
    /// unset. `depthLeft` calls inside this one are allowed. Raises host errors: an interrupt, or a
    /// compilation that was stopped. (Few words, so that all go in registers: a call is to take
    /// some nanoseconds.)
    virtual Outcome call(const Code& code, const Value* arguments, std::size_t count, Wish wish,
                         std::size_t depthLeft, Value* results) = 0;
};

/// Null for EngineChoice::None. `names` must live as long as the object.
[[nodiscard]] std::unique_ptr<CompiledFunctions>
makeCompiledFunctions(const CompilerOptions& options, NameResolver& names);

} // namespace varnix
