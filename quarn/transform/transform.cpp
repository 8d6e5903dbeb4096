// The registry of transforms and the watched half of the funnel.
#include "transform/transforms.hpp"

#include <qn/assertion.hpp>
#include <qn/scope.hpp>
#include <qn/transform.hpp>
#include <qn/transform_run.hpp>

#include <algorithm>
#include <memory>

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

[[noreturn, gnu::cold, gnu::noinline]] void stop(const TransformRun& run) {
    throw CompilationStopped(std::string(run.stopReason()));
}

inline void stopIfRequested(const TransformRun& run) {
    if (run.stopRequested()) [[unlikely]] {
        stop(run);
    }
}

} // namespace

// Calls prepass() before a run and postpass() after it, once for each prepass() that returned, also
// if an error passes through. The services' slots keep their places meanwhile, so a service that
// leaves is left out, one that comes before the transform acts is called too, and a later one
// waits. How far the hooks have come is a local variable, which stays in a register; an object
// whose destructor closes them would be kept in memory for the case of an error.
class ServiceBracket {
public:
    template <typename Act>
    static bool around(ServiceContainer& container, TransformRun& run, Act act) {
        const ServiceContainer::Walk walk(container);
        std::size_t opened = 0;
        bool changed = false;
        try {
            do { // somebody is awake
                if (Service* const service = container.slots_[opened]; service != nullptr)
                    [[likely]] {
                    service->prepass(run);
                }
            } while (isSlot(container, ++opened));
            stopIfRequested(run);
            changed = act();
            run.setOutcome(changed ? RunOutcome::Changed : RunOutcome::Unchanged);
            close(container, run, opened);
        } catch (...) {
            closeAfterError(container, run, opened);
            throw;
        }
        stopIfRequested(run);
        return changed;
    }

private:
    // Compares places, as a size would have to be computed from them.
    static bool isSlot(const ServiceContainer& container, std::size_t index) noexcept {
        return container.slots_.data() + index != std::to_address(container.slots_.end());
    }

    static void close(ServiceContainer& container, TransformRun& run, std::size_t& opened) {
        do {
            if (Service* const service = container.slots_[--opened]; service != nullptr)
                [[likely]] {
                service->postpass(run);
            }
        } while (opened > 0);
    }

    // Another error is on its way; one of a hook must not take its place.
    [[gnu::cold, gnu::noinline]] static void
    closeAfterError(ServiceContainer& container, TransformRun& run, std::size_t opened) noexcept {
        if (opened > 0) {
            run.setOutcome(RunOutcome::Failed);
        }
        while (opened > 0) {
            try {
                close(container, run, opened);
            } catch (...) {
                try {
                    client_assertion_failed(__FILE__, __LINE__, "a postpass hook failed");
                } catch (...) { // a handler that throws has nowhere to throw to
                }
            }
        }
    }
};

bool Service::runAlone(const Transform& transform, Function& function, RunSequence& sequence) {
    sequence.forget();
    return detail::runBetweenHooks(transform, function);
}

namespace detail {

bool runWatched(const Transform& transform, Function& function, RunSequence& sequence) {
    if (Service* const service = DefaultServices::debugServices().onlyAwake(); service != nullptr) {
        return service->runAlone(transform, function, sequence);
    }
    sequence.forget();
    return runBetweenHooks(transform, function);
}

bool runBetweenHooks(const Transform& transform, Function& function) {
    DebugServices& services = DefaultServices::debugServices();
    TransformRun run(services.nextRunId(), transform.name, function.scope(), function,
                     function.name());
    return ServiceBracket::around(services, run, [&] { return transform.onFunction(function); });
}

bool runWatched(const Transform& transform, Scope& scope) {
    DebugServices& services = DefaultServices::debugServices();
    TransformRun run(services.nextRunId(), transform.name, scope, scope.name());
    return ServiceBracket::around(services, run, [&] { return transform.onScope(scope); });
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

bool runTransformOnAll(const Transform& transform, Scope& scope, RunSequence& sequence) {
    if (transform.onScope != nullptr) {
        sequence.forget();
        return runTransform(transform, scope);
    }
    bool changed = false;
    for (const auto& function : scope.functions()) {
        if (function->hasCfg()) {
            changed = runTransform(transform, *function, sequence) || changed;
        }
    }
    return changed;
}

bool runTransformOnAll(const Transform& transform, Scope& scope) {
    RunSequence sequence;
    return runTransformOnAll(transform, scope, sequence);
}

} // namespace QN
