// Uncaught errors on standard error.
#pragma once

#include "lang/interpreter.hpp"
#include "shell/console.hpp"

#include <objsys/error.hpp>

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <unistd.h>

namespace varnix {

/// Prints to standard error, after the console text that came before it; on a line of its own where
/// a person sees both.
inline void printError(const std::string& text) {
    if (isatty(STDOUT_FILENO) != 0 && isatty(STDERR_FILENO) != 0)
        console::endLine();
    console::flush();
    std::fputs(text.c_str(), stderr);
}

/// Calls `run`; an error that it raises is printed, and the result is false then. ExitRequest
/// passes through.
template <class F>
bool reportErrors(F&& run) {
    try {
        run();
        return true;
    } catch (const ExitRequest&) {
        throw;
    } catch (const objsys::COSError& error) {
        printError(formatError(error));
    } catch (const std::bad_alloc&) {
        printError("error: out of memory\n");
    } catch (const std::exception& error) {
        printError(std::string("error: ") + error.what() + "\n");
    }
    return false;
}

} // namespace varnix
