// COSPropertyInfo: one property of a script class.
#pragma once

#include <objsys/factory/accessors.hpp>
#include <objsys/factory/attributes.hpp>
#include <objsys/name_id.hpp>

namespace objsys {

/// Described by the module, owned by the host once added to a class definition.
class COSPropertyInfo {
public:
    COSPropertyInfo() = default;
    COSPropertyInfo(const COSPropertyInfo&) = delete;
    COSPropertyInfo& operator=(const COSPropertyInfo&) = delete;
    virtual ~COSPropertyInfo();

    virtual COSNameID getName() const = 0;
    /// Never null; lives as long as the description.
    virtual factory::impl::Getter* getGetter() const = 0;
    /// Null for a read-only property; lives as long as the description.
    virtual factory::impl::Setter* getSetter() const = 0;
    virtual factory::PropertyAttributes getAttributes() const = 0;

    // One query for each attribute bit, 0 to 14.
    bool isHidden() const { return getAttributes().bit(0); }
    bool isConstant() const { return getAttributes().bit(1); }
    bool isAbstract() const { return getAttributes().bit(2); }
    bool isStatic() const { return getAttributes().bit(3); }
    bool isTransient() const { return getAttributes().bit(4); }
    bool isObservableBeforeGet() const { return getAttributes().bit(5); }
    bool isObservableAfterGet() const { return getAttributes().bit(6); }
    bool isObservableBeforeSet() const { return getAttributes().bit(7); }
    bool isObservableAfterSet() const { return getAttributes().bit(8); }
    bool isAbortedWhenUnchanged() const { return getAttributes().bit(9); }
    bool isNonCopyable() const { return getAttributes().bit(10); }
    bool isLocalized() const { return getAttributes().bit(11); }
    bool isDeprecated() const { return getAttributes().bit(12); }
    /// Made by the object itself rather than given to it: a child it owns, a place it chose.
    bool isProvided() const { return getAttributes().bit(13); }
    bool isInternal() const { return getAttributes().bit(14); }
};

} // namespace objsys
