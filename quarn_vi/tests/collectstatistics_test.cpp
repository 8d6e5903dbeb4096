// internal.quarn.CollectStatistics and its native base Registerable, through the published class.

#include "debug/collectstatistics.hpp"
#include "quarn_package.hpp"
#include "tests/sample.hpp"

#include <qn/assertion.hpp>
#include <qn/collect_statistics_service.hpp>
#include <qn/default_services.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace sample;
using quarn_vi::debug::CollectStatistics;
using quarn_vi::debug::Registerable;

QN::ServiceContainer& services() {
    return QN::DefaultServices::debugServices();
}

COSClass& statistics() {
    const COSNameID name("internal.quarn.CollectStatistics");
    if (!COSClass::find(name))
        quarn_vi::publishPackage();
    return COSClass::get(name);
}

/// A script object and, because nothing of the script side ever deletes it, its native one.
struct Constructed {
    Array handle = construct(statistics());
    std::unique_ptr<CollectStatistics> native{nativeIn<CollectStatistics>(handle)};

    [[nodiscard]] bool enabled() const {
        const COSValue value = property(statistics(), "Enabled").get(instanceIn(handle));
        EXPECT_EQ(value.type().str(), "logical scalar");
        EXPECT_LE(value.payload(), 1u);
        return value.asLogical();
    }
    void setEnabled(bool value) const {
        property(statistics(), "Enabled").set(instanceIn(handle), logical(value));
    }
};

class CollectStatisticsClass : public testing::Test {
protected:
    CollectStatisticsClass() { EXPECT_TRUE(services().empty()); }
    ~CollectStatisticsClass() override { EXPECT_TRUE(services().empty()); }
};

TEST_F(CollectStatisticsClass, DeclaresAConstructorAndEnabled) {
    COSClass& cls = statistics();
    EXPECT_TRUE(cls.superclasses().empty());
    ASSERT_EQ(cls.constructors().size(), 1u);
    EXPECT_TRUE(cls.constructors()[0]->getSignature().arguments.empty());
    EXPECT_TRUE(cls.methods().empty());
    ASSERT_EQ(cls.properties().size(), 1u);
    const COSProperty& enabled = cls.properties()[0];
    EXPECT_EQ(enabled.name.str(), "Enabled");
    EXPECT_EQ(enabled.dataType.str(), "logical scalar");
    EXPECT_NE(enabled.setter, nullptr);
    EXPECT_EQ(enabled.info->getAttributes().bits(), 0);
    EXPECT_STREQ(cls.info().getDescription(), "QUARN CollectStatistics Service controller.");
    EXPECT_EQ(cls.findProperty(COSNameID("enabled")), nullptr);
}

TEST_F(CollectStatisticsClass, TheBaseIsNoScriptClass) {
    statistics();
    EXPECT_EQ(COSClass::find(COSNameID("internal.quarn.Registerable")), nullptr);
    EXPECT_STREQ(Registerable::scriptClassName, "internal.quarn.Registerable");
}

TEST_F(CollectStatisticsClass, ConstructorTakesNoArguments) {
    EXPECT_EQ(errorOf([] { construct(statistics(), {logical(true)}); }), "varnix:tooManyInputs");
}

TEST_F(CollectStatisticsClass, NewObjectIsNotEnabled) {
    const Constructed object;
    EXPECT_FALSE(object.enabled());
    EXPECT_TRUE(services().empty());
    EXPECT_NE(object.native->service(), nullptr);
    EXPECT_NE(dynamic_cast<QN::CollectStatisticsService*>(object.native->service()), nullptr);
}

TEST_F(CollectStatisticsClass, EnablingRegistersTheService) {
    const Constructed object;
    object.setEnabled(true);
    EXPECT_TRUE(object.enabled());
    EXPECT_TRUE(services().isRegistered(object.native->service()));
    EXPECT_EQ(services().size(), 1u);
    object.setEnabled(false);
    EXPECT_FALSE(object.enabled());
    EXPECT_TRUE(services().empty());
}

TEST_F(CollectStatisticsClass, EnablingTwiceRegistersOnce) {
    const Constructed object;
    object.setEnabled(true);
    const auto generation = services().generation();
    object.setEnabled(true);
    EXPECT_EQ(services().size(), 1u);
    EXPECT_EQ(services().generation(), generation); // the container was not even asked again
    object.setEnabled(false);
    EXPECT_TRUE(services().empty());
}

TEST_F(CollectStatisticsClass, DisablingWhatIsNotRegisteredDoesNothing) {
    const Constructed object;
    const auto generation = services().generation();
    object.setEnabled(false);
    EXPECT_FALSE(object.enabled());
    EXPECT_EQ(services().generation(), generation);
}

TEST_F(CollectStatisticsClass, TwoObjectsOwnTwoServices) {
    const Constructed one;
    const Constructed other;
    EXPECT_NE(one.native->service(), other.native->service());
    one.setEnabled(true);
    EXPECT_TRUE(one.enabled());
    EXPECT_FALSE(other.enabled());
    other.setEnabled(true);
    EXPECT_EQ(services().size(), 2u);
    one.setEnabled(false);
    EXPECT_FALSE(one.enabled());
    EXPECT_TRUE(other.enabled());
    other.setEnabled(false);
}

