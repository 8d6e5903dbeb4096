#include "debug/profiler.hpp"

#include "debug/timervi.hpp"
#include "framework/declaration.hpp"

#include <qn/timer.hpp>

namespace quarn_vi::debug {

void Profiler::resetAllTimers() {
    QN::Timer::manager().resetAll();
}

std::vector<TimerVI*> Profiler::timers() {
    std::vector<TimerVI*> result;
    QN::Timer::Manager& registry = QN::Timer::manager();
    if (!registry.first())
        return result;
    result.reserve(registry.size());
    for (QN::Timer::Iterator at(registry.first()); !at.atEnd(); at.advance())
        result.push_back(new TimerVI(&at.current()));
    return result;
}

CosProfiler::CosProfiler() : HandleClassInfo("Profiler", "QUARN profiling utilities.") {}

void CosProfiler::defineClass(objsys::COSClassDefinition* definition) {
    using C = Profiler;
    objsys::factory::ClassDeclaration<C> declare(definition, this);
    declare.constructor();
    declare.method<&C::resetAllTimers>("resetAllTimers");
    declare.method<&C::timers>("timers");
}

} // namespace quarn_vi::debug
