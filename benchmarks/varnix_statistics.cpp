// The controller's members, its two descriptors and their package; see varnix_statistics.hpp.
#include "varnix_statistics.hpp"

#include "framework/class_info.hpp"
#include "framework/declaration.hpp"

#include <objsys/package.hpp>
#include <objsys/package_info.hpp>

#include <stdexcept>

namespace bench {

struct ScriptStatistics::Family {
    ScriptStatistics child;
    std::vector<std::unique_ptr<ScriptStatistics>> owned;
    std::vector<ScriptStatistics*> violations; ///< the same, as they are handed out
};

void ScriptStatistics::DeleteFamily::operator()(Family* family) const {
    delete family;
}

ScriptStatistics* ScriptStatistics::childObject() const {
    return family_ ? &family_->child : nullptr;
}

const std::vector<ScriptStatistics*>& ScriptStatistics::violationObjects() const {
    static const std::vector<ScriptStatistics*> none;
    return family_ ? family_->violations : none;
}

void ScriptStatistics::populateObjects(std::size_t violationCount) {
    populate(0);
    family_.reset(new Family);
    for (std::size_t i = 0; i < violationCount; ++i) {
        family_->owned.push_back(std::make_unique<ScriptStatistics>());
        family_->violations.push_back(family_->owned.back().get());
    }
}

std::shared_ptr<ScriptStatistics> makeScriptStatistics(std::size_t violationCount) {
    auto object = std::make_shared<ScriptStatistics>();
    object->setEnabled(true);
    object->setThreshold(thresholdValue);
    object->setCount(countValue);
    object->setOutputFormat(formatValue);
    object->populateObjects(violationCount);
    return object;
}

namespace {

/// The members that both classes declare, in the order of their table.
template <class Native>
void declareMembers(objsys::factory::ClassDeclaration<Native>& declare) {
    using S = ScriptStatistics;
    declare.template property<&S::isEnabled, &S::enable>("Enabled");
    declare.template property<&S::currentThreshold, &S::changeThreshold>("Threshold");
    declare.template property<&S::currentCount, &S::changeCount>("Count");
    declare.template property<&S::currentOutputFormat, &S::changeOutputFormat>("OutputFormat");
    declare.template readOnly<&S::currentFields>("Fields");
    declare.template readOnly<&S::childObject>("Child");
    declare.template readOnly<&S::violationObjects>("Violations");
    declare.template method<&S::resetCounts>("reset");
    declare.template method<&S::greeting>("hello");
}

/// Objects that somebody in C++ owns; no constructor.
class CosStatistics : public objsys::factory::HandleClassInfo<ScriptStatistics, 0> {
public:
    CosStatistics() : HandleClassInfo("Statistics", "The measured controller.") {}
    void defineClass(objsys::COSClassDefinition* definition) override {
        objsys::factory::ClassDeclaration<ScriptStatistics> declare(definition);
        declareMembers(declare);
    }
};

/// Objects that scripts make, deleted with their handles.
class CosOwnedStatistics : public objsys::factory::HandleClassInfo<OwnedStatistics, 1> {
public:
    CosOwnedStatistics() : HandleClassInfo("OwnedStatistics", "The same, made by scripts.") {}
    void defineClass(objsys::COSClassDefinition* definition) override {
        objsys::factory::ClassDeclaration<OwnedStatistics> declare(definition, this);
        declare.constructor<>();
        declareMembers(declare);
    }
};

class BenchPackage : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "bench"; }
    void registerClasses(objsys::COSPackage* package) override {
        package->addClass(new CosStatistics);
        package->addClass(new CosOwnedStatistics);
    }
};

} // namespace

void publishStatistics() {
    using objsys::COSNameID;
    using objsys::COSPackage;
    if (COSPackage::getPackage(COSNameID("internal.bench")) == nullptr) {
        COSPackage::getPackage(COSNameID("internal"))->addPackage(new BenchPackage);
    }
}

} // namespace bench
