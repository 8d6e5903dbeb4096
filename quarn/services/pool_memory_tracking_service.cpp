// See the header. A leak or damage is reported in the run in which it comes up: what was there
// before the run is not its fault.
#include "services/open_runs.hpp"
#include "services/output_file.hpp"
#include "services/pool_checks.hpp"

#include <qn/console.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/scope.hpp>
#include <qn/testing_hooks.hpp>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

namespace QN {

namespace {

std::vector<detail::PoolFinding> leaksUnder(const TransformRun& run, bool detects) {
    const bool graphs = detects || TSFEAT_QUARNCfgPoolInternalLeakDetection->isOn();
    return graphs ? detail::findLeaks(run, graphs, detects) : std::vector<detail::PoolFinding>();
}

void report(const std::string& heading, const std::vector<detail::PoolFinding>& findings) {
    constexpr std::size_t shown = 10;
    if (findings.empty()) {
        return;
    }
    std::string text = heading + ":\n";
    for (std::size_t i = 0; i < std::min(findings.size(), shown); ++i) {
        text += "  " + findings[i].text + "\n";
    }
    if (findings.size() > shown) {
        text += "  and " + std::to_string(findings.size() - shown) + " more\n";
    }
    consoleWrite(text);
}

} // namespace

struct PoolMemoryTrackingService::State {
    detail::OpenRuns<std::vector<detail::PoolFinding>> openLeaks;
    // By the serial number of the scope: another one may come to lie at the same place.
    std::set<std::pair<std::uint64_t, detail::PoolFinding>> knownDamage;
    detail::LogFile file{"pool-memory"};

    void reportNewDamage(const TransformRun& run, const char* side) {
        std::vector<detail::PoolFinding> fresh;
        for (detail::PoolFinding& damage : detail::findDamage(run)) {
            if (knownDamage.emplace(run.scope().serial(), damage).second) {
                fresh.push_back(std::move(damage));
            }
        }
        report(std::string("Pool damage found ") + side + " " + run.tag(), fresh);
    }
};

PoolMemoryTrackingService::PoolMemoryTrackingService(bool before, bool after)
    : DebugService(before, after), state_(std::make_unique<State>()) {}

PoolMemoryTrackingService::~PoolMemoryTrackingService() = default;

void PoolMemoryTrackingService::setPoolStatsLevel(int level) noexcept {
    statsLevel_ = level >= 2 ? 2 : 1;
    settingChanged();
}

void PoolMemoryTrackingService::setCollectPoolStats(bool collect) noexcept {
    collectsStats_ = collect;
    settingChanged();
}

void PoolMemoryTrackingService::setPoolInternalLeakDetection(bool detect) noexcept {
    detectsLeaks_ = detect;
    settingChanged();
}

std::string PoolMemoryTrackingService::logFile() const {
    return state_->file.path();
}

void PoolMemoryTrackingService::resetPoolHighWaterMark() {
    mark_ = {};
    Pool::resetPeak();
    settingChanged();
}

void PoolMemoryTrackingService::noteMark(const TransformRun& run, const char* side) {
    const std::size_t peak = Pool::peakReserved();
    if (peak <= mark_.poolMaxAllocated()) {
        return;
    }
    mark_ = {side + std::to_string(run.id()), std::string(toString(run.scope().flavor())),
             std::string(run.transformName()), std::string(run.targetName()), peak};
}

void PoolMemoryTrackingService::prepass(TransformRun& run) {
    const bool before = wantsBefore(run);
    if (!before && !wantsAfter(run)) {
        return;
    }
    noteMark(run, "before run ");
    if (before && collectsStats_) {
        state_->file.append(detail::poolStatistics(run, "before", statsLevel_));
    }
    state_->openLeaks.open(run, leaksUnder(run, detectsLeaks_));
    state_->reportNewDamage(run, "before");
}

void PoolMemoryTrackingService::postpass(TransformRun& run) {
    const auto* const leaksBefore = state_->openLeaks.close(run);
    if (leaksBefore == nullptr) {
        return; // not selected, or switched on in the middle of this run
    }
    noteMark(run, Pool::totalReserved() == Pool::peakReserved() ? "after run " : "during run ");
    if (wantsAfter(run) && collectsStats_) {
        state_->file.append(detail::poolStatistics(run, "after ", statsLevel_));
    }
    const std::vector<detail::PoolFinding> leaks = leaksUnder(run, detectsLeaks_);
    std::vector<detail::PoolFinding> fresh;
    std::set_difference(leaks.begin(), leaks.end(), leaksBefore->begin(), leaksBefore->end(),
                        std::back_inserter(fresh));
    report("Pool leaks in " + run.tag(), fresh);
    state_->reportNewDamage(run, "after");
}

} // namespace QN
