// internal.quarn.Timer and internal.quarn.Profiler over the IR library's stopwatches.

#include "debug/timervi.hpp"
#include "tests/controllers.hpp"

#include <qn/assertion.hpp>
#include <qn/timer.hpp>

#include <cmath>
#include <limits>

namespace {

using controllers::Member;
using controllers::Object;

Object timer(const char* name) {
    const auto text = sample::text(name);
    return Object("Timer", {sample::arrayValue(text)});
}

bool isRegistered(const QN::Timer* wanted) {
    for (QN::Timer::Iterator at(QN::Timer::manager().first()); !at.atEnd(); at.advance())
        if (&at.current() == wanted)
            return true;
    return false;
}

TEST(Timer, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("Timer"), (std::vector<Member>{{"name", "char", true, 0}}));
    EXPECT_EQ(controllers::methodsOf("Timer"),
              (std::vector<std::string>{
                  "void start(internal.quarn.Timer)", "void stop(internal.quarn.Timer)",
                  "void reset(internal.quarn.Timer)", "int64 scalar hits(internal.quarn.Timer)",
                  "double scalar elapsedTime(internal.quarn.Timer)",
                  "logical scalar isRunning(internal.quarn.Timer)",
                  "void disp(internal.quarn.Timer vector)"}));
    objsys::COSClass& cls = controllers::scriptClass("Timer");
    EXPECT_TRUE(sample::method(cls, "disp")
                    .info->getAttributes()
                    .has(objsys::factory::MethodAttributes::ForceMembership()));
    ASSERT_EQ(cls.superclasses().size(), 1u);
    EXPECT_EQ(cls.superclasses()[0]->getFullName().str(), "varnix.mixin.Heterogeneous");
    EXPECT_EQ(
        controllers::methodsOf("Profiler"),
        (std::vector<std::string>{"void resetAllTimers(internal.quarn.Profiler)",
                                  "internal.quarn.Timer vector timers(internal.quarn.Profiler)"}));
}

