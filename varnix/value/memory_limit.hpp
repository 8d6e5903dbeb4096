// Whether the machine has the memory that a large array needs.
//
// The system hands out memory that it does not have and ends the process when it is used. A script
// that asks for too much shall get an error instead, so large requests are checked beforehand.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace varnix {

/// Requests below this are not checked.
inline constexpr std::size_t checkedFromBytes = std::size_t{1} << 26;

/// Raises "varnix:outOfMemory" when there are not so many bytes to be had: from the machine, or
/// under the limit of the control group that the process runs in. Where neither can be found out
/// nothing is refused.
void requireMemoryFor(std::size_t bytes);

namespace detail {
/// The number that follows a name at the beginning of a line, in the units in which it stands
/// there: numberAfter("MemFree: 5 kB\nMemAvailable: 7 kB\n", "MemAvailable:") is 7.
[[nodiscard]] std::optional<std::size_t> numberAfter(std::string_view text, std::string_view name);
} // namespace detail

} // namespace varnix
