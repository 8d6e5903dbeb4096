#include "object/instances.hpp"

#include "object/deferred_rows.hpp"
#include "value/errors.hpp"
#include "value/small_heap.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/binding_registry.hpp>

#include <new>

namespace objsys {

COSInterface::COSInterface(COSClass* cls)
    : self_{1, hvOBJECT_CLASS, hvArray::Handle, 0, cls, 1, 1, &selfPointer_}, selfPointer_(this) {
    next_ = cls->firstInstance_;
    if (next_)
        next_->previous_ = this;
    cls->firstInstance_ = this;
}

COSInterface* InstanceAccess::create(COSClass* cls) {
    return new (varnix::heap::take(sizeof(COSInterface))) COSInterface(cls);
}

void InstanceAccess::end(COSInterface* instance) noexcept {
    factory::full::Wrappable* const native = instance->native_;
    COSClass* const cls = instance->getClass();
    if (!native)
        return;
    try {
        cls->info().destroyInstance(instance, native);
    } catch (...) {
        // A destructor of a module that throws: the instance ends all the same.
    }
    // Whatever the class did, the instance is unbound now. The object itself may be gone, so only
    // a binding that still stands is taken back through it.
    if (instance->native_ == native)
        factory::basic::BindingRegistry::remove(native);
}

void InstanceAccess::handleReleased(hvArray* handle) noexcept {
    DeferredRows::settleAll();
    if (handle->refs != 0)
        return; // a row holds it
    COSInterface* const instance = COSInterface::ofHandle(handle);
    handle->refs = 1; // so that the class may look at the handle while it ends the instance
    end(instance);
    if (--handle->refs != 0)
        return; // somebody kept it: it stays as an invalid instance
    detachClass(instance);
    instance->~COSInterface();
    varnix::heap::give(instance, sizeof(COSInterface));
}

void InstanceAccess::detachClass(COSInterface* instance) noexcept {
    if (instance->previous_)
        instance->previous_->next_ = instance->next_;
    else if (COSClass* const cls = instance->getClass(); cls && cls->firstInstance_ == instance)
        cls->firstInstance_ = instance->next_;
    if (instance->next_)
        instance->next_->previous_ = instance->previous_;
    instance->previous_ = instance->next_ = nullptr;
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
