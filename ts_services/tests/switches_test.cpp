// Testing hooks and features: values, counted reads, setters, counted changes.
#include <ts/debug_log.hpp>
#include <ts/feature.hpp>
#include <ts/switch_changes.hpp>
#include <ts/testing_hook.hpp>

#include <gtest/gtest.h>

TEST(TestingHook, StartsOffAndUnread) {
    TsTestingHook hook;
    EXPECT_EQ(hook.useCount(), 0U);
    EXPECT_FALSE(hook.isOn());
    EXPECT_EQ(hook.useCount(), 1U);
}

TEST(TestingHook, EveryReadCountsOnce) {
    TsTestingHook hook(7);
    EXPECT_EQ(hook.value(), 7);
    EXPECT_TRUE(hook.isOn());
    EXPECT_EQ(hook.useCount(), 2U);
}

TEST(TestingHook, SettingReturnsTheOldValueAndIsNotARead) {
    TsTestingHook hook(3);
    EXPECT_EQ(hook.setHookValFromC(-1), 3);
    EXPECT_EQ(hook.setHookValFromC(0), -1);
    EXPECT_EQ(hook.useCount(), 0U);
    EXPECT_FALSE(hook.isOn());
}

TEST(Feature, CountsQueriesAndNotSettings) {
    TsFeature feature;
    EXPECT_EQ(feature.setFeatValFromC(1), 0);
    EXPECT_EQ(feature.queryCount(), 0U);
    EXPECT_TRUE(feature.isOn());
    EXPECT_EQ(feature.value(), 1);
    EXPECT_EQ(feature.queryCount(), 2U);
    EXPECT_EQ(feature.setFeatValFromC(0), 1);
    EXPECT_FALSE(feature.isOn());
}

TEST(Switches, ADebugLogThatMovesIsCounted) {
    tssv::debug::DebugLog log;
    const std::uint64_t before = tssv::switchChanges();
    log.setLogDirectory("");
    log.setUsePIDInName(true);
    (void)log.logFilePath("a", "b");
    EXPECT_EQ(tssv::switchChanges(), before);
    log.setLogDirectory("/elsewhere");
    EXPECT_EQ(tssv::switchChanges(), before + 1);
    log.setLogDirectory("/elsewhere");
    log.setUsePIDInName(false);
    EXPECT_EQ(tssv::switchChanges(), before + 2);
}

TEST(Switches, EveryChangeIsCountedAndNothingElse) {
    TsFeature feature;
    TsTestingHook hook(3);
    const std::uint64_t before = tssv::switchChanges();
    feature.setFeatValFromC(0);
    hook.setHookValFromC(3);
    EXPECT_FALSE(feature.isOn());
    EXPECT_TRUE(hook.isOn());
    EXPECT_EQ(tssv::switchChanges(), before);
    feature.setFeatValFromC(1);
    EXPECT_EQ(tssv::switchChanges(), before + 1);
    hook.setHookValFromC(2); // on as before, but another value
    hook.setHookValFromC(0);
    EXPECT_EQ(tssv::switchChanges(), before + 3);
}
