// What reads and what writes one property: the two interfaces between a property's description and
// the native member behind it. The order of the virtual operations is part of the binary interface.
#pragma once

#include <objsys/enumeration.hpp>
#include <objsys/interface.hpp>
#include <objsys/name_id.hpp>
#include <objsys/value.hpp>

namespace objsys::factory::impl {

class Getter {
public:
    /// Reads the property of an instance. An array in the result carries a reference for the
    /// caller. Errors pass as COSError.
    virtual COSValue getValue(COSInterface* instance) const = 0;
    /// The data-type name of what getValue returns.
    virtual COSNameID getDataType() const = 0;
    virtual ~Getter() = default;
    /// Passes the call to whoever hooked the getter; 0 when nobody did.
    virtual int forward(COSInterface* instance, COSValue* value) const = 0;
    /// The objects that the property holds; empty for properties of plain types.
    virtual Enumeration<COSInterface*> getInterfaces(COSInterface* instance) const = 0;
    /// Whether saved forms follow the property into other objects.
    virtual bool canContainInterfaces() const = 0;

    Getter() = default;
    Getter(const Getter&) = delete;
    Getter& operator=(const Getter&) = delete;
};

class Setter {
public:
    /// Assigns the property. The host has already converted `value` to the declared data type; an
    /// array in it stays the caller's. Errors pass as COSError.
    virtual void setValue(COSInterface* instance, const COSValue& value) = 0;
    /// The data-type name that setValue expects.
    virtual COSNameID getDataType() const = 0;
    virtual ~Setter() = default;

    Setter() = default;
    Setter(const Setter&) = delete;
    Setter& operator=(const Setter&) = delete;
};

} // namespace objsys::factory::impl
