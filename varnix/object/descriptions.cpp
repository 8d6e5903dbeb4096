// The host's own behaviour of the descriptions that modules derive, and the allocators they come
// from.

#include <objsys/class_definition.hpp>
#include <objsys/class_info.hpp>
#include <objsys/factory/binding_registry.hpp>
#include <objsys/method_info.hpp>
#include <objsys/package_info.hpp>
#include <objsys/property_info.hpp>
#include <ut/ut.hpp>

namespace objsys {

COSClassInfo::~COSClassInfo() = default;
COSMethodInfo::~COSMethodInfo() = default;
COSPropertyInfo::~COSPropertyInfo() = default;
COSPackageInfo::~COSPackageInfo() = default;
COSClassDefinition::~COSClassDefinition() = default;

void* COSClassInfo::operator new(std::size_t bytes) noexcept {
    return utMalloc(bytes);
}
void COSClassInfo::operator delete(void* memory) noexcept {
    utFree(memory);
}
void* COSMethodInfo::operator new(std::size_t bytes) noexcept {
    return utMalloc(bytes);
}
void COSMethodInfo::operator delete(void* memory) noexcept {
    utFree(memory);
}
void* COSPackageInfo::operator new(std::size_t bytes) noexcept {
    return utMalloc(bytes);
}
void COSPackageInfo::operator delete(void* memory) noexcept {
    utFree(memory);
}

const char* COSPackageInfo::getDescription() const {
    return "";
}
const char* COSPackageInfo::getDetailedDescription() const {
    return getDescription();
}
bool COSPackageInfo::attemptToLoadSubPackage(COSPackage*, COSNameID) {
    return false;
}
bool COSPackageInfo::attemptToLoadClass(COSPackage*, COSNameID) {
    return false;
}
bool COSPackageInfo::attemptToLoadFunction(COSPackage*, COSNameID) {
    return false;
}
bool COSPackageInfo::attemptToLoadType(COSPackage*, COSNameID) {
    return false;
}
const void* COSPackageInfo::getMethodSelector() const {
    return nullptr;
}
void COSPackageInfo::registerClasses(COSPackage*) {}
bool COSPackageInfo::isDestructible() const {
    return true;
}
bool COSPackageInfo::isLocked() const {
    return false;
}

const char* COSClassInfo::getDescription() const {
    return "";
}
const char* COSClassInfo::getDetailedDescription() const {
    return getDescription();
}
COSAccess COSClassInfo::getAccess() const {
    return COSAccess::Public;
}
COSInterface* COSClassInfo::getDefaultInstance() {
    return nullptr;
}
bool COSClassInfo::destroyInstance(COSInterface*, factory::full::Wrappable* native) {
    return factory::basic::BindingRegistry::remove(native);
}
void COSClassInfo::updateInstance(COSInterface*) {}
bool COSClassInfo::hasNativeInstances() const {
    return false;
}
bool COSClassInfo::isHidden() const {
    return false;
}
bool COSClassInfo::isFullNameDisplayed() const {
    return true;
}
bool COSClassInfo::isPropertyNameReservedByThisClass(COSNameID) const {
    return false;
}
bool COSClassInfo::canOtherClassContainThisClass(COSNameID) const {
    return true;
}
bool COSClassInfo::canThisClassContainOtherClass(COSNameID) const {
    return true;
}
bool COSClassInfo::isHandleClass() const {
    return false;
}
bool COSClassInfo::isHandleCompatible() const {
    return true;
}
bool COSClassInfo::isEnumeration() const {
    return false;
}
COSAccess COSClassInfo::getConnectAccess() const {
    return COSAccess::Public;
}
COSConnectivity COSClassInfo::getConnectivity() const {
    return COSConnectivity::None;
}
bool COSClassInfo::areChildrenSaved() const {
    return false;
}
bool COSClassInfo::isAbstract() const {
    return false;
}
bool COSClassInfo::useClassDefaultsOnLoad() const {
    return false;
}
bool COSClassInfo::isSealed() const {
    return false;
}
bool COSClassInfo::isPropertyTruncationAllowed() const {
    return false;
}
bool COSClassInfo::isConstructedOnLoad() const {
    return false;
}
bool COSClassInfo::arePropertiesCaseInsensitive() const {
    return false;
}
bool COSClassInfo::hasNonConvertingConstructor() const {
    return false;
}
bool COSClassInfo::isInstanceLeaf(COSInterface*) const {
    return false;
}
bool COSClassInfo::isDestructible() const {
    return true;
}
bool COSClassInfo::isLocked() const {
    return false;
}
bool COSClassInfo::attemptToLoadProperty(COSNameID) {
    return false;
}
bool COSClassInfo::attemptToLoadMethod(COSNameID) {
    return false;
}
bool COSClassInfo::attemptToLoadEvent(COSNameID) {
    return false;
}
void COSClassInfo::instanceLoaded(COSInterface*) {}
hvArray* COSClassInfo::customSave(COSInterface*) {
    return nullptr;
}
bool COSClassInfo::customLoad(COSInterface*, hvArray*) {
    return false;
}
const char* COSClassInfo::getModule() const {
    return nullptr;
}
bool COSClassInfo::areClassFunctionsAllowed() const {
    return true;
}
bool COSClassInfo::areExtensionMethodsAllowed() const {
    return false;
}
bool COSClassInfo::usesRootRecords() const {
    return false;
}
bool COSClassInfo::doEventsHaveSeparateNamespace() const {
    return false;
}
bool COSClassInfo::doesInexactPropertyNameIssueWarning() const {
    return false;
}
bool COSClassInfo::usesCustomChildrenList() const {
    return false;
}
COSArrayNature COSClassInfo::getArrayNature() const {
    return COSArrayNature::Ordinary;
}
hvArray* COSClassInfo::getChildrenOfInstance(COSInterface*) const {
    return nullptr;
}
bool COSClassInfo::classIsAbstract() const {
    return isAbstract();
}
bool COSClassInfo::allowInstanceUpdates() const {
    return true;
}

} // namespace objsys
