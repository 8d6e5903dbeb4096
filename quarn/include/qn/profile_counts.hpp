// What profiling counters have counted, as a table for people and as JSON for programs.
//
// While TSFEAT_QUARNProfilingInstrumentation is on, the pipeline gives each block a `count` node.
// Who compiles notes with counterPlaces() where these stand, after the pipeline and before an
// engine may free the graphs; when the code goes, it hands places and the executable's counters
// over, and has the files written:
//
//     counts.add("mandel(double)", places, executable->counters());
//     counts.write();
//
// Owner: who compiles; one object gathers for the life of the process.
#pragma once

#include <qn/engine.hpp>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN {

class Scope;

/// A counter in the code of a unit.
struct CounterPlace {
    std::string function;
    std::int64_t number = 0;
    /// The line of the first node of the counted block that has one; 0 if none has.
    std::uint32_t line = 0;
    bool operator==(const CounterPlace&) const = default;
};

/// Where the `count` nodes of a unit stand: functions in its order, each one's blocks in theirs.
/// Empty for a unit that was not instrumented.
[[nodiscard]] std::vector<CounterPlace> counterPlaces(const Scope& unit);

namespace detail {
class FileWriter;
}

class ProfileCounts {
public:
    ProfileCounts();
    ~ProfileCounts();

    /// Adds what the counters of one piece of code have counted. A place without a value has
    /// counted nothing; values without a place are dropped. `unit` says what was compiled: counts
    /// of the same unit with the same places add up. No places add nothing.
    void add(std::string_view unit, std::span<const CounterPlace> places,
             std::span<const CounterValue> values);

    [[nodiscard]] bool empty() const noexcept { return units_.empty(); }
    /// Forgets all counts; the next write() goes to new files.
    void clear();

    /// A heading for each unit, in the order in which they came, and a line for each of its
    /// counters: how often the block ran, its function, the counter's number, and the block's line,
    /// "-" where it is not known.
    [[nodiscard]] std::string table() const;
    /// {"units":[{"unit":NAME,"counters":[{"function":NAME,"number":N,"line":N,"count":N}, ...]},
    /// ...]}; line 0 where it is not known.
    [[nodiscard]] std::string json() const;

    /// Makes both texts files in the debug log's folder, profile-counts[-PID]-NNNN.txt and .json.
    /// Writing again puts new contents into the same files, unless the log's folder or its naming
    /// has changed. Without counts nothing is written; a failure is told on the console, once while
    /// it stays the same, and the same files are tried again.
    void write();
    /// The table's file that write() wrote last; empty if there is none.
    [[nodiscard]] const std::string& tableFile() const noexcept { return tableFile_; }

private:
    struct Unit {
        std::string name;
        std::vector<CounterPlace> places;
        std::vector<std::uint64_t> counts; // one for each place
    };

    std::vector<Unit> units_;
    std::string tableFile_; // once written
    std::string target_;    // path of the table
    std::string folder_;
    bool processIdInName_ = false;
    std::unique_ptr<detail::FileWriter> files_;
};

} // namespace QN
