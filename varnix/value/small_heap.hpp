// The allocator of array headers and small arrays: free lists by size, one interpreter thread.
//
// Most arrays that cross the door are short texts. A list per 16 bytes up to 256 makes taking and
// returning one a handful of instructions. Under AddressSanitizer every block comes from malloc,
// so that errors are seen.
#pragma once

#include <cstddef>

namespace varnix::heap {

/// Memory of at least `bytes`, aligned to 16; throws std::bad_alloc.
[[nodiscard]] void* take(std::size_t bytes);
/// Returns memory taken with the same size.
void give(void* memory, std::size_t bytes) noexcept;

} // namespace varnix::heap
