// Built-in functions of the script language: how one is written and found.
//
// A family of built-ins is one file `lang/builtins/FAMILY.cpp` with a table of rows and one
// function that hands it over; `lang/builtins/families.hpp` lists the families. Adding a function
// is a row in its family's table. In help texts a line `Example: EXPRESSION gives EXPRESSION` is
// checked by the tests.
#pragma once

#include "value/value.hpp"

#include <span>
#include <string_view>
#include <vector>

namespace varnix {

class Interpreter;
struct Builtin;

/// What a built-in gets and gives.
struct BuiltinCall {
    Interpreter& interpreter;
    /// The arguments, already counted against the row's limits.
    std::span<const Value> arguments;
    /// How many results the caller will use: 0 for a statement, 1 inside an expression, more for
    /// `a, b = f(x)`.
    std::size_t requested = 1;
    /// Results in order. A function that gives nothing leaves it empty.
    std::vector<Value>& results;
    /// The function itself, for its messages; callBuiltin sets it.
    const Builtin* builtin = nullptr;

    void give(Value value) const { results.push_back(std::move(value)); }
};

struct Builtin {
    const char* name;
    /// As a user calls it: "mod(x, y)".
    const char* signature;
    /// A sentence or a few that say what it does, takes and gives; shown by `help NAME`.
    const char* help;
    std::size_t minArguments;
    std::size_t maxArguments; ///< anyNumber: no limit
    std::size_t maxResults;
    void (*function)(BuiltinCall& call);
};

inline constexpr std::size_t anyNumber = static_cast<std::size_t>(-1);

/// The built-in of that name, or null. Constant time.
[[nodiscard]] const Builtin* findBuiltin(std::string_view name);
/// All of them, sorted by name.
[[nodiscard]] std::span<const Builtin* const> allBuiltins();

/// Counts the arguments against the row's limits (raising "varnix:tooManyInputs",
/// "varnix:notEnoughInputs", "varnix:tooManyOutputs") and calls the function.
void callBuiltin(const Builtin& builtin, BuiltinCall& call);

} // namespace varnix
