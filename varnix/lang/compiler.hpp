// The compiler: a syntax tree to the machine's code.
#pragma once

#include "lang/bytecode.hpp"
#include "lang/source.hpp"

#include <functional>
#include <memory>

namespace varnix {

struct CompileOptions {
    /// Statements without ';' show their values, and expressions are assigned to `ans`.
    bool echo = false;
    /// The source is one expression, whose value the code returns.
    bool expression = false;
    /// For code of eval and capture: the unit whose functions it sees too.
    std::shared_ptr<Unit> parent;
    /// Whether a name has a value in the workspace where the code will run. Only a hint: what a
    /// name is, is decided when the code runs.
    std::function<bool(objsys::COSNameID)> isVariable;
};

/// Raises "varnix:syntax", "varnix:tooDeep", "varnix:tooLarge" with the place in the source.
[[nodiscard]] std::shared_ptr<Unit> compile(const Source& source, const CompileOptions& options);

} // namespace varnix
