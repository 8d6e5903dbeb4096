#include <objsys/detail/instance_pool.hpp>

#include <new>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h> // whose macros do nothing in other builds
#else
#define ASAN_POISON_MEMORY_REGION(begin, size) ((void)(begin), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(begin, size) ((void)(begin), (void)(size))
#endif

namespace objsys {

COSInterface::COSInterface(COSClass* cls, std::uint64_t nativeMemory)
    : self_{0, hvOBJECT_CLASS, hvArray::Handle, 0, cls, 1, 1, &selfPointer_}, selfPointer_(this),
      nativeMemory_(nativeMemory) {}

static_assert(sizeof(COSInterface) == alignof(COSInterface)); // one cache line each

namespace detail {

void InstancePool::reserveNative(std::size_t bytes) noexcept {
    if (bytes == 0 || bytes > mostNativeBytes)
        return;
    nativeBytes_ = (bytes + sizeof(COSInterface) - 1) / sizeof(COSInterface) * sizeof(COSInterface);
    constructed_ = native_memory::free;
}

COSInterface* InstancePool::grow(std::uint64_t kind) {
    slabs_.reserve(slabs_.size() + 1);
    const std::size_t stride = strideOf(kind);
    const std::size_t bytes = stride * instancesPerSlab;
    const Slab slab{
        static_cast<std::byte*>(::operator new (bytes, std::align_val_t{alignof(COSInterface)})),
        stride};
    slabs_.push_back(slab);
    for (std::size_t i = instancesPerSlab; i-- > 0;) // so that the first one is taken first
        give(new (slab.at(i)) COSInterface(class_, kind));
    return free_[kind];
}

void InstancePool::setUsable(COSInterface* instance, std::uint64_t kind,
                             bool usable) const noexcept {
    void* const begin = &instance->self_.objectClass;
    const std::size_t size = strideOf(kind) - offsetof(hvArray, objectClass);
    if (usable)
        ASAN_UNPOISON_MEMORY_REGION(begin, size);
    else
        ASAN_POISON_MEMORY_REGION(begin, size);
}

void InstancePool::nativeGone(COSInterface* instance) noexcept {
    ASAN_POISON_MEMORY_REGION(instance + 1, nativeBytes_);
}

} // namespace detail
} // namespace objsys
