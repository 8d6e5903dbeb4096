// The memory of a class's script instances. Not for modules to use by name: it is public because
// making an instance (class.hpp) is a few instructions.
//
// Instances lie in slabs that stay for the process, as their class does. There are two kinds: those
// for a native object that exists, and those that are followed by memory in which a constructor
// builds one. A free instance has no references and keeps all that is the same for the next one;
// what differs is set when it is taken.
#pragma once

#include <objsys/interface.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace objsys::detail {

class InstancePool {
public:
    explicit InstancePool(COSClass* cls) : class_(cls) {}

    /// Says how large the native objects are that the class's constructors build; more than
    /// mostNativeBytes, and they allocate as before.
    void reserveNative(std::size_t bytes) noexcept;
    static constexpr std::size_t mostNativeBytes = 1024;

    /// An unbound instance for a native object that exists; the caller gets the one reference to
    /// its handle.
    COSInterface* take() { return take(native_memory::none); }
    /// The same for one that a constructor builds.
    COSInterface* takeForConstruction() { return take(constructed_); }

    /// Takes an instance back that nobody refers to and that has no native object.
    void give(COSInterface* instance) noexcept {
        const std::uint64_t kind = instance->nativeMemory_;
        instance->selfPointer_ = free_[kind];
        free_[kind] = instance;
        if (varnix::detail::sanitized)
            setUsable(instance, kind, false);
    }
    /// The native object behind an instance that is still referred to was deleted.
    void nativeGone(COSInterface* instance) noexcept;

    /// Calls `action` with each instance, free or not; it may take and give instances.
    template <class Action>
    void forEach(Action action) {
        for (std::size_t slab = 0; slab < slabs_.size(); ++slab) // there may be more meanwhile
            for (std::size_t i = 0; i < instancesPerSlab; ++i)
                action(slabs_[slab].at(i));
    }

private:
    static constexpr std::size_t instancesPerSlab = 64;

    struct Slab {
        std::byte* memory;
        std::size_t stride;
        [[nodiscard]] COSInterface* at(std::size_t i) const {
            return reinterpret_cast<COSInterface*>(memory + i * stride);
        }
    };

    COSInterface* take(std::uint64_t kind) {
        COSInterface* instance = free_[kind];
        if (!instance) [[unlikely]]
            instance = grow(kind);
        if (varnix::detail::sanitized)
            setUsable(instance, kind, true);
        free_[kind] = instance->selfPointer_;
        instance->selfPointer_ = instance;
        instance->self_.refs = 1;
        return instance;
    }
    /// Makes a slab of free instances and gives the first one.
    COSInterface* grow(std::uint64_t kind);

    [[nodiscard]] std::size_t strideOf(std::uint64_t kind) const {
        return sizeof(COSInterface) + (kind == native_memory::none ? 0 : nativeBytes_);
    }

    /// Lets AddressSanitizer see who touches an instance that is free; its count may be read.
    void setUsable(COSInterface* instance, std::uint64_t kind, bool usable) const noexcept;

    /// The free instances without and with memory for a native object (native_memory::none, free).
    std::array<COSInterface*, 2> free_{};
    std::uint64_t constructed_ = native_memory::none; ///< the kind that constructors get
    std::size_t nativeBytes_ = 0;                     ///< rounded up to whole instances
    COSClass* class_;
    std::vector<Slab> slabs_;
};

} // namespace objsys::detail
