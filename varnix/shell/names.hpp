// Names for people: every name that is known, and those that come near a mistyped one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varnix {

/// Full names of all packages and of all classes that are not hidden, parents first.
[[nodiscard]] std::vector<std::string> packageAndClassNames();

/// Words of the language that begin or continue a statement or an expression.
[[nodiscard]] const std::vector<std::string>& keywords();

/// Those of `known` that a person may have meant by `name`, nearest first, at most `limit`: few
/// letters away, or with the same last part ("Debug" for "internal.quarn.Debug"). Upper and lower
/// case do not matter.
[[nodiscard]] std::vector<std::string>
nearestNames(std::string_view name, const std::vector<std::string>& known, std::size_t limit);

} // namespace varnix
