// The base of every native object that stands behind a script handle.
#pragma once

#include <objsys/interface.hpp>

#include <cstddef>
#include <cstdint>
#include <new>

namespace objsys::factory {

namespace basic {
class BindingRegistry;
}

namespace full {

/// Derive this to let the binding registry hand an object out as a script handle. The object is
/// not owned by its handle; what happens to it when the handle dies is its class's decision
/// (COSClassInfo::destroyInstance). An object that dies first takes its binding with it: the
/// handle becomes invalid.
///
/// An object lies in memory of its own or, where its class's constructor says how large it is,
/// behind the instance that it was constructed for; deleting it is the same for both.
class Wrappable {
public:
    Wrappable() = default;
    Wrappable(const Wrappable&) = delete;
    Wrappable& operator=(const Wrappable&) = delete;
#if defined(__SANITIZE_ADDRESS__)
    // Out of line, so that there is one description of the type in the process: the check of
    // dynamic types compares addresses, and modules keep what they do not import to themselves.
    virtual ~Wrappable();
#else
    inline virtual ~Wrappable();
#endif

    // Native objects come from the host's free lists, as handles do: scripts make and drop many.
    static void* operator new(std::size_t bytes);
    static void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept;
    static void* operator new(std::size_t bytes, std::align_val_t alignment) {
        return ::operator new(bytes, alignment);
    }
    static void* operator new(std::size_t, void* place) noexcept {
        return place;
    }
    static void operator delete(void* memory) noexcept {
        namespace state = detail::native_memory;
        std::uint64_t& word = static_cast<std::uint64_t*>(memory)[-1];
        if (!varnix::detail::sanitized && word == state::taken) { // else it is told
            word = state::free;
            return;
        }
        release(memory);
    }
    static void operator delete(void* memory, const std::nothrow_t&) noexcept {
        operator delete(memory);
    }
    static void operator delete(void* memory, std::align_val_t alignment) noexcept {
        ::operator delete(memory, alignment);
    }

private:
    friend class basic::BindingRegistry;

    /// Gives back memory of any kind.
    static void release(void* memory) noexcept;

    COSInterface* instance_ = nullptr; // the live instance bound to this object
};

} // namespace full
} // namespace objsys::factory

#include <objsys/factory/binding_registry.hpp> // the destructor
