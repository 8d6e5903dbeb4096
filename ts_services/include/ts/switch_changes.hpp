// A count of the changes of all features and testing hooks of the process. Who keeps something that
// was made under their values, such as compiled code, can tell from it whether to make it anew.
#pragma once

#include <cstdint>

namespace tssv {

namespace detail {
extern std::uint64_t switchChanges;
}

/// Grows whenever a feature or a testing hook gets another value than it had.
[[nodiscard]] inline std::uint64_t switchChanges() noexcept {
    return detail::switchChanges;
}

} // namespace tssv
