// The package internal.quarn: its description, its catalogue of classes, and how it is published.

#include "quarn_package.hpp"
#include "tests/recorder.hpp"
#include "tests/sample.hpp"

#include <ut/ut.hpp>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace sample;

/// The catalogue: these classes in this order, and each says exactly this about itself.
struct ExpectedClass {
    const char* name;
    const char* description;
    const char* superclass; ///< "" for none
    int deletes;
};
constexpr ExpectedClass expectedCatalogue[] = {
    {"Debug", "QUARN debug utilities.", "", 0},
    {"DebugService", "QUARN DebugService base class.", "", 0},
    {"PrettyPrinter", "QUARN Pretty Printer Service controller.", "internal.quarn.DebugService", 0},
    {"TransformProfiler", "QUARN Transform Activity Monitor.", "internal.quarn.DebugService", 0},
    {"TransformLogService", "QUARN Transform Log Service.", "", 0},
    {"Scrambler", "QUARN NodeScrambler controller.", "internal.quarn.DebugService", 0},
    {"StackTraces", "QUARN Stack Trace Tag controller.", "", 0},
    {"Profiler", "QUARN profiling utilities.", "", 1},
    {"Timer", "QUARN stopwatch timer.", "varnix.mixin.Heterogeneous", 1},
    {"TimerProbe", "QUARN Timer Probe used to calibrate timers..", "", 1},
    {"DebugLogger", "QUARN Debug Log controller.", "", 0},
    {"ProfilingInstrumentation", "QUARN profiling instrumentation controller.", "", 1},
    {"NamePrinter", "QUARN Name Printer Service controller.", "", 0},
    {"SanityChecker", "QUARN Sanity Checker Service controller.", "internal.quarn.DebugService", 0},
    {"SanityViolation", "QUARN Sanity Violation", "varnix.mixin.Heterogeneous", 0},
    {"MemoryAnalyzer", "QUARN Pool Memory Tracking controller.", "internal.quarn.DebugService", 0},
    {"PoolHighWaterMark", "QUARN Pool Memory High Water Mark", "", 0},
    {"CollectStatistics", "QUARN CollectStatistics Service controller.", "", 0},
    {"LlvmDebugger", "QUARN LLVM Debugging Utility Service controller.", "", 0},
    {"UserVarLogging", "QUARN User Var Logging Service controller.", "internal.quarn.DebugService",
     0},
    {"SerializerFbtService", "QUARN Serializer FBT Service Controller",
     "internal.quarn.DebugService", 0},
};

const ExpectedClass* expected(std::string_view name) {
    const auto* const row = std::find_if(std::begin(expectedCatalogue), std::end(expectedCatalogue),
                                         [&](const ExpectedClass& c) { return c.name == name; });
    return row == std::end(expectedCatalogue) ? nullptr : row;
}

std::vector<std::unique_ptr<objsys::COSClassInfo>> descriptors() {
    std::vector<std::unique_ptr<objsys::COSClassInfo>> all;
    for (const quarn_vi::CatalogueRow& row : quarn_vi::catalogue())
        all.emplace_back(row.makeDescriptor());
    return all;
}

TEST(Catalogue, HoldsTheClassesInTheirOrder) {
    std::vector<std::string> names;
    for (const auto& descriptor : descriptors())
        names.emplace_back(descriptor->getName());
    std::vector<std::string> wanted;
    for (const ExpectedClass& row : expectedCatalogue)
        wanted.emplace_back(row.name);
    EXPECT_EQ(names, wanted);
    EXPECT_EQ(names.size(), 21u);
}

TEST(Catalogue, DescribesItsClasses) {
    for (const auto& descriptor : descriptors()) {
        const ExpectedClass* const row = expected(descriptor->getName());
        ASSERT_NE(row, nullptr);
        EXPECT_STREQ(descriptor->getDescription(), row->description);
        EXPECT_STREQ(descriptor->getDetailedDescription(), row->description);
    }
}

