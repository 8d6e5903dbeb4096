// Chunks start at multiples of a granule, so no granule belongs to two of them.
#include "verify/memory_map.hpp"

#include <algorithm>
#include <span>

namespace QN::verification {

void MemoryMap::clear() noexcept {
    const std::uint32_t start = firstUnit_ / granuleUnits;
    constexpr std::uint32_t words = granuleUnits / bitsPerWord;
    for (const Granules& range : held_) {
        const auto first = static_cast<std::ptrdiff_t>(range.first - start);
        const auto end = static_cast<std::ptrdiff_t>(range.end - start);
        std::fill(owned_.begin() + first, owned_.begin() + end, std::uint8_t{0});
        std::fill(marks_.begin() + first * words, marks_.begin() + end * words, Marks{0, 0});
    }
    held_.clear();
    firstUnit_ = 0;
    unitLimit_ = 0;
    frontier_ = 0;
    behindFrontier_ = 0;
    heldBytes_ = 0;
}

void MemoryMap::reset(const Pool& pool) {
    clear();
    std::uint32_t first = UINT32_MAX;
    std::uint32_t end = 0;
    pool.forEachExtent([&](std::span<const std::byte> extent) {
        const std::uint32_t endUnit =
            unitOf(extent.data()) + static_cast<std::uint32_t>(extent.size() / unitBytes);
        const Granules range{unitOf(extent.data()) / granuleUnits,
                             (endUnit + granuleUnits - 1) / granuleUnits};
        if (held_.empty()) { // the newest
            frontier_ = endUnit;
            behindFrontier_ = (granuleUnits - endUnit % granuleUnits) % granuleUnits;
        }
        held_.push_back(range);
        heldBytes_ += std::size_t{range.end - range.first} * granuleBytes;
        first = std::min(first, range.first);
        end = std::max(end, range.end);
    });
    if (held_.empty()) {
        return;
    }
    const std::size_t granules = end - first;
    if (owned_.size() < granules) {
        owned_.resize(granules, 0);
        marks_.resize(granules * granuleUnits / bitsPerWord + 1, Marks{0, 0}); // see listOperandsOf
    }
    for (const Granules& range : held_) {
        std::fill(owned_.begin() + static_cast<std::ptrdiff_t>(range.first - first),
                  owned_.begin() + static_cast<std::ptrdiff_t>(range.end - first), std::uint8_t{1});
    }
    firstUnit_ = first * granuleUnits;
    unitLimit_ = static_cast<std::uint32_t>(granules) * granuleUnits;
}

bool MemoryMap::holdsRest(const void* at, std::size_t bytes) const noexcept {
    // Granule by granule, because the next one may be another pool's.
    const auto* const first = static_cast<const std::byte*>(at);
    for (std::size_t offset = granuleBytes; offset < bytes; offset += granuleBytes) {
        if (!holds(first + offset, 1)) {
            return false;
        }
    }
    return holds(first + (bytes - 1) / unitBytes * unitBytes, 1);
}

} // namespace QN::verification
