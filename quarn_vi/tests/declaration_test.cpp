// What a descriptor hands to the host when it declares its class, seen by a sink that writes down
// every call; descriptors and property descriptions themselves.

#include "quarn_package.hpp"
#include "tests/recorder.hpp"
#include "tests/sample.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace sample;
using objsys::factory::String;
using objsys::factory::impl::Invoker;
using objsys::factory::impl::MethodImpl;
using objsys::factory::impl::ObjsysConstructor;
using objsys::factory::impl::PropertyImpl;
using testing::ElementsAre;

/// One member of each kind.
class Machine : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Machine";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Machine> declare(definition);
        declare.superclass("internal.sample.Apparatus");
        declare.constructor();
        declare.property<&Machine::speed, &Machine::setSpeed>("Speed");
        declare.readOnly<&Machine::speed>("TopSpeed");
        declare.readOnly<&Machine::speed>("MadeSpeed", PropertyAttributes(0x2000));
        declare.method<&Machine::stop>("stop");
        declare.staticMethod<&Machine::make>("make");
    }
    double speed() const { return speed_; }
    void setSpeed(double value) { speed_ = value; }
    void stop() {}
    static bool make(double) { return true; }

private:
    double speed_ = 0;
};

class Declaration : public testing::Test {
protected:
    Declaration() : recorder_("NameFromTheSink") { descriptor_.defineClass(&recorder_); }
    CosSample<Machine, 0> descriptor_;
    Recorder recorder_;
};

TEST_F(Declaration, ComesInOrder) {
    EXPECT_THAT(recorder_.calls,
                ElementsAre("superclass internal.sample.Apparatus 1 0 1",
                            "constructor NameFromTheSink", "property Speed", "property TopSpeed",
                            "property MadeSpeed", "method stop", "method make"));
}

TEST_F(Declaration, MayBeMadeAgain) {
    Recorder again("Again");
    descriptor_.defineClass(&again);
    EXPECT_EQ(again.calls.size(), recorder_.calls.size());
}

TEST_F(Declaration, OfAConstructor) {
    const objsys::COSMethodInfo& constructor = *recorder_.methods[0];
    EXPECT_NE(dynamic_cast<const ObjsysConstructor*>(&constructor), nullptr);
    EXPECT_NE(dynamic_cast<const objsys::factory::ObjsysMethod*>(&constructor), nullptr);
    EXPECT_EQ(constructor.getAttributes(), MethodAttributes());
    EXPECT_STREQ(constructor.getDescription(), "");
    EXPECT_EQ(constructor.getSignature().text, "");
    EXPECT_EQ(constructor.getSignature().result.str(), "internal.sample.Machine");
    EXPECT_FALSE(constructor.getSignature().hasSelf);
    EXPECT_TRUE(constructor.getSignature().arguments.empty());
}

TEST_F(Declaration, OfAReadWriteProperty) {
    const objsys::COSPropertyInfo& speed = *recorder_.properties[0];
    EXPECT_NE(dynamic_cast<const PropertyImpl*>(&speed), nullptr);
    ASSERT_NE(speed.getGetter(), nullptr);
    ASSERT_NE(speed.getSetter(), nullptr);
    EXPECT_EQ(speed.getGetter()->getDataType().str(), "double scalar");
    EXPECT_EQ(speed.getSetter()->getDataType().str(), "double scalar");
    EXPECT_EQ(speed.getAttributes(), PropertyAttributes());
}

TEST_F(Declaration, OfAReadOnlyProperty) {
    const objsys::COSPropertyInfo& top = *recorder_.properties[1];
    EXPECT_NE(top.getGetter(), nullptr);
    EXPECT_EQ(top.getSetter(), nullptr);
    EXPECT_EQ(top.getAttributes().bits(), 0);
}

TEST_F(Declaration, OfAReadOnlyPropertyWithAttributes) {
    const objsys::COSPropertyInfo& made = *recorder_.properties[2];
    EXPECT_EQ(made.getSetter(), nullptr);
    EXPECT_EQ(made.getAttributes().bits(), 0x2000);
    EXPECT_TRUE(made.isProvided());
}

