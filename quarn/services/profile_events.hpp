// The events of the transform profiler and the forms of its report.
//
// Recording an event is a part of the cost of every run that is profiled, so it copies nothing and
// derives nothing: the name of a transform lives as long as the process, each target's name is
// copied once and then found again by its place, and depth and order are told from links when
// somebody reads. Events lie in chunks of the pools' region, so that more of them move none and new
// ones find pages that are there already. Owner: the service; one thread only.
#pragma once

#include <qn/pool.hpp>
#include <qn/scope.hpp>
#include <qn/transform_run.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN::detail {

/// One run. It fills one cache line: events are written one behind the other.
struct alignas(64) ProfileEvent {
    /// Pools hold whole units of this many bytes, and less than 2^32 of them.
    static constexpr std::uint64_t poolUnit = 1024;
    static constexpr std::uint32_t noMemory = ~std::uint32_t{0};

    // Known at the start.
    std::uint64_t run;
    std::uint64_t start; // ticks of the timers' clock
    std::uint32_t outer; // place of the event of the run around this one, or ProfileEvents::none
    std::uint32_t poolBefore; // units of all pools
    std::uint32_t nodesBefore;
    std::uint32_t ended; // place in the order of ends, counted from 1; 0 for a run under way
    // Known at the end.
    std::uint64_t end;
    const char* transform; // its name
    std::uint32_t poolAfter;
    std::uint32_t nodesAfter;
    std::uint32_t target; // number of its name in ProfileEvents
    std::uint16_t transformLength;
    bool scopeRun;
    RunOutcome outcome;

    [[nodiscard]] std::string_view transformName() const noexcept {
        return {transform, transformLength};
    }
    [[nodiscard]] std::uint64_t poolBytesBefore() const noexcept { return poolBefore * poolUnit; }
    [[nodiscard]] std::uint64_t poolBytesAfter() const noexcept { return poolAfter * poolUnit; }
};
static_assert(sizeof(ProfileEvent) == 64);

/// What an event holds of a run, apart from its measurements.
struct ProfiledRun {
    std::uint64_t id;
    std::string_view transform;
    std::string_view target;
    std::uint64_t scope; // the serial number of its scope
    bool overScope;
    RunOutcome outcome;

    static ProfiledRun of(const TransformRun& run) noexcept {
        return {run.id(),         run.transformName(), run.targetName(), run.scope().serial(),
                run.isScopeRun(), run.outcome()};
    }
};

class ProfileEvents {
public:
    static constexpr std::uint32_t none = ~std::uint32_t{0};

    ProfileEvents();
    ProfileEvents(const ProfileEvents&) = delete;
    ProfileEvents& operator=(const ProfileEvents&) = delete;
    ~ProfileEvents();

    /// Whether begin() needs no memory.
    [[nodiscard]] bool hasRoom() const noexcept { return next_ != chunkEnd_; }
    /// Makes hasRoom() true. Throws std::bad_alloc, and then nothing has changed.
    void grow();

    /// Begins a run inside those that are under way, if there is room. The caller notes its start.
    ProfileEvent& begin(std::uint64_t run, std::size_t nodes) noexcept {
        ProfileEvent& event = *next_++;
        event.run = run;
        event.outer = innermost_;
        event.poolBefore = poolUnits();
        event.nodesBefore = static_cast<std::uint32_t>(nodes);
        event.ended = 0;
        innermost_ = count_++;
        innermostEvent_ = &event;
        return event;
    }

    /// Whether `run` began last of those under way and its target's name is known.
    [[nodiscard]] bool canEnd(const ProfiledRun& run) const noexcept {
        const KnownName& known = known_[placeOf(run.target)];
        return innermostEvent_ != nullptr && innermostEvent_->run == run.id &&
               known.name == run.target.data() && known.scope == run.scope;
    }
    /// Makes canEnd() true for the run of that number: runs inside it that never ended are given
    /// up, and its target's name becomes known. False if it is not under way here.
    bool prepareToEnd(std::uint64_t run, std::string_view target, std::uint64_t scope);

    /// Ends the innermost run.
    ProfileEvent& end(const ProfiledRun& run, std::uint64_t now, std::size_t nodes) noexcept {
        ProfileEvent& event = *innermostEvent_;
        setInnermost(event.outer);
        event.ended = ++ended_;
        event.end = now;
        event.transform = run.transform.data();
        event.transformLength = static_cast<std::uint16_t>(run.transform.size());
        event.poolAfter = poolUnits();
        event.nodesAfter = static_cast<std::uint32_t>(nodes);
        event.target = known_[placeOf(run.target)].number;
        event.scopeRun = run.overScope;
        event.outcome = run.outcome;
        return event;
    }

    /// The moment at which the first run since reset() began, 0 if there was none.
    [[nodiscard]] std::uint64_t origin() const noexcept;
    /// Runs that have ended: since drop(), and since reset().
    [[nodiscard]] std::size_t size() const noexcept { return ended_; }
    [[nodiscard]] std::size_t total() const noexcept { return dropped_ + ended_; }

    struct Ended {
        const ProfileEvent* event;
        std::uint32_t depth; // number of runs around it
    };
    /// Those since drop(), in the order in which they ended.
    [[nodiscard]] std::vector<Ended> inOrder() const;
    [[nodiscard]] std::string_view targetOf(const ProfileEvent& event) const noexcept {
        return names_[event.target];
    }

    /// Forgets the runs that have ended, and their names if they are many.
    void drop();
    /// Forgets all runs.
    void reset();

private:
    // A name lies in the pool of its scope, which never uses memory again, and no two scopes have
    // the same serial number: so place and number together stand for the text.
    struct alignas(32) KnownName {
        std::uint64_t scope = 0;
        const char* name = nullptr;
        std::uint32_t number = 0;
    };
    static constexpr std::size_t knownNames = 1024;
    static constexpr std::uint32_t chunkEvents = 1024;

    [[nodiscard]] static std::uint32_t poolUnits() noexcept {
        return static_cast<std::uint32_t>(Pool::totalReserved() / ProfileEvent::poolUnit);
    }
    [[nodiscard]] static std::size_t placeOf(std::string_view name) noexcept {
        return (reinterpret_cast<std::uintptr_t>(name.data()) >> 3) % knownNames;
    }
    [[nodiscard]] ProfileEvent& at(std::uint32_t place) const noexcept {
        return chunks_[place / chunkEvents][place % chunkEvents];
    }
    void setInnermost(std::uint32_t place) noexcept {
        innermost_ = place;
        innermostEvent_ = place == none ? nullptr : &at(place);
    }
    void goTo(std::uint32_t place) noexcept;
    void learn(std::string_view name, std::uint64_t scope);
    void forgetManyNames();

    std::vector<ProfileEvent*> chunks_;
    ProfileEvent* next_ = nullptr;
    ProfileEvent* chunkEnd_ = nullptr; // of the chunk of next_
    std::uint32_t count_ = 0;          // of events that have begun
    std::uint32_t innermost_ = none;   // place of the run under way that began last
    ProfileEvent* innermostEvent_ = nullptr;
    std::uint32_t ended_ = 0;
    std::size_t dropped_ = 0;
    std::uint64_t origin_ = 0; // noted by drop()
    std::vector<std::string> names_;
    std::span<KnownName, knownNames> known_;
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