// The container is the only truth.
TEST_F(CollectStatisticsClass, SeesWhatOtherCodeDidToTheContainer) {
    const Constructed object;
    services().addService(object.native->service());
    EXPECT_TRUE(object.enabled());
    object.setEnabled(true);
    EXPECT_EQ(services().size(), 1u);
    services().removeService(object.native->service());
    EXPECT_FALSE(object.enabled());

    object.setEnabled(true);
    services().removeService(object.native->service());
    EXPECT_FALSE(object.enabled());
    object.setEnabled(true);
    EXPECT_TRUE(object.enabled());
    object.setEnabled(false);
}

TEST_F(CollectStatisticsClass, TakesNumbersAndRefusesTheRest) {
    const Constructed object;
    const COSProperty& enabled = property(statistics(), "Enabled");
    enabled.set(instanceIn(object.handle), number(2));
    EXPECT_TRUE(object.enabled());
    enabled.set(instanceIn(object.handle), number(0));
    EXPECT_FALSE(object.enabled());

    const Array word = text("true");
    const Array pair(hvCreateArray(hvLOGICAL_CLASS, 1, 2));
    const Array cell = cellOf(1, 1, {hvCreateLogicalScalar(true)});
    for (const Array* value : {&word, &pair, &cell, &object.handle})
        EXPECT_EQ(errorOf([&] { enabled.set(instanceIn(object.handle), arrayValue(*value)); }),
                  "varnix:wrongType");
    EXPECT_EQ(errorOf([&] { enabled.set(instanceIn(object.handle), number(std::nan(""))); }),
              "varnix:wrongType");
    EXPECT_FALSE(object.enabled());
}

TEST_F(CollectStatisticsClass, HandleOnlyUnbindsItsObject) {
    Constructed object;
    object.setEnabled(true);
    object.handle.reset();
    EXPECT_TRUE(services().isRegistered(object.native->service()));
    EXPECT_TRUE(object.native->enabled());

    // The object can be handed out again.
    const Array again(BindingRegistry::announce(object.native.get(),
                                                COSNameID(CollectStatistics::scriptClassName)));
    EXPECT_TRUE(property(statistics(), "Enabled").get(instanceIn(again)).asLogical());
    object.native->setEnabled(false);
}

TEST_F(CollectStatisticsClass, DeletedWhileRegisteredLeavesTheContainer) {
    Constructed object;
    object.setEnabled(true);
    object.native.reset();
    EXPECT_TRUE(services().empty());
    EXPECT_FALSE(instanceIn(object.handle)->isValid());
    EXPECT_EQ(errorOf([&] { (void)object.enabled(); }), "varnix:invalidHandle");
    EXPECT_EQ(errorOf([&] { object.setEnabled(true); }), "varnix:invalidHandle");
}

TEST_F(CollectStatisticsClass, HandleOfAParentReadsTheSameProperty) {
    statistics();
    CollectStatistics owned;
    const Array handle(
        BindingRegistry::announce(&owned, COSNameID(CollectStatistics::scriptClassName)));
    const COSProperty& enabled = property(statistics(), "Enabled");
    enabled.set(instanceIn(handle), logical(true));
    EXPECT_TRUE(owned.enabled());
    enabled.set(instanceIn(handle), logical(false));
}

// ---- the base

/// The service is asked for afresh each time.
class Changing : public Registerable {
public:
    QN::Service* service() override {
        ++asked;
        return current;
    }
    QN::Service* current = nullptr;
    int asked = 0;
};

TEST_F(CollectStatisticsClass, BaseAsksForTheServiceEachTime) {
    QN::CollectStatisticsService one;
    QN::CollectStatisticsService other;
    Changing controller;
    controller.current = &one;
    controller.setEnabled(true);
    EXPECT_EQ(controller.asked, 2);
    controller.current = &other;
    EXPECT_FALSE(controller.enabled());
    EXPECT_EQ(controller.asked, 3);
    controller.setEnabled(false);
    EXPECT_EQ(controller.asked, 4);
    controller.current = &one;
    EXPECT_TRUE(controller.enabled());
    controller.setEnabled(true);
    EXPECT_EQ(controller.asked, 6);
    controller.setEnabled(false);
    EXPECT_EQ(controller.asked, 8);
}

struct Assertion {
    std::string file;
    int line = 0;
    std::string message;
    int count = 0;
};
Assertion lastAssertion;

void noteAssertion(const char* file, int line, const char* message) {
    lastAssertion = {file, line, message, lastAssertion.count + 1};
}

TEST_F(CollectStatisticsClass, BaseServiceReportsAnAssertion) {
    const QN::AssertionHandler before = QN::setAssertionHandler(noteAssertion);
    lastAssertion = {};
    Registerable base;
    EXPECT_EQ(base.service(), nullptr);
    EXPECT_EQ(lastAssertion.count, 1);
    EXPECT_EQ(lastAssertion.message, "This code should be unreachable!");
    EXPECT_EQ(lastAssertion.line, 47);
    const std::string& file = lastAssertion.file;
    EXPECT_EQ(file.substr(file.rfind('/') + 1).substr(0, 12), "registerable");

    EXPECT_FALSE(base.enabled());
    EXPECT_EQ(lastAssertion.count, 2);
    base.setEnabled(false);
    EXPECT_EQ(lastAssertion.count, 3);
    QN::setAssertionHandler(before);
}

} // namespace
