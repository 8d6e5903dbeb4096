// Binding of native objects to script instances: one object has at most one live instance.
#pragma once

#include <hv/array.hpp>
#include <objsys/factory/wrappable.hpp>
#include <objsys/interface.hpp>
#include <objsys/name_id.hpp>
#include <objsys/object_array.hpp>

#include <cstddef>
#include <cstdint>

namespace objsys::factory {

namespace basic {

class BindingRegistry {
public:
    /// The handle of a native object, as an object array of one element of which the caller gets a
    /// reference. The first call makes an instance of the class named (raising "varnix:undefined"
    /// when there is no such class); later calls return the same handle for as long as it lives.
    /// Null gives an empty (0 by 0) object array of that class. Does not take ownership of the
    /// object.
    static hvArray* announce(full::Wrappable* object, COSNameID className) {
        if (object != nullptr && object->instance_ != nullptr) {
            hvArray* const handle = object->instance_->handle();
            ++handle->refs;
            return handle;
        }
        return announceNew(object, className);
    }

    /// Announces `count` objects and stores their handles as the first elements, still empty, of
    /// `row`, an object array made by omCreateOBJSYSMatrix: what announce, omGetArrayElement,
    /// omSetArrayElement and hvDestroyArray do for one object after the other.
    template <class Object>
    static void announceRow(hvArray* row, Object* const* objects, std::size_t count,
                            COSNameID className) {
        COSInterface** const elements = row->objects();
        const COSClass* const cls = row->objectClass;
        std::size_t known = 0;
        if (count >= fewObjects) {
            // Most rows hold objects that have their handles, and are soon dropped.
#pragma GCC unroll 4
            for (; known < count; ++known) {
                COSInterface* const instance = instanceOf(objects[known]);
                if (!instance || instance->getClass() != cls) [[unlikely]]
                    break;
                elements[known] = instance;
            }
            if (known == count) {
                deferReferences(row);
                return;
            }
            for (std::size_t i = 0; i < known; ++i)
                ++elements[i]->handle()->refs;
        }
        for (std::size_t i = known; i < count; ++i) {
            COSInterface* const instance = instanceOf(objects[i]);
            if (instance && instance->getClass() == cls) {
                ++instance->handle()->refs;
                elements[i] = instance;
            } else {
                announceElement(row, i, objects[i], className);
            }
        }
    }

    /// Binds a new native object to the instance under construction, which is element 0 of
    /// `instance`. `own` is always true for the classes of the factory framework: the class's
    /// destroyInstance decides about the object. Raises "varnix:nullSelf" for a null object or
    /// instance and "varnix:alreadyBound" when either is bound to something else.
    static void announceForConstructor(full::Wrappable* object, COSNameID className,
                                       hvArray* instance, [[maybe_unused]] bool own) {
        COSInterface* const target = omGetArrayElement(instance, 0);
        if (!object || !target) [[unlikely]]
            raiseNothingToBind(className);
        if (!areUnbound(target, object)) [[unlikely]]
            return checkBound(target, object);
        target->native_ = object;
        object->instance_ = target;
    }

    /// Unbinds a native object that is about to die; its handle becomes invalid. Unbound objects
    /// and null are ignored.
    static void retract(full::Wrappable* object) noexcept {
        remove(object);
    }

    /// Unbinds an object on behalf of its dying instance. Returns whether it was bound.
    static bool remove(full::Wrappable* object) noexcept {
        if (!object || !object->instance_)
            return false;
        object->instance_->native_ = nullptr;
        object->instance_ = nullptr;
        return true;
    }

    /// The instance bound to an object, or null.
    static COSInterface* instanceOf(const full::Wrappable* object) {
        return object ? object->instance_ : nullptr;
    }

private:
    /// Rows shorter than this count their references at once.
    static constexpr std::size_t fewObjects = 16;

    static bool areUnbound(const COSInterface* instance, const full::Wrappable* object) {
        return (reinterpret_cast<std::uintptr_t>(instance->native_) |
                reinterpret_cast<std::uintptr_t>(object->instance_)) == 0;
    }
    /// Takes a row whose elements are all set and which has counted no references to them: the host
    /// counts them when it matters.
    static void deferReferences(hvArray* row) noexcept;
    [[noreturn]] static void raiseNothingToBind(COSNameID className);
    /// Accepts what is bound to each other already and refuses all else.
    static void checkBound(const COSInterface* instance, const full::Wrappable* object);
    static hvArray* announceNew(full::Wrappable* object, COSNameID className);
    static void announceElement(hvArray* row, std::size_t index, full::Wrappable* object,
                                COSNameID className);
};

} // namespace basic

#if !defined(__SANITIZE_ADDRESS__)
inline full::Wrappable::~Wrappable() {
    basic::BindingRegistry::retract(this);
}
#endif

} // namespace objsys::factory
