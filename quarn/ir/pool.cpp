// The slow half of pools: chunks, records, canaries. The fast half is inline in the header.
#include "ir/region.hpp"

#include <qn/pool.hpp>
#include <qn/testing_hooks.hpp>

#include <algorithm>
#include <cstring>

namespace QN {

namespace {

constexpr std::size_t firstChunk = 1024;
constexpr std::size_t largestChunk = std::size_t{256} << 10;
constexpr std::size_t canaryBytes = 8;
constexpr unsigned char canaryByte = 0xC5;
constexpr std::uint64_t headerMagic = 0xC5C5C5C500000000;
constexpr unsigned char poisonByte = 0xDD;

// Process-wide, because the high-water mark is one of the process.
std::size_t reservedNow = 0;
std::size_t reservedPeak = 0;

// In a pool with records, the 8 bytes before an allocation hold the number of its record, which
// makes them a canary and the way from an address to its record in one.
std::uint64_t headerOf(const void* address) noexcept {
    std::uint64_t header;
    std::memcpy(&header, static_cast<const std::byte*>(address) - canaryBytes, sizeof header);
    return header;
}

bool allBytesAre(const void* address, std::size_t bytes, unsigned char value) noexcept {
    const auto* const first = static_cast<const unsigned char*>(address);
    return std::all_of(first, first + bytes, [value](unsigned char byte) { return byte == value; });
}

} // namespace

struct Pool::Checks {
    bool canaries;
    std::byte* chunkEnd = nullptr;
    std::vector<Record> records;
};

Pool::Pool(PoolKind kind) : kind_(kind) {
    TsTestingHook& leaks = kind == PoolKind::Graph ? *TSFEAT_QUARNCfgPoolInternalLeakDetection
                                                   : *TSFEAT_QUARNPoolInternalLeakDetection;
    const bool track = leaks.isOn();
    const bool canaries = TSFEAT_QUARNPoolSanityChecks->isOn();
    if (track || canaries) {
        checks_ = new Checks{canaries, nullptr, {}};
    }
}

Pool::~Pool() {
    while (chunk_ != nullptr) {
        Chunk* const chunk = chunk_;
        chunk_ = chunk->previous;
        const std::size_t bytes = chunk->bytes;
        if (checks_ != nullptr && checks_->canaries) {
            std::memset(static_cast<void*>(chunk), poisonByte, bytes);
        }
        detail::giveChunk(chunk, bytes);
    }
    reservedNow -= reserved_;
    delete checks_;
}

void Pool::addChunk(std::size_t atLeast) {
    const std::size_t doubled = std::clamp(reserved_, firstChunk, largestChunk);
    std::size_t bytes = std::max(doubled, atLeast + sizeof(Chunk));
    void* const memory = detail::takeChunk(bytes);
    if (chunk_ != nullptr) {
        inFullChunks_ += static_cast<std::size_t>(next_ - reinterpret_cast<std::byte*>(chunk_ + 1));
    }
    chunk_ = ::new (memory) Chunk{chunk_, bytes};
    next_ = reinterpret_cast<std::byte*>(chunk_ + 1);
    limit_ = static_cast<std::byte*>(memory) + bytes;
    reserved_ += bytes;
    reservedNow += bytes;
    reservedPeak = std::max(reservedPeak, reservedNow);
    if (checks_ != nullptr) {
        checks_->chunkEnd = limit_;
        limit_ = next_;
    }
}

void* Pool::allocateSlowly(std::size_t bytes, EntityKind kind) {
    if (checks_ != nullptr) {
        return allocateChecked(bytes, kind);
    }
    addChunk(bytes);
    std::byte* const result = next_;
    next_ += bytes;
    return result;
}

void* Pool::allocateChecked(std::size_t bytes, EntityKind kind) {
    const std::size_t around = checks_->canaries ? 2 * canaryBytes : canaryBytes;
    if (chunk_ == nullptr || static_cast<std::size_t>(checks_->chunkEnd - next_) < bytes + around) {
        addChunk(bytes + around);
    }
    std::byte* const result = next_ + canaryBytes;
    next_ += bytes + around;
    limit_ = next_;
    const std::uint64_t header = headerMagic | checks_->records.size();
    std::memcpy(result - canaryBytes, &header, sizeof header);
    if (checks_->canaries) {
        std::memset(result, canaryByte, bytes + canaryBytes);
    }
    checks_->records.push_back({result, bytes, kind, false});
    return result;
}

std::string_view Pool::copy(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    char* const memory = static_cast<char*>(allocate(text.size(), EntityKind::Name));
    std::memcpy(memory, text.data(), text.size());
    return {memory, text.size()};
}

void Pool::release(void* address, std::size_t bytes) noexcept {
    bytes = (bytes + 7) & ~std::size_t{7};
    released_ += bytes;
    if (checks_ == nullptr) {
        return;
    }
    const std::uint64_t index = headerOf(address) ^ headerMagic;
    if (index < checks_->records.size() && checks_->records[index].address == address) {
        checks_->records[index].released = true;
    }
    if (checks_->canaries) {
        std::memset(address, poisonByte, bytes);
    }
}

std::size_t Pool::bytesAllocated() const noexcept {
    return chunk_ == nullptr
               ? 0
               : inFullChunks_ +
                     static_cast<std::size_t>(next_ - reinterpret_cast<std::byte*>(chunk_ + 1));
}

bool Pool::owns(const void* address) const noexcept {
    const auto* const byte = static_cast<const std::byte*>(address);
    for (const Chunk* chunk = chunk_; chunk != nullptr; chunk = chunk->previous) {
        const auto* const start = reinterpret_cast<const std::byte*>(chunk);
        if (byte >= start + sizeof(Chunk) &&
            byte < (chunk == chunk_ ? next_ : start + chunk->bytes)) {
            return true;
        }
    }
    return false;
}

std::vector<std::span<const std::byte>> Pool::extents() const {
    std::vector<std::span<const std::byte>> ranges;
    forEachExtent([&](std::span<const std::byte> range) { ranges.push_back(range); });
    return ranges;
}

void Pool::fetchAhead() const noexcept {
    constexpr std::size_t line = 64;
    std::size_t rest = std::size_t{8} << 10; // more would push itself out again
    forEachExtent([&](std::span<const std::byte> extent) {
        for (std::size_t at = 0; at < extent.size() && rest >= line; at += line, rest -= line) {
            __builtin_prefetch(extent.data() + at);
        }
    });
}

bool Pool::hasCanaries() const noexcept {
    return checks_ != nullptr && checks_->canaries;
}

const std::vector<Pool::Record>& Pool::records() const noexcept {
    static const std::vector<Record> none;
    return checks_ != nullptr ? checks_->records : none;
}

std::vector<Pool::Damage> Pool::checkCanaries() const {
    std::vector<Damage> damages;
    if (!hasCanaries()) {
        return damages;
    }
    for (std::size_t i = 0; i < checks_->records.size(); ++i) {
        const Record& record = checks_->records[i];
        const auto* const start = static_cast<const std::byte*>(record.address);
        if (headerOf(start) != (headerMagic | i)) {
            damages.push_back({Damage::What::Underrun, record});
        }
        if (!allBytesAre(start + record.bytes, canaryBytes, canaryByte)) {
            damages.push_back({Damage::What::Overrun, record});
        }
        if (record.released && !allBytesAre(start, record.bytes, poisonByte)) {
            damages.push_back({Damage::What::UseAfterRelease, record});
        }
    }
    return damages;
}

std::size_t Pool::totalReserved() noexcept {
    return reservedNow;
}
std::size_t Pool::peakReserved() noexcept {
    return reservedPeak;
}
void Pool::resetPeak() noexcept {
    reservedPeak = reservedNow;
}

std::string_view toString(EntityKind kind) noexcept {
    constexpr std::string_view names[entityKindCount] = {"type", "const", "var",  "callee",
                                                         "node", "block", "name", "other"};
    return names[static_cast<std::size_t>(kind)];
}

} // namespace QN
