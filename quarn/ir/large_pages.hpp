// The wish for large pages. The first touch of a page costs much more than filling it, on virtual
// machines some microseconds, and a processor keeps the places of few pages at hand: both matter
// for memory of some megabytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>

namespace QN::detail {

inline constexpr std::size_t largePage = std::size_t{2} << 20;

/// Asks the system for large pages inside these `bytes`, most usefully before they are touched. It
/// is only a wish: nothing happens where the system has none or is set up to ignore it.
inline void wishForLargePages(void* memory, std::size_t bytes) noexcept {
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (begin + largePage - 1) / largePage * largePage;
    const std::uintptr_t end = (begin + bytes) / largePage * largePage;
    if (first < end) {
        static_cast<void>(::madvise(static_cast<std::byte*>(memory) + (first - begin), end - first,
                                    MADV_HUGEPAGE));
    }
}

} // namespace QN::detail
