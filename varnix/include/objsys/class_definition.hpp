// The sink into which a descriptor declares its class.
#pragma once

#include <objsys/method_info.hpp>
#include <objsys/name_id.hpp>
#include <objsys/property_info.hpp>

namespace objsys {

/// Passed to COSClassInfo::defineClass and valid only during that call. Whatever is added belongs
/// to the host from then on, also when the definition fails. A null entry (its allocation failed)
/// makes the whole definition fail with "varnix:outOfMemory"; two properties or two methods of one
/// name make it fail with "varnix:duplicateMember". Constructors are told apart by their number of
/// arguments.
class COSClassDefinition {
public:
    virtual ~COSClassDefinition();

    /// The short name of the class being defined; it names the constructors.
    virtual const char* getClassName() const = 0;
    /// The full name of the class being defined.
    virtual COSNameID getFullClassName() const = 0;

    /// Declares a superclass by its full name. `visibility` 1: its members show in lists of the
    /// derived class; 0: they do not. `position`: where its members go among those of other
    /// superclasses (0: in order of declaration). `handle` 1: as a handle class. Raises
    /// "varnix:undefined" for an unknown class and "varnix:sealed" for one that cannot be derived.
    virtual void addSuperclass(COSNameID fullName, int visibility, int position, int handle) = 0;
    /// Adds a constructor, method or static method.
    virtual void addMethod(COSMethodInfo* method) = 0;
    virtual void addProperty(COSPropertyInfo* property) = 0;
};

} // namespace objsys
