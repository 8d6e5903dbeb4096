// Definition of a class from its description, look-up of members, withdrawal.

#include "object/instances.hpp"
#include "value/errors.hpp"

#include <objsys/class.hpp>
#include <objsys/class_definition.hpp>
#include <objsys/package.hpp>

#include <algorithm>

namespace objsys {

/// Collects what a descriptor declares; nothing reaches the class before all of it is sound.
class DefinitionBuilder final : public COSClassDefinition {
public:
    explicit DefinitionBuilder(COSClass& cls) : cls_(cls) {}

    const char* getClassName() const override { return cls_.name_.c_str(); }
    COSNameID getFullClassName() const override { return cls_.fullName_; }

    void addSuperclass(COSNameID fullName, int visibility, int, int) override {
        COSClass& super = COSClass::get(fullName);
        super.ensureDefined();
        if (super.info().isSealed())
            varnix::fail("varnix:sealed", "class {} cannot be derived", fullName.str());
        superclasses_.push_back(&super);
        if (visibility == 0)
            return;
        for (const COSProperty& property : super.properties_)
            inherit(properties_, property);
        for (const COSMethod& method : super.methods_)
            inherit(methods_, method);
    }

    void addMethod(COSMethodInfo* method) override {
        if (!method) {
            incomplete_ = true;
            return;
        }
        ownMethods_.emplace_back(method);
    }

    void addProperty(COSPropertyInfo* property) override {
        if (!property) {
            incomplete_ = true;
            return;
        }
        ownProperties_.emplace_back(property);
    }

    void finish() {
        if (incomplete_)
            varnix::fail(varnix::id::outOfMemory, "there is no memory for the definition of {}",
                         cls_.fullName_.str());
        for (const auto& info : ownProperties_)
            declare(properties_, describe(*info));
        for (const auto& info : ownMethods_) {
            if (info->isConstructor())
                addConstructor(*info);
            else
                declare(methods_, describe(*info));
        }
        cls_.superclasses_ = std::move(superclasses_);
        cls_.properties_ = std::move(properties_);
        cls_.methods_ = std::move(methods_);
        cls_.constructors_ = std::move(constructors_);
        const auto plain = std::find_if(
            cls_.constructors_.begin(), cls_.constructors_.end(),
            [](const COSMethodInfo* info) { return info->getSignature().arguments.empty(); });
        cls_.plainConstructor_ =
            plain == cls_.constructors_.end() || cls_.info().isAbstract() ? nullptr : *plain;
        std::size_t nativeBytes = 0;
        for (const COSMethodInfo* const info : cls_.constructors_)
            nativeBytes = std::max(nativeBytes, info->getSignature().nativeBytes);
        cls_.instances_.reserveNative(nativeBytes);
        cls_.ownProperties_ = std::move(ownProperties_);
        cls_.ownMethods_ = std::move(ownMethods_);
        for (std::size_t i = 0; i < cls_.properties_.size(); ++i)
            cls_.propertyIndex_.emplace(cls_.properties_[i].name, i);
        for (std::size_t i = 0; i < cls_.methods_.size(); ++i)
            cls_.methodIndex_.emplace(cls_.methods_[i].name, i);
    }

private:
    COSProperty describe(const COSPropertyInfo& info) const {
        COSProperty property;
        property.name = info.getName();
        property.getter = info.getGetter();
        property.setter = info.getSetter();
        property.dataType =
            property.setter ? property.setter->getDataType() : property.getter->getDataType();
        property.info = &info;
        property.declaringClass = &cls_;
        const ValueKind kind = property.dataType.kind();
        if (property.setter && kind >= ValueKind::Logical && kind <= ValueKind::Double)
            property.plain = COSProperty::Plain::Scalar;
        else if (property.setter && kind == ValueKind::Char)
            property.plain = COSProperty::Plain::Text;
        return property;
    }

    COSMethod describe(const COSMethodInfo& info) const {
        COSMethod method;
        method.name = info.getName();
        method.info = &info;
        method.signature = &info.getSignature();
        method.declaringClass = &cls_;
        return method;
    }

