// Questions about the IR under a run that several services ask.
#pragma once

#include <qn/scope.hpp>
#include <qn/transform_run.hpp>

#include <cstddef>

namespace QN::detail {

/// Calls `visit(Function&)` for the function of a function run, or for all of a scope run, if they
/// have their graphs.
template <typename Visitor>
void forEachFunctionOf(const TransformRun& run, Visitor&& visit) {
    if (Function* const function = run.function(); function != nullptr) {
        if (function->hasCfg()) {
            visit(*function);
        }
        return;
    }
    for (const auto& function : run.scope().functions()) {
        if (function->hasCfg()) {
            visit(*function);
        }
    }
}

/// Number of nodes under a run: constant time for a function, linear in the functions of a scope.
inline std::size_t nodesUnder(const TransformRun& run) {
    if (const Function* const function = run.function(); function != nullptr) {
        return function->hasCfg() ? function->cfg().numNodes() : 0;
    }
    std::size_t nodes = 0;
    forEachFunctionOf(run, [&](Function& function) { nodes += function.cfg().numNodes(); });
    return nodes;
}

} // namespace QN::detail
