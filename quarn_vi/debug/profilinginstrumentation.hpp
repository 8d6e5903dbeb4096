// internal.quarn.ProfilingInstrumentation: whether compiled code carries profiling counters.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

namespace quarn_vi::debug {

/// An empty object: the switch is the IR library's process-wide feature flag.
class ProfilingInstrumentation : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.ProfilingInstrumentation";

    /// Counts as a query of the feature.
    bool enabled() const;
    void setEnabled(bool value);
};

class CosProfilingInstrumentation
    : public objsys::factory::HandleClassInfo<ProfilingInstrumentation, 1> {
public:
    CosProfilingInstrumentation();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
