// The objects behind the exported switches.
#include <qn/testing_hooks.hpp>

namespace {

constinit TsTestingHook poolLeaks;
constinit TsTestingHook cfgPoolLeaks;
constinit TsTestingHook poolSanity;
constinit TsTestingHook compactionCheck;
constinit TsFeature profilingInstrumentation;

} // namespace

TsTestingHook* const TSFEAT_QUARNPoolInternalLeakDetection = &poolLeaks;
TsTestingHook* const TSFEAT_QUARNCfgPoolInternalLeakDetection = &cfgPoolLeaks;
TsTestingHook* const TSFEAT_QUARNPoolSanityChecks = &poolSanity;
TsTestingHook* const TSFEAT_QUARNCompactionCheckInDataAgainstOutData = &compactionCheck;
TsFeature* const TSFEAT_QUARNProfilingInstrumentation = &profilingInstrumentation;
