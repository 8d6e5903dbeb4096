// Watches the memory of the pools around runs: their high-water mark, statistics, nodes that a
// transform has made and lost, and writes beside or into what is released.
//
// Records and canaries are put into pools by testing hooks when a pool is made (see
// testing_hooks.hpp); this service looks at what they show. Owner: whoever makes it.
#pragma once

#include <qn/debug_service.hpp>
#include <qn/pool_high_water_mark.hpp>

#include <memory>

namespace QN {

class PoolMemoryTrackingService : public DebugService {
public:
    /// With the sides that are requested from the start.
    PoolMemoryTrackingService(bool before, bool after);
    ~PoolMemoryTrackingService() override;

    /// 1, as at start: one line of totals for each run and side. 2: also a line for each kind of
    /// entity. Any other value is taken for the nearer of the two.
    [[nodiscard]] int poolStatsLevel() const noexcept { return statsLevel_; }
    void setPoolStatsLevel(int level) noexcept;

    /// Whether statistics are written, to a text file "pool-memory" in the debug log's folder; off
    /// at start.
    [[nodiscard]] bool collectPoolStats() const noexcept { return collectsStats_; }
    void setCollectPoolStats(bool collect) noexcept;

    /// Whether what a run allocates in pools that keep records, and leaves unreachable, is reported
    /// on the console; off at start. Pools of graphs, where nodes are, are also looked at while
    /// their own testing hook is on.
    [[nodiscard]] bool poolInternalLeakDetection() const noexcept { return detectsLeaks_; }
    void setPoolInternalLeakDetection(bool detect) noexcept;

    /// The highest mark at any requested side since the last reset.
    [[nodiscard]] const PoolHighWaterMark& poolHighWaterMark() const noexcept { return mark_; }
    /// Forgets the mark; the present state of the pools is where the next one starts from.
    void resetPoolHighWaterMark();

    /// The file that the last statistics went to; empty before the first.
    [[nodiscard]] std::string logFile() const;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    void noteMark(const TransformRun& run, const char* side);

    PoolHighWaterMark mark_;
    int statsLevel_ = 1;
    bool collectsStats_ = false;
    bool detectsLeaks_ = false;
    std::unique_ptr<State> state_;
};

} // namespace QN