TEST(Timer, constructorTakesOneText) {
    EXPECT_EQ(timer("parse").text("name"), "parse");
    EXPECT_EQ(timer("").text("name"), "");
    EXPECT_EQ(sample::errorOf([] { Object("Timer"); }), "varnix:notEnoughInputs");
    EXPECT_EQ(sample::errorOf([] { Object("Timer", {sample::number(1)}); }), "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([] { timer("x").set("name", "y"); }), "varnix:readOnlyProperty");
}

TEST(Timer, startsStopsAndResets) {
    const Object object = timer("work");
    EXPECT_FALSE(object.call("isRunning").asLogical());
    object.call("start");
    EXPECT_TRUE(object.call("isRunning").asLogical());
    object.call("stop");
    EXPECT_FALSE(object.call("isRunning").asLogical());
    EXPECT_EQ(object.call("hits").asInt64(), 1);
    EXPECT_GE(object.call("elapsedTime").asDouble(), 0.0);
    object.call("reset");
    EXPECT_EQ(object.call("hits").asInt64(), 0);
    EXPECT_EQ(object.call("elapsedTime").asDouble(), 0.0);
}

TEST(Timer, handleOfAScriptTimerTakesItsTimerAlong) {
    const std::size_t before = QN::Timer::manager().size();
    {
        const Object object = timer("mine");
        EXPECT_EQ(QN::Timer::manager().size(), before + 1);
    }
    EXPECT_EQ(QN::Timer::manager().size(), before);
}

TEST(Timer, handleFromTheRegistryLeavesTheTimerAlive) {
    const QN::Timer library("library");
    {
        const Object profiler("Profiler");
        const sample::Array row(profiler.call("timers").asArray());
        EXPECT_GE(hvGetNumberOfElements(row.get()), 1u);
    }
    EXPECT_TRUE(isRegistered(&library));
}

TEST(Profiler, listsEveryTimerInRegistryOrderWithNewHandlesEachTime) {
    const QN::Timer first("first");
    const QN::Timer second("second");
    const Object profiler("Profiler");
    const sample::Array row(profiler.call("timers").asArray());
    const std::size_t count = hvGetNumberOfElements(row.get());
    ASSERT_EQ(count, QN::Timer::manager().size());
    EXPECT_EQ(hvGetM(row.get()), 1u);
    QN::Timer::Iterator at(QN::Timer::manager().first());
    for (std::size_t i = 0; i < count; ++i, at.advance()) {
        const Object handle{sample::Array(hvShareArray(omGetArrayElement(row.get(), i)->handle()))};
        EXPECT_EQ(handle.text("name"), at.current().name());
    }
    const sample::Array again(profiler.call("timers").asArray());
    EXPECT_NE(omGetArrayElement(row.get(), 0), omGetArrayElement(again.get(), 0));
}

TEST(Profiler, emptyRegistryGivesAnEmptyRowOfTimers) {
    ASSERT_FALSE(QN::Timer::manager().first()) << "a timer that nobody here has made";
    const sample::Array row(Object("Profiler").call("timers").asArray());
    EXPECT_EQ(hvGetM(row.get()), 1u);
    EXPECT_EQ(hvGetN(row.get()), 0u);
    EXPECT_EQ(row->objectClass->getFullName().str(), "internal.quarn.Timer");
}

TEST(Profiler, resetsAllTimers) {
    QN::Timer library("library");
    library.start();
    library.stop();
    const Object own = timer("own");
    own.call("start");
    own.call("stop");
    Object("Profiler").call("resetAllTimers");
    EXPECT_EQ(library.hits(), 0);
    EXPECT_EQ(own.call("hits").asInt64(), 0);
}

TEST(Timer, nullTimerFailsTheAssertion) {
    static std::string report;
    const auto old = QN::setAssertionHandler([](const char* file, int line, const char* message) {
        report = std::string(file) + ":" + std::to_string(line) + ": " + message;
    });
    { const quarn_vi::debug::TimerVI none(static_cast<QN::Timer*>(nullptr)); }
    QN::setAssertionHandler(old);
    EXPECT_EQ(report, "quarn_vi/debug/timervi:16: fTimer != 0");
}

// What a running timer measures varies, so the units and numbers are checked on the line itself.

TEST(Timer, lineChoosesTheUnit) {
    struct Row {
        double elapsed;
        std::int64_t hits;
        const char* line;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Row rows[] = {
        {0.1, 1, "t   :        0.1  s /       1  =        0.1  s/hit\n"},
        {0.0999, 1, "t   :      1e+02 ms /       1  =      1e+02 ms/hit\n"},
        {0.05, 0, "t   :         50 ms /       0  =          0 ms/hit\n"},
        {nan, 2, "t   :        nan  s /       2  =        nan  s/hit\n"},
        {12.0, 4, "t   :         12  s /       4  =          3  s/hit\n"},
        {1.0, (std::int64_t{1} << 31) + 5,
         "t   :          1  s / -2147483643  =    4.7e-10  s/hit\n"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(controllers::printed(
                      [&] { quarn_vi::debug::printTimerLine("t", 4, row.elapsed, row.hits); }),
                  row.line);
}

TEST(Timer, dispOfAFreshTimerPrintsZeros) {
    const Object object = timer("parse");
    EXPECT_EQ(controllers::printed([&] { object.call("disp"); }),
              "parse                           :          0 ms /       0  =          0 ms/hit\n");
    const Object nameless = timer("");
    EXPECT_EQ(controllers::printed([&] { nameless.call("disp"); }),
              "                                :          0 ms /       0  =          0 ms/hit\n");
}

TEST(Timer, longestNameWidensTheColumnOfEveryLine) {
    const std::string name32(32, 'a');
    const std::string name33(33, 'b');
    const std::string name40(40, 'c');
    const std::string zeros = ":          0 ms /       0  =          0 ms/hit\n";
    EXPECT_EQ(controllers::printed([&] { timer(name32.c_str()).call("disp"); }), name32 + zeros);
    EXPECT_EQ(controllers::printed([&] { timer(name33.c_str()).call("disp"); }), name33 + zeros);

    const Object longest = timer(name40.c_str());
    const Object shortest = timer("x");
    const sample::Array row(omCreateOBJSYSMatrix(1, 2, longest.cls().getFullName()));
    omSetArrayElement(row.get(), 0, longest.instance());
    omSetArrayElement(row.get(), 1, shortest.instance());
    EXPECT_EQ(controllers::printed([&] {
                  (void)sample::method(longest.cls(), "disp").callConverted(row.get(), {});
              }),
              name40 + zeros + "x" + std::string(39, ' ') + zeros);
}

TEST(Timer, dispOfAColumnTakesItsFirstElementOnly) {
    const Object a = timer("a");
    const Object b = timer("b");
    const sample::Array column(omCreateOBJSYSMatrix(2, 1, a.cls().getFullName()));
    omSetArrayElement(column.get(), 0, a.instance());
    omSetArrayElement(column.get(), 1, b.instance());
    EXPECT_EQ(controllers::printed(
                  [&] { (void)sample::method(a.cls(), "disp").callConverted(column.get(), {}); }),
              "a                               :          0 ms /       0  =          0 ms/hit\n");
}

TEST(Timer, dispRefusesWhatIsNoTimer) {
    const Object other("Profiler");
    EXPECT_EQ(sample::errorOf([&] {
                  (void)sample::method(controllers::scriptClass("Timer"), "disp")
                      .callConverted(other.handle(), {});
              }),
              "varnix:wrongType");
}

} // namespace
