#include "debug/timervi.hpp"

#include "framework/declaration.hpp"

#include <qn/assertion.hpp>
#include <qn/timer.hpp>
#include <ut/ut.hpp>

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace quarn_vi::debug {

TimerVI::TimerVI(const std::string& name) : fOwnsTimer(true), fTimer(new QN::Timer(name)) {}

TimerVI::TimerVI(QN::Timer* timer) : fOwnsTimer(false), fTimer(timer) {
    if (!fTimer)
        client_assertion_failed("quarn_vi/debug/timervi", 16, "fTimer != 0");
}

TimerVI::~TimerVI() {
    if (fOwnsTimer)
        delete fTimer;
}

std::string TimerVI::name() const {
    return fTimer->name();
}

void TimerVI::start() {
    fTimer->start();
}

void TimerVI::stop() {
    fTimer->stop();
}

void TimerVI::reset() {
    fTimer->reset();
}

std::int64_t TimerVI::hits() const {
    return fTimer->hits();
}

double TimerVI::elapsedTime() const {
    return fTimer->elapsedTime();
}

bool TimerVI::isRunning() const {
    return fTimer->isRunning();
}

void TimerVI::disp(const std::vector<TimerVI*>& timers) {
    std::size_t width = 32;
    for (const TimerVI* const timer : timers)
        width = std::max(width, timer->name().size());
    for (const TimerVI* const timer : timers)
        printTimerLine(timer->name(), width, timer->elapsedTime(), timer->hits());
}

void printTimerLine(const std::string& name, std::size_t width, double elapsed, std::int64_t hits) {
    const char* unit = "s";
    if (0.1 > elapsed) { // not for a NaN
        unit = "ms";
        elapsed *= 1000.0;
    }
    const double perHit = hits != 0 ? elapsed / static_cast<double>(hits) : 0.0;
    std::ostringstream label;
    label << std::left << std::setw(static_cast<int>(width)) << name;
    utPrintf("%s: %10.2g %2s / %7d  = %10.2g %2s/hit\n", label.str().c_str(), elapsed, unit,
             static_cast<int>(hits), perHit, unit);
}

CosTimer::CosTimer() : HandleClassInfo("Timer", "QUARN stopwatch timer.") {}

void CosTimer::defineClass(objsys::COSClassDefinition* definition) {
    using C = TimerVI;
    using objsys::factory::MethodAttributes;
    objsys::factory::ClassDeclaration<C> declare(definition, this);
    declare.superclass("varnix.mixin.Heterogeneous");
    declare.constructor<std::string>();
    declare.readOnly<&C::name>("name");
    declare.method<&C::start>("start");
    declare.method<&C::stop>("stop");
    declare.method<&C::reset>("reset");
    declare.method<&C::hits>("hits");
    declare.method<&C::elapsedTime>("elapsedTime");
    declare.method<&C::isRunning>("isRunning");
    declare.vectorMethod<&C::disp>("disp", MethodAttributes::ForceMembership());
}

} // namespace quarn_vi::debug
