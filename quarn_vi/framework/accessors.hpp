// Getters and setters of properties over member functions of the native classes.
#pragma once

#include "framework/conversions.hpp"
#include "framework/native_object.hpp"

#include <objsys/factory/accessors.hpp>
#include <objsys/factory/errors.hpp>

#include <utility>
#include <vector>

namespace objsys::factory::impl {

/// Reads a property of type T through `Member`, a member function of `Class` without arguments,
/// const or not.
template <class T, Controller Class, auto Member>
class ClassGetter final : public Getter {
public:
    /// Where forward() passes calls to; normally nobody.
    using Hook = int (*)(COSInterface* instance, COSValue* value);

    COSValue getValue(COSInterface* instance) const override {
        return HostType<T>::pack((validateSelfPointer(find_(instance))->*member_)());
    }

    COSNameID getDataType() const override { return HostType<T>::name(); }

    int forward(COSInterface* instance, COSValue* value) const override {
        return hook_ ? hook_(instance, value) : 0;
    }

    Enumeration<COSInterface*>
    getInterfaces([[maybe_unused]] COSInterface* instance) const override {
        if constexpr (std::is_pointer_v<T>) {
            T const object = (validateSelfPointer(find_(instance))->*member_)();
            if (COSInterface* const bound = basic::BindingRegistry::instanceOf(object))
                return Enumeration<COSInterface*>(std::vector<COSInterface*>{bound});
        }
        return {};
    }

    bool canContainInterfaces() const override { return false; }

    void setHook(Hook hook) { hook_ = hook; }

private:
    decltype(Member) member_ = Member;
    Hook hook_ = nullptr;
    NativeObjectCast<Class> find_;
};

/// Writes a property of type T through `Member`, a member function of `Class` that takes T by value
/// or by reference to const.
template <class T, Controller Class, auto Member>
class ClassSetter final : public Setter {
public:
    void setValue(COSInterface* instance, const COSValue& value) override {
        (validateSelfPointer(find_(instance))->*member_)(HostType<T>::unpack(value));
    }

    COSNameID getDataType() const override { return HostType<T>::name(); }

private:
    decltype(Member) member_ = Member;
    NativeObjectCast<Class> find_;
};

} // namespace objsys::factory::impl
