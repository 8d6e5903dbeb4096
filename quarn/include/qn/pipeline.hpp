// The order in which a compilation runs its transforms. The list itself is in
// transform/pipeline.cpp, on one screen.
#pragma once

#include <span>
#include <string_view>

namespace QN {

class Scope;

/// The names of the pipeline's transforms, in order; a name may come more than once.
[[nodiscard]] std::span<const std::string_view> pipeline() noexcept;

/// Runs the pipeline over the functions of `scope`. Transforms that a switch has turned off are
/// left out. Throws what a transform throws, and CompilationStopped.
void runPipeline(Scope& scope);

} // namespace QN
