// internal.quarn.TimerProbe: what a stopwatch timer costs and how short an interval it resolves.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <cstdint>

namespace quarn_vi::debug {

/// Keeps what the last probe measured.
class TimerProbe : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.TimerProbe";

    /// Runs one trial: 1 nothing, 2 an interruptible sleep of a millisecond, 3 a square root, 4 a
    /// step; each as often as `iterations` says, with an inner timer around each turn and an outer
    /// one around all. Returns the result of the work, or -1 for an unknown trial.
    std::int32_t probe(std::int32_t trialId, std::int32_t iterations);

    std::int32_t trialId() const { return trialId_; }
    std::int32_t iterations() const { return iterations_; }
    /// Mean seconds per turn by the inner timer.
    double innerTime() const { return innerTime_; }
    /// Mean seconds per turn by the outer timer.
    double outerTime() const { return outerTime_; }

private:
    template <class Work>
    std::int32_t run(Work work);

    std::int32_t trialId_ = 0;
    std::int32_t iterations_ = 0;
    double innerTime_ = 0.0;
    double outerTime_ = 0.0;
};

class CosTimerProbe : public objsys::factory::HandleClassInfo<TimerProbe, 1> {
public:
    CosTimerProbe();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
