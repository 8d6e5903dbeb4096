// internal.quarn.TimerProbe: the four trials and what they leave behind.

#include "debug/timerprobe.hpp"
#include "tests/controllers.hpp"

#include <qn/timer.hpp>

#include <boost/thread/thread.hpp>

namespace {

using controllers::Member;
using controllers::Object;

std::int32_t probe(const Object& object, double trial, double iterations) {
    return object.call("probe", {sample::number(trial), sample::number(iterations)}).asInt32();
}

TEST(TimerProbe, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("TimerProbe"),
              (std::vector<Member>{{"trialId", "int32 scalar", true, 0},
                                   {"iterations", "int32 scalar", true, 0},
                                   {"innerTime", "double scalar", true, 0},
                                   {"outerTime", "double scalar", true, 0}}));
    EXPECT_EQ(controllers::methodsOf("TimerProbe"),
              (std::vector<std::string>{
                  "int32 scalar probe(internal.quarn.TimerProbe, int32 scalar, int32 scalar)"}));
    EXPECT_FALSE(sample::method(controllers::scriptClass("TimerProbe"), "probe")
                     .info->getAttributes()
                     .has(objsys::factory::MethodAttributes::ForceMembership()));
}

TEST(TimerProbe, startsWithZeros) {
    const Object object("TimerProbe");
    EXPECT_EQ(object.int32("trialId"), 0);
    EXPECT_EQ(object.int32("iterations"), 0);
    EXPECT_EQ(object.real("innerTime"), 0.0);
    EXPECT_EQ(object.real("outerTime"), 0.0);
}

TEST(TimerProbe, givesTheResultOfTheWork) {
    const Object object("TimerProbe");
    EXPECT_EQ(probe(object, 1, 10), 0);
    EXPECT_EQ(probe(object, 3, 1000), 0);
    EXPECT_EQ(probe(object, 4, 3), 7);
    EXPECT_EQ(probe(object, 4, 31), 2147483647);
    EXPECT_EQ(probe(object, 4, 32), -1);
    EXPECT_EQ(probe(object, 4, 1000), -1);
}

TEST(TimerProbe, stepIsDefinedForEveryCount) {
    const Object object("TimerProbe");
    for (std::int32_t n = 0; n <= 100; ++n) {
        const std::int64_t wanted = n <= 31 ? (std::int64_t{1} << n) - 1 : -1;
        EXPECT_EQ(probe(object, 4, n), wanted) << n;
    }
    EXPECT_EQ(probe(object, 4, 1e6), -1);
    EXPECT_EQ(object.int32("iterations"), 1000000);
    EXPECT_EQ(probe(object, 4, -1), 0);
    EXPECT_EQ(probe(object, 4, -2147483648.0), 0);
}

TEST(TimerProbe, unknownTrialGivesMinusOneAndNoTimes) {
    const Object object("TimerProbe");
    for (const double trial : {0.0, 5.0, -1.0}) {
        (void)probe(object, 4, 100);
        EXPECT_EQ(probe(object, trial, 10), -1);
        EXPECT_EQ(object.int32("trialId"), static_cast<std::int32_t>(trial));
        EXPECT_EQ(object.int32("iterations"), 10);
        EXPECT_EQ(object.real("innerTime"), 0.0);
        EXPECT_EQ(object.real("outerTime"), 0.0);
    }
}

TEST(TimerProbe, noIterationsRunNothing) {
    const Object object("TimerProbe");
    for (const double iterations : {0.0, -3.0}) {
        (void)probe(object, 4, 100);
        EXPECT_EQ(probe(object, 1, iterations), 0);
        EXPECT_EQ(object.int32("iterations"), static_cast<std::int32_t>(iterations));
        EXPECT_EQ(object.real("innerTime"), 0.0);
        EXPECT_EQ(object.real("outerTime"), 0.0);
    }
}

TEST(TimerProbe, outerTimeHoldsTheInnerTime) {
    const Object object("TimerProbe");
    for (const double trial : {1.0, 3.0, 4.0}) {
        (void)probe(object, trial, 10000);
        EXPECT_GE(object.real("outerTime"), object.real("innerTime")) << "trial " << trial;
        EXPECT_GE(object.real("innerTime"), 0.0);
        EXPECT_GT(object.real("outerTime"), 0.0);
    }
}

TEST(TimerProbe, sleepsAMillisecondEachTurn) {
    const Object object("TimerProbe");
    EXPECT_EQ(probe(object, 2, 3), 0);
    EXPECT_GE(object.real("innerTime"), 0.001);
}

TEST(TimerProbe, interruptingTheThreadEndsTheSleepEarly) {
    bool interrupted = false;
    quarn_vi::debug::TimerProbe native;
    const std::size_t timers = QN::Timer::manager().size();
    boost::thread sleeper([&] {
        try {
            (void)native.probe(2, 600000); // ten minutes, unless it is interrupted
        } catch (const boost::thread_interrupted&) {
            interrupted = true;
        }
    });
    sleeper.interrupt();
    sleeper.join();
    EXPECT_TRUE(interrupted);
    EXPECT_EQ(native.trialId(), 2);
    EXPECT_EQ(native.iterations(), 600000);
    EXPECT_EQ(native.innerTime(), 0.0);
    EXPECT_EQ(native.outerTime(), 0.0);
    EXPECT_EQ(QN::Timer::manager().size(), timers); // its two timers are gone
}

TEST(TimerProbe, argumentsMustBeIntegers) {
    const Object object("TimerProbe");
    (void)probe(object, 4, 3);
    EXPECT_EQ(sample::errorOf([&] { (void)probe(object, 1.5, 3); }), "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([&] { (void)probe(object, 1, 3e9); }), "varnix:wrongType");
    EXPECT_EQ(object.int32("trialId"), 4);
    EXPECT_EQ(object.int32("iterations"), 3);
}

} // namespace
