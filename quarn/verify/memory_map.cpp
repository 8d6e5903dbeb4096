// Chunks start at multiples of a granule, so no granule belongs to two of them, and a table of
// granules leads from an address to its bit.
#include "verify/memory_map.hpp"

#include <algorithm>
#include <span>

namespace QN::verification {

void MemoryMap::reset(const Pool& pool) {
    granules_.clear();
    words_.assign(granuleUnits / 64, 0);
    behindFrontier_ = 0;
    const std::vector<std::span<const std::byte>> extents = pool.extents();
    if (extents.empty()) {
        return;
    }
    const auto startGranule = [](std::span<const std::byte> extent) {
        return unitOf(extent.data()) / granuleUnits;
    };
    const auto endUnit = [](std::span<const std::byte> extent) {
        return unitOf(extent.data()) + static_cast<std::uint32_t>(extent.size() / unitBytes);
    };
    const auto endGranule = [&](std::span<const std::byte> extent) {
        return (endUnit(extent) + granuleUnits - 1) / granuleUnits;
    };
    firstGranule_ = UINT32_MAX;
    std::uint32_t end = 0;
    for (const std::span<const std::byte> extent : extents) {
        firstGranule_ = std::min(firstGranule_, startGranule(extent));
        end = std::max(end, endGranule(extent));
    }
    granules_.assign(end - firstGranule_, 0);
    std::uint32_t units = granuleUnits;
    for (const std::span<const std::byte> extent : extents) {
        for (std::uint32_t i = startGranule(extent); i < endGranule(extent); ++i) {
            granules_[i - firstGranule_] = units;
            units += granuleUnits;
        }
    }
    words_.assign(units / 64, 0);
    frontier_ = endUnit(extents.front());
    behindFrontier_ = (granuleUnits - frontier_ % granuleUnits) % granuleUnits;
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
