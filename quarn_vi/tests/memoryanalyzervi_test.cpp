// internal.quarn.MemoryAnalyzer and internal.quarn.PoolHighWaterMark.

#include "debug/memoryanalyzervi.hpp"
#include "tests/debugservice_properties.hpp"
#include "tests/runs.hpp"

#include <qn/pool_memory_tracking_service.hpp>
#include <qn/testing_hooks.hpp>

namespace {

using controllers::Member;
using controllers::Object;

QN::PoolMemoryTrackingService& service() {
    return quarn_vi::debug::MemoryAnalyzerVI::sharedPoolMemoryTrackingService();
}

class MemoryAnalyzer : public testing::Test {
protected:
    void TearDown() override {
        for (TsTestingHook* const hook :
             {TSFEAT_QUARNPoolInternalLeakDetection, TSFEAT_QUARNCfgPoolInternalLeakDetection,
              TSFEAT_QUARNPoolSanityChecks})
            hook->setHookValFromC(0);
        service().setPoolInternalLeakDetection(false);
    }
};

TEST_F(MemoryAnalyzer, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("MemoryAnalyzer"),
              controllers::withDebugServiceProperties(
                  {{"TraceLevel", "int32 scalar", false, 0},
                   {"PoolHighWaterMark", "internal.quarn.PoolHighWaterMark", true, 0x2000},
                   {"PoolMemStats", "logical scalar", false, 0},
                   {"PoolInternalLeakDetect", "logical scalar", false, 0},
                   {"CfgPoolInternalLeakDetect", "logical scalar", false, 0},
                   {"PoolSanityChecks", "logical scalar", false, 0}}));
    EXPECT_EQ(controllers::methodsOf("MemoryAnalyzer"),
              (std::vector<std::string>{"char hello(internal.quarn.MemoryAnalyzer)",
                                        "void ResetHighWaterMark(internal.quarn.MemoryAnalyzer)"}));
    EXPECT_EQ(controllers::propertiesOf("PoolHighWaterMark"),
              (std::vector<Member>{{"When", "char", true, 0},
                                   {"ScopeFlavor", "char", true, 0},
                                   {"TransformName", "char", true, 0},
                                   {"FunctionName", "char", true, 0},
                                   {"PoolMaxAllocated", "uint64 scalar", true, 0}}));
    EXPECT_TRUE(controllers::methodsOf("PoolHighWaterMark").empty());
}

TEST_F(MemoryAnalyzer, inheritsTheCommonSettings) {
    controllers::expectDebugServiceProperties("MemoryAnalyzer", service());
}

TEST_F(MemoryAnalyzer, greets) {
    EXPECT_EQ(Object("MemoryAnalyzer").callText("hello"), "^_^ hello ^_^");
}

TEST_F(MemoryAnalyzer, traceLevelIsOneOrTwo) {
    const Object object("MemoryAnalyzer");
    const int old = service().poolStatsLevel();
    for (const double level : {1.0, 2.0}) {
        EXPECT_EQ(controllers::printed([&] { object.set("TraceLevel", level); }), "");
        EXPECT_EQ(service().poolStatsLevel(), static_cast<int>(level));
    }
    for (const double level : {0.0, -1.0, 3.0, 2147483647.0, -2147483648.0}) {
        EXPECT_EQ(controllers::printed([&] { object.set("TraceLevel", level); }),
                  "illegal setting for trace level (must be [1 - 2])\n");
        EXPECT_EQ(object.int32("TraceLevel"), 2);
    }
    controllers::expectWrongType(object, "TraceLevel", sample::number(1.5));
    EXPECT_EQ(service().poolStatsLevel(), 2);
    service().setPoolStatsLevel(old);
    EXPECT_EQ(object.int32("TraceLevel"), old);
}

