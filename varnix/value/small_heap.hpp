// The allocator of array headers and small arrays: free lists by size, one interpreter thread.
//
// Most arrays that cross the door are short texts. A list per 16 bytes up to 256 makes taking and
// returning one a handful of instructions. Under AddressSanitizer every block comes from malloc,
// so that errors are seen.
#pragma once

#include <hv/detail/array_layout.hpp>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace varnix::heap {

namespace detail {

inline constexpr bool pooled = !varnix::detail::sanitized;

inline constexpr std::size_t grain = 16;
inline constexpr std::size_t largest = 256;

struct Block {
    Block* next;
};
// Lives for the process: arrays may be released until its very end.
extern constinit std::array<Block*, largest / grain + 1> freeBlocks;

/// A block straight from malloc, or the first of a newly cut slab.
[[nodiscard]] void* takeSlow(std::size_t bytes);

} // namespace detail

/// Blocks up to this size come from the free lists.
inline constexpr std::size_t mostPooled = detail::largest;

/// Memory of at least `bytes`, aligned to 16; throws std::bad_alloc.
[[nodiscard]] inline void* take(std::size_t bytes) {
    if (detail::pooled && bytes <= detail::largest) {
        detail::Block*& list = detail::freeBlocks[(bytes + detail::grain - 1) / detail::grain];
        if (detail::Block* const block = list) {
            list = block->next;
            return block;
        }
    }
    return detail::takeSlow(bytes);
}

/// Returns memory taken with the same size.
inline void give(void* memory, std::size_t bytes) noexcept {
    if (!detail::pooled || bytes > detail::largest) {
        std::free(memory);
        return;
    }
    auto* const block = static_cast<detail::Block*>(memory);
    detail::Block*& list = detail::freeBlocks[(bytes + detail::grain - 1) / detail::grain];
    block->next = list;
    list = block;
}

namespace detail {
/// What stands in front of a sized block; the size is the word right before it.
struct alignas(16) BlockSize {
    std::size_t padding;
    std::size_t bytes;
};
} // namespace detail

/// The same for blocks whose owner does not know their size when it gives them back.
[[nodiscard]] inline void* takeSized(std::size_t bytes) {
    const std::size_t whole = sizeof(detail::BlockSize) + bytes;
    auto* const size = new (take(whole)) detail::BlockSize;
    size->bytes = whole;
    return size + 1;
}

/// Returns memory from takeSized. Null is ignored.
inline void giveSized(void* memory) noexcept {
    if (memory == nullptr)
        return;
    auto* const size = static_cast<detail::BlockSize*>(memory) - 1;
    give(size, size->bytes);
}

} // namespace varnix::heap
