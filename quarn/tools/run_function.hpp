// Runs one function of a scope with arguments given as text, with an engine of choice; what
// `quarn-opt --run` does.
#pragma once

#include <string>
#include <vector>

namespace QN {
class Scope;
}

namespace QN::tools {

struct RunOptions {
    std::string function;
    std::string engine = "evaluator";
    std::vector<std::string> arguments;
    int level = 2;
    bool debugInfo = false;
    bool preserveFrames = false;
    bool valgrindPrint = false;
    std::string sourceFile; ///< where the lines of the nodes are, for debuggers
};

/// Leaves in `text` the result as a line, or the trap as "trap in FUNCTION at LINE: MESSAGE", and
/// returns whether there was a result. Throws std::runtime_error for arguments that do not fit.
[[nodiscard]] bool runFunction(Scope& scope, const RunOptions& options, std::string& text);

} // namespace QN::tools
