// The package internal.quarn and the catalogue of its classes.
#pragma once

#include <objsys/class_info.hpp>
#include <objsys/package_info.hpp>

#include <span>

namespace quarn_vi {

/// One class of the package: what makes its descriptor, with the class allocator, so that the
/// result is null when there is no memory. The host owns what it gets.
struct CatalogueRow {
    objsys::COSClassInfo* (*makeDescriptor)();
};

/// The rows in their order, which is the order in which the host lists the classes.
std::span<const CatalogueRow> catalogue();

class QUARNPackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override;
    /// Adds every class of the catalogue, in order.
    void registerClasses(objsys::COSPackage* package) override;
};

/// Publishes internal.quarn: as a new package below "internal", which the host guarantees to have,
/// or by adding its classes to one that exists already.
void publishPackage();

} // namespace quarn_vi
