// Reporting of broken internal consistency. The library never ends the process by itself: the host
// decides what a failed assertion means by installing a handler.
//
// One thread only, like everything in this library.
#pragma once

/// Reports that the condition described by `message` does not hold at `file`:`line`, through the
/// installed handler, and returns. A null text is taken for an empty one.
void client_assertion_failed(const char* file, int line, const char* message);

namespace QN {

/// Receives one failed assertion; the texts are never null and live until the handler returns. A
/// handler may throw: the exception passes through client_assertion_failed to its caller.
using AssertionHandler = void (*)(const char* file, int line, const char* message);

/// Installs `handler` for the process; null puts back the default, which prints one line to
/// standard error. Returns the handler that was installed before, null for the default.
AssertionHandler setAssertionHandler(AssertionHandler handler) noexcept;

} // namespace QN
