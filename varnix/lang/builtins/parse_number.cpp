#include "lang/builtins/parse_number.hpp"

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace varnix::builtins {
namespace {

[[nodiscard]] std::string_view withoutBlanks(std::string_view t) {
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!t.empty() && blank(t.front()))
        t.remove_prefix(1);
    while (!t.empty() && blank(t.back()))
        t.remove_suffix(1);
    return t;
}

[[nodiscard]] std::optional<double> hexadecimal(std::string_view digits) {
    double value = 0;
    if (digits.empty())
        return {};
    for (const char c : digits) {
        unsigned digit = 0;
        if (std::from_chars(&c, &c + 1, digit, 16).ptr == &c)
            return {};
        value = value * 16 + digit;
    }
    return value;
}

} // namespace

std::optional<double> parseNumber(std::string_view text) {
    std::string_view t = withoutBlanks(text);
    bool negative = false;
    if (!t.empty() && (t.front() == '+' || t.front() == '-')) {
        negative = t.front() == '-';
        t.remove_prefix(1);
    }
    std::optional<double> result;
    if (t == "inf") {
        result = std::numeric_limits<double>::infinity();
    } else if (t == "nan") {
        result = std::numeric_limits<double>::quiet_NaN();
    } else if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        result = hexadecimal(t.substr(2));
    } else if (!t.empty() &&
               (std::isdigit(static_cast<unsigned char>(t.front())) != 0 || t.front() == '.')) {
        double value = 0;
        const char* const end = t.data() + t.size();
        const auto [stop, error] = std::from_chars(t.data(), end, value);
        if (stop == end && error == std::errc())
            result = value;
        else if (stop == end && error == std::errc::result_out_of_range)
            result = std::strtod(std::string(t).c_str(), nullptr); // 0 or infinity
    }
    if (result && negative)
        *result = -*result;
    return result;
}

} // namespace varnix::builtins
