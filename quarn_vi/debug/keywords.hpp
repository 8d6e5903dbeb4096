// Keywords for enumerations, as the string properties of some controllers take and give them.
#pragma once

#include <algorithm>
#include <locale>
#include <string_view>

namespace quarn_vi::debug {

/// Whether two texts are the same but for upper and lower case, under the default locale.
inline bool equalIgnoringCase(std::string_view a, std::string_view b) {
    const std::locale locale;
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&locale](char x, char y) {
        return std::toupper(x, locale) == std::toupper(y, locale);
    });
}

} // namespace quarn_vi::debug
