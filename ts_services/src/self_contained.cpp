// Compiles each public header on its own, so that none leans on what its users include before it.
// The header-only ones have no other source file here.
#include <ts/feature.hpp>
#include <ts/testing_hook.hpp>

static_assert(sizeof(TsTestingHook) == 8 && sizeof(TsFeature) == 8);
