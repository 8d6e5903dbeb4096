// What happens when there is no memory while a class is declared or published: a null entry goes to
// the host, and the host refuses the definition, which may be tried again.
//
// Descriptions come from the host's class allocators, accessors and properties from the nothrow
// form of operator new. This program puts its own in their place, which fail when they are told to.

#include "debug/collectstatistics.hpp"
#include "quarn_package.hpp"
#include "tests/sample.hpp"

#include <qn/assertion.hpp>
#include <qn/default_services.hpp>
#include <ut/ut.hpp>

#include <gtest/gtest.h>
#include <new>

namespace {

/// Counts down to the allocation that fails; negative: none does.
int callsUntilFailure = -1;

bool failsNow() {
    return callsUntilFailure >= 0 && callsUntilFailure-- == 0;
}

} // namespace

void* objsys::COSClassInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}
void* objsys::COSMethodInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}
void* objsys::COSPackageInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    if (failsNow())
        return nullptr;
    try {
        return ::operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

using namespace sample;

class Fragile : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Fragile";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Fragile> declare(definition);
        declare.constructor();                                                  // 1 allocation
        declare.property<&Fragile::value, &Fragile::setValue>("Value");         // 3
        declare.readOnly<&Fragile::value>("Fixed", PropertyAttributes(0x2000)); // 2
        declare.method<&Fragile::reset>("reset");                               // 1
        declare.staticMethod<&Fragile::count>("count");                         // 1
    }
    double value() const { return value_; }
    void setValue(double value) { value_ = value; }
    void reset() { value_ = 0; }
    static double count() { return 1; }

private:
    double value_ = 0;
};
constexpr int allocations = 8;

/// Passes on what is declared and counts the entries that are null.
class NullCounter final : public objsys::COSClassDefinition {
public:
    const char* getClassName() const override { return "Fragile"; }
    COSNameID getFullClassName() const override { return COSNameID(Fragile::scriptClassName); }
    void addSuperclass(COSNameID, int, int, int) override {}
    void addMethod(objsys::COSMethodInfo* method) override {
        ++(method ? entries : nulls);
        delete method;
    }
    void addProperty(objsys::COSPropertyInfo* property) override {
        ++(property ? entries : nulls);
        delete property;
    }
    int entries = 0;
    int nulls = 0;
};

class NoMemory : public testing::Test {
protected:
    ~NoMemory() override { callsUntilFailure = -1; }
};

TEST_F(NoMemory, ForAnEntryHandsNullToTheSink) {
    CosSample<Fragile, 1> descriptor;
    for (int failing = 0; failing < allocations; ++failing) {
        NullCounter sink;
        callsUntilFailure = failing;
        descriptor.defineClass(&sink);
        EXPECT_EQ(sink.nulls, 1) << failing;
        EXPECT_EQ(sink.entries, 4) << failing;
        EXPECT_LT(callsUntilFailure, 0) << failing;
    }
    NullCounter sink;
    callsUntilFailure = allocations;
    descriptor.defineClass(&sink);
    EXPECT_EQ(sink.nulls, 0);
    EXPECT_EQ(callsUntilFailure, 0); // each of them was counted above
}

TEST_F(NoMemory, ForAnEntryMakesTheHostRefuseTheDefinition) {
    COSClass& cls = published<Fragile, 1>();
    for (int failing = 0; failing < allocations; ++failing) {
        callsUntilFailure = failing;
        EXPECT_EQ(errorOf([&] { (void)cls.properties(); }), "varnix:outOfMemory") << failing;
    }
    // There is memory again.
    callsUntilFailure = -1;
    EXPECT_EQ(cls.properties().size(), 2u);
    EXPECT_EQ(cls.methods().size(), 2u);
    EXPECT_TRUE(instanceIn(construct(cls))->isValid());
}

TEST_F(NoMemory, ForADescriptorGivesNull) {
    for (const quarn_vi::CatalogueRow& row : quarn_vi::catalogue()) {
        callsUntilFailure = 0;
        EXPECT_EQ(row.makeDescriptor(), nullptr);
    }
}

class UnluckyPackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "unlucky"; }
};

TEST_F(NoMemory, ForADescriptorOrThePackageIsTheHostsError) {
    COSPackage& package = sample::package();
    callsUntilFailure = 0;
    EXPECT_EQ(errorOf([&] { package.addClass(new CosSample<Fragile, 0>); }), "varnix:outOfMemory");
    callsUntilFailure = 0;
    EXPECT_EQ(errorOf([&] { package.addPackage(new UnluckyPackage); }), "varnix:outOfMemory");
    EXPECT_EQ(package.findPackage("unlucky"), nullptr);
    callsUntilFailure = 0;
    EXPECT_EQ(static_cast<objsys::COSPackageInfo*>(new quarn_vi::QUARNPackage), nullptr);
}

// The controller is there without its service; the library says what it thinks of that.
TEST_F(NoMemory, ForAServiceLeavesTheControllerWithoutOne) {
    callsUntilFailure = 0;
    quarn_vi::debug::CollectStatistics controller;
    EXPECT_LT(callsUntilFailure, 0);
    EXPECT_EQ(controller.service(), nullptr);
    EXPECT_FALSE(controller.enabled());
    controller.setEnabled(false);

    static int assertions = 0;
    const QN::AssertionHandler before =
        QN::setAssertionHandler([](const char*, int, const char*) { ++assertions; });
    controller.setEnabled(true);
    QN::setAssertionHandler(before);
    EXPECT_EQ(assertions, 1);
    EXPECT_FALSE(controller.enabled());
    EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
}

} // namespace