TEST_F(Declaration, OfMethods) {
    const objsys::COSMethodInfo& stop = *recorder_.methods[1];
    const objsys::COSMethodInfo& make = *recorder_.methods[2];
    EXPECT_NE(dynamic_cast<const MethodImpl*>(&stop), nullptr);
    EXPECT_NE(dynamic_cast<const objsys::factory::ObjsysMethod*>(&stop), nullptr);
    EXPECT_EQ(stop.getSignature().result.str(), "void");
    EXPECT_EQ(stop.getSignature().self.str(), "internal.sample.Machine");
    EXPECT_FALSE(stop.getAttributes().has(MethodAttributes::Static()));
    EXPECT_EQ(make.getSignature().result.str(), "logical scalar");
    EXPECT_FALSE(make.getSignature().hasSelf);
    EXPECT_EQ(make.getSignature().arguments.size(), 1u);
    EXPECT_TRUE(make.getAttributes().has(MethodAttributes::Static()));
}

// ---- the descriptions

TEST(PropertyDescription, EachAttributeHasItsQuery) {
    using Info = objsys::COSPropertyInfo;
    bool (Info::*const queries[])() const = {
        &Info::isHidden,
        &Info::isConstant,
        &Info::isAbstract,
        &Info::isStatic,
        &Info::isTransient,
        &Info::isObservableBeforeGet,
        &Info::isObservableAfterGet,
        &Info::isObservableBeforeSet,
        &Info::isObservableAfterSet,
        &Info::isAbortedWhenUnchanged,
        &Info::isNonCopyable,
        &Info::isLocalized,
        &Info::isDeprecated,
        &Info::isProvided,
        &Info::isInternal,
    };
    using SpeedGetter = objsys::factory::impl::ClassGetter<double, Machine, &Machine::speed>;
    for (unsigned set = 0; set < std::size(queries); ++set) {
        const PropertyImpl property("Any", new SpeedGetter,
                                    PropertyAttributes(static_cast<std::uint16_t>(1u << set)));
        for (unsigned asked = 0; asked < std::size(queries); ++asked)
            EXPECT_EQ((property.*queries[asked])(), asked == set) << set << " " << asked;
    }
}

int accessorsDestroyed = 0;
struct TellingGetter final : objsys::factory::impl::Getter {
    ~TellingGetter() override { ++accessorsDestroyed; }
    COSValue getValue(COSInterface*) const override { return {}; }
    COSNameID getDataType() const override { return COSNameID("any"); }
    int forward(COSInterface*, COSValue*) const override { return 0; }
    objsys::Enumeration<COSInterface*> getInterfaces(COSInterface*) const override { return {}; }
    bool canContainInterfaces() const override { return false; }
};
struct TellingSetter final : objsys::factory::impl::Setter {
    ~TellingSetter() override { ++accessorsDestroyed; }
    void setValue(COSInterface*, const COSValue&) override {}
    COSNameID getDataType() const override { return COSNameID("any"); }
};

TEST(PropertyDescription, OwnsItsAccessors) {
    accessorsDestroyed = 0;
    auto* const getter = new TellingGetter;
    auto* const setter = new TellingSetter;
    {
        const PropertyImpl property(String("Both"), getter, setter, PropertyAttributes(0x2000));
        EXPECT_EQ(property.getName().str(), "Both");
        EXPECT_EQ(property.getGetter(), getter);
        EXPECT_EQ(property.getSetter(), setter);
        EXPECT_EQ(property.getAttributes().bits(), 0x2000);
    }
    EXPECT_EQ(accessorsDestroyed, 2);
    { const PropertyImpl property(String("One"), new TellingGetter, PropertyAttributes()); }
    EXPECT_EQ(accessorsDestroyed, 3);
}

TEST(Signature, HoldsWhatItIsMadeFrom) {
    const COSNameID self("internal.sample.Machine");
    const auto withSelf =
        Invoker::createSignature("remark", COSNameID("char"), &self, {COSNameID("cell"), self});
    EXPECT_EQ(withSelf.text, "remark");
    EXPECT_EQ(withSelf.result.str(), "char");
    EXPECT_TRUE(withSelf.hasSelf);
    EXPECT_EQ(withSelf.self, self);
    EXPECT_THAT(withSelf.arguments, ElementsAre(COSNameID("cell"), self));

    const auto without = Invoker::createSignature(String(), COSNameID::voidType(), nullptr, {});
    EXPECT_EQ(without.text, "");
    EXPECT_EQ(without.result.str(), "void");
    EXPECT_FALSE(without.hasSelf);
    EXPECT_TRUE(without.arguments.empty());
}

