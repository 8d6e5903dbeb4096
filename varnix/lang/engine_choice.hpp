// What runs compiled functions, as the command line asks for it.
#pragma once

#include <cstdint>

namespace varnix {

enum class EngineChoice : std::uint8_t {
    None,      ///< nothing is compiled
    Default,   ///< the fastest one that there is
    Evaluator, ///< the IR is interpreted
    Llvm,      ///< machine code
};

/// How functions of numbers are run.
struct CompilerOptions {
    EngineChoice engine = EngineChoice::Default;
    /// Says on standard error which functions are interpreted, and why.
    bool reportsInterpreted = false;
};

} // namespace varnix
