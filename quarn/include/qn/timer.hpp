// Named stopwatches and their process-wide registry. The compiler times its phases with them, and
// anybody can list, read and reset all of them.
//
// Time is read from the processor's counter where that one is invariant (the same rate in every
// power state), else from the monotonic clock; QUARN_TIMER_CLOCK=monotonic in the environment asks
// for the latter. A start and a stop cost two reads of that clock and a few instructions.
//
// Owner: whoever makes a timer. The registry links the timers themselves, in the order in which
// they were made, and owns none; a timer leaves it when it is destroyed. One thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <time.h>
#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace QN {

namespace detail {

/// Decided once, while this library is loaded, before any timer can be made.
extern bool timersUseCounter;

inline std::uint64_t monotonicTicks() noexcept {
    timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

#if defined(__x86_64__)
inline std::uint64_t counterTicks() noexcept {
    return __rdtsc();
}
#else
inline std::uint64_t counterTicks() noexcept {
    return monotonicTicks();
}
#endif

} // namespace detail

class Timer {
public:
    class Manager;
    class Iterator;
    class Measuring;

    /// A stopped timer at zero, entered last in the registry. Names need not be unique.
    explicit Timer(std::string name);
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    ~Timer();

    // Who found a timer in the registry does not keep it alive. So a timer that is deleted leaves
    // the registry, but stays a stopped timer without a name until another takes its place: using
    // it is a mistake that breaks nothing. The memory is that of the most timers at one time.
    static void* operator new(std::size_t bytes);
    static void operator delete(Timer* timer, std::destroying_delete_t) noexcept;
    static void operator delete(void* memory) noexcept; // of one that could not be made

    /// Starts measuring; does nothing if the timer is running.
    void start() noexcept {
        if (!running_) {
            running_ = true;
            startedAt_ = readClock();
        }
    }
    /// Adds the time since start() and counts one hit; does nothing if the timer is stopped.
    void stop() noexcept {
        const std::uint64_t now = readClock();
        if (running_) {
            running_ = false;
            total_ += ticksUntil(now);
            ++hits_;
        }
    }
    /// Time and hits go back to zero. A running timer goes on running and measures from here.
    void reset() noexcept;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// How many measurements have been completed since the last reset.
    [[nodiscard]] std::int64_t hits() const noexcept { return hits_; }
    /// Seconds measured since the last reset, a measurement that is under way included.
    [[nodiscard]] double elapsedTime() const;
    [[nodiscard]] bool isRunning() const noexcept { return running_; }

    /// The registry of all timers of the process.
    [[nodiscard]] static Manager& manager() noexcept;

    /// The clock of all timers, in its own units, and what one of these is in seconds. The first
    /// call of secondsPerTick() may wait some milliseconds for a sound measurement.
    [[nodiscard]] static std::uint64_t readClock() noexcept {
        return detail::timersUseCounter ? detail::counterTicks() : detail::monotonicTicks();
    }
    [[nodiscard]] static double secondsPerTick();
    /// "processor counter" or "monotonic clock".
    [[nodiscard]] static const char* clockName() noexcept;

private:
    /// Counters of two processors may differ a little: never less than nothing.
    [[nodiscard]] std::uint64_t ticksUntil(std::uint64_t now) const noexcept {
        return now > startedAt_ ? now - startedAt_ : 0;
    }

    void leaveRegistry() noexcept;

    std::uint64_t startedAt_ = 0;
    std::uint64_t total_ = 0; // in ticks
    std::int64_t hits_ = 0;
    bool running_ = false;
    Timer* next_ = nullptr;
    Timer* previous_ = nullptr;
    std::string name_;
};

class Timer::Manager {
public:
    /// Resets every registered timer.
    void resetAll() noexcept;
    /// The timer that was made first, null if there is none.
    [[nodiscard]] Timer* first() const noexcept { return first_; }
    /// Number of registered timers.
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

private:
    friend class Timer;
    constexpr Manager() noexcept = default;
    Timer* first_ = nullptr;
    Timer* last_ = nullptr;
    std::size_t size_ = 0;
};

/// A place in the registry. Timers may come while it is in use; the one it stands on must stay.
class Timer::Iterator {
public:
    /// Stands on `first`, or at the end if that is null.
    explicit Iterator(Timer* first) noexcept : at_(first) {}

    [[nodiscard]] bool atEnd() const noexcept { return at_ == nullptr; }
    /// The timer here; not at the end.
    [[nodiscard]] Timer& current() const noexcept { return *at_; }
    /// Goes on to the next timer; not at the end.
    void advance() noexcept { at_ = at_->next_; }

private:
    Timer* at_;
};

/// Measures from its construction to its destruction, and nothing if the timer is running already,
/// so that a phase that enters itself is measured once.
class Timer::Measuring {
public:
    explicit Measuring(Timer& timer) noexcept : timer_(timer.isRunning() ? nullptr : &timer) {
        timer.start();
    }
    Measuring(const Measuring&) = delete;
    Measuring& operator=(const Measuring&) = delete;
    ~Measuring() {
        if (timer_ != nullptr) {
            timer_->stop();
        }
    }

private:
    Timer* timer_;
};

} // namespace QN
