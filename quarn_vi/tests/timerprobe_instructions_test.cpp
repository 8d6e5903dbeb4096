// What runs between the two clock reads of a probe's inner timer: counted instruction by
// instruction, in a child process that is stepped through one trial. Only where the timers read the
// processor's counter, whose instruction marks the reads, and in a build that adds no checks of its
// own.

#include "debug/timerprobe.hpp"

#include <qn/timer.hpp>

#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define CHECKED_BUILD
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CHECKED_BUILD
#endif
#endif

#if defined(__x86_64__) && !defined(CHECKED_BUILD)
#include <csignal>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// The instructions between one clock read and the next.
struct Stretch {
    int instructions = 0;
    int squareRoots = 0;
    int doubleSums = 0;
    bool leavesTheProbe = false;
};

struct Traced {
    std::vector<Stretch> stretches; ///< after each clock read, the last one's left out
    int reads = 0;
    int result = 0; ///< exit status: the low byte of what the probe returned
};

/// The bytes at an address, which the child shares with this process: it is a copy of it.
bool isClockRead(std::uint64_t address) {
    const auto* const code = reinterpret_cast<const unsigned char*>(address);
    return code[0] == 0x0F && code[1] == 0x31; // rdtsc
}
bool isScalarDouble(std::uint64_t address, unsigned char operation) {
    const auto* const code = reinterpret_cast<const unsigned char*>(address);
    const int prefix = (code[1] & 0xF0) == 0x40 ? 1 : 0; // of the upper registers
    return code[0] == 0xF2 && code[1 + prefix] == 0x0F && code[2 + prefix] == operation;
}

/// The file that holds an address of code; null if none does.
const void* homeOf(const void* address) {
    Dl_info info{};
    return ::dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

/// Runs a trial step by step; empty if this process may not trace another.
std::optional<Traced> trace(std::int32_t trial, std::int32_t iterations) {
    (void)QN::Timer::secondsPerTick(); // measured once and for all, not step by step
    const pid_t child = ::fork();
    if (child == 0) {
        quarn_vi::debug::TimerProbe probe;
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            ::_exit(255);
        ::raise(SIGSTOP);
        ::_exit(probe.probe(trial, iterations) & 0x7F);
    }
    const void* const home = homeOf(reinterpret_cast<const void*>(&homeOf));
    Traced traced;
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSTOPPED(status))
        return std::nullopt;
    while (WIFSTOPPED(status)) {
        user_regs_struct registers{};
        ::ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        if (isClockRead(registers.rip)) {
            ++traced.reads;
            traced.stretches.emplace_back();
        } else if (!traced.stretches.empty()) {
            Stretch& now = traced.stretches.back();
            ++now.instructions;
            now.squareRoots += isScalarDouble(registers.rip, 0x51) ? 1 : 0;
            now.doubleSums += isScalarDouble(registers.rip, 0x58) ? 1 : 0;
            now.leavesTheProbe |= homeOf(reinterpret_cast<const void*>(registers.rip)) != home;
        }
        ::ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
        ::waitpid(child, &status, 0);
    }
    traced.result = WEXITSTATUS(status);
    if (!traced.stretches.empty())
        traced.stretches.pop_back(); // from the last read to the end of the process
    return traced;
}

class TimerProbeInstructions : public testing::Test {
protected:
    /// The stretches between start and stop of the inner timer, one for each turn.
    std::vector<Stretch> inner(std::int32_t trial, std::int32_t turns, int result) {
        const std::optional<Traced> traced = trace(trial, turns);
        if (!traced) {
            mayNotTrace_ = true;
            return {};
        }
        EXPECT_EQ(traced->result, result);
        // Reads: outer start, then for each turn inner start and inner stop, then outer stop.
        const auto reads = static_cast<std::size_t>(2 + 2 * turns);
        EXPECT_EQ(traced->stretches.size() + 1, reads) << "trial " << trial;
        std::vector<Stretch> between;
        for (std::size_t i = 1; i < traced->stretches.size(); i += 2)
            between.push_back(traced->stretches[i]);
        return between;
    }
    [[nodiscard]] bool mayNotTrace() const { return mayNotTrace_; }

private:
    bool mayNotTrace_ = false;
};

TEST_F(TimerProbeInstructions, NothingButTheTrialsWorkLiesBetweenStartAndStop) {
    if (std::strcmp(QN::Timer::clockName(), "processor counter") != 0)
        GTEST_SKIP() << "the timers do not read the processor's counter here";
    const std::int32_t turns = 4;
    const std::vector<Stretch> empty = inner(1, turns, 0);
    if (mayNotTrace())
        GTEST_SKIP() << "this process may not trace another";
    const std::vector<Stretch> root = inner(3, turns, 0);
    const std::vector<Stretch> step = inner(4, turns, (1 << turns) - 1);
    ASSERT_EQ(empty.size(), static_cast<std::size_t>(turns));
    ASSERT_EQ(root.size(), empty.size());
    ASSERT_EQ(step.size(), empty.size());
    for (std::size_t i = 0; i < empty.size(); ++i) {
        // Start puts the time away, x is doubled, stop looks which clock to read.
        EXPECT_LE(empty[i].instructions, 10);
        EXPECT_EQ(empty[i].instructions, empty[0].instructions) << "each turn is alike";
        EXPECT_EQ(empty[i].squareRoots + empty[i].doubleSums, 0);
        EXPECT_FALSE(empty[i].leavesTheProbe);
        // Two conversions and the root, and what brings the numbers there and back.
        EXPECT_EQ(root[i].squareRoots, 1);
        EXPECT_EQ(root[i].doubleSums, 0);
        EXPECT_LE(root[i].instructions, empty[i].instructions + 8);
        EXPECT_FALSE(root[i].leavesTheProbe);
        // Two conversions and the sum.
        EXPECT_EQ(step[i].doubleSums, 1);
        EXPECT_EQ(step[i].squareRoots, 0);
        EXPECT_LE(step[i].instructions, empty[i].instructions + 8);
        EXPECT_FALSE(step[i].leavesTheProbe);
    }
}

TEST_F(TimerProbeInstructions, OuterTimerRunsAroundTheLoopAlone) {
    if (std::strcmp(QN::Timer::clockName(), "processor counter") != 0)
        GTEST_SKIP() << "the timers do not read the processor's counter here";
    const std::optional<Traced> none = trace(1, 0);
    if (!none)
        GTEST_SKIP() << "this process may not trace another";
    ASSERT_EQ(none->stretches.size(), 1u); // start and stop, no turn
    EXPECT_LE(none->stretches[0].instructions, 16);
    EXPECT_FALSE(none->stretches[0].leavesTheProbe);
}

TEST_F(TimerProbeInstructions, UnknownTrialReadsNoClock) {
    if (std::strcmp(QN::Timer::clockName(), "processor counter") != 0)
        GTEST_SKIP() << "the timers do not read the processor's counter here";
    const std::optional<Traced> unknown = trace(5, 3);
    if (!unknown)
        GTEST_SKIP() << "this process may not trace another";
    EXPECT_EQ(unknown->reads, 0);
    EXPECT_EQ(unknown->result, -1 & 0x7F);
}

} // namespace
#endif
