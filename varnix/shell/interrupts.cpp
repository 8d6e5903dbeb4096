// See interrupts.hpp.
#include "shell/interrupts.hpp"

#include "lang/interpreter.hpp"

#include <csignal>

namespace varnix {

namespace {

extern "C" void onInterrupt(int /*signal*/) {
    Interpreter::interrupt(); // only sets a flag
}

} // namespace

void handleInterrupts(InterruptMode mode) {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    // Reads and writes under way go on: a half-written console line would be lost.
    action.sa_flags = SA_RESTART;
    if (mode == InterruptMode::Script)
        action.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

void forgetInterrupt() {
    try {
        Interpreter::checkInterrupt();
    } catch (const objsys::COSError&) {
        // It was meant for nothing that still runs.
    }
}

} // namespace varnix
