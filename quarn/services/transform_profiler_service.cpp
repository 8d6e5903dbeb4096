// See the header. What happens between the two readings of the clock is the transform and the
// services registered behind this one; everything else is done outside.
#include "services/open_runs.hpp"
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

} // namespace

struct TransformProfilerService::State {
    struct Start {
        std::uint64_t clock = 0;
        std::uint64_t pool = 0;
        std::uint32_t nodes = 0;
        std::uint8_t depth = 0;
    };

    detail::ProfileEvents events;
    detail::OpenRuns<Start> open;
    detail::FileWriter writer;
    std::uint64_t origin = 0;
    std::size_t dropped = 0;
    std::size_t emissions = 0;

    // Writes what is there to `destination`, of which `inserted` becomes a part if it is a file.
    void report(const std::string& destination, const std::string& inserted, bool numbering,
                bool tagFcns) {
        const detail::ProfileReport form{numbering, tagFcns, dropped + 1, origin};
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
    settingChanged();
}
void TransformProfilerService::setMemEventInterval(std::size_t events) noexcept {
    memoryInterval_ = events;
    settingChanged();
}

std::size_t TransformProfilerService::eventCount() const noexcept {
    return state_->dropped + state_->events.size();
}

void TransformProfilerService::dump() {
    state_->report(destination_, {}, recordNumbering_, tagFcnsWithLogId_);
}

void TransformProfilerService::emit() {
    State& state = *state_;
    state.report(destination_, '-' + std::to_string(++state.emissions), recordNumbering_,
                 tagFcnsWithLogId_);
    state.dropped += state.events.size();
    state.events.clear();
}

void TransformProfilerService::reset() {
    state_->events.clear();
    state_->open.clear();
    state_->origin = 0;
    state_->dropped = 0;
    state_->emissions = 0;
    settingChanged();
}

void TransformProfilerService::prepass(TransformRun& run) {
    if (!(requestedBefore() || requestedAfter()) || !selects(run)) {
        return;
    }
    State& state = *state_;
    State::Start& start = state.open.open(run);
    start.pool = Pool::totalReserved();
    start.nodes = static_cast<std::uint32_t>(detail::nodesUnder(run));
    start.depth = static_cast<std::uint8_t>(state.open.depth() - 1);
    start.clock = Timer::readClock();
    if (state.origin == 0) [[unlikely]] {
        state.origin = start.clock;
    }
}

void TransformProfilerService::postpass(TransformRun& run) {
    const std::uint64_t now = Timer::readClock();
    State& state = *state_;
    const State::Start* const start = state.open.close(run);
    if (start == nullptr) {
        return; // not selected, or switched on in the middle of this run
    }
    detail::ProfileEvent& event = state.events.add(run);
    event.run = run.id();
    event.start = start->clock;
    event.end = now;
    event.nodesBefore = start->nodes;
    event.nodesAfter = static_cast<std::uint32_t>(detail::nodesUnder(run));
    event.depth = start->depth;
    event.scopeRun = run.isScopeRun();
    event.outcome = run.outcome();
    const bool withMemory =
        memoryInterval_ == 1 || (memoryInterval_ != 0 && eventCount() % memoryInterval_ == 0);
    event.poolBefore = withMemory ? start->pool : detail::ProfileEvent::noMemory;
    event.poolAfter = withMemory ? Pool::totalReserved() : detail::ProfileEvent::noMemory;
    if (emitThreshold_ != 0 && state.events.size() >= emitThreshold_) [[unlikely]] {
        emit();
    }
}

} // namespace QN
