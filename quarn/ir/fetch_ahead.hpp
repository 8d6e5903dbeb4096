// Fetching the graphs of a scope into the processor's cache while the ones before them are worked
// on. A scope with many small functions lies far from the processor, and every walk of a graph
// would wait for one link after the other.
//
// For who walks all functions of a scope in order: call it before each.
#pragma once

#include <qn/scope.hpp>

#include <cstddef>
#include <memory>
#include <vector>

namespace QN::detail {

/// Each function comes in steps, as one has to be there to know where the next lies: itself, its
/// graph, the graph's first memory, then that memory. Function `i` is the one about to be worked
/// on.
inline void fetchAhead(const std::vector<std::unique_ptr<Function>>& functions, std::size_t i) {
    constexpr std::size_t line = 64;
    const auto fetch = [](const auto* object) {
        for (std::size_t at = 0; at < sizeof *object; at += line) {
            __builtin_prefetch(reinterpret_cast<const char*>(object) + at);
        }
    };
    const auto graphOf = [&](std::size_t index) -> const Cfg* {
        return index < functions.size() && functions[index] != nullptr && functions[index]->hasCfg()
                   ? &functions[index]->cfg()
                   : nullptr;
    };
    if (i + 4 < functions.size()) {
        fetch(functions[i + 4].get());
    }
    if (const Cfg* const graph = graphOf(i + 3); graph != nullptr) {
        fetch(graph);
    }
    if (const Cfg* const graph = graphOf(i + 2); graph != nullptr) {
        __builtin_prefetch(functions[i + 2]->paramTypes().data());
        graph->pool().fetchAheadOfThat();
    }
    if (const Cfg* const graph = graphOf(i + 1); graph != nullptr) {
        graph->pool().fetchAhead();
    }
}

} // namespace QN::detail
