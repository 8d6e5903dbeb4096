// The slow half of pools: chunks, records, canaries. The fast half is inline in the header.
#include "ir/region.hpp"

#include <qn/pool.hpp>
#include <qn/testing_hooks.hpp>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

namespace QN {

std::size_t detail::reservedNow = 0;

namespace {

constexpr std::size_t largestChunk = std::size_t{256} << 10;
constexpr std::size_t canaryBytes = 8;
constexpr unsigned char canaryByte = 0xC5;
constexpr std::uint64_t headerMagic = 0xC5C5C5C500000000;
constexpr unsigned char poisonByte = 0xDD;

// Process-wide, because the high-water mark is one of the process.
using detail::reservedNow;
std::size_t reservedPeak = 0;

// The 8 bytes before an allocation with canaries hold the number of its record.
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

// A pool with records notes one word of each allocation. Allocations of a chunk follow each other,
// so the words and the chunks' starts tell all addresses when somebody asks.
struct Pool::Checks {
    static constexpr std::size_t firstWords = 64;
    static constexpr std::size_t moreWords = 512;

    struct ChunkStart {
        std::byte* address;
        std::size_t record; // the first one that lies in this chunk
    };

    explicit Checks(bool withCanaries) : canaries(withCanaries) {}

    bool canaries;
    std::byte* chunkEnd = nullptr;
    RecordWord* wordsEnd = nullptr;
    std::size_t inFullWords = 0;
    std::vector<std::unique_ptr<RecordWord[]>> words;
    std::vector<ChunkStart> chunks;    // oldest first
    std::vector<const void*> released; // in order of release

    void makeRoomForChunk() {
        if (chunks.size() == chunks.capacity()) {
            chunks.reserve(2 * chunks.size() + 1);
        }
    }

    /// The words that there are hold `count` records and are full; returns the first of more.
    RecordWord* addWords(std::size_t count) {
        const std::size_t room = words.empty() ? firstWords : moreWords;
        words.push_back(std::make_unique_for_overwrite<RecordWord[]>(room));
        inFullWords = count;
        wordsEnd = words.back().get() + room;
        return words.back().get();
    }
};

Pool::Pool(PoolKind kind) : kind_(kind) {
    TsTestingHook& leaks = kind == PoolKind::Graph ? *TSFEAT_QUARNCfgPoolInternalLeakDetection
                                                   : *TSFEAT_QUARNPoolInternalLeakDetection;
    const bool track = leaks.isOn();
    const bool canaries = TSFEAT_QUARNPoolSanityChecks->isOn();
    if (track || canaries) {
        checks_ = new Checks(canaries);
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
    // Each chunk adds at most a half to what is there: most graphs are small, and with doubling a
    // quarter of all their memory was what their last chunks had left.
    const std::size_t half = std::clamp(std::bit_floor(reserved_ / 2), smallestChunk, largestChunk);
    std::size_t bytes = std::max(half, atLeast + sizeof(Chunk));
    if (checks_ != nullptr) {
        checks_->makeRoomForChunk(); // what follows must not stop in the middle
    }
    void* const memory = detail::takeChunk(bytes);
    if (chunk_ != nullptr) {
        inFullChunks_ += static_cast<std::size_t>(next_ - reinterpret_cast<std::byte*>(chunk_ + 1));
    }
    chunk_ = ::new (memory) Chunk{chunk_, bytes};
    next_ = reinterpret_cast<std::byte*>(chunk_ + 1);
    limit_ = static_cast<std::byte*>(memory) + bytes;
    noteFirst(memory, bytes);
    reserved_ += bytes;
    reservedNow += bytes;
    reservedPeak = std::max(reservedPeak, reservedNow);
    if (checks_ != nullptr) {
        checks_->chunkEnd = limit_;
        limit_ = nullptr;
        checks_->chunks.push_back({next_, recordCount()});
        limitRecords();
    }
}

void Pool::noteFirst(const void* chunk, std::size_t bytes) noexcept {
    if (numFirst_ < mostFirst) {
        const auto place =
            static_cast<std::size_t>(static_cast<const std::byte*>(chunk) - detail::regionBase);
        const auto size = static_cast<std::size_t>(std::countr_zero(bytes / smallestChunk));
        first_[numFirst_++] =
            static_cast<std::uint32_t>(place / smallestChunk << firstSizeBits | size);
    }
}

std::size_t Pool::recordCount() const noexcept {
    return checks_->words.empty()
               ? 0
               : checks_->inFullWords +
                     static_cast<std::size_t>(nextRecord_ - checks_->words.back().get());
}

// An allocation takes 8 bytes at least, so the words that are left are enough for 8 times as many
// bytes, and one limit stands for both.
void Pool::limitRecords() noexcept {
    if (checks_->canaries) {
        return;
    }
    const auto words = static_cast<std::size_t>(checks_->wordsEnd - nextRecord_);
    const auto bytes = static_cast<std::size_t>(checks_->chunkEnd - next_);
    recordLimit_ = next_ + std::min(bytes, 8 * words);
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
    Checks& checks = *checks_;
    if (nextRecord_ == checks.wordsEnd) {
        nextRecord_ = checks.addWords(recordCount());
    }
    const std::size_t all = checks.canaries ? bytes + 2 * canaryBytes : bytes;
    if (bytesTo(checks.chunkEnd) < static_cast<std::intptr_t>(all)) {
        addChunk(all);
    }
    std::byte* result = next_;
    next_ += all;
    if (checks.canaries) {
        const std::uint64_t header = headerMagic | recordCount();
        std::memcpy(result, &header, sizeof header);
        result += canaryBytes;
        std::memset(result, canaryByte, bytes + canaryBytes);
    }
    *nextRecord_++ = recordOf(bytes, kind);
    limitRecords();
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
    checks_->released.push_back(address);
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

bool Pool::hasCanaries() const noexcept {
    return checks_ != nullptr && checks_->canaries;
}

std::vector<Pool::Record> Pool::records() const {
    std::vector<Record> records;
    if (checks_ == nullptr) {
        return records;
    }
    std::vector<const void*> released = checks_->released;
    std::sort(released.begin(), released.end());
    const std::size_t before = checks_->canaries ? canaryBytes : 0;
    const std::size_t around = 2 * before;
    const std::size_t count = recordCount();
    records.reserve(count);
    auto chunk = checks_->chunks.begin();
    std::byte* at = nullptr;
    for (const auto& words : checks_->words) {
        const RecordWord* word = words.get();
        const std::size_t room =
            &words == &checks_->words.front() ? Checks::firstWords : Checks::moreWords;
        for (const RecordWord* const end = word + std::min(room, count - records.size());
             word != end; ++word) {
            while (chunk != checks_->chunks.end() && chunk->record == records.size()) {
                at = chunk++->address;
            }
            constexpr RecordWord kinds = 7;
            const std::size_t bytes = *word & ~kinds;
            void* const address = at + before;
            records.push_back({address, bytes, static_cast<EntityKind>(*word & kinds),
                               std::binary_search(released.begin(), released.end(), address)});
            at += bytes + around;
        }
    }
    return records;
}

std::vector<Pool::Damage> Pool::checkCanaries() const {
    std::vector<Damage> damages;
    if (!hasCanaries()) {
        return damages;
    }
    const std::vector<Record> all = records();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Record& record = all[i];
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
