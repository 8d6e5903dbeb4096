// Source text with its name, and places in it; how a mistake in it is reported.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace varnix {

/// A position in a source text. Both count from 1; columns count characters, not bytes.
struct Place {
    std::uint32_t line = 1;
    std::uint32_t column = 1;
};

/// One text that is compiled as a whole: a file, a line of the prompt, an argument of eval.
struct Source {
    std::string name;   ///< the path as given, or a name in angle brackets
    std::string folder; ///< where a script file lies; empty for everything else
    std::string text;
};

/// Raises "varnix:syntax" with the place as the only entry of the error's stack.
[[noreturn]] void raiseSyntax(const Source& source, Place place, std::string message);
/// Raises any other error found while compiling, in the same way.
[[noreturn]] void raiseAt(std::string_view identifier, const Source& source, Place place,
                          std::string message);

} // namespace varnix
