// The base of every native object that stands behind a script handle.
#pragma once

#include <objsys/interface.hpp>

#include <cstddef>
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
class Wrappable {
public:
    Wrappable() = default;
    Wrappable(const Wrappable&) = delete;
    Wrappable& operator=(const Wrappable&) = delete;
    virtual ~Wrappable();

    // Native objects come from the host's free lists, as handles do: scripts make and drop many.
    static void* operator new(std::size_t bytes);
    static void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept;
    static void* operator new(std::size_t bytes, std::align_val_t alignment) {
        return ::operator new(bytes, alignment);
    }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* memory) noexcept;
    static void operator delete(void* memory, const std::nothrow_t&) noexcept {
        operator delete(memory);
    }
    static void operator delete(void* memory, std::align_val_t alignment) noexcept {
        ::operator delete(memory, alignment);
    }

private:
    friend class basic::BindingRegistry;

    COSInterface* instance_ = nullptr; // the live instance bound to this object
};

} // namespace full
} // namespace objsys::factory
