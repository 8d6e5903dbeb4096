// The registry of transforms and the watched half of the funnel.
#include "transform/transforms.hpp"

#include <qn/assertion.hpp>
#include <qn/scope.hpp>
#include <qn/transform.hpp>
#include <qn/transform_run.hpp>

#include <algorithm>

namespace QN {

namespace {

constexpr Transform registry[] = {
#define QN_FUNCTION_TRANSFORM(name, function, summary)                                             \
    {name, summary, transforms::function, nullptr},
#define QN_SCOPE_TRANSFORM(name, function, summary) {name, summary, nullptr, transforms::function},
#include "transform/transforms.def"
#undef QN_FUNCTION_TRANSFORM
#undef QN_SCOPE_TRANSFORM
};

// Numbers the watched runs of the process.
std::uint64_t runCount = 0;

[[noreturn, gnu::cold, gnu::noinline]] void stop(const TransformRun& run) {
    throw CompilationStopped(std::string(run.stopReason()));
}

inline void stopIfRequested(const TransformRun& run) {
    if (run.stopRequested()) [[unlikely]] {
        stop(run);
    }
}

} // namespace

// Calls prepass() on construction and postpass() once for each prepass() that returned, on finish()
// or, if an error passes through, on destruction. The services' slots keep their places meanwhile,
// so a service that leaves is left out and one that comes waits for the next run.
class ServiceBracket {
public:
    ServiceBracket(ServiceContainer& container, TransformRun& run)
        : walk_(container), container_(container), run_(run) {
        try {
            for (; opened_ < container_.slots_.size(); ++opened_) {
                if (Service* const service = container_.slots_[opened_]; service != nullptr) {
                    service->prepass(run_);
                }
            }
        } catch (...) {
            closeAfterError();
            throw;
        }
    }
    ServiceBracket(const ServiceBracket&) = delete;
    ServiceBracket& operator=(const ServiceBracket&) = delete;
    ~ServiceBracket() { closeAfterError(); }

    void finish() {
        while (opened_ > 0) {
            if (Service* const service = container_.slots_[--opened_]; service != nullptr) {
                service->postpass(run_);
            }
        }
    }

private:
    // Another error is on its way; one of a hook must not take its place.
    void closeAfterError() noexcept {
        if (opened_ > 0) {
            run_.setOutcome(RunOutcome::Failed);
        }
        while (opened_ > 0) {
            try {
                finish();
            } catch (...) {
                try {
                    client_assertion_failed(__FILE__, __LINE__, "a postpass hook failed");
                } catch (...) { // a handler that throws has nowhere to throw to
                }
            }
        }
    }

    ServiceContainer::Walk walk_;
    ServiceContainer& container_;
    TransformRun& run_;
    std::size_t opened_ = 0;
};

namespace detail {

namespace {

template <typename Act>
bool runBetweenServices(TransformRun& run, Act act) {
    ServiceBracket bracket(DefaultServices::debugServices(), run);
    stopIfRequested(run);
    const bool changed = act();
    run.setOutcome(changed ? RunOutcome::Changed : RunOutcome::Unchanged);
    bracket.finish();
    stopIfRequested(run);
    return changed;
}

} // namespace

bool runWatched(const Transform& transform, Function& function) {
    TransformRun run(++runCount, transform.name, function.scope(), function, function.name());
    return runBetweenServices(run, [&] { return transform.onFunction(function); });
}

bool runWatched(const Transform& transform, Scope& scope) {
    TransformRun run(++runCount, transform.name, scope, scope.name());
    return runBetweenServices(run, [&] { return transform.onScope(scope); });
}

} // namespace detail

std::span<const Transform> allTransforms() noexcept {
    return registry;
}

const Transform* transformNamed(std::string_view name) noexcept {
    const auto found = std::find_if(std::begin(registry), std::end(registry),
                                    [&](const Transform& row) { return row.name == name; });
    return found == std::end(registry) ? nullptr : found;
}

bool runTransformOnAll(const Transform& transform, Scope& scope) {
    if (transform.onScope != nullptr) {
        return runTransform(transform, scope);
    }
    bool changed = false;
    for (const auto& function : scope.functions()) {
        if (function->hasCfg()) {
            changed = runTransform(transform, *function) || changed;
        }
    }
    return changed;
}

} // namespace QN
