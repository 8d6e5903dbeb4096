#include "codegen/quarn_hooks.hpp"

#include "shell/console.hpp"

#include <qn/assertion.hpp>
#include <qn/console.hpp>

#include <fmt/format.h>

namespace varnix {

namespace {

void writeToConsole(void*, std::string_view text) {
    console::print(text);
}

void reportAssertion(const char* file, int line, const char* message) {
    console::print(fmt::format("QUARN assertion failed: {} ({}:{})\n", message, file, line));
}

} // namespace

void installQuarnHooks() {
    QN::setConsoleSink(writeToConsole, nullptr);
    QN::setAssertionHandler(reportAssertion);
}

} // namespace varnix
