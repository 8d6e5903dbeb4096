#include "object/instances.hpp"

#include "object/deferred_rows.hpp"
#include "value/errors.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/binding_registry.hpp>

#include <new>

namespace objsys {

COSInterface::COSInterface(COSClass* cls)
    : self_{0, hvOBJECT_CLASS, hvArray::Handle, 0, cls, 1, 1, &selfPointer_}, selfPointer_(this) {}

static_assert(sizeof(COSInterface) == alignof(COSInterface)); // one cache line each

void InstanceAccess::addSlab(COSClass* cls) {
    cls->slabs_.reserve(cls->slabs_.size() + 1);
    auto* const slab = static_cast<COSInterface*>(::operator new (
        instancesPerSlab * sizeof(COSInterface), std::align_val_t{alignof(COSInterface)}));
    cls->slabs_.push_back(slab);
    for (std::size_t i = instancesPerSlab; i-- > 0;) // so that the first one is taken first
        recycle(new (slab + i) COSInterface(cls));
}

namespace {

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
        factory::basic::BindingRegistry::remove(instance->getNativeObject(COSNameID()));
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
    if (--handle->refs == 0) [[likely]] // else somebody kept it: it stays as an invalid instance
        recycle(instance);
}

void InstanceAccess::endAll(COSClass* cls) noexcept {
    for (bool found = true; found;) {
        found = false;
        for (std::size_t slab = 0; slab < cls->slabs_.size(); ++slab) { // may grow meanwhile
            for (std::size_t i = 0; i < instancesPerSlab; ++i) {
                COSInterface* const instance = cls->slabs_[slab] + i;
                if (instance->self_.refs == 0 || !instance->native_)
                    continue;
                found = true;
                ++instance->self_.refs; // nobody frees it while it ends
                end(instance);
                hvDestroyArray(instance->handle());
            }
        }
    }
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
void raiseInvalidHandle(const COSInterface* instance) {
    varnix::fail(varnix::id::invalidHandle, "the {} object was deleted and can no longer be used",
                 instance->getClass() ? instance->getClass()->getFullName().str() : "script");
}
} // namespace detail

} // namespace objsys
