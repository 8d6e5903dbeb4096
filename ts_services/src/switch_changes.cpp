// See the header.
#include <ts/switch_changes.hpp>

namespace tssv::detail {

std::uint64_t switchChanges = 0;

} // namespace tssv::detail
