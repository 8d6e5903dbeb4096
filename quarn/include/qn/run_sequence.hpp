// Runs of transforms that follow one another: between the end of one and the start of the next
// nothing happens but the loop that runs them and what services do. Who measures time can then take
// one moment for both.
//
// Owner: the loop; it hands its sequence to each run in turn.
#pragma once

#include <cstdint>
#include <utility>

namespace QN {

class RunSequence {
public:
    RunSequence() noexcept = default;
    RunSequence(const RunSequence&) = delete;
    RunSequence& operator=(const RunSequence&) = delete;

    /// The moment at which the run before ended, in ticks of the timers' clock; 0 if nobody noted
    /// it. It is given once, as it holds for the run that comes next.
    [[nodiscard]] std::uint64_t takeEndOfLast() noexcept { return std::exchange(end_, 0); }
    /// Notes it. From here to the start of the next run hardly any time passes.
    void noteEnd(std::uint64_t ticks) noexcept { end_ = ticks; }
    /// For a run that notes nothing.
    void forget() noexcept { end_ = 0; }

private:
    std::uint64_t end_ = 0;
};

} // namespace QN
