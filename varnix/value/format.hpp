// Values as text for a person: numbers in the shortest form that reads back the same, arrays as
// aligned tables, objects as class and property table.
#pragma once

#include "value/value.hpp"

#include <span>
#include <string>
#include <string_view>

namespace varnix {

/// A number in the shortest form that reads back the same: 0.1, 65536, 1e-07, inf, -inf, nan.
[[nodiscard]] std::string formatNumber(double value);
/// A scalar of any class: numbers as above, logicals as true or false.
[[nodiscard]] std::string formatScalar(const Value& value);
/// What disp prints, each line ended by a newline.
[[nodiscard]] std::string formatDisplay(const Value& value);
/// What the prompt echoes for `name = value`, ended by a newline.
[[nodiscard]] std::string formatEcho(std::string_view name, const Value& value);
/// A short one-line form for messages and tables: 5, "text", [1, 2, 3], 3 by 4 double,
/// {2 by 1 cell}, internal.quarn.Debug object.
[[nodiscard]] std::string formatBrief(const Value& value);
/// sprintf and printf of the script language: C conversions d i u x X o c s f e E g G a and %%,
/// with flags, width and precision. Arguments are taken element by element and the format is
/// reused until they are used up. Raises "varnix:badArgument" for a malformed format.
[[nodiscard]] std::string formatPrintf(std::string_view format, std::span<const Value> arguments);

} // namespace varnix
