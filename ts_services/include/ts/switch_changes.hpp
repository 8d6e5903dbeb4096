// A count of the changes of all features, testing hooks and debug logs of the process. Who keeps
// something that was made under their values, such as compiled code, can tell from it whether to
// make it anew: a function that was compiled before the debug log moved has left its dumps
// elsewhere.
#pragma once

#include <cstdint>

namespace tssv {

namespace detail {
extern std::uint64_t switchChanges;
}

/// Grows whenever a feature or a testing hook gets another value than it had, or a debug log
/// another folder or another way to name its files.
[[nodiscard]] inline std::uint64_t switchChanges() noexcept {
    return detail::switchChanges;
}

} // namespace tssv