class PlainDescriptor final : public objsys::factory::HandleClassInfo<Machine, 0> {
public:
    using HandleClassInfo::HandleClassInfo;
    void defineClass(objsys::COSClassDefinition*) override {}
};

TEST(Descriptor, KeepsCopiesOfItsTexts) {
    std::string name = "Plain";
    std::string description = "A plain class.";
    PlainDescriptor descriptor(name.c_str(), description.c_str());
    name = description = "overwritten";
    EXPECT_STREQ(descriptor.getName(), "Plain");
    EXPECT_STREQ(descriptor.getDescription(), "A plain class.");
    EXPECT_STREQ(descriptor.getDetailedDescription(), "A plain class.");
}

/// The detailed description asks for the description, so that overriding one changes both.
class Renamed final : public objsys::factory::HandleClassInfo<Machine, 0> {
public:
    Renamed() : HandleClassInfo("Renamed", "first") {}
    const char* getDescription() const override { return "second"; }
    void defineClass(objsys::COSClassDefinition*) override {}
};

TEST(Descriptor, GivesTheDescriptionAsTheDetailedOne) {
    EXPECT_STREQ(Renamed().getDetailedDescription(), "second");
}

TEST(Descriptor, AnswersTheFrameworksQueries) {
    PlainDescriptor descriptor("Plain", "");
    EXPECT_EQ(descriptor.getDefaultInstance(), nullptr);
    EXPECT_TRUE(descriptor.hasNativeInstances());
    EXPECT_TRUE(descriptor.isHandleClass());
}

/// The host's own class behaviour, for comparison.
class BareDescriptor final : public objsys::COSClassInfo {
public:
    const char* getName() const override { return "Bare"; }
    void defineClass(objsys::COSClassDefinition*) override {}
};

TEST(Descriptor, KeepsTheHostsBehaviourOtherwise) {
    PlainDescriptor plain("Plain", "");
    BareDescriptor bare;
    const COSNameID any("any");
    EXPECT_EQ(plain.getAccess(), bare.getAccess());
    EXPECT_EQ(plain.isHidden(), bare.isHidden());
    EXPECT_EQ(plain.isFullNameDisplayed(), bare.isFullNameDisplayed());
    EXPECT_EQ(plain.isPropertyNameReservedByThisClass(any),
              bare.isPropertyNameReservedByThisClass(any));
    EXPECT_EQ(plain.canOtherClassContainThisClass(any), bare.canOtherClassContainThisClass(any));
    EXPECT_EQ(plain.canThisClassContainOtherClass(any), bare.canThisClassContainOtherClass(any));
    EXPECT_EQ(plain.isHandleCompatible(), bare.isHandleCompatible());
    EXPECT_EQ(plain.isEnumeration(), bare.isEnumeration());
    EXPECT_EQ(plain.getConnectAccess(), bare.getConnectAccess());
    EXPECT_EQ(plain.getConnectivity(), bare.getConnectivity());
    EXPECT_EQ(plain.areChildrenSaved(), bare.areChildrenSaved());
    EXPECT_EQ(plain.isAbstract(), bare.isAbstract());
    EXPECT_EQ(plain.useClassDefaultsOnLoad(), bare.useClassDefaultsOnLoad());
    EXPECT_EQ(plain.isSealed(), bare.isSealed());
    EXPECT_EQ(plain.isPropertyTruncationAllowed(), bare.isPropertyTruncationAllowed());
    EXPECT_EQ(plain.isConstructedOnLoad(), bare.isConstructedOnLoad());
    EXPECT_EQ(plain.arePropertiesCaseInsensitive(), bare.arePropertiesCaseInsensitive());
    EXPECT_EQ(plain.hasNonConvertingConstructor(), bare.hasNonConvertingConstructor());
    EXPECT_EQ(plain.isInstanceLeaf(nullptr), bare.isInstanceLeaf(nullptr));
    EXPECT_EQ(plain.isDestructible(), bare.isDestructible());
    EXPECT_EQ(plain.isLocked(), bare.isLocked());
    EXPECT_EQ(plain.attemptToLoadProperty(any), bare.attemptToLoadProperty(any));
    EXPECT_EQ(plain.attemptToLoadMethod(any), bare.attemptToLoadMethod(any));
    EXPECT_EQ(plain.attemptToLoadEvent(any), bare.attemptToLoadEvent(any));
    EXPECT_EQ(plain.customSave(nullptr), bare.customSave(nullptr));
    EXPECT_EQ(plain.customLoad(nullptr, nullptr), bare.customLoad(nullptr, nullptr));
    EXPECT_EQ(plain.getModule(), bare.getModule());
    EXPECT_EQ(plain.areClassFunctionsAllowed(), bare.areClassFunctionsAllowed());
    EXPECT_EQ(plain.areExtensionMethodsAllowed(), bare.areExtensionMethodsAllowed());
    EXPECT_EQ(plain.usesRootRecords(), bare.usesRootRecords());
    EXPECT_EQ(plain.doEventsHaveSeparateNamespace(), bare.doEventsHaveSeparateNamespace());
    EXPECT_EQ(plain.doesInexactPropertyNameIssueWarning(),
              bare.doesInexactPropertyNameIssueWarning());
    EXPECT_EQ(plain.usesCustomChildrenList(), bare.usesCustomChildrenList());
    EXPECT_EQ(plain.getArrayNature(), bare.getArrayNature());
    EXPECT_EQ(plain.getChildrenOfInstance(nullptr), bare.getChildrenOfInstance(nullptr));
    EXPECT_EQ(plain.classIsAbstract(), bare.classIsAbstract());
    EXPECT_EQ(plain.allowInstanceUpdates(), bare.allowInstanceUpdates());
}

