#include "debug/profilinginstrumentation.hpp"

#include "framework/declaration.hpp"

#include <qn/testing_hooks.hpp>

namespace quarn_vi::debug {

bool ProfilingInstrumentation::enabled() const {
    return TSFEAT_QUARNProfilingInstrumentation->value() != 0;
}

void ProfilingInstrumentation::setEnabled(bool value) {
    TSFEAT_QUARNProfilingInstrumentation->setFeatValFromC(value ? 1 : 0);
}

CosProfilingInstrumentation::CosProfilingInstrumentation()
    : HandleClassInfo("ProfilingInstrumentation", "QUARN profiling instrumentation controller.") {}

void CosProfilingInstrumentation::defineClass(objsys::COSClassDefinition* definition) {
    using C = ProfilingInstrumentation;
    objsys::factory::ClassDeclaration<C> declare(definition, this);
    declare.constructor();
    declare.property<&C::enabled, &C::setEnabled>("Enabled");
}

} // namespace quarn_vi::debug
