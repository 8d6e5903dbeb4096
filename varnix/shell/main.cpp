// The program `varnix`: loads the extension modules, then runs a script, code, or the interactive
// command line.
#include "codegen/quarn_hooks.hpp"
#include "lang/interpreter.hpp"
#include "shell/command_line.hpp"
#include "shell/console.hpp"
#include "shell/interrupts.hpp"
#include "shell/modules.hpp"
#include "shell/prompt.hpp"
#include "shell/report.hpp"

#include <sv/sv.hpp>

#include <cstdio>
#include <string>
#include <variant>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

using namespace varnix;

void loadModules(ModuleLoader& loader, const CommandLine& line) {
    const bool chosen = line.moduleFolder.has_value();
    const std::string folder =
        chosen ? *line.moduleFolder : std::string(svVarnixRoot()) + "/lib/varnix/modules";
    for (const std::string& message : loader.loadFolder(folder, !chosen))
        printError("error: " + message + "\n");
}

int run(const CommandLine& line) {
    installQuarnHooks();
    // The loader goes last: the script's objects still need the modules' code when they die.
    ModuleLoader loader;
    if (line.loadModules)
        loadModules(loader, line);
    InterpreterOptions options;
    options.arguments = line.arguments;
    options.compiler = line.compiler;
    Interpreter interpreter(std::move(options));

    const bool interactive = line.mode == CommandLine::Mode::Interactive;
    handleInterrupts(interactive ? InterruptMode::Interactive : InterruptMode::Script);
    try {
        if (interactive)
            return runPromptLoop(interpreter);
        const bool ok = reportErrors([&] {
            if (line.mode == CommandLine::Mode::File)
                interpreter.runFile(line.source);
            else
                interpreter.runCode(line.source, "<command>");
        });
        return ok ? 0 : 1;
    } catch (const ExitRequest& request) {
        return request.status;
    }
}

/// Arrays come and go with each turn of a loop. Memory for those of up to 32 MB, the most that can
/// be set, is kept for the next ones, 64 MB of it at the end of the heap: given back and asked for
/// again, every page would be cleared and mapped anew, which takes longer than filling it.
void keepMemoryOfArrays() {
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
#endif
}

} // namespace

int main(int argc, char** argv) {
    keepMemoryOfArrays();
    const auto parsed = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed)) {
        std::fputs(answer->text.c_str(), answer->status == 0 ? stdout : stderr);
        return answer->status;
    }
    const int status = run(std::get<CommandLine>(parsed));
    console::flush();
    if (std::ferror(stdout) != 0) { // a full disk, say: success must not be claimed
        std::fputs("error: standard output could not be written\n", stderr);
        return status == 0 ? 1 : status;
    }
    return status;
}
