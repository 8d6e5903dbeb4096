// See prompt.hpp.
#include "shell/prompt.hpp"

#include "lang/interpreter.hpp"
#include "shell/console.hpp"
#include "shell/interrupts.hpp"
#include "shell/line_editor.hpp"
#include "shell/live_names.hpp"
#include "shell/report.hpp"

#include <algorithm>
#include <clocale>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace varnix {

namespace {

/// `help`, `help NAME`: the one command that needs neither brackets nor quotes. Gives the call.
std::string withHelpCalled(const Interpreter& interpreter, const std::string& code) {
    static constexpr std::string_view blanks = " \t\r\n;";
    const std::size_t begin = code.find_first_not_of(blanks);
    if (begin == std::string::npos || code.compare(begin, 4, "help") != 0 ||
        interpreter.global("help"))
        return code;
    const std::size_t end = code.find_last_not_of(blanks) + 1;
    const std::size_t name = std::min(code.find_first_not_of(" \t", begin + 4), end);
    const bool separated = name > begin + 4 || name == end;
    const bool plain = std::all_of(code.begin() + static_cast<std::ptrdiff_t>(name),
                                   code.begin() + static_cast<std::ptrdiff_t>(end), [](char c) {
                                       return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                              (c >= '0' && c <= '9') || c == '_' || c == '.';
                                   });
    if (!separated || !plain)
        return code;
    return name == end ? "help();" : "help(\"" + code.substr(name, end - name) + "\");";
}

/// Runs what was typed; false when it failed. ExitRequest passes.
bool runTyped(Interpreter& interpreter, const std::string& code) {
    forgetInterrupt();
    const bool ok = reportErrors([&] { interpreter.runPrompt(withHelpCalled(interpreter, code)); });
    console::flush();
    return ok;
}

bool blank(const std::string& text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

int runOnTerminal(Interpreter& interpreter) {
    std::setlocale(LC_CTYPE, ""); // the editor must know how wide a character is
    const LiveNames names(interpreter);
    LineEditor editor(names, historyFile());
    std::string typed;
    std::string line;
    while (true) {
        console::endLine();
        console::flush();
        const LineEditor::Outcome outcome =
            typed.empty() ? editor.read(">> ", LineEditor::Place::Start, line)
                          : editor.read(".. ", LineEditor::Place::InBlock, line);
        switch (outcome) {
        case LineEditor::Outcome::Cancelled:
            typed.clear();
            continue;
        case LineEditor::Outcome::End:
            console::print("\n");
            console::flush();
            if (typed.empty())
                return 0;
            typed.clear(); // leaves the open block, not the session
            continue;
        case LineEditor::Outcome::Line:
            break;
        }
        editor.remember(line);
        typed += line + "\n";
        if (interpreter.needsMoreInput(typed))
            continue;
        const std::string code = std::move(typed);
        typed.clear();
        if (!blank(code))
            runTyped(interpreter, code);
    }
}

int runOnPipe(Interpreter& interpreter) {
    bool ok = true;
    std::string typed;
    std::string line;
    while (std::getline(std::cin, line)) {
        typed += line + "\n";
        if (interpreter.needsMoreInput(typed))
            continue;
        const std::string code = std::move(typed);
        typed.clear();
        if (!blank(code))
            ok &= runTyped(interpreter, code);
    }
    if (!blank(typed)) // an open block: says what is missing
        ok &= runTyped(interpreter, typed);
    return ok ? 0 : 1;
}

} // namespace

int runPromptLoop(Interpreter& interpreter) {
    const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    return terminal ? runOnTerminal(interpreter) : runOnPipe(interpreter);
}

} // namespace varnix
