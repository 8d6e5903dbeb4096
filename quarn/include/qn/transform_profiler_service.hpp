// The transform activity monitor: one event per run of a transform with its time, nodes and pool
// bytes, reported as a table, as comma-separated values, or as a trace that timeline viewers open.
//
// Runs are recorded while before or after is requested; either side stands for the whole run. Where
// runs follow one another and no other service is awake, the moment at which one ended is the start
// of the next, so that the clock is read once for each: a time then holds what recording the run
// before took, some nanoseconds.
//
// Owner: whoever makes it.
#pragma once

#include <qn/debug_service.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace QN {

namespace detail {
struct ProfiledRun;
}

class TransformProfilerService : public DebugService {
public:
    /// With the sides that are requested from the start.
    TransformProfilerService(bool before, bool after);
    ~TransformProfilerService() override;

    /// Where reports go: a file, whose ending chooses the form (.csv: values; .json: events in the
    /// trace-event format; else: a table); "console" for a table there; empty, as at start, for a
    /// table in a new file "transform-profile" in the debug log's folder.
    [[nodiscard]] const std::string& dumpDestination() const noexcept { return destination_; }
    void setDumpDestination(const std::string& destination);

    /// Whether each record of a report begins with its number; on at start.
    [[nodiscard]] bool recordNumbering() const noexcept { return recordNumbering_; }
    void setRecordNumbering(bool numbering) noexcept;

    /// Whether function names carry the number of the run, NAME#RUN, under which the transform log
    /// tells of the same run; off at start.
    [[nodiscard]] bool tagFcnsWithLogId() const noexcept { return tagFcnsWithLogId_; }
    void setTagFcnsWithLogId(bool tag) noexcept;

    /// When this many events have gathered, they are reported by themselves and dropped, which
    /// bounds the memory: into STEM-N.ENDING for the Nth time, or as dump() does where the
    /// destination is no file that a report would replace. 0, as at start, never does so.
    [[nodiscard]] std::size_t eventEmitThreshold() const noexcept { return emitThreshold_; }
    void setEventEmitThreshold(std::size_t events) noexcept;

    /// Each event whose count is a multiple of this carries the bytes of all pools of the process
    /// before and after; 1 at start, 0 for none.
    [[nodiscard]] std::size_t memEventInterval() const noexcept { return memoryInterval_; }
    void setMemEventInterval(std::size_t events) noexcept;

    /// Events recorded since the start or the last reset, dropped ones included.
    [[nodiscard]] std::size_t eventCount() const noexcept;

    /// Reports the events that are there, and keeps them. A report that cannot be written is told
    /// on the console.
    void dump();
    /// Forgets all events; the settings stay. What is compiled already is compiled anew, so that
    /// the next events are whole.
    void reset();

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;
    bool runAlone(const Transform& transform, Function& function, RunSequence& sequence) override;

private:
    struct State;
    /// Whether nothing but the event itself had to be written.
    bool end(const detail::ProfiledRun& run, std::uint64_t now, std::size_t nodes);
    [[gnu::cold]] void endFailed(std::uint64_t id, const Transform& transform,
                                 const Function& function, std::uint64_t now) noexcept;
    void emit();

    std::string destination_;
    std::size_t emitThreshold_ = 0;
    std::size_t memoryInterval_ = 1;
    bool recordNumbering_ = true;
    bool tagFcnsWithLogId_ = false;
    std::unique_ptr<State> state_;
};

} // namespace QN
