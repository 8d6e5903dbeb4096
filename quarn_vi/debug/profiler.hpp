// internal.quarn.Profiler: reaches the IR library's registry of timers.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <vector>

namespace quarn_vi::debug {

class TimerVI;

/// Holds nothing; any number may exist.
class Profiler : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.Profiler";

    void resetAllTimers();
    /// A new non-owning TimerVI for every registered timer, in registry order. Each belongs to the
    /// handle that it is given.
    std::vector<TimerVI*> timers();
};

class CosProfiler : public objsys::factory::HandleClassInfo<Profiler, 1> {
public:
    CosProfiler();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
