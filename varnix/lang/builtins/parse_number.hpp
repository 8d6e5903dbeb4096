// A number in a text, as users write it.
#pragma once

#include <optional>
#include <string_view>

namespace varnix::builtins {

/// Decimal with optional sign and exponent, hexadecimal whole with 0x, inf, nan; blanks around it
/// are ignored. Nothing when the text holds anything else.
[[nodiscard]] std::optional<double> parseNumber(std::string_view text);

} // namespace varnix::builtins
