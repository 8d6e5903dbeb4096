// See region.hpp. The reservation costs no memory: pages come into being when they are touched.
//
// To touch few of them anew, the region asks for large pages behind its first megabytes, which are
// enough for a process that compiles little, and freed chunks keep their pages up to a limit.
#include "ir/region.hpp"

#include "ir/large_pages.hpp"

#include <qn/pool.hpp>

#include <algorithm>
#include <bit>
#include <functional>
#include <new>
#include <sys/mman.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, bytes) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(address, bytes) static_cast<void>(0)
#endif

namespace QN::detail {

std::byte* regionBase = nullptr;

namespace {

constexpr std::size_t smallestChunk = 1024;
constexpr std::size_t largestRegion = std::size_t{32} << 30; // what 32 bits of 8 bytes reach
constexpr std::size_t smallestRegion = std::size_t{64} << 20;
constexpr std::size_t page = 4096;
constexpr std::size_t smallPagesUpTo = std::size_t{2} << 20;

// Of chunks from this size on, pages are given back once so many bytes of free ones have theirs.
constexpr std::size_t largeChunk = std::size_t{128} << 10;
constexpr std::size_t keptPages = std::size_t{32} << 20;

struct FreeChunk {
    FreeChunk* next;
    bool hasPages;
};

// The free chunks of one size. The one that was given back last is taken first, as it may still be
// in the processor's caches. But when many have come back, a new graph's chunks would lie all over
// the region, so they are put in order of their addresses first.
struct FreeChunks {
    FreeChunk* first = nullptr;
    std::size_t count = 0;
    std::size_t unordered = 0; // how many of the first ones have come back since all were in order

    void add(FreeChunk* chunk) noexcept {
        chunk->next = first;
        first = chunk;
        ++count;
        ++unordered;
    }
    FreeChunk* take() noexcept {
        constexpr std::size_t few = 64;
        if (unordered > few && unordered > count / 4) {
            order();
        }
        FreeChunk* const chunk = first;
        first = chunk->next;
        --count;
        unordered -= unordered != 0 ? 1 : 0;
        return chunk;
    }

private:
    void order() noexcept;
};

FreeChunks freeChunks[64] = {};
std::size_t freeLargeBytes = 0; // of large chunks that have their pages
std::byte* regionNext = nullptr;
std::byte* regionEnd = nullptr;
bool largePagesWished = false;

// Where the address space of the process is limited, a smaller region will do.
void reserveRegion() {
    for (std::size_t bytes = largestRegion; bytes >= smallestRegion; bytes /= 2) {
        void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory != MAP_FAILED) {
            regionBase = static_cast<std::byte*>(memory);
            regionNext = regionBase + page; // reference 0 is null
            regionEnd = regionBase + bytes;
            return;
        }
    }
    throw std::bad_alloc();
}

// Costs what a comparison sort does for each chunk that has come back, and happens at most once for
// a quarter of the list.
void FreeChunks::order() noexcept {
    unordered = 0;
    try {
        std::vector<FreeChunk*> chunks;
        chunks.reserve(count);
        for (FreeChunk* chunk = first; chunk != nullptr; chunk = chunk->next) {
            chunks.push_back(chunk);
        }
        std::sort(chunks.begin(), chunks.end(), std::less<>());
        FreeChunk** link = &first;
        for (FreeChunk* const chunk : chunks) {
            *link = chunk;
            link = &chunk->next;
        }
        *link = nullptr;
    } catch (const std::bad_alloc&) { // then they stay as they are
    }
}

void givePagesBack(std::byte* chunk, std::size_t bytes) noexcept {
    const std::size_t offset = static_cast<std::size_t>(chunk - regionBase) % page;
    std::byte* const firstPage = chunk + (page - offset); // behind the link to the next chunk
    ::madvise(firstPage, static_cast<std::size_t>(chunk + bytes - firstPage) / page * page,
              MADV_DONTNEED);
}

} // namespace

void* takeChunk(std::size_t& bytes) {
    if (bytes > largestRegion) {
        throw std::bad_alloc();
    }
    bytes = std::bit_ceil(bytes < smallestChunk ? smallestChunk : bytes);
    FreeChunks& free = freeChunks[std::countr_zero(bytes)];
    if (free.first != nullptr) {
        FreeChunk* const chunk = free.take();
        ASAN_UNPOISON_MEMORY_REGION(chunk, bytes);
        if (bytes >= largeChunk && chunk->hasPages) {
            freeLargeBytes -= bytes;
        }
        return chunk;
    }
    if (regionBase == nullptr) {
        reserveRegion();
    }
    if (static_cast<std::size_t>(regionEnd - regionNext) < bytes) {
        throw std::bad_alloc();
    }
    std::byte* const chunk = regionNext;
    regionNext += bytes;
    if (!largePagesWished && regionNext - regionBase > std::ptrdiff_t{smallPagesUpTo}) {
        largePagesWished = true;
        std::byte* const first = regionBase + smallPagesUpTo;
        wishForLargePages(first, static_cast<std::size_t>(regionEnd - first));
    }
    return chunk;
}

void giveChunk(void* chunk, std::size_t bytes) noexcept {
    bool hasPages = true;
    if (bytes >= largeChunk) {
        hasPages = freeLargeBytes + bytes <= keptPages;
        if (hasPages) {
            freeLargeBytes += bytes;
        } else {
            givePagesBack(static_cast<std::byte*>(chunk), bytes);
        }
    }
    auto* const free = static_cast<FreeChunk*>(chunk);
    free->hasPages = hasPages;
    freeChunks[std::countr_zero(bytes)].add(free);
    ASAN_POISON_MEMORY_REGION(free + 1, bytes - sizeof(FreeChunk)); // but for the list's own
}

} // namespace QN::detail
