// See entity_table.hpp.
#include "verify/entity_table.hpp"

#include <algorithm>
#include <cstring>
#include <span>

namespace QN::verification {

namespace {

// A gigabyte from the first to the last chunk.
constexpr std::uint32_t mostUnits = (std::uint32_t{1} << 30) / EntityTable::unitBytes;

std::uint32_t referenceTo(const void* address) noexcept {
    return Ref<const std::byte>(static_cast<const std::byte*>(address)).bits();
}

} // namespace

void EntityTable::clear() noexcept {
    for (const Range& range : ranges_) {
        const std::uint32_t start = range.first - first_;
        const std::uint32_t last = start + range.units - 1;
        const std::uint32_t slot = start / unitsPerSlot;
        const std::uint32_t byte = start / 8;
        std::memset(static_cast<void*>(&entries_[slot]), 0,
                    (last / unitsPerSlot + 1 - slot) * sizeof(Entry));
        std::memset(&marks_[byte], 0, last / 8 + 1 - byte);
    }
    ranges_.clear();
}

// Chunks of most pools lie one behind the other, and come here from the last to the first.
void EntityTable::addRange(Range range) {
    for (std::size_t i = 0; i < ranges_.size(); ++i) {
        const Range other = ranges_[i];
        if (other.first == range.first + range.units || other.first + other.units == range.first) {
            ranges_.erase(ranges_.begin() + static_cast<std::ptrdiff_t>(i));
            addRange({std::min(other.first, range.first), other.units + range.units});
            return;
        }
    }
    ranges_.push_back(range);
}

bool EntityTable::makeRoom() {
    if (units_ <= capacity_) {
        return true;
    }
    const std::uint32_t units = std::max(units_, 2 * capacity_);
    entries_.reset(static_cast<Entry*>(std::calloc(units / unitsPerSlot + 1, sizeof(Entry))));
    // With room for a word from the last byte on; see markFew().
    marks_.reset(static_cast<std::uint8_t*>(std::calloc(units / 8 + sizeof(std::uint64_t) + 1, 1)));
    capacity_ = entries_ != nullptr && marks_ != nullptr ? units : 0;
    return capacity_ != 0;
}

bool EntityTable::reset(const Pool& pool) {
    clear();
    pool.forEachExtent([this](std::span<const std::byte> extent) {
        // With the head of its chunk, so that chunks that touch make one range.
        constexpr std::uint32_t chunkUnits = 1024 / unitBytes;
        const std::uint32_t start = referenceTo(extent.data());
        const std::uint32_t first = start / chunkUnits * chunkUnits;
        const auto units = static_cast<std::uint32_t>(extent.size() / unitBytes);
        addRange({first, start - first + units});
    });
    if (ranges_.empty()) {
        return false;
    }
    if (ranges_.size() > 1) {
        std::sort(ranges_.begin(), ranges_.end(),
                  [](const Range& a, const Range& b) { return a.first < b.first; });
    }
    heldUnits_ = 0;
    for (const Range& range : ranges_) {
        heldUnits_ += range.units;
    }
    first_ = ranges_.front().first;
    units_ = ranges_.back().first + ranges_.back().units - first_;
    if (units_ > mostUnits || !makeRoom()) {
        ranges_.clear();
        return false;
    }
    return true;
}

EntityTable::Range EntityTable::rangeOf(std::uint32_t reference) const noexcept {
    const auto behind = std::upper_bound(
        ranges_.begin(), ranges_.end(), reference,
        [](std::uint32_t wanted, const Range& range) { return wanted < range.first; });
    if (behind == ranges_.begin() || !(behind - 1)->contains(reference, 1)) {
        return {};
    }
    return *(behind - 1);
}

} // namespace QN::verification
