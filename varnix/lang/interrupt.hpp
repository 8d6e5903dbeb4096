// The request to stop, as a signal handler leaves it and the machine looks for it.
#pragma once

#include <csignal>

namespace varnix::detail {

/// Non-zero while an interrupt is pending. The one piece of state that a signal handler touches.
/// Hidden, so that every loop turn reads it directly and not through the table of exports.
[[gnu::visibility("hidden")]] extern volatile std::sig_atomic_t interruptRequested;

/// Set while an interrupt is on its way out of all running code: tells it from an error to which a
/// script gave the same identifier.
[[gnu::visibility("hidden")]] extern bool interruptUnderWay;

/// Withdraws the request and raises "varnix:interrupted".
[[noreturn]] void raiseInterrupted();

/// Called at every turn of a loop and every call of a function.
inline void pollInterrupt() {
    if (interruptRequested != 0) [[unlikely]]
        raiseInterrupted();
}

} // namespace varnix::detail
