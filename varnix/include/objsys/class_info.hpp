// COSClassInfo: how a module describes one script class to the host.
//
// A module derives it, once per script class, and hands an object to COSPackage::addClass. The host
// owns the descriptor from then on. When a script first needs the class, the host calls
// defineClass once; the other operations are asked whenever the answer matters. All calls come on
// the interpreter thread. The order of the virtual operations is part of the binary interface.
#pragma once

#include <objsys/interface.hpp>
#include <objsys/name_id.hpp>

#include <cstddef>

struct hvArray;

namespace objsys {

class COSClassDefinition;

enum class COSAccess { Public, Protected, Private };
enum class COSConnectivity { None, Single, Multiple };
enum class COSArrayNature { Ordinary, ScalarOnly };

class COSClassInfo {
public:
    COSClassInfo() = default;
    COSClassInfo(const COSClassInfo&) = delete;
    COSClassInfo& operator=(const COSClassInfo&) = delete;

    /// Runs when the host withdraws the class, or at the end of the host.
    virtual ~COSClassInfo();

    /// The short class name, valid as long as the descriptor.
    virtual const char* getName() const = 0;
    /// One line for a person.
    virtual const char* getDescription() const;
    /// The long form of the description.
    virtual const char* getDetailedDescription() const;
    /// Who may name the class. Base: everybody.
    virtual COSAccess getAccess() const;

    /// Declares superclass, constructors, properties and methods, in the order in which lists of
    /// members shall show them. Called once. An error leaves the class undefined; the next use
    /// tries again.
    virtual void defineClass(COSClassDefinition* definition) = 0;

    /// An instance that stands for the class's default value, or null: none.
    virtual COSInterface* getDefaultInstance();

    /// Called when an instance dies: its last handle went, or a script called delete(h). `native`
    /// is the object bound to it. Returns whether a binding was removed.
    virtual bool destroyInstance(COSInterface* instance, factory::full::Wrappable* native);
    /// Offers an instance made under an older definition of the class. Base: keeps it as it is.
    virtual void updateInstance(COSInterface* instance);
    /// True when instances keep a native object that the class binds itself.
    virtual bool hasNativeInstances() const;

    /// A hidden class is left out of lists, but can be used. Base: false.
    virtual bool isHidden() const;
    /// Whether messages show the full name rather than the short one. Base: true.
    virtual bool isFullNameDisplayed() const;
    /// Whether derived classes may not use this property name. Base: false.
    virtual bool isPropertyNameReservedByThisClass(COSNameID name) const;
    /// Whether objects of `other` may hold objects of this class. Base: true.
    virtual bool canOtherClassContainThisClass(COSNameID other) const;
    /// Whether objects of this class may hold objects of `other`. Base: true.
    virtual bool canThisClassContainOtherClass(COSNameID other) const;
    /// True for handle classes: copying a value copies the reference. Base: false.
    virtual bool isHandleClass() const;
    /// Whether a handle class may derive this class. Base: true.
    virtual bool isHandleCompatible() const;
    /// Base: false.
    virtual bool isEnumeration() const;
    /// Base: public.
    virtual COSAccess getConnectAccess() const;
    /// Base: none.
    virtual COSConnectivity getConnectivity() const;
    /// Base: false.
    virtual bool areChildrenSaved() const;
    /// An abstract class cannot be constructed. Base: false.
    virtual bool isAbstract() const;
    /// Base: false.
    virtual bool useClassDefaultsOnLoad() const;
    /// A sealed class cannot be a superclass. Base: false.
    virtual bool isSealed() const;
    /// Base: false.
    virtual bool isPropertyTruncationAllowed() const;
    /// Base: false.
    virtual bool isConstructedOnLoad() const;
    /// Base: false: "enabled" does not name the property "Enabled".
    virtual bool arePropertiesCaseInsensitive() const;
    /// Base: false.
    virtual bool hasNonConvertingConstructor() const;
    /// Base: false.
    virtual bool isInstanceLeaf(COSInterface* instance) const;
    /// Whether a script may call delete(h). Base: true.
    virtual bool isDestructible() const;
    /// Base: false.
    virtual bool isLocked() const;
    /// Offers to add a property that the class lacks. Base: false, none was added.
    virtual bool attemptToLoadProperty(COSNameID name);
    /// Offers to add a method that the class lacks. Base: false, none was added.
    virtual bool attemptToLoadMethod(COSNameID name);
    /// Offers to add an event that the class lacks. Base: false, none was added.
    virtual bool attemptToLoadEvent(COSNameID name);
    /// Tells that an instance was loaded from a file. Base: nothing.
    virtual void instanceLoaded(COSInterface* instance);
    /// Base: null, the class has no saved form of its own.
    virtual hvArray* customSave(COSInterface* instance);
    /// Base: false, nothing was loaded.
    virtual bool customLoad(COSInterface* instance, hvArray* saved);
    /// The name of the module that publishes the class, or null.
    virtual const char* getModule() const;
    /// Base: true.
    virtual bool areClassFunctionsAllowed() const;
    /// Base: false.
    virtual bool areExtensionMethodsAllowed() const;
    /// Base: false.
    virtual bool usesRootRecords() const;
    /// Base: false.
    virtual bool doEventsHaveSeparateNamespace() const;
    /// Base: false.
    virtual bool doesInexactPropertyNameIssueWarning() const;
    /// Base: false.
    virtual bool usesCustomChildrenList() const;
    /// Base: ordinary.
    virtual COSArrayNature getArrayNature() const;
    /// Base: null, no children.
    virtual hvArray* getChildrenOfInstance(COSInterface* instance) const;
    /// Whether the definition left abstract members. Base: isAbstract().
    virtual bool classIsAbstract() const;
    /// Base: true.
    virtual bool allowInstanceUpdates() const;

    /// The class allocator. Gives null when there is no memory: `new` then gives null without
    /// calling the constructor, and the host reports it when null is handed over.
    static void* operator new(std::size_t bytes) noexcept;
    static void operator delete(void* memory) noexcept;
};

} // namespace objsys
