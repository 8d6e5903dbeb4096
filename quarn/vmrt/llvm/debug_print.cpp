// The two ways to print, see debug_print.hpp.
#include "vmrt/llvm/debug_print.hpp"

#include <qn/console.hpp>

#include <string>
#include <valgrind/valgrind.h>

namespace QN::VMRT {

void printOnConsole(const char* line) noexcept {
    try {
        consoleWrite(std::string(line) + "\n");
    } catch (...) { // NOLINT: a console that fails must not end in machine code
    }
}

void printInValgrind(const char* line) noexcept {
    VALGRIND_PRINTF("%s\n", line);
}

} // namespace QN::VMRT