TEST_F(MemoryAnalyzer, statisticsSwitchIsShared) {
    controllers::expectSharedSwitch(
        "MemoryAnalyzer", "PoolMemStats", [] { return service().collectPoolStats(); },
        [](bool v) { service().setCollectPoolStats(v); });
}

TEST_F(MemoryAnalyzer, leakDetectionIsTwoSided) {
    const Object object("MemoryAnalyzer");
    TsTestingHook& hook = *TSFEAT_QUARNPoolInternalLeakDetection;
    const auto uses = hook.useCount();
    object.set("PoolInternalLeakDetect", true);
    EXPECT_EQ(hook.useCount(), uses);
    EXPECT_TRUE(service().poolInternalLeakDetection());
    EXPECT_TRUE(object.flag("PoolInternalLeakDetect"));
    EXPECT_EQ(hook.useCount(), uses + 1);
    EXPECT_EQ(hook.value(), 1);
    hook.setHookValFromC(0); // not visible through the property
    EXPECT_TRUE(object.flag("PoolInternalLeakDetect"));
    service().setPoolInternalLeakDetection(false);
    EXPECT_FALSE(object.flag("PoolInternalLeakDetect"));
    hook.setHookValFromC(1);
    EXPECT_FALSE(object.flag("PoolInternalLeakDetect"));
    service().setPoolInternalLeakDetection(true);
    object.set("PoolInternalLeakDetect", false);
    EXPECT_FALSE(service().poolInternalLeakDetection());
    EXPECT_EQ(hook.value(), 0);
    const auto text = sample::text("on");
    controllers::expectWrongType(object, "PoolInternalLeakDetect", sample::arrayValue(text));
    EXPECT_FALSE(service().poolInternalLeakDetection());
}

TEST_F(MemoryAnalyzer, theOtherTwoSwitchesAreTheirHooks) {
    const std::pair<const char*, TsTestingHook*> rows[] = {
        {"CfgPoolInternalLeakDetect", TSFEAT_QUARNCfgPoolInternalLeakDetection},
        {"PoolSanityChecks", TSFEAT_QUARNPoolSanityChecks}};
    const Object object("MemoryAnalyzer");
    const auto text = sample::text("on");
    for (const auto& [property, hook] : rows) {
        const auto uses = hook->useCount();
        object.set(property, true);
        EXPECT_EQ(hook->useCount(), uses) << property;
        EXPECT_TRUE(object.flag(property));
        EXPECT_EQ(hook->useCount(), uses + 1) << property;
        EXPECT_EQ(hook->value(), 1);
        hook->setHookValFromC(-3);
        EXPECT_TRUE(object.flag(property));
        object.set(property, false);
        EXPECT_EQ(hook->value(), 0);
        EXPECT_FALSE(object.flag(property));
        controllers::expectWrongType(object, property, sample::arrayValue(text));
        EXPECT_EQ(hook->value(), 0);
    }
}

TEST_F(MemoryAnalyzer, snapshotEndsThePreviousOne) {
    const Object object("MemoryAnalyzer");
    const Object first = object.child("PoolHighWaterMark");
    EXPECT_EQ(first.text("When"), service().poolHighWaterMark().when());
    const Object second = object.child("PoolHighWaterMark");
    EXPECT_EQ(sample::errorOf([&] { (void)first.text("When"); }), "varnix:invalidHandle");
    EXPECT_EQ(second.uint64("PoolMaxAllocated"), service().poolHighWaterMark().poolMaxAllocated());
    object.call("ResetHighWaterMark");
    EXPECT_EQ(sample::errorOf([&] { (void)second.text("When"); }), "varnix:invalidHandle");
    EXPECT_EQ(object.child("PoolHighWaterMark").uint64("PoolMaxAllocated"), 0u);
}

