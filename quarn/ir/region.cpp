// See region.hpp. The reservation costs no memory: pages come into being when they are touched, and
// large freed chunks give theirs back.
#include "ir/region.hpp"

#include <qn/pool.hpp>

#include <bit>
#include <new>
#include <sys/mman.h>

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
constexpr std::size_t returnPagesFrom = std::size_t{128} << 10;
constexpr std::size_t page = 4096;

struct FreeChunk {
    FreeChunk* next;
};

FreeChunk* freeChunks[64] = {};
std::byte* regionNext = nullptr;
std::byte* regionEnd = nullptr;

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

} // namespace

void* takeChunk(std::size_t& bytes) {
    if (bytes > largestRegion) {
        throw std::bad_alloc();
    }
    bytes = std::bit_ceil(bytes < smallestChunk ? smallestChunk : bytes);
    FreeChunk*& list = freeChunks[std::countr_zero(bytes)];
    if (list != nullptr) {
        FreeChunk* const chunk = list;
        ASAN_UNPOISON_MEMORY_REGION(chunk, bytes);
        list = chunk->next;
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
    return chunk;
}

void giveChunk(void* chunk, std::size_t bytes) noexcept {
    if (bytes >= returnPagesFrom) {
        auto* const start = static_cast<std::byte*>(chunk);
        const std::size_t offset = static_cast<std::size_t>(start - regionBase) % page;
        std::byte* const firstPage = start + (page - offset);
        ::madvise(firstPage, static_cast<std::size_t>(start + bytes - firstPage) / page * page,
                  MADV_DONTNEED);
    }
    auto* const free = static_cast<FreeChunk*>(chunk);
    FreeChunk*& list = freeChunks[std::countr_zero(bytes)];
    free->next = list;
    list = free;
    ASAN_POISON_MEMORY_REGION(chunk, bytes);
}

} // namespace QN::detail
