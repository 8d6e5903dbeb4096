// See the header. What happens between the two readings of the clock is the transform and the
// services registered behind this one; everything else is done outside.
#include "services/output_file.hpp"
#include "services/profile_events.hpp"
#include "services/run_facts.hpp"

#include <qn/console.hpp>
#include <qn/default_services.hpp>
#include <qn/timer.hpp>
#include <qn/transform_profiler_service.hpp>
#include <ts/debug_log.hpp>

#include <filesystem>

namespace QN {

namespace {

std::string reportIn(const std::string& ending, const detail::ProfileEvents& events,
                     const detail::ProfileReport& report) {
    if (ending == ".json") {
        return detail::profileTrace(events, report);
    }
    if (ending == ".csv") {
        return detail::profileCsv(events, report);
    }
    return detail::profileTable(events, report);
}

[[gnu::noinline]] void startByMonotonicClock(detail::ProfileEvent& event) noexcept {
    event.start = detail::monotonicTicks();
}

} // namespace

struct TransformProfilerService::State {
    detail::ProfileEvents events;
    detail::FileWriter writer;
    std::size_t emissions = 0;

    // Writes what is there to `destination`, of which `inserted` becomes a part if it is a file.
    void report(const std::string& destination, const std::string& inserted, bool numbering,
                bool tagFcns) {
        const detail::ProfileReport form{numbering, tagFcns, events.total() - events.size() + 1,
                                         events.origin()};
        if (destination == "console") {
            consoleWrite(detail::profileTable(events, form));
            return;
        }
        std::filesystem::path path = destination;
        if (destination.empty()) {
            path =
                DefaultServices::debugServices().debugLog().logFilePath("transform-profile", "txt");
        } else if (!inserted.empty()) {
            path.replace_filename(path.stem().string() + inserted + path.extension().string());
        }
        writer.write(path.string(), reportIn(path.extension().string(), events, form));
    }
};

TransformProfilerService::TransformProfilerService(bool before, bool after)
    : DebugService(before, after), state_(std::make_unique<State>()) {}

TransformProfilerService::~TransformProfilerService() = default;

void TransformProfilerService::setDumpDestination(const std::string& destination) {
    destination_ = destination;
    settingChanged();
}
void TransformProfilerService::setRecordNumbering(bool numbering) noexcept {
    recordNumbering_ = numbering;
    settingChanged();
}
void TransformProfilerService::setTagFcnsWithLogId(bool tag) noexcept {
    tagFcnsWithLogId_ = tag;
    settingChanged();
}
void TransformProfilerService::setEventEmitThreshold(std::size_t events) noexcept {
    emitThreshold_ = events;
    noteWhatEndsDo();
    settingChanged();
}
void TransformProfilerService::setMemEventInterval(std::size_t events) noexcept {
    memoryInterval_ = events;
    noteWhatEndsDo();
    settingChanged();
}

std::size_t TransformProfilerService::eventCount() const noexcept {
    return state_->events.total();
}

void TransformProfilerService::dump() {
    state_->report(destination_, {}, recordNumbering_, tagFcnsWithLogId_);
}

void TransformProfilerService::emit() {
    State& state = *state_;
    state.report(destination_, '-' + std::to_string(++state.emissions), recordNumbering_,
                 tagFcnsWithLogId_);
    state.events.drop();
}

void TransformProfilerService::reset() {
    state_->events.reset();
    state_->emissions = 0;
    settingChanged();
}

// Each hook has a short way for the usual case: it calls nothing, or at its end, and so gets by
// with the registers that are free anyway. What is rare is done by a function of its own that is
// right in any case.
void TransformProfilerService::prepass(TransformRun& run) {
    detail::ProfileEvents& events = state_->events;
    const Function* const function = run.function();
    if (!isRequestedUnfiltered() || !selectsScopeOf(run) || function == nullptr ||
        !function->hasCfg() || !events.hasRoom()) [[unlikely]] {
        beginInAnyCase(run);
        return;
    }
    detail::ProfileEvent& event = events.begin(run, function->cfg().numNodes());
    if (!detail::timersUseCounter) [[unlikely]] {
        startByMonotonicClock(event);
        return;
    }
    event.start = detail::counterTicks();
}

void TransformProfilerService::beginInAnyCase(const TransformRun& run) {
    if (!(requestedBefore() || requestedAfter()) || !selects(run)) {
        return;
    }
    detail::ProfileEvents& events = state_->events;
    if (!events.hasRoom()) {
        events.grow();
    }
    detail::ProfileEvent& event = events.begin(run, detail::nodesUnder(run));
    event.start = Timer::readClock();
}

void TransformProfilerService::postpass(TransformRun& run) {
    if (!detail::timersUseCounter) [[unlikely]] {
        endByMonotonicClock(run);
        return;
    }
    end(run, detail::counterTicks());
}

void TransformProfilerService::endByMonotonicClock(const TransformRun& run) {
    end(run, detail::monotonicTicks());
}

inline void TransformProfilerService::end(const TransformRun& run, std::uint64_t now) {
    detail::ProfileEvents& events = state_->events;
    const Function* const function = run.function();
    if (!endsAsUsual_ || function == nullptr || !function->hasCfg() || !events.canEnd(run))
        [[unlikely]] {
        endInAnyCase(run, now);
        return;
    }
    events.end(run, now, function->cfg().numNodes());
}

void TransformProfilerService::endInAnyCase(const TransformRun& run, std::uint64_t now) {
    detail::ProfileEvents& events = state_->events;
    if (!events.canEnd(run) && !events.prepareToEnd(run)) {
        return; // not selected, or switched on in the middle of this run
    }
    detail::ProfileEvent& event = events.end(run, now, detail::nodesUnder(run));
    if (memoryInterval_ != 1 && (memoryInterval_ == 0 || events.total() % memoryInterval_ != 0)) {
        event.poolBefore = detail::ProfileEvent::noMemory;
        event.poolAfter = detail::ProfileEvent::noMemory;
    }
    if (emitThreshold_ != 0 && events.size() >= emitThreshold_) {
        emit();
    }
}

} // namespace QN
