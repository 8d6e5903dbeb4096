// Starting other programs. Why it exists: callgrind and the start-up rows both run children.
#pragma once

#include <string>
#include <vector>

namespace bench {

/// Runs a program (found in PATH when its name has no slash) and waits for it. Gives its exit
/// status, 128 plus the number of the signal that ended it, or 127 when it cannot be started.
int runProgram(const std::vector<std::string>& command);

/// Runs a program as runProgram() does, with nothing shown of what it prints to standard output.
/// Gives the processor time that it used, its own and the system's for it, in nanoseconds. Throws
/// std::runtime_error if it fails.
double processorTimeOfProgram(const std::vector<std::string>& command);

/// Runs this program anew with other arguments and waits for it. Gives what it prints to standard
/// output; throws std::runtime_error if it fails.
std::string outputOfThisProgram(const std::vector<std::string>& arguments);

} // namespace bench