TEST_F(MemoryAnalyzer, snapshotIsTheRecordFrozenWhenItWasRead) {
    const Object object("MemoryAnalyzer");
    controllers::Program program;
    object.call("ResetHighWaterMark");
    object.set("EnabledAfter", true);
    program.idle();
    object.set("EnabledAfter", false);
    const QN::PoolHighWaterMark record = service().poolHighWaterMark();
    ASSERT_GT(record.poolMaxAllocated(), 0u);
    const Object mark = object.child("PoolHighWaterMark");
    service().resetPoolHighWaterMark(); // behind the controller's back
    EXPECT_EQ(service().poolHighWaterMark().poolMaxAllocated(), 0u);
    EXPECT_EQ(mark.text("When"), record.when());
    EXPECT_NE(record.when(), "");
    EXPECT_EQ(mark.text("ScopeFlavor"), "unit");
    EXPECT_EQ(mark.text("TransformName"), "idle");
    EXPECT_EQ(mark.text("FunctionName"), "f");
    EXPECT_EQ(mark.uint64("PoolMaxAllocated"), record.poolMaxAllocated());
}

TEST_F(MemoryAnalyzer, resetForgetsTheRecordOfTheService) {
    const Object object("MemoryAnalyzer");
    controllers::Program program;
    object.set("EnabledBefore", true);
    program.idle();
    object.set("EnabledBefore", false);
    ASSERT_GT(service().poolHighWaterMark().poolMaxAllocated(), 0u);
    object.call("ResetHighWaterMark"); // with no snapshot yet
    EXPECT_EQ(service().poolHighWaterMark().poolMaxAllocated(), 0u);
    const Object mark = object.child("PoolHighWaterMark");
    EXPECT_EQ(mark.text("When"), "");
    EXPECT_EQ(mark.uint64("PoolMaxAllocated"), 0u);
}

TEST_F(MemoryAnalyzer, snapshotDiesWithItsNativeController) {
    using quarn_vi::debug::MemoryAnalyzerVI;
    auto controller = std::make_unique<MemoryAnalyzerVI>();
    const Object mark{sample::Array(objsys::factory::basic::BindingRegistry::announce(
        controller->poolHighWaterMark(),
        controllers::scriptClass("PoolHighWaterMark").getFullName()))};
    EXPECT_EQ(sample::errorOf([&] { (void)mark.text("When"); }), "no error");
    controller.reset();
    EXPECT_EQ(sample::errorOf([&] { (void)mark.text("When"); }), "varnix:invalidHandle");
}

TEST_F(MemoryAnalyzer, snapshotOutlivesItsHandle) {
    const Object object("MemoryAnalyzer");
    auto mark = std::make_unique<Object>(object.child("PoolHighWaterMark"));
    const auto& native = mark->native<quarn_vi::debug::PoolHighWaterMarkVI>();
    mark.reset();
    EXPECT_EQ(native.when(), service().poolHighWaterMark().when());
}

TEST_F(MemoryAnalyzer, snapshotsOfTwoControllersAreTheirOwn) {
    const Object a("MemoryAnalyzer");
    const Object b("MemoryAnalyzer");
    const Object snapshot = a.child("PoolHighWaterMark");
    (void)b.child("PoolHighWaterMark");
    b.call("ResetHighWaterMark");
    EXPECT_EQ(sample::errorOf([&] { (void)snapshot.text("When"); }), "no error");
}

TEST_F(MemoryAnalyzer, scriptsOwnSnapshotShowsADefaultRecord) {
    const Object mark("PoolHighWaterMark");
    const QN::PoolHighWaterMark record;
    EXPECT_EQ(mark.text("When"), record.when());
    EXPECT_EQ(mark.text("ScopeFlavor"), record.scopeFlavor());
    EXPECT_EQ(mark.text("TransformName"), record.transformName());
    EXPECT_EQ(mark.text("FunctionName"), record.functionName());
    EXPECT_EQ(mark.uint64("PoolMaxAllocated"), record.poolMaxAllocated());
    EXPECT_EQ(sample::errorOf([&] { mark.set("When", "now"); }), "varnix:readOnlyProperty");
}

} // namespace
