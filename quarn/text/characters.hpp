// The characters of a name. Names may hold any bytes; forms that other programs read are UTF-8
// throughout.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace QN::text {

/// The number of bytes of the character at the front of `text`, which is not empty, and 0 if no
/// well-formed UTF-8 is there (RFC 3629, section 4: the shortest form, no surrogates, up to
/// U+10FFFF).
[[nodiscard]] constexpr std::size_t lengthOfCharacter(std::string_view text) noexcept {
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byteAt(1) < lowest || byteAt(1) > highest) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if (byteAt(i) < 0x80 || byteAt(i) > 0xBF) {
            return 0;
        }
    }
    return length;
}

/// Gives `put(std::string_view)` each character of `text`; "?" stands for a byte that is part of
/// none.
template <typename Put>
constexpr void forEachCharacter(std::string_view text, Put put) {
    while (!text.empty()) {
        const std::size_t length = lengthOfCharacter(text);
        put(length == 0 ? std::string_view("?") : text.substr(0, length));
        text.remove_prefix(length == 0 ? 1 : length);
    }
}

/// Appends `text` for a page, between tags or as an attribute's value in quotes. Control characters
/// are not allowed there.
inline void appendHtml(std::string& out, std::string_view text) {
    forEachCharacter(text, [&out](std::string_view character) {
        switch (const char c = character.front()) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += ' ';
            } else {
                out += character;
            }
        }
    });
}

} // namespace QN::text