    template <class Member>
    static void inherit(std::vector<Member>& members, const Member& member) {
        const auto same = [&](const Member& m) { return m.name == member.name; };
        if (std::none_of(members.begin(), members.end(), same))
            members.push_back(member);
    }

    /// Adds an own member; one of the same name replaces the inherited one in its place.
    template <class Member>
    void declare(std::vector<Member>& members, const Member& member) const {
        const auto old = std::find_if(members.begin(), members.end(),
                                      [&](const Member& m) { return m.name == member.name; });
        if (old == members.end())
            members.push_back(member);
        else if (old->declaringClass == &cls_)
            varnix::fail("varnix:duplicateMember", "class {} declares '{}' twice",
                         cls_.fullName_.str(), member.name.str());
        else
            *old = member;
    }

    void addConstructor(const COSMethodInfo& info) {
        const std::size_t count = info.getSignature().arguments.size();
        for (const COSMethodInfo* const other : constructors_)
            if (other->getSignature().arguments.size() == count)
                varnix::fail("varnix:duplicateMember",
                             "class {} declares two constructors with {} arguments",
                             cls_.fullName_.str(), count);
        constructors_.push_back(&info);
    }

    COSClass& cls_;
    bool incomplete_ = false;
    std::vector<COSClass*> superclasses_;
    std::vector<COSProperty> properties_;
    std::vector<COSMethod> methods_;
    std::vector<const COSMethodInfo*> constructors_;
    std::vector<std::unique_ptr<COSPropertyInfo>> ownProperties_;
    std::vector<std::unique_ptr<COSMethodInfo>> ownMethods_;
};

COSClass::COSClass(COSClassInfo* info, COSPackage* package)
    : info_(info), package_(package), name_(info->getName()),
      fullName_(package->getFullName().str() + "." + name_) {}

COSClass::~COSClass() = default;

COSClass& COSClass::get(COSNameID fullName) {
    if (COSClass* const cls = find(fullName))
        return *cls;
    varnix::fail(varnix::id::undefined, "there is no class {}", fullName.str());
}

void COSClass::define() {
    if (state_ == State::Withdrawn)
        varnix::fail(varnix::id::undefined, "class {} is no longer there: its module was unloaded",
                     fullName_.str());
    if (state_ == State::Defining)
        varnix::fail("varnix:recursiveDefinition", "class {} is its own superclass",
                     fullName_.str());
    state_ = State::Defining;
    try {
        DefinitionBuilder builder(*this);
        info_->defineClass(&builder);
        builder.finish();
    } catch (...) {
        state_ = State::Declared;
        throw;
    }
    state_ = State::Defined;
}

void COSClass::withdraw() noexcept {
    InstanceAccess::endAll(this);
    if (fullName_.entry()->registeredClass == this)
        fullName_.entry()->registeredClass = nullptr;
    constructors_.clear();
    plainConstructor_ = nullptr;
    ownProperties_.clear();
    ownMethods_.clear();
    propertyIndex_.clear();
    methodIndex_.clear();
    info_.reset();
    package_ = nullptr;
    state_ = State::Withdrawn;
}

const std::vector<COSClass*>& COSClass::superclasses() {
    ensureDefined();
    return superclasses_;
}

const std::vector<COSProperty>& COSClass::properties() {
    ensureDefined();
    return properties_;
}

const std::vector<COSMethod>& COSClass::methods() {
    ensureDefined();
    return methods_;
}

const std::vector<const COSMethodInfo*>& COSClass::constructors() {
    ensureDefined();
    return constructors_;
}

const COSProperty* COSClass::findProperty(COSNameID name) {
    ensureDefined();
    const auto found = propertyIndex_.find(name);
    return found == propertyIndex_.end() ? nullptr : &properties_[found->second];
}

const COSMethod* COSClass::findMethod(COSNameID name) {
    ensureDefined();
    const auto found = methodIndex_.find(name);
    return found == methodIndex_.end() ? nullptr : &methods_[found->second];
}

bool COSClass::isA(const COSClass* other) {
    if (this == other)
        return true;
    if (state_ != State::Withdrawn)
        ensureDefined();
    return std::any_of(superclasses_.begin(), superclasses_.end(),
                       [other](COSClass* super) { return super->isA(other); });
}

} // namespace objsys
