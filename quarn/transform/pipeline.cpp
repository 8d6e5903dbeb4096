// The pipeline, on one screen. A transform that prepares the ground for another comes before it;
// what cleans up comes behind what makes a mess. Not in it: rounding-overflow, for engines that
// cannot saturate.
#include <qn/pipeline.hpp>
#include <qn/testing_hooks.hpp>
#include <qn/transform.hpp>

#include <algorithm>
#include <array>
#include <iterator>

namespace QN {

namespace {

constexpr std::string_view profiling = "profiling";

constexpr std::string_view stages[] = {
    "control-flow",       // branches on constants that the program has
    "constant-folding",   //
    "inlining",           // of small functions, cleaned up above
    "control-flow",       // the seams of inlining
    "bounds-checks",      // all at once, so that the next stages see and thin them out
    "value-numbering",    //
    "constant-folding",   // on what was stored and loaded again
    "loop-invariants",    // sizes of arrays, for the most part
    "strength-reduction", //
    "value-numbering",    // on what has moved together
    "dead-code",          //
    "if-conversion",      // sides of branches are as short as they will be
    "control-flow",       // branches that folding has decided
    profiling,            // on the final blocks; only while its feature is on
    "unused-functions",   // those that were inlined everywhere
    "compaction",         // gives back what all these have left behind
};

// Looked up once: what lies between two stages is measured with the second.
const auto& transformsOfStages() {
    static const auto found = [] {
        std::array<const Transform*, std::size(stages)> transforms;
        std::transform(std::begin(stages), std::end(stages), transforms.begin(), transformNamed);
        return transforms;
    }();
    return found;
}

} // namespace

std::span<const std::string_view> pipeline() noexcept {
    return stages;
}

void runPipeline(Scope& scope) {
    const bool profiles = TSFEAT_QUARNProfilingInstrumentation->isOn();
    RunSequence sequence;
    for (const Transform* const transform : transformsOfStages()) {
        if (profiles || transform->name != profiling) {
            runTransformOnAll(*transform, scope, sequence);
        }
    }
}

} // namespace QN
