// Where code that prints what it executes sends its lines. Called from machine code.
#pragma once

#include <cstdint>

namespace QN::VMRT {

/// One line, without its end, on the console of the library.
void printOnConsole(const char* line) noexcept;

/// One line, without its end, in the log of valgrind; nothing happens outside of it.
void printInValgrind(const char* line) noexcept;

} // namespace QN::VMRT
