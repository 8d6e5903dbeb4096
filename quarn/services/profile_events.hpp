// The events of the transform profiler and the forms of its report.
//
// Recording copies the names of an event behind each other into one growing text, so that an event
// costs no allocation of its own. Owner: the service.
#pragma once

#include <qn/transform_run.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace QN::detail {

struct ProfileEvent {
    static constexpr std::uint64_t noMemory = ~std::uint64_t{0};

    std::uint64_t run = 0;
    std::uint64_t start = 0; // ticks of the timers' clock
    std::uint64_t end = 0;
    std::uint64_t poolBefore = noMemory; // bytes of all pools
    std::uint64_t poolAfter = noMemory;
    std::uint64_t names = 0; // where the two names lie in ProfileEvents
    std::uint32_t nodesBefore = 0;
    std::uint32_t nodesAfter = 0;
    std::uint16_t transformLength = 0;
    std::uint16_t targetLength = 0;
    std::uint8_t depth = 0; // runs around this one
    bool scopeRun = false;
    RunOutcome outcome = RunOutcome::Unchanged;
};

class ProfileEvents {
public:
    /// Adds `event`, which takes its names from `run`.
    void add(ProfileEvent event, const TransformRun& run);
    void clear();

    [[nodiscard]] const std::vector<ProfileEvent>& all() const noexcept { return events_; }
    [[nodiscard]] std::string_view transformOf(const ProfileEvent& event) const noexcept {
        return std::string_view(names_).substr(event.names, event.transformLength);
    }
    [[nodiscard]] std::string_view targetOf(const ProfileEvent& event) const noexcept {
        return std::string_view(names_).substr(event.names + event.transformLength,
                                               event.targetLength);
    }

private:
    std::vector<ProfileEvent> events_;
    std::string names_;
};

struct ProfileReport {
    bool recordNumbering = true;
    bool tagFcnsWithLogId = false;
    /// Number of the first record.
    std::uint64_t firstRecord = 1;
    /// The moment that is zero in the report.
    std::uint64_t origin = 0;
};

/// All events in the order in which the runs ended, then a sum for each transform.
[[nodiscard]] std::string profileTable(const ProfileEvents& events, const ProfileReport& report);
/// One line per event behind a line of headings.
[[nodiscard]] std::string profileCsv(const ProfileEvents& events, const ProfileReport& report);
/// The trace-event format: one complete event per run, a counter for the pools.
[[nodiscard]] std::string profileTrace(const ProfileEvents& events, const ProfileReport& report);

} // namespace QN::detail
