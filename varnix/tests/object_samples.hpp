// Script classes for tests of values and built-ins that work on objects: a package
// varnix.samples with the classes Plain, Left and Right. Left and Right derive
// varnix.mixin.Heterogeneous. Each has the properties Name (char) and Broken (reading it raises).
#pragma once

#include "tests/value_helpers.hpp"

#include <objsys/objsys.hpp>

#include <string>

namespace varnix::testing {

struct Item : objsys::factory::full::Wrappable {
    std::string name = "new";
};

namespace samples {

[[nodiscard]] inline Item& itemOf(objsys::COSInterface* instance) {
    return dynamic_cast<Item&>(*instance->getNativeObject(objsys::COSNameID()));
}

class NameGetter final : public objsys::factory::impl::Getter {
public:
    objsys::COSValue getValue(objsys::COSInterface* instance) const override {
        return objsys::COSValue::ofArray(hvCreateString(itemOf(instance).name.c_str()),
                                         getDataType());
    }
    objsys::COSNameID getDataType() const override { return objsys::COSNameID("char"); }
    int forward(objsys::COSInterface*, objsys::COSValue*) const override { return 0; }
    objsys::Enumeration<objsys::COSInterface*> getInterfaces(objsys::COSInterface*) const override {
        return {};
    }
    bool canContainInterfaces() const override { return false; }
};

class NameSetter final : public objsys::factory::impl::Setter {
public:
    void setValue(objsys::COSInterface* instance, const objsys::COSValue& value) override {
        itemOf(instance).name = Value::fromArray(hvShareArray(value.asArray())).textView();
    }
    objsys::COSNameID getDataType() const override { return objsys::COSNameID("char"); }
};

class BrokenGetter final : public objsys::factory::impl::Getter {
public:
    objsys::COSValue getValue(objsys::COSInterface*) const override {
        objsys::raise("samples:broken", "it is broken");
    }
    objsys::COSNameID getDataType() const override { return objsys::COSNameID("double scalar"); }
    int forward(objsys::COSInterface*, objsys::COSValue*) const override { return 0; }
    objsys::Enumeration<objsys::COSInterface*> getInterfaces(objsys::COSInterface*) const override {
        return {};
    }
    bool canContainInterfaces() const override { return false; }
};

template <class GetterType, class SetterType>
class Property final : public objsys::COSPropertyInfo {
public:
    explicit Property(const char* name) : name_(name) {}
    objsys::COSNameID getName() const override { return name_; }
    objsys::factory::impl::Getter* getGetter() const override { return &getter_; }
    objsys::factory::impl::Setter* getSetter() const override {
        if constexpr (std::is_void_v<SetterType>)
            return nullptr;
        else
            return &setter_;
    }
    objsys::factory::PropertyAttributes getAttributes() const override { return {}; }

private:
    struct None {};
    objsys::COSNameID name_;
    mutable GetterType getter_;
    mutable std::conditional_t<std::is_void_v<SetterType>, None, SetterType> setter_;
};

class ItemClass final : public objsys::COSClassInfo {
public:
    ItemClass(const char* name, bool mixed) : name_(name), mixed_(mixed) {}
    const char* getName() const override { return name_; }
    void defineClass(objsys::COSClassDefinition* definition) override {
        if (mixed_)
            definition->addSuperclass(objsys::COSNameID("varnix.mixin.Heterogeneous"), 1, 0, 1);
        definition->addProperty(new Property<NameGetter, NameSetter>("Name"));
        definition->addProperty(new Property<BrokenGetter, void>("Broken"));
    }
    bool isHandleClass() const override { return true; }
    bool destroyInstance(objsys::COSInterface*, objsys::factory::full::Wrappable* native) override {
        return objsys::factory::basic::BindingRegistry::remove(native);
    }

private:
    const char* name_;
    bool mixed_;
};

class Package final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "samples"; }
    void registerClasses(objsys::COSPackage* package) override {
        package->addClass(new ItemClass("Plain", false));
        package->addClass(new ItemClass("Left", true));
        package->addClass(new ItemClass("Right", true));
    }
};

} // namespace samples

/// A handle of a native object; the object is the test's own and must live as long.
[[nodiscard]] inline Value handleOf(Item& item, const char* shortName) {
    if (!objsys::COSPackage::getPackage(objsys::COSNameID("varnix.samples")))
        objsys::COSPackage::getPackage(objsys::COSNameID("varnix"))
            ->addPackage(new samples::Package);
    return Value::fromArray(objsys::factory::basic::BindingRegistry::announce(
        &item, objsys::COSNameID("varnix.samples." + std::string(shortName))));
}

} // namespace varnix::testing
