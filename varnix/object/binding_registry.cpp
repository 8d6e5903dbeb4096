// Binding of native objects to instances: two pointers that are always set and cleared together.

#include "object/deferred_rows.hpp"
#include "object/instances.hpp"
#include "value/errors.hpp"
#include "value/small_heap.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/binding_registry.hpp>
#include <objsys/object_array.hpp>

namespace objsys::factory {

#if defined(__SANITIZE_ADDRESS__)
full::Wrappable::~Wrappable() {
    basic::BindingRegistry::retract(this);
}
#endif

void* full::Wrappable::operator new(std::size_t bytes) {
    return varnix::heap::takeSized(bytes);
}

void* full::Wrappable::operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    try {
        return varnix::heap::takeSized(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void full::Wrappable::release(void* memory) noexcept {
    if (!InstanceAccess::releaseNative(memory))
        varnix::heap::giveSized(memory);
}

namespace basic {

hvArray* BindingRegistry::announceNew(full::Wrappable* object, COSNameID className) {
    if (!object)
        return omCreateOBJSYSMatrix(0, 0, className);
    COSInterface* const instance = InstanceAccess::create(COSClass::get(className));
    instance->native_ = object;
    object->instance_ = instance;
    return instance->handle();
}

void BindingRegistry::deferReferences(hvArray* row) noexcept {
    DeferredRows::note(row);
}

void BindingRegistry::announceElement(hvArray* row, std::size_t index, full::Wrappable* object,
                                      COSNameID className) {
    hvArray* const handle = announce(object, className);
    COSInterface* const instance = omGetArrayElement(handle, 0);
    omSetArrayElement(row, index, instance);
    hvDestroyArray(handle);
}

void BindingRegistry::raiseNothingToBind(COSNameID className) {
    varnix::fail(varnix::id::nullSelf, "the constructor of {} made no object", className.str());
}

void BindingRegistry::checkBound(const COSInterface* instance, const full::Wrappable* object) {
    if (instance->native_ != object)
        varnix::fail("varnix:alreadyBound", "the object or its handle is bound already ({})",
                     instance->getClass()->getFullName().str());
}

} // namespace basic
} // namespace objsys::factory
