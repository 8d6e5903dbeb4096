#include "value/small_heap.hpp"

#include <new>

namespace varnix::heap::detail {

constinit std::array<Block*, largest / grain + 1> freeBlocks{};

namespace {

void* fromSystem(std::size_t bytes) {
    // More than any address space has is a mistake that some allocators abort at.
    constexpr std::size_t most = std::size_t{1} << 46;
    void* const memory = bytes <= most ? std::malloc(bytes) : nullptr;
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void* takeSlow(std::size_t bytes) {
    if (!pooled || bytes > largest)
        return fromSystem(bytes);
    constexpr std::size_t blocks = 64;
    const std::size_t list = (bytes + grain - 1) / grain;
    const std::size_t size = list * grain;
    auto* const slab = static_cast<char*>(fromSystem(size * blocks));
    for (std::size_t i = blocks; i-- > 1;) {
        auto* const block = reinterpret_cast<Block*>(slab + i * size);
        block->next = freeBlocks[list];
        freeBlocks[list] = block;
    }
    return slab;
}

} // namespace varnix::heap::detail
