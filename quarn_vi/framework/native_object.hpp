// Finding the native object behind a script instance.
#pragma once

#include "framework/conversions.hpp"

#include <objsys/interface.hpp>
#include <objsys/object_array.hpp>

#include <cstddef>
#include <typeinfo>

namespace objsys::factory::impl {

/// Casts what is bound to an instance to `Class`, the native class that declares a member.
///
/// A dynamic cast costs some hundred instructions, and the objects that one accessor sees are
/// almost always of one dynamic type; so the last type and the distance to its `Class` part are
/// kept. Plain fields: one thread calls the module.
template <Controller Class>
class NativeObjectCast {
public:
    /// The native object bound under `className`, the full script name of `Class`; null when there
    /// is none or when it is no `Class`.
    Class* operator()(const COSInterface* instance, COSNameID className) const {
        full::Wrappable* const object = instance ? instance->getNativeObject(className) : nullptr;
        if (!object)
            return nullptr;
        if (&typeid(*object) == lastType_) [[likely]]
            return reinterpret_cast<Class*>(reinterpret_cast<char*>(object) + distance_);
        return cast(object);
    }

private:
    [[gnu::noinline]] Class* cast(full::Wrappable* object) const {
        auto* const result = dynamic_cast<Class*>(object);
        if (result) {
            lastType_ = &typeid(*object);
            distance_ = reinterpret_cast<char*>(result) - reinterpret_cast<char*>(object);
        }
        return result;
    }

    mutable const std::type_info* lastType_ = nullptr;
    mutable std::ptrdiff_t distance_ = 0;
};

/// The instance a method was called on: element 0 of its first input, null when that is empty.
inline COSInterface* selfInterface(const COSValue* inputs) {
    return omGetArrayElement(inputs[0].asArray(), 0);
}

} // namespace objsys::factory::impl
