// See the header. A line looks like this, its columns separated by blanks:
//        12 constant-folding-fcn_mandel              18.250 us      120 ->      112 changed
#include "services/open_runs.hpp"
#include "services/output_file.hpp"
#include "services/run_facts.hpp"

#include <qn/timer.hpp>
#include <qn/transform_log_service.hpp>

#include <cstdio>

namespace QN {

struct TransformLogService::State {
    struct Start {
        std::size_t nodes = 0;
        std::uint64_t clock = 0;
    };
    detail::OpenRuns<Start> open;
    detail::LogFile file{"transform-log"};
};

namespace {

const char* nameOf(RunOutcome outcome) noexcept {
    switch (outcome) {
    case RunOutcome::Changed:
        return "changed";
    case RunOutcome::Failed:
        return "failed";
    default:
        return "unchanged";
    }
}

} // namespace

TransformLogService::TransformLogService()
    : DebugService(true, true), state_(std::make_unique<State>()) {
    setRequestedGlobalScope(true);
    setIdle(true);
}

TransformLogService::~TransformLogService() = default;

void TransformLogService::setEnable(bool enable) {
    if (enable != enabled_) {
        enabled_ = enable;
        setIdle(!enable);
        state_->open.clear();
        settingChanged();
    }
}

std::string TransformLogService::logFile() const {
    return state_->file.path();
}

void TransformLogService::prepass(TransformRun& run) {
    if (wantsBefore(run)) {
        const std::size_t nodes = detail::nodesUnder(run);
        state_->open.open(run, {nodes, Timer::readClock()});
    }
}

void TransformLogService::postpass(TransformRun& run) {
    if (!wantsAfter(run)) {
        return;
    }
    const std::uint64_t now = Timer::readClock();
    const State::Start* const start = state_->open.close(run);
    if (start == nullptr) {
        return; // switched on in the middle of this run
    }
    const double microseconds =
        1e6 * static_cast<double>(now - start->clock) * Timer::secondsPerTick();
    char number[32];
    char rest[96];
    std::snprintf(number, sizeof number, "%8llu ", static_cast<unsigned long long>(run.id()));
    std::snprintf(rest, sizeof rest, " %12.3f us %8zu -> %8zu %s\n", microseconds, start->nodes,
                  detail::nodesUnder(run), nameOf(run.outcome()));
    std::string line = number + run.tag();
    constexpr std::size_t tagColumns = 40;
    if (line.size() < 9 + tagColumns) {
        line.resize(9 + tagColumns, ' ');
    }
    state_->file.append(line + rest);
}

} // namespace QN
