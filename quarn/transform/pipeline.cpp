// The pipeline, on one screen. A transform that prepares the ground for another comes before it;
// what cleans up comes behind what makes a mess.
#include <qn/pipeline.hpp>
#include <qn/transform.hpp>

namespace QN {

namespace {

constexpr std::string_view stages[] = {
    "control-flow",     // branches on constants written in the program
    "constant-folding", //
    "control-flow",     // branches that folding has decided
    "dead-code",        //
};

} // namespace

std::span<const std::string_view> pipeline() noexcept {
    return stages;
}

void runPipeline(Scope& scope) {
    for (const std::string_view name : stages) {
        runTransformOnAll(*transformNamed(name), scope);
    }
}

} // namespace QN
