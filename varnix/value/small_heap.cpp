#include "value/small_heap.hpp"

#include <array>
#include <cstdlib>
#include <new>

namespace varnix::heap {

namespace {

constexpr std::size_t grain = 16;
constexpr std::size_t largest = 256;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool pooled = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool pooled = false;
#else
constexpr bool pooled = true;
#endif
#else
constexpr bool pooled = true;
#endif

struct Block {
    Block* next;
};
// Lives for the process: arrays may be released until its very end.
constinit std::array<Block*, largest / grain + 1> freeBlocks{};

void* fromSystem(std::size_t bytes) {
    void* const memory = std::malloc(bytes);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

/// Cuts a new slab into blocks of one size and gives the first.
void* refill(std::size_t list) {
    constexpr std::size_t blocks = 64;
    const std::size_t size = list * grain;
    auto* const slab = static_cast<char*>(fromSystem(size * blocks));
    for (std::size_t i = blocks; i-- > 1;) {
        auto* const block = reinterpret_cast<Block*>(slab + i * size);
        block->next = freeBlocks[list];
        freeBlocks[list] = block;
    }
    return slab;
}

} // namespace

void* take(std::size_t bytes) {
    if (!pooled || bytes > largest)
        return fromSystem(bytes);
    const std::size_t list = (bytes + grain - 1) / grain;
    if (Block* const block = freeBlocks[list]) {
        freeBlocks[list] = block->next;
        return block;
    }
    return refill(list);
}

void give(void* memory, std::size_t bytes) noexcept {
    if (!pooled || bytes > largest) {
        std::free(memory);
        return;
    }
    const std::size_t list = (bytes + grain - 1) / grain;
    auto* const block = static_cast<Block*>(memory);
    block->next = freeBlocks[list];
    freeBlocks[list] = block;
}

} // namespace varnix::heap
