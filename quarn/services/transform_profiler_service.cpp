// See the header. What happens between the two readings of the clock is the transform and the
// services registered behind this one; everything else is done outside, but for the few stores of
// an event where two runs share a reading.
#include "services/output_file.hpp"
#include "services/profile_events.hpp"
#include "services/run_facts.hpp"

#include <qn/assertion.hpp>
#include <qn/console.hpp>
#include <qn/default_services.hpp>
#include <qn/run_sequence.hpp>
#include <qn/timer.hpp>
#include <qn/transform.hpp>
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

// Whether the destination is there and is no file that a report would replace, such as a pipe.
bool takesEverythingIn(const std::filesystem::path& destination) {
    std::error_code none;
    return std::filesystem::is_other(std::filesystem::status(destination, none));
}

detail::ProfiledRun described(std::uint64_t id, const Transform& transform,
                              const Function& function, RunOutcome outcome) noexcept {
    return {id, transform.name, function.name(), function.scope().serial(), false, outcome};
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
        } else if (!inserted.empty() && !takesEverythingIn(path)) {
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

void TransformProfilerService::prepass(TransformRun& run) {
    if (!(requestedBefore() || requestedAfter()) || !selects(run)) {
        return;
    }
    detail::ProfileEvents& events = state_->events;
    if (!events.hasRoom()) {
        events.grow();
    }
    detail::ProfileEvent& event = events.begin(run.id(), detail::nodesUnder(run));
    event.start = Timer::readClock();
}

void TransformProfilerService::postpass(TransformRun& run) {
    const std::uint64_t now = Timer::readClock();
    end(detail::ProfiledRun::of(run), now, detail::nodesUnder(run));
}

[[gnu::always_inline]] inline bool TransformProfilerService::end(const detail::ProfiledRun& run,
                                                                 std::uint64_t now,
                                                                 std::size_t nodes) {
    detail::ProfileEvents& events = state_->events;
    bool isQuick = true;
    if (!events.canEnd(run)) [[unlikely]] {
        if (!events.prepareToEnd(run.id, run.target, run.scope)) {
            return false; // not selected, or switched on in the middle of this run
        }
        isQuick = false;
    }
    detail::ProfileEvent& event = events.end(run, now, nodes);
    if (memoryInterval_ != 1 && (memoryInterval_ == 0 || events.total() % memoryInterval_ != 0))
        [[unlikely]] {
        event.poolBefore = detail::ProfileEvent::noMemory;
        event.poolAfter = detail::ProfileEvent::noMemory;
    }
    if (emitThreshold_ != 0 && events.size() >= emitThreshold_) [[unlikely]] {
        emit();
        isQuick = false;
    }
    return isQuick;
}

// Records what the hooks would, without the description of the run that they are shown. What they
// do besides, such as making room, is left to them.
bool TransformProfilerService::runAlone(const Transform& transform, Function& function,
                                        RunSequence& sequence) {
    detail::ProfileEvents& events = state_->events;
    if (!isRequestedUnfiltered() || !selectsScope(function.scope()) || !function.hasCfg() ||
        !events.hasRoom()) [[unlikely]] {
        return DebugService::runAlone(transform, function, sequence);
    }
    // A service that leaves while the transform acts must not be looked at afterwards.
    DebugServices& services = DefaultServices::debugServices();
    const std::uint64_t generation = services.generation();
    const auto isHere = [&] { return services.generation() == generation || services.holds(this); };
    const std::uint64_t id = services.nextRunId();
    detail::ProfileEvent& event = events.begin(id, function.cfg().numNodes());
    const std::uint64_t endOfLast = sequence.takeEndOfLast();
    bool changed = false;
    try {
        event.start = endOfLast != 0 ? endOfLast : Timer::readClock();
        changed = transform.onFunction(function);
    } catch (...) {
        const std::uint64_t now = Timer::readClock();
        if (isHere()) {
            endFailed(id, transform, function, now);
        }
        throw;
    }
    const std::uint64_t now = Timer::readClock();
    if (isHere()) [[likely]] {
        if (end(described(id, transform, function,
                          changed ? RunOutcome::Changed : RunOutcome::Unchanged),
                now, function.hasCfg() ? function.cfg().numNodes() : 0)) [[likely]] {
            sequence.noteEnd(now);
        }
    }
    return changed;
}

// Another error is on its way, and one of recording must not take its place.
void TransformProfilerService::endFailed(std::uint64_t id, const Transform& transform,
                                         const Function& function, std::uint64_t now) noexcept {
    try {
        end(described(id, transform, function, RunOutcome::Failed), now,
            function.hasCfg() ? function.cfg().numNodes() : 0);
    } catch (...) {
        try {
            client_assertion_failed(__FILE__, __LINE__, "a failed run was not recorded");
        } catch (...) { // a handler that throws has nowhere to throw to
        }
    }
}

} // namespace QN
