// COSPackage: a named set of classes and sub-packages, the root of every full class name.
#pragma once

#include <objsys/class_info.hpp>
#include <objsys/name_id.hpp>
#include <objsys/package_info.hpp>

#include <memory>
#include <string>
#include <vector>

namespace objsys {

class COSClass;

/// Packages form a tree that the host owns; modules only hold pointers while they are loaded.
/// "internal" and "varnix" always exist.
class COSPackage {
public:
    COSPackage(const COSPackage&) = delete;
    COSPackage& operator=(const COSPackage&) = delete;

    /// The package of that full name ("internal.quarn"), or null.
    static COSPackage* getPackage(const COSNameID& fullName);

    /// Makes a sub-package from its description, takes ownership of that, and populates it (calls
    /// registerClasses) at once. Raises "varnix:outOfMemory" for null and
    /// "varnix:duplicatePackage" when there is a package of that name; the description is released
    /// then.
    void addPackage(COSPackageInfo* info);
    /// Adds a class and takes ownership of its descriptor. The class is defined when it is first
    /// needed. Raises "varnix:outOfMemory" for null and "varnix:duplicateClass" when the package
    /// has a class of that name; the descriptor is released then.
    void addClass(COSClassInfo* info);

    [[nodiscard]] COSNameID getFullName() const { return fullName_; }
    [[nodiscard]] const std::string& getName() const { return name_; }
    [[nodiscard]] const char* getDescription() const;
    /// Classes in the order in which they were added, the hidden ones included.
    [[nodiscard]] const std::vector<std::unique_ptr<COSClass>>& classes() const { return classes_; }
    /// Sub-packages in the order in which they were added.
    [[nodiscard]] const std::vector<std::unique_ptr<COSPackage>>& packages() const {
        return packages_;
    }
    /// Class or sub-package by short name, or null.
    [[nodiscard]] COSClass* findClass(std::string_view shortName) const;
    [[nodiscard]] COSPackage* findPackage(std::string_view shortName) const;

    ~COSPackage();

private:
    friend class PackageTree;

    COSPackage(COSPackageInfo* info, COSPackage* parent);

    COSPackage* parent_;
    std::unique_ptr<COSPackageInfo> info_;
    std::string name_;
    COSNameID fullName_;
    std::vector<std::unique_ptr<COSClass>> classes_;
    std::vector<std::unique_ptr<COSPackage>> packages_;
};

} // namespace objsys
