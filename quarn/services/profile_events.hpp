// The events of the transform profiler and the forms of its report.
//
// Recording an event is a part of the cost of every run that is profiled, so it copies nothing: the
// name of a transform lives as long as the process, and each target's name is copied once and then
// found again by its place. Owner: the service.
#pragma once

#include <qn/scope.hpp>
#include <qn/transform_run.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace QN::detail {

struct ProfileEvent {
    static constexpr std::uint64_t noMemory = ~std::uint64_t{0};

    std::uint64_t run;
    std::uint64_t start; // ticks of the timers' clock
    std::uint64_t end;
    std::uint64_t poolBefore; // bytes of all pools
    std::uint64_t poolAfter;
    std::string_view transform;
    std::uint64_t target; // where its name begins in ProfileEvents
    std::uint32_t nodesBefore;
    std::uint32_t nodesAfter;
    std::uint32_t targetLength;
    std::uint8_t depth; // runs around this one
    bool scopeRun;
    RunOutcome outcome;
};

class ProfileEvents {
public:
    /// Adds an event that has its names from `run`; the caller fills in all the rest.
    ProfileEvent& add(const TransformRun& run) {
        const std::string_view name = run.targetName();
        const std::uint64_t scope = run.scope().serial();
        const KnownName& known =
            known_[(reinterpret_cast<std::uintptr_t>(name.data()) >> 3) % knownNames];
        const std::uint64_t target = known.scope == scope && known.name.data() == name.data() &&
                                             known.name.size() == name.size()
                                         ? known.place
                                         : learn(name, scope);
        if (count_ == room_) [[unlikely]] {
            grow();
        }
        ProfileEvent& event = events_[count_++];
        event.transform = run.transformName();
        event.target = target;
        event.targetLength = static_cast<std::uint32_t>(name.size());
        return event;
    }
    void clear();

    [[nodiscard]] std::span<const ProfileEvent> all() const noexcept {
        return {events_.get(), count_};
    }
    [[nodiscard]] std::size_t size() const noexcept { return count_; }
    [[nodiscard]] std::string_view targetOf(const ProfileEvent& event) const noexcept {
        return std::string_view(names_).substr(event.target, event.targetLength);
    }

private:
    // A name lies in the pool of its scope, which never uses memory again, and no two scopes have
    // the same serial number: so place and number together stand for the text.
    struct KnownName {
        std::uint64_t scope = 0;
        std::string_view name;
        std::uint64_t place = 0;
    };
    static constexpr std::size_t knownNames = 1024;

    std::uint64_t learn(std::string_view name, std::uint64_t scope);

    void grow();

    // Not a vector, which would clear each event before it is filled.
    std::unique_ptr<ProfileEvent[]> events_;
    std::size_t count_ = 0;
    std::size_t room_ = 0;
    std::string names_;
    std::array<KnownName, knownNames> known_;
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