// ---- every class of the catalogue

int phaseOf(const std::string& call) {
    const std::string kind = call.substr(0, call.find(' '));
    return kind == "superclass" ? 0 : kind == "constructor" ? 1 : kind == "property" ? 2 : 3;
}

TEST(EveryPublishedClass, DeclaresSuperclassConstructorPropertiesMethodsInThisOrder) {
    for (const quarn_vi::CatalogueRow& row : quarn_vi::catalogue()) {
        const std::unique_ptr<objsys::COSClassInfo> descriptor(row.makeDescriptor());
        Recorder recorder(descriptor->getName());
        descriptor->defineClass(&recorder);
        // TimerProbe alone puts its method in front of the properties that the method fills.
        const bool methodFirst = descriptor->getName() == std::string("TimerProbe");
        EXPECT_EQ(!methodFirst, std::is_sorted(recorder.calls.begin(), recorder.calls.end(),
                                               [](const std::string& a, const std::string& b) {
                                                   return phaseOf(a) < phaseOf(b);
                                               }))
            << descriptor->getName();
        for (const std::string& call : recorder.calls) {
            if (phaseOf(call) == 0) {
                EXPECT_THAT(call, testing::EndsWith(" 1 0 1")) << descriptor->getName();
            } else if (phaseOf(call) == 1) {
                EXPECT_EQ(call, std::string("constructor ") + descriptor->getName());
            }
        }
        for (const auto& property : recorder.properties) {
            if (property->getSetter()) {
                EXPECT_EQ(property->getAttributes(), PropertyAttributes())
                    << descriptor->getName() << "." << property->getName().str();
            }
        }
        for (const auto& method : recorder.methods) {
            if (method->isConstructor()) {
                EXPECT_EQ(method->getSignature().result.str(),
                          std::string("internal.quarn.") + descriptor->getName());
            }
        }
    }
}

TEST(EveryPublishedClass, AnswersTheFrameworksQueries) {
    for (const quarn_vi::CatalogueRow& row : quarn_vi::catalogue()) {
        const std::unique_ptr<objsys::COSClassInfo> descriptor(row.makeDescriptor());
        EXPECT_NE(dynamic_cast<objsys::factory::ObjsysFactoryClassInfo*>(descriptor.get()),
                  nullptr);
        EXPECT_TRUE(descriptor->isHandleClass()) << descriptor->getName();
        EXPECT_TRUE(descriptor->hasNativeInstances()) << descriptor->getName();
        EXPECT_EQ(descriptor->getDefaultInstance(), nullptr) << descriptor->getName();
        EXPECT_STREQ(descriptor->getDetailedDescription(), descriptor->getDescription());
    }
}

} // namespace
