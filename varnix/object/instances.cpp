#include "object/instances.hpp"

#include "object/deferred_rows.hpp"
#include "value/errors.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/binding_registry.hpp>

namespace objsys {

namespace {

[[gnu::cold, gnu::noinline]] void unbind(COSInterface* instance) noexcept {
    factory::basic::BindingRegistry::remove(instance->getNativeObject(COSNameID()));
}

/// Ends an instance that has a native object. The class may still look at the handle meanwhile.
inline void endBound(COSInterface* instance, factory::full::Wrappable* native) noexcept {
    try {
        instance->getClass()->info().destroyInstance(instance, native);
    } catch (...) {
        // A destructor of a module that throws: the instance ends all the same.
    }
    // Whatever the class did, the instance is unbound now. The object itself may be gone, so only
    // a binding that still stands is taken back through it.
    if (instance->isValid()) [[unlikely]]
        unbind(instance);
}

} // namespace

void InstanceAccess::end(COSInterface* instance) noexcept {
    if (factory::full::Wrappable* const native = instance->native_)
        endBound(instance, native);
}

void InstanceAccess::handleReleased(hvArray* handle) noexcept {
    if (DeferredRows::any()) [[unlikely]] {
        DeferredRows::settleAll();
        if (handle->refs != 0)
            return; // a row holds it
    }
    COSInterface* const instance = COSInterface::ofHandle(handle);
    handle->refs = 1; // so that the class may look at the handle while it ends the instance
    if (factory::full::Wrappable* const native = instance->native_)
        endBound(instance, native);
    if (--handle->refs != 0) [[unlikely]]
        return; // somebody kept it: it stays as an invalid instance
    if (instance->nativeMemory_ == detail::native_memory::taken) [[unlikely]] {
        instance->nativeMemory_ = detail::native_memory::orphaned; // until the object is deleted
        return;
    }
    instance->getClass()->instances_.give(instance);
}

void InstanceAccess::endAll(COSClass* cls) noexcept {
    for (bool found = true; found;) {
        found = false;
        cls->instances_.forEach([&found](COSInterface* instance) {
            if (instance->self_.refs == 0 || !instance->native_)
                return;
            found = true;
            ++instance->self_.refs; // nobody frees it while it ends
            end(instance);
            hvDestroyArray(instance->handle());
        });
    }
}

bool InstanceAccess::releaseNative(void* memory) noexcept {
    namespace state = detail::native_memory;
    std::uint64_t& word = static_cast<std::uint64_t*>(memory)[-1];
    if (word != state::taken && word != state::orphaned)
        return false;
    COSInterface* const instance = static_cast<COSInterface*>(memory) - 1;
    const bool orphaned = word == state::orphaned;
    word = state::free;
    detail::InstancePool& pool = instance->getClass()->instances_;
    if (orphaned)
        pool.give(instance);
    else
        pool.nativeGone(instance);
    return true;
}

void deleteInstance(COSInterface* instance) {
    if (!instance->isValid())
        detail::raiseInvalidHandle(instance);
    if (!instance->getClass()->info().isDestructible())
        varnix::fail("varnix:notDeletable", "objects of class {} cannot be deleted",
                     instance->getClass()->getFullName().str());
    InstanceAccess::end(instance);
}

namespace detail {

void raiseNoObject(COSInterface* instance) {
    varnix::fail(varnix::id::notConstructible, "the constructor of {} made no object",
                 instance->getClass()->getFullName().str());
}

void raiseInvalidHandle(const COSInterface* instance) {
    varnix::fail(varnix::id::invalidHandle, "the {} object was deleted and can no longer be used",
                 instance->getClass() ? instance->getClass()->getFullName().str() : "script");
}

} // namespace detail

} // namespace objsys
