// Pieces of text that reports are made of: formatted numbers, and texts as JSON takes them. Inside
// the library only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace QN::detail {

/// Appends what printf would print, which is short: names are appended by other means.
template <typename... Arguments>
void print(std::string& text, const char* format, Arguments... arguments) {
    char buffer[256];
    const int length = std::snprintf(buffer, sizeof buffer, format, arguments...);
    text.append(buffer, std::min(sizeof buffer - 1, static_cast<std::size_t>(length)));
}

/// Appends a JSON string. Bytes that are no printable ASCII go out as code points of their own
/// value, so that any name gives a valid text.
inline void appendQuotedJson(std::string& text, std::string_view value) {
    text += '"';
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (byte < 0x20 || byte >= 0x7F) {
            print(text, "\\u%04x", static_cast<unsigned>(byte));
        } else {
            text += c;
        }
    }
    text += '"';
}

} // namespace QN::detail
