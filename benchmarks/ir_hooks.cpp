// The groups `hooks` and `timers`: what stands around each run of a transform, and what measuring
// time costs.
#include "groups.hpp"
#include "ir_workload.hpp"
#include "peers/llvm.hpp"

#include <qn/collect_statistics_service.hpp>
#include <qn/ir.hpp>
#include <qn/timer.hpp>
#include <qn/transform.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>

#include <memory>
#include <string>
#include <utility>

namespace bench {
namespace {

bool doNothing(QN::Function& function) {
    keep(&function);
    return false;
}

/// A scope with one function, and a transform that does nothing to it. The transform's address goes
/// through memory, as in the registry.
struct Runs {
    Runs() { QN::Builder(function.cfg(), function.cfg().addBlock()).ret(); }
    QN::Scope scope{QN::ScopeFlavor::Unit, "unit"};
    QN::Function& function = *scope.addFunction("f", QN::Type::voidType());
    QN::Transform transform{"nothing", "does nothing", doNothing, nullptr};
};

/// The same with as many functions as there are runs in a repetition, for runs of one transform
/// over all of them, one right behind the other, as the pipeline runs its stages.
struct Sequence {
    Sequence() {
        for (std::size_t i = 0; i < passesPerRepetition; ++i) {
            QN::Function& made = *scope.addFunction("f" + std::to_string(i), QN::Type::voidType());
            QN::Builder(made.cfg(), made.cfg().addBlock()).ret();
        }
    }
    QN::Scope scope{QN::ScopeFlavor::Unit, "unit"};
    QN::Transform transform{"nothing", "does nothing", doNothing, nullptr};
};

void runAll(const Runs& runs) {
    for (std::size_t i = 0; i < passesPerRepetition; ++i) {
        keep(runs.transform);
        QN::runTransform(runs.transform, runs.function);
    }
}
void runAll(Sequence& runs) {
    keep(runs.transform);
    QN::runTransformOnAll(runs.transform, runs.scope);
}

/// What is there while transforms run: services, on the counter or the monotonic clock.
template <typename What = Runs, typename Service>
LoopMaker runsWith(std::shared_ptr<Service> (*make)(), bool monotonic = false) {
    return [make, monotonic]() -> Loop {
        const auto runs = std::make_shared<What>();
        // Services register themselves, so one that is there for other loops would be in the way:
        // it comes before a batch and goes behind it.
        return [make, runs, monotonic](std::size_t count) {
            const std::shared_ptr<Service> service = make();
            const bool counter = std::exchange(QN::detail::timersUseCounter,
                                               QN::detail::timersUseCounter && !monotonic);
            for (; count != 0; --count) {
                runAll(*runs);
                if constexpr (requires { service->eventCount(); }) {
                    if (service->eventCount() >= 4096) {
                        service->reset();
                    }
                }
            }
            QN::detail::timersUseCounter = counter;
        };
    };
}

struct NoService {};

struct EmptyService : QN::Service {
    EmptyService() { QN::DefaultServices::debugServices().addService(this); }
    void prepass(QN::TransformRun& run) override { keep(&run); }
    void postpass(QN::TransformRun& run) override { keep(&run); }
};

template <typename Service>
std::shared_ptr<Service> make() {
    return std::make_shared<Service>();
}

std::shared_ptr<QN::CollectStatisticsService> makeStatistics() {
    const auto service = std::make_shared<QN::CollectStatisticsService>();
    QN::DefaultServices::debugServices().addService(service.get());
    return service;
}

std::shared_ptr<QN::TransformProfilerService> makeProfiler() {
    return std::make_shared<QN::TransformProfilerService>(true, true);
}

Loop transformAlone() {
    const auto runs = std::make_shared<Runs>();
    return repeat([runs] {
        for (std::size_t i = 0; i < passesPerRepetition; ++i) {
            keep(runs->transform);
            runs->transform.onFunction(runs->function);
        }
    });
}

Loop inARowAlone() {
    const auto runs = std::make_shared<Sequence>();
    return repeat([runs] {
        for (const auto& function : runs->scope.functions()) {
            keep(runs->transform);
            runs->transform.onFunction(*function);
        }
    });
}

template <typename Read>
LoopMaker readsTwice(Read read) {
    return [read] {
        return repeat([read] {
            const std::uint64_t start = read();
            keep(read() - start);
        });
    };
}

LoopMaker startsAndStops(bool monotonic) {
    return [monotonic]() -> Loop {
        const auto timer = std::make_shared<QN::Timer>("benchmark");
        return [timer, monotonic](std::size_t count) {
            const bool counter = std::exchange(QN::detail::timersUseCounter,
                                               QN::detail::timersUseCounter && !monotonic);
            for (; count != 0; --count) {
                timer->start();
                timer->stop();
                keep(*timer);
            }
            QN::detail::timersUseCounter = counter;
        };
    };
}

} // namespace

Group buildHooks() {
    Group group;
    group.subjects = {"quarn", "LLVM 19"};
    const auto peer = [](LlvmHooks hooks) { return [hooks] { return llvmPasses(hooks); }; };
    group.rows = {
        {.operation = "the transform alone",
         .makers = {transformAlone, peer(LlvmHooks::passAlone)}},
        {.operation = "through the funnel, no service",
         .makers = {runsWith(make<NoService>), peer(LlvmHooks::none)}},
        {.operation = "the transform log there, but off",
         .makers = {runsWith(make<QN::TransformLogService>), LoopMaker()}},
        {.operation = "hooks that do nothing",
         .makers = {runsWith(make<EmptyService>), peer(LlvmHooks::empty)}},
        {.operation = "statistics", .makers = {runsWith(makeStatistics), LoopMaker()}},
        {.operation = "time, processor counter",
         .makers = {runsWith(makeProfiler), peer(LlvmHooks::timing)}},
        {.operation = "time, monotonic clock",
         .makers = {runsWith(makeProfiler, true), peer(LlvmHooks::timing)}},
        {.operation = "in a row, the transform alone",
         .makers = {inARowAlone, peer(LlvmHooks::passAlone)}},
        {.operation = "in a row, no service",
         .makers = {runsWith<Sequence>(make<NoService>), peer(LlvmHooks::none)}},
        {.operation = "in a row, time, processor counter",
         .makers = {runsWith<Sequence>(makeProfiler), peer(LlvmHooks::timing)}},
        {.operation = "in a row, time, monotonic clock",
         .makers = {runsWith<Sequence>(makeProfiler, true), peer(LlvmHooks::timing)}},
    };
    for (Row& row : group.rows) {
        row.units = static_cast<double>(passesPerRepetition);
    }
    return group;
}

Group buildTimers() {
    Group group;
    group.subjects = {"two reads of the clock", "quarn", "LLVM 19"};
    group.rows = {
        {.operation = "start and stop, processor counter",
         .makers = {readsTwice([] { return QN::detail::counterTicks(); }), startsAndStops(false),
                    llvmTimer}},
        {.operation = "start and stop, monotonic clock",
         .makers = {readsTwice([] { return QN::detail::monotonicTicks(); }), startsAndStops(true),
                    llvmTimer}},
    };
    return group;
}

} // namespace bench
