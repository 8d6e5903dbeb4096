// The description of one property.
#pragma once

#include <objsys/factory/accessors.hpp>
#include <objsys/factory/attributes.hpp>
#include <objsys/factory/string.hpp>
#include <objsys/property_info.hpp>

#include <memory>

namespace objsys::factory::impl {

class PropertyImpl final : public COSPropertyInfo {
public:
    /// A property that can be read and written. Takes ownership of getter and setter.
    PropertyImpl(const String& name, Getter* getter, Setter* setter, PropertyAttributes attributes)
        : name_(name), getter_(getter), setter_(setter), attributes_(attributes) {}
    /// A read-only property. Takes ownership of the getter.
    PropertyImpl(const String& name, Getter* getter, PropertyAttributes attributes)
        : PropertyImpl(name, getter, nullptr, attributes) {}

    COSNameID getName() const override { return name_; }
    Getter* getGetter() const override { return getter_.get(); }
    Setter* getSetter() const override { return setter_.get(); }
    PropertyAttributes getAttributes() const override { return attributes_; }

private:
    COSNameID name_;
    std::unique_ptr<Getter> getter_;
    std::unique_ptr<Setter> setter_;
    PropertyAttributes attributes_;
};

} // namespace objsys::factory::impl
