#include "debug/timerprobe.hpp"

#include "framework/declaration.hpp"

#include <qn/timer.hpp>

#include <boost/thread/thread.hpp>
#include <cmath>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quarn_vi::debug {

namespace {

/// A double as an integer, towards zero; the most negative integer for what does not fit, which is
/// what this processor's own conversion gives.
inline std::int32_t truncated(double value) {
#if defined(__SSE2__)
    return _mm_cvttsd_si32(_mm_set_sd(value));
#else
    if (!(value > -2147483649.0 && value < 2147483648.0))
        return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(value);
#endif
}

/// Addition that wraps around.
inline std::int32_t sum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

/// Makes the compiler believe that `x` is read and may change, without an instruction: otherwise
/// it would do the work of a trial once and for all before the loop.
inline void keep(std::int32_t& x) {
    asm volatile("" : "+r"(x));
}

} // namespace

template <class Work>
std::int32_t TimerProbe::run(Work work) {
    std::int32_t x = 0;
    QN::Timer inner("inner");
    QN::Timer outer("outer");
    const std::int32_t n = iterations_;
    outer.start();
    // Each turn is to run the same instructions, so that none may stand before the loop.
#pragma GCC unroll 1
    for (std::int32_t i = 0; i < n; ++i) {
        inner.start();
        keep(x);
        x = work(x);
        keep(x);
        inner.stop();
    }
    outer.stop();
    if (n > 0) {
        innerTime_ = inner.elapsedTime() / n;
        outerTime_ = outer.elapsedTime() / n;
    }
    return x;
}

std::int32_t TimerProbe::probe(std::int32_t trialId, std::int32_t iterations) {
    trialId_ = trialId;
    iterations_ = iterations;
    innerTime_ = 0.0;
    outerTime_ = 0.0;
    switch (trialId) {
    case 1:
        return run([](std::int32_t x) { return sum(x, x); });
    case 2:
        return run([](std::int32_t x) {
            boost::this_thread::sleep(boost::posix_time::milliseconds(1));
            return sum(x, x);
        });
    case 3:
        return run(
            [](std::int32_t x) { return sum(x, truncated(std::sqrt(static_cast<double>(x)))); });
    case 4:
        return run([](std::int32_t x) { return sum(x, truncated(static_cast<double>(x) + 1.5)); });
    default:
        return -1;
    }
}

CosTimerProbe::CosTimerProbe()
    : HandleClassInfo("TimerProbe", "QUARN Timer Probe used to calibrate timers..") {}

void CosTimerProbe::defineClass(objsys::COSClassDefinition* definition) {
    using C = TimerProbe;
    using objsys::factory::MethodAttributes;
    objsys::factory::ClassDeclaration<C> declare(definition, this);
    declare.constructor();
    declare.method<&C::probe>("probe",
                              MethodAttributes().remove(MethodAttributes::ForceMembership()));
    declare.readOnly<&C::trialId>("trialId");
    declare.readOnly<&C::iterations>("iterations");
    declare.readOnly<&C::innerTime>("innerTime");
    declare.readOnly<&C::outerTime>("outerTime");
}

} // namespace quarn_vi::debug
