// Ctrl-C: turns the interrupt signal into a stop request for the running script.
//
// Owned by the shell; installed once by the program, never by the library.
#pragma once

namespace varnix {

enum class InterruptMode {
    /// Each Ctrl-C stops the script that is running.
    Interactive,
    /// The first Ctrl-C stops the script with an error; a second one ends the process, for a script
    /// that does not come to a place where it can stop.
    Script,
};

/// Installs the signal handler for the rest of the process.
void handleInterrupts(InterruptMode mode);

/// Forgets a Ctrl-C that came while no script was running.
void forgetInterrupt();

} // namespace varnix
