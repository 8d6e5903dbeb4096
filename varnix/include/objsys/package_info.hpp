// COSPackageInfo: how a module describes one package to the host.
//
// A module derives it and hands an object to COSPackage::addPackage; the host owns it from then on
// and calls registerClasses once to populate the package. The order of the virtual operations is
// part of the binary interface.
#pragma once

#include <objsys/name_id.hpp>

#include <cstddef>

namespace objsys {

class COSPackage;

class COSPackageInfo {
public:
    COSPackageInfo() = default;
    COSPackageInfo(const COSPackageInfo&) = delete;
    COSPackageInfo& operator=(const COSPackageInfo&) = delete;
    virtual ~COSPackageInfo();

    /// The package's own name, without those above it; valid as long as the object.
    virtual const char* getName() const = 0;
    /// One line for a person. Base: empty.
    virtual const char* getDescription() const;
    /// Base: the description.
    virtual const char* getDetailedDescription() const;
    /// Offers to add what a look-up did not find. Base: false, nothing was added.
    virtual bool attemptToLoadSubPackage(COSPackage* package, COSNameID name);
    virtual bool attemptToLoadClass(COSPackage* package, COSNameID name);
    virtual bool attemptToLoadFunction(COSPackage* package, COSNameID name);
    virtual bool attemptToLoadType(COSPackage* package, COSNameID name);
    /// Base: null, methods are chosen by the host's own rules.
    virtual const void* getMethodSelector() const;
    /// Adds the package's classes. Base: none.
    virtual void registerClasses(COSPackage* package);
    /// Whether the package may be withdrawn before the host ends. Base: true.
    virtual bool isDestructible() const;
    /// Whether others may add classes. Base: false, they may.
    virtual bool isLocked() const;

    /// The class allocator; null when there is no memory.
    static void* operator new(std::size_t bytes) noexcept;
    /// Releases with the host allocator's free.
    static void operator delete(void* memory) noexcept;
};

} // namespace objsys
