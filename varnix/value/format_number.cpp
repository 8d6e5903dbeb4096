// Numbers as text.
//
// A double prints with the fewest digits that read back as the same double. Fixed notation is used
// while the decimal exponent is from -5 to 15 (0.00001 to 9999999999999998), else d.ddde+XX with
// at least two digits of exponent: 1e-07, 1e+16. Negative zero prints as -0, since it reads back
// as such.
#include "value/format.hpp"
#include "value/numeric.hpp"

#include <charconv>

namespace varnix {

std::string formatNumber(double value) {
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value < 0 ? "-inf" : "inf";
    if (value == std::trunc(value) && std::fabs(value) < 1e15 && !std::signbit(value)) {
        char digits[24];
        const auto end =
            std::to_chars(digits, digits + sizeof digits, static_cast<std::int64_t>(value)).ptr;
        return {digits, end};
    }
    char text[40];
    char* end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
    const std::string_view all(text, static_cast<std::size_t>(end - text));
    const std::size_t mark = all.find('e');
    int exponent = 0;
    const char* from = text + mark + 1 + (all[mark + 1] == '+' ? 1 : 0);
    std::from_chars(from, end, exponent);
    if (exponent < -5 || exponent > 15)
        return std::string(all);
    end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed).ptr;
    return {text, end};
}

std::string formatScalar(const Value& value) {
    switch (value.tag()) {
    case Tag::Double:
        return formatNumber(value.asDouble());
    case Tag::Logical:
        return value.asLogical() ? "true" : "false";
    case Tag::Int8:
    case Tag::Int16:
    case Tag::Int32:
    case Tag::Int64:
        return std::to_string(value.asSigned());
    case Tag::UInt8:
    case Tag::UInt16:
    case Tag::UInt32:
    case Tag::UInt64:
        return std::to_string(value.asUnsigned());
    default:
        return value.isChar() ? std::string(value.textView()) : formatBrief(value);
    }
}

} // namespace varnix
