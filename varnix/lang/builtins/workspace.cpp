// Built-in functions on the running program: its variables, code as text, help, arguments, its end.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/family_list.hpp"
#include "lang/interpreter.hpp"
#include "shell/console.hpp"
#include "shell/help.hpp"
#include "value/format.hpp"

namespace varnix::builtins {
namespace {

constexpr const char* evalSource = "<eval>";
constexpr const char* captureSource = "<capture>";

void eval(BuiltinCall& call) {
    const std::string code(Arguments(call).text(0));
    if (call.requested == 0)
        call.interpreter.runInCaller(code, evalSource);
    else
        call.give(call.interpreter.evaluateInCaller(code, evalSource));
}

void capture(BuiltinCall& call) {
    const std::string code(Arguments(call).text(0));
    const console::Capture printed;
    call.interpreter.runInCaller(code, captureSource);
    call.give(Value::text(printed.text()));
}

void exists(BuiltinCall& call) {
    const Arguments in(call);
    const std::string_view name = in.text(0);
    const std::string kind =
        call.interpreter.variableOfCaller(name) ? "variable" : call.interpreter.kindOfName(name);
    call.give(Value::ofLogical(!kind.empty()));
    if (call.requested > 1)
        call.give(Value::text(kind));
}

void variables(BuiltinCall& call) {
    call.give(textColumn(call.interpreter.variablesOfCaller()));
}

void clear(BuiltinCall& call) {
    const Arguments in(call);
    for (std::size_t i = 0; i < in.count(); ++i)
        (void)in.text(i); // all of them are checked before the first goes
    if (in.count() == 0)
        for (const std::string& name : call.interpreter.variablesOfCaller())
            call.interpreter.clearInCaller(name);
    for (std::size_t i = 0; i < in.count(); ++i)
        call.interpreter.clearInCaller(in.text(i));
}

/// What help is asked for: a name, a function value, an object.
[[nodiscard]] std::string topic(const Arguments& in) {
    if (in.count() == 0)
        return {};
    const Value& x = in[0];
    if (x.isTextRow())
        return std::string(x.textView());
    if (x.isObject())
        return className(x);
    if (x.isFunction()) {
        const std::string described = functionOf(x.array()).describe();
        if (described.starts_with("fn ") && described.find('(') == std::string::npos)
            return described.substr(3);
    }
    in.wrongType(0, "a name, an object or a named function");
}

void help(BuiltinCall& call) {
    const std::string text = helpText(call.interpreter, topic(Arguments(call)));
    if (call.requested == 0)
        console::print(text);
    else
        call.give(Value::text(text));
}

void functions(BuiltinCall& call) {
    std::vector<std::string_view> names;
    std::vector<std::string_view> titles;
    for (const Family& family : allFamilies())
        for (const Builtin& row : family.table) {
            names.emplace_back(row.name);
            titles.emplace_back(family.title);
        }
    call.give(textColumn(names));
    if (call.requested > 1)
        call.give(textColumn(titles));
}

void arguments(BuiltinCall& call) {
    const std::vector<std::string>& given = call.interpreter.options().arguments;
    numeric::ArrayHolder cell(newArray(hvCELL_CLASS, 1, given.size()));
    for (std::size_t i = 0; i < given.size(); ++i)
        setCell(cell.get(), i, Value::text(given[i]));
    call.give(Value::fromArray(cell.release()));
}

void run(BuiltinCall& call) {
    call.interpreter.runFile(Arguments(call).path(0));
}

void addpath(BuiltinCall& call) {
    call.interpreter.addPath(Arguments(call).path(0));
}

void leave(BuiltinCall& call) {
    const Arguments in(call);
    const int status = in.has(0) ? static_cast<int>(in.whole(0, 0, 255)) : 0;
    console::flush();
    throw ExitRequest{status};
}

constexpr Builtin table[] = {
    {"eval", "eval(code)",
     "The value of an expression given as text; as a statement, runs any code. Variables are those "
     "of the caller.\nExample: eval(\"1 + 2\") gives 3",
     1, 1, 1, eval},
    {"capture", "capture(code)",
     "Runs code in the caller's workspace and gives the text that it printed.\n"
     "Example: capture(\"disp(5)\") gives \"5\\n\"",
     1, 1, 1, capture},
    {"exists", "exists(name)",
     "Whether a name is a variable, function, built-in function, class or package; the second "
     "result "
     "says which: \"variable\", \"function\", \"builtin\", \"class\", \"package\" or \"\".\n"
     "Example: exists(\"sin\") gives true",
     1, 1, 2, exists},
    {"variables", "variables",
     "The names of the variables that have values, as an N by 1 cell in order.\n"
     "Example: iscell(variables) gives true",
     0, 0, 1, variables},
    {"clear", "clear(names...)",
     "Removes the named variables, or all of them. Names without a variable are ignored.", 0,
     anyNumber, 0, clear},
    {"help", "help(name)",
     "Prints what is known about a function, class or package, or an overview without a name; in "
     "an "
     "expression gives it as a text.",
     0, 1, 1, help},
    {"functions", "functions",
     "The names of the built-in functions, family by family, as an N by 1 cell; the second result "
     "is "
     "the family of each.\nExample: ismember(\"sin\", functions) gives true",
     0, 0, 2, functions},
    {"args", "args",
     "The arguments of the script on the command line as a 1 by N cell of texts.\n"
     "Example: iscell(args) gives true",
     0, 0, 1, arguments},
    {"run", "run(file)", "Runs a script file in the global workspace.", 1, 1, 0, run},
    {"addpath", "addpath(folder)",
     "Adds a folder to those in which files of functions are looked for.", 1, 1, 0, addpath},
    {"exit", "exit(status)", "Ends the program with an exit status from 0 to 255, 0 without one.",
     0, 1, 0, leave},
};

} // namespace

Table workspace() {
    return table;
}

} // namespace varnix::builtins
