// The installed assertion handler. Process-wide because an assertion may fail anywhere in the
// library, far from any object that could carry a handler.
#include <qn/assertion.hpp>

#include <cstdio>
#include <utility>

namespace {

QN::AssertionHandler installedHandler = nullptr;

} // namespace

void client_assertion_failed(const char* file, int line, const char* message) {
    file = file != nullptr ? file : "";
    message = message != nullptr ? message : "";
    if (installedHandler != nullptr) {
        installedHandler(file, line, message);
    } else {
        std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, message);
    }
}

namespace QN {

AssertionHandler setAssertionHandler(AssertionHandler handler) noexcept {
    return std::exchange(installedHandler, handler);
}

} // namespace QN
