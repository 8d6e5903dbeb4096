// The reserved region of address space from which pools get their chunks.
//
// Chunks are powers of two from 1 KB on; freed ones wait in a list per size, which is put in order
// of addresses when many have come back. Owner: the process; the region is reserved at the first
// chunk and kept.
#pragma once

#include <cstddef>

namespace QN::detail {

/// A chunk of `bytes`, rounded up to a power of two of at least 1 KB; `bytes` becomes the real
/// size. Throws std::bad_alloc when there is no room left.
[[nodiscard]] void* takeChunk(std::size_t& bytes);

/// Gives back a chunk of the size that takeChunk() told.
void giveChunk(void* chunk, std::size_t bytes) noexcept;

} // namespace QN::detail
