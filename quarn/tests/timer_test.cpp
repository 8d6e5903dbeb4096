// Stopwatches: what each operation does in each state, the registry, and agreement with the
// monotonic clock over an interval that is measured, not assumed.
#include <qn/timer.hpp>

#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace QN;

namespace {

void spin(std::uint64_t nanoseconds) {
    const std::uint64_t start = detail::monotonicTicks();
    while (detail::monotonicTicks() - start < nanoseconds) {
    }
}

std::vector<const Timer*> registered() {
    std::vector<const Timer*> timers;
    for (Timer::Iterator at(Timer::manager().first()); !at.atEnd(); at.advance()) {
        timers.push_back(&at.current());
    }
    return timers;
}

} // namespace

TEST(Timer, StartsStoppedAtZero) {
    const Timer timer("parse");
    EXPECT_EQ(timer.name(), "parse");
    EXPECT_EQ(timer.hits(), 0);
    EXPECT_EQ(timer.elapsedTime(), 0.0);
    EXPECT_FALSE(timer.isRunning());
}

TEST(Timer, CountsCompletedMeasurements) {
    Timer timer("t");
    timer.start();
    EXPECT_TRUE(timer.isRunning());
    EXPECT_EQ(timer.hits(), 0);
    timer.stop();
    EXPECT_FALSE(timer.isRunning());
    EXPECT_EQ(timer.hits(), 1);
    timer.start();
    timer.stop();
    EXPECT_EQ(timer.hits(), 2);
}

TEST(Timer, StopWhileStoppedDoesNothing) {
    Timer timer("t");
    timer.stop();
    EXPECT_EQ(timer.hits(), 0);
    EXPECT_EQ(timer.elapsedTime(), 0.0);
}

TEST(Timer, StartWhileRunningGoesOnMeasuringFromTheFirstStart) {
    Timer timer("t");
    timer.start();
    spin(2'000'000);
    timer.start();
    timer.stop();
    EXPECT_EQ(timer.hits(), 1);
    EXPECT_GE(timer.elapsedTime(), 0.0019);
}

TEST(Timer, ElapsedTimeGrowsWhileRunningAndStandsWhileStopped) {
    Timer timer("t");
    timer.start();
    const double early = timer.elapsedTime();
    spin(100'000);
    EXPECT_GT(timer.elapsedTime(), early);
    timer.stop();
    const double stopped = timer.elapsedTime();
    spin(100'000);
    EXPECT_EQ(timer.elapsedTime(), stopped);
}

TEST(Timer, ResetOfARunningTimerMeasuresFromHere) {
    Timer timer("t");
    timer.start();
    spin(5'000'000);
    const std::uint64_t beforeReset = detail::monotonicTicks();
    timer.reset();
    EXPECT_TRUE(timer.isRunning());
    EXPECT_EQ(timer.hits(), 0);
    timer.stop();
    const std::uint64_t afterStop = detail::monotonicTicks();
    EXPECT_EQ(timer.hits(), 1);
    EXPECT_LE(timer.elapsedTime(), 1e-9 * static_cast<double>(afterStop - beforeReset) * 1.001);
    timer.reset();
    EXPECT_EQ(timer.hits(), 0);
    EXPECT_EQ(timer.elapsedTime(), 0.0);
}

TEST(Timer, AgreesWithTheMonotonicClock) {
    Timer timer("t");
    const std::uint64_t outerStart = detail::monotonicTicks();
    timer.start();
    const std::uint64_t innerStart = detail::monotonicTicks();
    spin(20'000'000);
    const std::uint64_t innerEnd = detail::monotonicTicks();
    timer.stop();
    const std::uint64_t outerEnd = detail::monotonicTicks();
    // The timer's interval lies between the two; a thousandth is left to the calibration.
    const double atLeast = 1e-9 * static_cast<double>(innerEnd - innerStart);
    const double atMost = 1e-9 * static_cast<double>(outerEnd - outerStart);
    EXPECT_GE(timer.elapsedTime(), atLeast * 0.999);
    EXPECT_LE(timer.elapsedTime(), atMost * 1.001);
}

TEST(Timer, RegistryHoldsEveryTimerInOrder) {
    const std::vector<const Timer*> others = registered();
    const std::size_t sizeBefore = Timer::manager().size();
    EXPECT_EQ(others.size(), sizeBefore);
    {
        const Timer first("first");
        auto second = std::make_unique<Timer>("second");
        const Timer third("third");
        std::vector<const Timer*> expected = others;
        expected.insert(expected.end(), {&first, second.get(), &third});
        EXPECT_EQ(registered(), expected);
        second.reset();
        expected.erase(expected.end() - 2);
        EXPECT_EQ(registered(), expected);
        EXPECT_EQ(Timer::manager().size(), sizeBefore + 2);
    }
    EXPECT_EQ(registered(), others);
}

TEST(Timer, RegistryHoldsManyAndResetsAll) {
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < 20000; ++i) {
        timers.push_back(std::make_unique<Timer>("t" + std::to_string(i)));
        timers.back()->start();
        timers.back()->stop();
    }
    Timer::manager().resetAll();
    for (const auto& timer : timers) {
        EXPECT_EQ(timer->hits(), 0);
        EXPECT_EQ(timer->elapsedTime(), 0.0);
    }
}

TEST(Timer, MeasuringANestedPhaseCountsOnce) {
    Timer timer("t");
    {
        const Timer::Measuring outer(timer);
        { const Timer::Measuring inner(timer); }
        EXPECT_TRUE(timer.isRunning());
    }
    EXPECT_FALSE(timer.isRunning());
    EXPECT_EQ(timer.hits(), 1);
}

TEST(Timer, DeletedOneIsNamelessUntilAnotherTakesItsPlace) {
    const std::vector<const Timer*> others = registered();
    auto* const timer = new Timer("a name that is too long to stand inside the object itself");
    timer->start();
    timer->stop();
    timer->start();
    delete timer;
    EXPECT_EQ(registered(), others);
    // Somebody else's handle.
    EXPECT_EQ(timer->name(), "");
    EXPECT_EQ(timer->hits(), 0);
    EXPECT_FALSE(timer->isRunning());
    EXPECT_EQ(timer->elapsedTime(), 0.0);
    timer->start();
    timer->stop();
    EXPECT_EQ(registered(), others);
    const auto next = std::make_unique<Timer>("next");
    EXPECT_EQ(next.get(), timer);
    EXPECT_EQ(next->name(), "next");
    EXPECT_EQ(next->hits(), 0);
    EXPECT_FALSE(next->isRunning());
    EXPECT_EQ(registered().size(), others.size() + 1);
}
