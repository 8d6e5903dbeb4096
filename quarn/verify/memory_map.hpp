// Which memory a graph's pool has handed out, and which of it is an entity that a list of the graph
// leads to. This is what lets the verifier read broken IR: a link is followed only to memory that
// the pool holds, and an operand only to an entity that is listed.
//
// Owner: the Survey of one graph. Both questions take constant time, and any address may be asked
// for, null too. What is asked for at every operand is kept to a few instructions.
#pragma once

#include <qn/pool.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QN::verification {

class MemoryMap {
public:
    /// Describes the pool as it is now; nothing is listed.
    void reset(const Pool& pool);

    /// Whether the pool holds all of these bytes, so that they can be read.
    [[nodiscard]] bool holds(const void* at, std::size_t bytes) const noexcept {
        const std::uint32_t unit = unitOf(at);
        return startOf(unit) != 0 && unit - frontier_ >= behindFrontier_ &&
               (fitsGranule(unit, bytes) || holdsRest(at, bytes));
    }
    /// Marks an entity that the pool holds; false if it was marked already.
    bool list(const void* entity) noexcept {
        const std::uint32_t index = indexOf(entity);
        std::uint64_t& word = words_[index >> 6];
        const std::uint64_t mask = std::uint64_t{1} << (index & 63);
        const bool isNew = (word & mask) == 0;
        word |= mask;
        return isNew;
    }
    /// Whether list() was called with this address.
    [[nodiscard]] bool isListed(const void* address) const noexcept {
        const std::uint32_t index = indexOf(address);
        return ((words_[index >> 6] >> (index & 63)) & 1) != 0;
    }
    /// Bytes that the pool holds, a little more at most.
    [[nodiscard]] std::size_t bytes() const noexcept { return words_.size() * 64 * unitBytes; }

private:
    static constexpr std::size_t unitBytes = 8; // the alignment of allocations
    static constexpr std::size_t granuleBytes = 1024;
    static constexpr std::uint32_t granuleUnits = granuleBytes / unitBytes;

    /// Units are counted from the start of the region, as references do.
    [[nodiscard]] static std::uint32_t unitOf(const void* address) noexcept {
        return Ref<const std::byte>(static_cast<const std::byte*>(address)).bits();
    }
    /// The index of the first unit of the granule, 0 if the pool does not hold it.
    [[nodiscard]] std::uint32_t startOf(std::uint32_t unit) const noexcept {
        const std::uint32_t granule = unit / granuleUnits - firstGranule_;
        return granule < granules_.size() ? granules_[granule] : 0;
    }
    /// The number of the unit among all that the pool holds. What it does not hold shares the
    /// indices of a first granule in which nothing is ever listed.
    [[nodiscard]] std::uint32_t indexOf(const void* address) const noexcept {
        const std::uint32_t unit = unitOf(address);
        return startOf(unit) + unit % granuleUnits;
    }
    [[nodiscard]] static bool fitsGranule(std::uint32_t unit, std::size_t bytes) noexcept {
        return unit % granuleUnits * unitBytes + bytes <= granuleBytes;
    }
    [[nodiscard]] bool holdsRest(const void* at, std::size_t bytes) const noexcept;

    std::uint32_t firstGranule_ = 0;
    std::uint32_t frontier_ = 0;          // unit behind all that the newest chunk has handed out
    std::uint32_t behindFrontier_ = 0;    // units from there to the end of the granule
    std::vector<std::uint32_t> granules_; // from the first on: index of the first unit, or 0
    std::vector<std::uint64_t> words_;    // one bit for each unit
};

} // namespace QN::verification
