// hvxPrintf and utPrintf: C's printf onto the console, with %Iu for unsigned 64-bit decimals.

#include "shell/console.hpp"

#include <hv/array.hpp>
#include <ut/ut.hpp>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

/// The format as this platform's C library takes it: the size prefix I becomes that of uint64_t.
std::string platformFormat(const char* format) {
    std::string result;
    for (const char* c = format; *c; ++c) {
        result += *c;
        if (*c != '%')
            continue;
        ++c;
        // Flags, width and precision stand between the percent sign and the size prefix.
        while (*c && std::string_view("-+ #0123456789.*").find(*c) != std::string_view::npos)
            result += *c++;
        if (*c == 'I' && c[1] == 'u') {
            result += PRIu64;
            ++c;
        } else if (*c) {
            result += *c;
        } else {
            break;
        }
    }
    return result;
}

int printFormatted(const char* format, std::va_list arguments) {
    const std::string native = platformFormat(format);
    char shortText[512];
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(shortText, sizeof shortText, native.c_str(), arguments);
    if (length >= static_cast<int>(sizeof shortText)) {
        std::string longText(static_cast<std::size_t>(length) + 1, '\0');
        std::vsnprintf(longText.data(), longText.size(), native.c_str(), again);
        varnix::console::print({longText.data(), static_cast<std::size_t>(length)});
    } else if (length > 0) {
        varnix::console::print({shortText, static_cast<std::size_t>(length)});
    }
    va_end(again);
    return length;
}

} // namespace

int hvxPrintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = printFormatted(format, arguments);
    va_end(arguments);
    return length;
}

int utPrintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = printFormatted(format, arguments);
    va_end(arguments);
    return length;
}