TEST(Catalogue, NamesTheSuperclasses) {
    for (const auto& descriptor : descriptors()) {
        Recorder recorder(descriptor->getName());
        descriptor->defineClass(&recorder);
        std::string superclass;
        for (const std::string& call : recorder.calls)
            if (call.starts_with("superclass "))
                superclass += call.substr(11);
        const std::string wanted = expected(descriptor->getName())->superclass;
        EXPECT_EQ(superclass, wanted.empty() ? "" : wanted + " 1 0 1") << descriptor->getName();
    }
}

/// Tells when it is deleted, and stands in for any native object.
class Probe : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Probe";
    static void declareMembers(COSClassDefinition*) {}
    explicit Probe(bool& deleted) : deleted_(deleted) {}
    ~Probe() override { deleted_ = true; }

private:
    bool& deleted_;
};

TEST(Catalogue, SaysWhichHandlesDeleteTheirNativeObject) {
    for (const auto& descriptor : descriptors()) {
        bool deleted = false;
        auto probe = std::make_unique<Probe>(deleted);
        const Array handle = handleOf(probe.get());
        EXPECT_TRUE(descriptor->destroyInstance(instanceIn(handle), probe.get()));
        EXPECT_EQ(deleted, expected(descriptor->getName())->deletes == 1) << descriptor->getName();
        if (deleted)
            (void)probe.release();
    }
}

TEST(Package, IsCalledQuarn) {
    const quarn_vi::QUARNPackage package;
    EXPECT_STREQ(package.getName(), "quarn");
}

/// The host's own package behaviour, for comparison.
class BarePackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "bare"; }
};

TEST(Package, KeepsTheHostsBehaviourOtherwise) {
    quarn_vi::QUARNPackage quarn;
    BarePackage bare;
    COSPackage* const package = &sample::package();
    const COSNameID name("CollectStatistics");
    EXPECT_STREQ(quarn.getDescription(), bare.getDescription());
    EXPECT_STREQ(quarn.getDetailedDescription(), bare.getDetailedDescription());
    EXPECT_FALSE(quarn.attemptToLoadSubPackage(package, name));
    EXPECT_FALSE(quarn.attemptToLoadClass(package, name));
    EXPECT_FALSE(quarn.attemptToLoadFunction(package, name));
    EXPECT_FALSE(quarn.attemptToLoadType(package, name));
    EXPECT_EQ(quarn.getMethodSelector(), bare.getMethodSelector());
    EXPECT_EQ(quarn.isDestructible(), bare.isDestructible());
    EXPECT_EQ(quarn.isLocked(), bare.isLocked());
    EXPECT_EQ(sizeof quarn, sizeof bare);
}

class EmptyPackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "elsewhere"; }
};

std::vector<std::string> catalogueNames() {
    std::vector<std::string> names;
    for (const auto& descriptor : descriptors())
        names.emplace_back(descriptor->getName());
    return names;
}

std::vector<std::string> classNames(const COSPackage& package) {
    std::vector<std::string> names;
    for (const auto& cls : package.classes())
        names.push_back(cls->getName());
    return names;
}

TEST(Package, RegistersItsClassesInAnyPackage) {
    sample::package().addPackage(new EmptyPackage);
    COSPackage* const package = COSPackage::getPackage(COSNameID("internal.sample.elsewhere"));
    ASSERT_NE(package, nullptr);
    quarn_vi::QUARNPackage().registerClasses(package);
    EXPECT_EQ(classNames(*package), catalogueNames());
}

TEST(Package, IsPublishedBelowInternal) {
    const COSNameID fullName("internal.quarn");
    if (!COSPackage::getPackage(fullName))
        quarn_vi::publishPackage();
    const COSPackage* const package = COSPackage::getPackage(fullName);
    ASSERT_NE(package, nullptr);
    EXPECT_EQ(classNames(*package), catalogueNames());
    for (const auto& cls : package->classes())
        EXPECT_EQ(cls->getFullName().str(), "internal.quarn." + cls->getName());
}

} // namespace
