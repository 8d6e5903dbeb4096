// The switches that this library exports by pointer: testing hooks and one feature. Each says what
// it turns on and when the library looks at it. All are off at start.
//
// The pointers never change and are never null; the objects live as long as the process.
#pragma once

#include <ts/feature.hpp>
#include <ts/testing_hook.hpp>

/// Pools of scopes keep a record of every allocation, so that leaks can be told. Looked at when a
/// pool is made.
extern TsTestingHook* const TSFEAT_QUARNPoolInternalLeakDetection;

/// The same for the pools of function graphs.
extern TsTestingHook* const TSFEAT_QUARNCfgPoolInternalLeakDetection;

/// Pools put canaries around allocations and poison what is released. Looked at when a pool is
/// made.
extern TsTestingHook* const TSFEAT_QUARNPoolSanityChecks;

/// The compaction transform checks what it was given against what it made. Looked at in each run.
extern TsTestingHook* const TSFEAT_QUARNCompactionCheckInDataAgainstOutData;

/// The pipeline inserts profiling counters. Looked at when a pipeline starts.
extern TsFeature* const TSFEAT_QUARNProfilingInstrumentation;
