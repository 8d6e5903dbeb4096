// Running built-in functions in tests the way a script does: expressions as text.
#pragma once

#include "lang/builtin.hpp"
#include "lang/interpreter.hpp"
#include "shell/console.hpp"
#include "tests/value_helpers.hpp"

#include <string>
#include <string_view>

namespace varnix::testing {

/// The interpreter of these tests, with two arguments for `args`.
[[nodiscard]] inline Interpreter& interpreter() {
    static Interpreter instance(
        InterpreterOptions{.maxCallDepth = 2000, .arguments = {"first", "second"}});
    return instance;
}

[[nodiscard]] inline Value evaluate(std::string_view expression) {
    return interpreter().evaluateInCaller(expression, "<test>");
}

/// What code prints.
[[nodiscard]] inline std::string printed(std::string_view code) {
    const console::Capture capture;
    interpreter().runCode(code, "<test>");
    return capture.text();
}

/// "identifier: message" of the error that code raises, "" when it raises none.
[[nodiscard]] inline std::string errorOfCode(std::string_view code) {
    return errorOf([&] {
        const console::Capture quiet;
        interpreter().runCode(code, "<test>");
        return 0;
    });
}

/// One line of a table: an expression and the expression whose value and class it must give.
struct GoodRow {
    const char* expression;
    const char* expected;
};
/// Code and the error that it must raise.
struct BadRow {
    const char* name; ///< the built-in function that raises it
    const char* code;
    const char* error;
};

inline void expectRows(std::span<const GoodRow> rows) {
    for (const GoodRow& row : rows) {
        SCOPED_TRACE(row.expression);
        EXPECT_EQ(errorOf([&] {
                      EXPECT_TRUE(same(evaluate(row.expression), evaluate(row.expected)));
                      return 0;
                  }),
                  "");
    }
}

} // namespace varnix::testing
