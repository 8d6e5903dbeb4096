// The script engine's face towards the shell, the built-ins and the tests: source text goes in,
// it is compiled to bytecode and run by the machine.
//
// One interpreter per process is the rule; nothing here is shared between threads. It owns the
// global workspace (the variables of the prompt and of a running script) and all compiled code.
#pragma once

#include "lang/engine_choice.hpp"
#include "value/value.hpp"

#include <objsys/error.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace varnix {

class Machine;

struct InterpreterOptions {
    /// The language's function-call depth at which a script error is raised.
    std::size_t maxCallDepth = 2000;
    /// What the built-in `args` gives: a cell of texts.
    std::vector<std::string> arguments;
    CompilerOptions compiler = {};
};

/// Raised by the built-in exit(status); not an error, passes through try/catch.
struct ExitRequest {
    int status = 0;
};

class Interpreter {
public:
    explicit Interpreter(InterpreterOptions options = {});
    ~Interpreter();
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;

    /// Runs a script file in the global workspace; its folder is searched for functions while it
    /// runs. Errors pass as objsys::COSError with their stack, "varnix:ioError" when the file
    /// cannot be read, "varnix:syntax" before anything has run.
    void runFile(const std::string& path);
    /// Runs code in the global workspace. `sourceName` stands in error places: "<command>".
    void runCode(std::string_view code, const std::string& sourceName);
    /// Runs code as typed at the prompt: expression statements and assignments without a closing
    /// `;` echo their value on the console (expressions as `ans`, which is assigned).
    void runPrompt(std::string_view code);
    /// Whether more lines are needed to complete what was typed so far (open block, bracket, or
    /// `...`). Never raises.
    [[nodiscard]] bool needsMoreInput(std::string_view code) const;

    /// Calls a function value or a function by name with values; returns up to `requested` results.
    std::vector<Value> call(const Value& function, std::span<const Value> arguments,
                            std::size_t requested);
    std::vector<Value> call(std::string_view name, std::span<const Value> arguments,
                            std::size_t requested);

    // For built-ins that work on the workspace of the code that called them (eval, capture,
    // exists, variables, clear); at the prompt that is the global workspace.

    /// Runs code in the caller's workspace.
    void runInCaller(std::string_view code, const std::string& sourceName);
    /// The value of an expression in the caller's workspace.
    Value evaluateInCaller(std::string_view expression, const std::string& sourceName);
    /// Names of the variables of the caller's workspace that have values, sorted.
    [[nodiscard]] std::vector<std::string> variablesOfCaller() const;
    /// The value of a variable of the caller's workspace.
    [[nodiscard]] std::optional<Value> variableOfCaller(std::string_view name) const;
    /// Removes a variable of the caller's workspace; false when there was none.
    bool clearInCaller(std::string_view name);

    // The global workspace, for the shell and for tests.
    [[nodiscard]] std::vector<std::string> globalNames() const;
    [[nodiscard]] std::optional<Value> global(std::string_view name) const;
    void setGlobal(std::string_view name, Value value);

    /// What a name means where it is not a variable: "function" (script function visible now),
    /// "builtin", "class", "package", or "" for nothing.
    [[nodiscard]] std::string kindOfName(std::string_view name) const;
    /// Names of script functions visible now (in this script or in files on the path), sorted.
    [[nodiscard]] std::vector<std::string> functionNames() const;
    /// The comment lines directly above or below a script function's head, for help; empty when
    /// there are none or no such function.
    [[nodiscard]] std::string functionHelp(std::string_view name) const;

    /// Adds a folder that is searched for function files, after the script's own folder and the
    /// current folder.
    void addPath(const std::string& folder);
    /// Tells that function files may be found elsewhere now: for what changes the current folder.
    void foldersChanged();

    /// Asks the machine to stop at the next loop turn or call with "varnix:interrupted". The one
    /// function that may be called from a signal handler.
    static void interrupt() noexcept;
    /// For long built-ins: raises "varnix:interrupted" when an interrupt is pending.
    static void checkInterrupt();

    [[nodiscard]] const InterpreterOptions& options() const;

private:
    std::unique_ptr<Machine> machine_;
};

/// An uncaught error as a person sees it: "error: MESSAGE\n" and "  at FILE:LINE:COLUMN\n" lines.
[[nodiscard]] std::string formatError(const objsys::COSError& error);

} // namespace varnix
