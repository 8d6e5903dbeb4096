// The command line of the program: what its words ask for.
//
// Owned by the shell; a new option is one line in command_line.cpp and one member here.
#pragma once

#include "lang/engine_choice.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace varnix {

/// What to run, and with which settings.
struct CommandLine {
    enum class Mode { Interactive, File, Code };
    Mode mode = Mode::Interactive;
    /// The script's path or the code; empty for the interactive command line.
    std::string source;
    /// What the built-in `args` gives.
    std::vector<std::string> arguments;
    bool loadModules = true;
    CompilerOptions compiler;
    /// Where extension modules are; none: the default folder.
    std::optional<std::string> moduleFolder;
};

/// Nothing to run: the process prints `text` (on standard error unless `status` is 0) and ends.
struct CommandLineAnswer {
    int status = 0;
    std::string text;
};

/// Reads the words after the program's name. Wrong usage gives an answer with status 2.
[[nodiscard]] std::variant<CommandLine, CommandLineAnswer>
parseCommandLine(std::vector<std::string> words);

} // namespace varnix
