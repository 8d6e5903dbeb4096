// The registry of timers, and what a tick of their clock is worth.
#include <qn/timer.hpp>

#include <cstdlib>
#include <string_view>
#include <utility>
#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace QN {

namespace {

constexpr std::uint64_t calibrationNanoseconds = 10'000'000;

bool counterIsInvariant() noexcept {
#if defined(__x86_64__)
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    constexpr unsigned invariantCounter = 1U << 8;
    return __get_cpuid(0x80000007, &eax, &ebx, &ecx, &edx) != 0 && (edx & invariantCounter) != 0;
#else
    return false;
#endif
}

bool counterIsWanted() noexcept {
    const char* const clock = std::getenv("QUARN_TIMER_CLOCK");
    return clock == nullptr || std::string_view(clock) != "monotonic";
}

/// Both clocks at one moment.
struct Moment {
    std::uint64_t counter;
    std::uint64_t nanoseconds;
};

// Of several tries the one with the least time between the two readings of the monotonic clock: the
// others were interrupted.
Moment readBothClocks() noexcept {
    Moment best{};
    std::uint64_t leastDelay = ~std::uint64_t{0};
    for (int i = 0; i < 8; ++i) {
        const std::uint64_t before = detail::monotonicTicks();
        const std::uint64_t counter = detail::counterTicks();
        const std::uint64_t after = detail::monotonicTicks();
        if (after - before < leastDelay) {
            leastDelay = after - before;
            best = {counter, before + (after - before) / 2};
        }
    }
    return best;
}

// The start of the calibration.
constinit Moment loaded{};

double measureSecondsPerTick() noexcept {
    if (!detail::timersUseCounter) {
        return 1e-9;
    }
    Moment now = readBothClocks();
    while (now.nanoseconds - loaded.nanoseconds < calibrationNanoseconds) {
        now = readBothClocks();
    }
    return 1e-9 * static_cast<double>(now.nanoseconds - loaded.nanoseconds) /
           static_cast<double>(now.counter - loaded.counter);
}

} // namespace

namespace detail {
constinit bool timersUseCounter = false;
}

// Runs before the constructors of static objects, timers among them. The calibration begins here,
// so that the time it needs has mostly passed when somebody first asks for seconds.
[[gnu::constructor(101)]] static void chooseClock() noexcept {
    detail::timersUseCounter = counterIsInvariant() && counterIsWanted();
    loaded = readBothClocks();
}

Timer::Timer(std::string name) : name_(std::move(name)) {
    Manager& registry = manager();
    previous_ = registry.last_;
    (previous_ != nullptr ? previous_->next_ : registry.first_) = this;
    registry.last_ = this;
    ++registry.size_;
}

Timer::~Timer() {
    leaveRegistry();
}

void Timer::leaveRegistry() noexcept {
    Manager& registry = manager();
    (previous_ != nullptr ? previous_->next_ : registry.first_) = next_;
    (next_ != nullptr ? next_->previous_ : registry.last_) = previous_;
    --registry.size_;
}

// Deleted timers, whose places are taken again, chained through next_.
static constinit Timer* deletedTimers = nullptr;

void* Timer::operator new(std::size_t bytes) {
    if (deletedTimers == nullptr) {
        return ::operator new(bytes);
    }
    // Its name holds no memory, so there is nothing to destroy.
    return std::exchange(deletedTimers, deletedTimers->next_);
}

void Timer::operator delete(void* memory) noexcept {
    ::operator delete(memory);
}

void Timer::operator delete(Timer* timer, std::destroying_delete_t) noexcept {
    timer->leaveRegistry();
    std::string().swap(timer->name_);
    timer->running_ = false;
    timer->reset();
    timer->next_ = std::exchange(deletedTimers, timer);
}

void Timer::reset() noexcept {
    total_ = 0;
    hits_ = 0;
    startedAt_ = readClock();
}

double Timer::elapsedTime() const {
    const std::uint64_t ticks = total_ + (running_ ? ticksUntil(readClock()) : 0);
    return static_cast<double>(ticks) * secondsPerTick();
}

Timer::Manager& Timer::manager() noexcept {
    // Constant-initialized and trivially destroyed: timers with static storage may use it at any
    // time.
    static constinit Manager registry;
    return registry;
}

double Timer::secondsPerTick() {
    // Measured once, so that the time of a stopped timer reads the same each time.
    static const double value = measureSecondsPerTick();
    return value;
}

const char* Timer::clockName() noexcept {
    return detail::timersUseCounter ? "processor counter" : "monotonic clock";
}

void Timer::Manager::resetAll() noexcept {
    for (Iterator at(first_); !at.atEnd(); at.advance()) {
        at.current().reset();
    }
}

} // namespace QN
