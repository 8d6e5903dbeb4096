// See command_line.hpp.
#include "shell/command_line.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <sstream>

namespace varnix {

namespace {

constexpr int wrongUsage = 2;

class HelpText : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
        return "Usage: varnix [OPTIONS]                     the interactive command line\n"
               "       varnix [OPTIONS] FILE.vx [ARG...]    runs a script; `args` holds the rest\n"
               "       varnix [OPTIONS] -e CODE [ARG...]    runs that code\n";
    }
};

CommandLineAnswer usageError(const std::string& message) {
    return {wrongUsage, "varnix: " + message + "\nTry: varnix --help\n"};
}

} // namespace

std::variant<CommandLine, CommandLineAnswer> parseCommandLine(std::vector<std::string> words) {
    CommandLine line;
    CLI::App app{"Runs scripts, or is the interactive command line when there is nothing to run."};
    app.name("varnix");
    app.formatter(std::make_shared<HelpText>());
    // The first word that is no option is the script; the words after it are the script's own.
    app.prefix_command();
    app.failure_message(CLI::FailureMessage::simple);
    app.set_help_flag("-h,--help", "Print this text and leave");
    app.set_version_flag("-V,--version", "varnix " VARNIX_VERSION, "Print the version and leave");

    std::string code;
    auto* const codeOption = app.add_option("-e", code, "Run this code")->type_name("CODE");
    std::string folder;
    auto* const folderOption =
        app.add_option("--modules", folder,
                       "Load the extension modules (*.so) of this folder, in name order,\n"
                       "instead of those of <root>/lib/varnix/modules")
            ->type_name("DIR");
    bool noModules = false;
    app.add_flag("--no-modules", noModules, "Load no extension module");
    bool noJit = false;
    auto* const noJitFlag = app.add_flag("--no-jit", noJit, "Compile no script function");
    std::string engine;
    app.add_option("--engine", engine,
                   "What runs compiled functions: llvm (machine code), or evaluator (slow, to\n"
                   "compare with)")
        ->type_name("NAME")
        ->check(CLI::IsMember({"evaluator", "llvm"}))
        ->excludes(noJitFlag);
    app.add_flag("--report-interpreted", line.compiler.reportsInterpreted,
                 "Say on standard error which functions are not compiled, and why");
    app.footer("Exit status: 0; 1 after an uncaught script error; 2 for wrong usage.");

    std::reverse(words.begin(), words.end()); // the order in which CLI11 takes them
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() != 0)
            return usageError(e.what());
        std::ostringstream text;
        app.exit(e, text, text);
        return CommandLineAnswer{0, text.str()};
    }

    std::vector<std::string> rest = app.remaining();
    if (!rest.empty() && rest.front() == "--")
        rest.erase(rest.begin()); // the end of our options
    if (codeOption->count() != 0) {
        line.mode = CommandLine::Mode::Code;
        line.source = code;
    } else if (!rest.empty()) {
        line.mode = CommandLine::Mode::File;
        line.source = rest.front();
        if (line.source.starts_with('-'))
            return usageError("no such option: " + line.source);
        rest.erase(rest.begin());
    }
    line.arguments = std::move(rest);
    if (noModules && folderOption->count() != 0)
        return usageError("--modules and --no-modules exclude each other");
    line.loadModules = !noModules;
    if (noJit)
        line.compiler.engine = EngineChoice::None;
    else if (!engine.empty())
        line.compiler.engine = engine == "llvm" ? EngineChoice::Llvm : EngineChoice::Evaluator;
    if (folderOption->count() != 0)
        line.moduleFolder = folder;
    return line;
}

} // namespace varnix
