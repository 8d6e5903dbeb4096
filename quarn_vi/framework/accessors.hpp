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
        return HostType<T>::pack((self(instance)->*Member)(), dataType_);
    }

    COSNameID getDataType() const override { return dataType_; }

    int forward(COSInterface* instance, COSValue* value) const override {
        return hook_ ? hook_(instance, value) : 0;
    }

    Enumeration<COSInterface*>
    getInterfaces([[maybe_unused]] COSInterface* instance) const override {
        if constexpr (std::is_pointer_v<T>) {
            T const object = (self(instance)->*Member)();
            if (COSInterface* const bound = basic::BindingRegistry::instanceOf(object))
                return Enumeration<COSInterface*>(std::vector<COSInterface*>{bound});
        }
        return {};
    }

    bool canContainInterfaces() const override { return false; }

    void setHook(Hook hook) { hook_ = hook; }

    /// What the getter calls, for whoever looks at a declaration. The calls themselves name the
    /// member, so that the compiler can put it in place.
    [[nodiscard]] auto member() const { return member_; }

private:
    Class* self(const COSInterface* instance) const {
        return validateSelfPointer(find_(instance, className_));
    }

    decltype(Member) member_ = Member;
    Hook hook_ = nullptr;
    NativeObjectCast<Class> find_;
    // Kept here because a look at a function's static asks each time whether it was made.
    COSNameID className_ = scriptName<Class>();
    COSNameID dataType_ = HostType<T>::name();
};

/// Writes a property of type T through `Member`, a member function of `Class` that takes T by value
/// or by reference to const.
template <class T, Controller Class, auto Member>
class ClassSetter final : public Setter {
public:
    void setValue(COSInterface* instance, const COSValue& value) override {
        (validateSelfPointer(find_(instance, className_))->*Member)(HostType<T>::unpack(value));
    }

    COSNameID getDataType() const override { return dataType_; }

    /// What the setter calls; see ClassGetter.
    [[nodiscard]] auto member() const { return member_; }

private:
    decltype(Member) member_ = Member;
    NativeObjectCast<Class> find_;
    COSNameID className_ = scriptName<Class>();
    COSNameID dataType_ = HostType<T>::name();
};

} // namespace objsys::factory::impl
