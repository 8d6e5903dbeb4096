// Transforms, their registry, and the one function that runs any of them.
//
// A transform changes the IR of one function or of one scope and says whether it did. To add one: a
// file under quarn/transform/ that begins with what it requires, keeps and invalidates, and a row
// in quarn/transform/transforms.def; nothing else.
#pragma once

#include <qn/default_services.hpp>
#include <qn/run_sequence.hpp>

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace QN {

class Function;
class Scope;

/// One row of the registry; exactly one of the two functions is not null. A transform returns
/// whether it changed anything; it may throw, and then leaves IR that can be freed but need not be
/// valid.
struct Transform {
    std::string_view name;
    std::string_view summary;
    bool (*onFunction)(Function& function);
    bool (*onScope)(Scope& scope);
};

/// All transforms in the order of the registry.
[[nodiscard]] std::span<const Transform> allTransforms() noexcept;
/// The transform of that name, null if there is none.
[[nodiscard]] const Transform* transformNamed(std::string_view name) noexcept;

/// Thrown out of runTransform() when a service asked for the end of the compilation; what() is the
/// reason that the service gave.
class CompilationStopped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace detail {
bool runWatched(const Transform& transform, Function& function, RunSequence& sequence);
bool runWatched(const Transform& transform, Scope& scope);
/// A run with a description of it and all hooks around, for services that are awake.
bool runBetweenHooks(const Transform& transform, Function& function);
} // namespace detail

/// Runs a function transform on `function`, which has a graph: the only way in which a transform is
/// ever run. With services awake, each one's prepass() comes before and postpass() after, paired
/// also when the transform throws; without, the cost is one branch. Returns whether the
/// transform changed anything. `sequence` is that of the loop whose runs follow one another.
inline bool runTransform(const Transform& transform, Function& function, RunSequence& sequence) {
    if (DefaultServices::debugServices().isQuiet()) [[likely]] {
        sequence.forget();
        return transform.onFunction(function);
    }
    return detail::runWatched(transform, function, sequence);
}

/// The same for a run by itself.
inline bool runTransform(const Transform& transform, Function& function) {
    RunSequence alone;
    return runTransform(transform, function, alone);
}

/// The same for a scope transform.
inline bool runTransform(const Transform& transform, Scope& scope) {
    if (DefaultServices::debugServices().isQuiet()) [[likely]] {
        return transform.onScope(scope);
    }
    return detail::runWatched(transform, scope);
}

/// Runs a transform of either kind on `scope`: a function transform on each of its functions that
/// has a graph, in order. Child scopes are not entered. Returns whether anything changed. Who runs
/// one transform right behind the other hands the same `sequence` to all of them.
bool runTransformOnAll(const Transform& transform, Scope& scope, RunSequence& sequence);
bool runTransformOnAll(const Transform& transform, Scope& scope);

} // namespace QN
