#include "object/package_tree.hpp"

#include "value/errors.hpp"

#include <objsys/class.hpp>

#include <algorithm>

namespace objsys {

namespace {

/// The description of a package that the host itself provides.
class HostPackage final : public COSPackageInfo {
public:
    HostPackage(const char* name, const char* description)
        : name_(name), description_(description) {}
    const char* getName() const override { return name_; }
    const char* getDescription() const override { return description_; }

private:
    const char* name_;
    const char* description_;
};

/// varnix.mixin.Heterogeneous: classes that derive it may stand in one array together.
class Heterogeneous final : public COSClassInfo {
public:
    const char* getName() const override { return "Heterogeneous"; }
    const char* getDescription() const override {
        return "Mixin of classes whose objects may stand in one array together.";
    }
    void defineClass(COSClassDefinition*) override {}
    bool isHandleClass() const override { return true; }
    bool isAbstract() const override { return true; }
};

/// A description that is owned from here on, or the error that there was no memory for it.
template <class Info>
std::unique_ptr<Info> owned(Info* info, const char* what) {
    if (!info)
        varnix::fail(varnix::id::outOfMemory, "there is no memory for a {}", what);
    return std::unique_ptr<Info>(info);
}

} // namespace

namespace detail {
std::uint64_t classGeneration = 0;
}

PackageTree& PackageTree::instance() {
    static PackageTree* tree = nullptr; // lives for the process: modules hold pointers into it
    if (!tree) {
        tree = new PackageTree;
        auto* const varnix =
            new COSPackage(new HostPackage("varnix", "The host's own classes."), nullptr);
        tree->roots_.emplace_back(varnix);
        tree->roots_.emplace_back(
            new COSPackage(new HostPackage("internal", "Packages of extension modules."), nullptr));
        varnix->addPackage(new HostPackage("mixin", "Classes to derive from."));
        varnix->findPackage("mixin")->addClass(new Heterogeneous);
    }
    return *tree;
}

PackageTree::PackageTree() = default;

const std::vector<std::unique_ptr<COSPackage>>& PackageTree::roots() {
    return instance().roots_;
}

COSPackage* PackageTree::findRoot(std::string_view name) {
    for (const auto& root : roots())
        if (root->getName() == name)
            return root.get();
    return nullptr;
}

PackageTree::Mark PackageTree::mark() {
    return {instance().history_.size()};
}

void PackageTree::withdrawSince(Mark mark) noexcept {
    PackageTree& tree = instance();
    tree.withdraw(mark.serial, tree.history_.size());
}

void PackageTree::withdrawBetween(Mark begin, Mark end) noexcept {
    instance().withdraw(begin.serial, end.serial);
}

namespace {
/// Takes `item` out of a list of owners.
template <class T>
std::unique_ptr<T> take(std::vector<std::unique_ptr<T>>& list, const T* item) {
    const auto at = std::find_if(list.begin(), list.end(),
                                 [item](const auto& owner) { return owner.get() == item; });
    std::unique_ptr<T> owner = std::move(*at);
    list.erase(at);
    return owner;
}
} // namespace

void PackageTree::withdraw(std::size_t begin, std::size_t end) noexcept {
    ++detail::classGeneration;
    for (std::size_t i = end; i-- > begin;) {
        Entry& entry = history_[i];
        if (entry.cls) {
            entry.cls->withdraw();
            withdrawn_.push_back(take(entry.parent->classes_, entry.cls));
            removeAbandoned(entry.parent);
        } else if (entry.package) {
            entry.package->info_.reset();
            removeAbandoned(entry.package);
        }
        entry = {};
    }
}

/// A package whose description was withdrawn stays, as a folder of the host's, while there is
/// something in it that others have added, and goes with the last of that.
void PackageTree::removeAbandoned(COSPackage* package) noexcept {
    while (!package->info_ && package->classes_.empty() && package->packages_.empty()) {
        COSPackage* const parent = package->parent_;
        withdrawnPackages_.push_back(take(parent->packages_, package));
        package = parent;
    }
}

COSPackage::COSPackage(COSPackageInfo* info, COSPackage* parent)
    : parent_(parent), info_(info), name_(info->getName()),
      fullName_(parent ? COSNameID(parent->getFullName().str() + "." + name_) : COSNameID(name_)) {}

COSPackage::~COSPackage() = default;

COSPackage* COSPackage::getPackage(const COSNameID& fullName) {
    std::string_view rest = fullName.str();
    COSPackage* package = nullptr;
    for (bool first = true; first || package; first = false) {
        const std::size_t dot = rest.find('.');
        const std::string_view head = rest.substr(0, dot);
        package = first ? PackageTree::findRoot(head) : package->findPackage(head);
        if (dot == std::string_view::npos)
            return package;
        rest.remove_prefix(dot + 1);
    }
    return nullptr;
}

void COSPackage::addPackage(COSPackageInfo* info) {
    std::unique_ptr<COSPackageInfo> description = owned(info, "package");
    if (findPackage(info->getName()))
        varnix::fail("varnix:duplicatePackage", "there is a package {}.{} already", fullName_.str(),
                     info->getName());
    auto package = std::unique_ptr<COSPackage>(new COSPackage(description.release(), this));
    COSPackage* const added = package.get();
    packages_.push_back(std::move(package));
    // The tree itself is being made when the host adds its own packages.
    PackageTree::instance().history_.push_back({this, nullptr, added});
    added->info_->registerClasses(added);
}

void COSPackage::addClass(COSClassInfo* info) {
    std::unique_ptr<COSClassInfo> description = owned(info, "class");
    if (findClass(info->getName()))
        varnix::fail("varnix:duplicateClass", "there is a class {}.{} already", fullName_.str(),
                     info->getName());
    auto cls = std::unique_ptr<COSClass>(new COSClass(description.release(), this));
    cls->fullName_.entry()->registeredClass = cls.get();
    PackageTree::instance().history_.push_back({this, cls.get(), nullptr});
    classes_.push_back(std::move(cls));
}

const char* COSPackage::getDescription() const {
    return info_ ? info_->getDescription() : "";
}

COSClass* COSPackage::findClass(std::string_view shortName) const {
    for (const auto& cls : classes_)
        if (cls->getName() == shortName)
            return cls.get();
    return nullptr;
}

COSPackage* COSPackage::findPackage(std::string_view shortName) const {
    for (const auto& package : packages_)
        if (package->getName() == shortName)
            return package.get();
    return nullptr;
}

} // namespace objsys
