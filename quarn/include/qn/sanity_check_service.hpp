// Verifies the IR around transforms, grades what it finds, and keeps and writes a report.
//
// Around each run that the base selects, every check of <qn/verify.hpp> runs over the function or
// scope of the run. A check that fails on at least errorThreshold() nodes (or other entities) is an
// error, on at least warningThreshold() a warning; otherwise it is not recorded. What is recorded
// becomes a row of the detailed report, and lines of the output type that is set.
//
// A check is quiet where the run itself allows what it refuses: blocks that nothing leads to before
// "control-flow". After "compaction" ids must be dense. A run that has failed is not looked at.
//
// Owner: whoever makes it.
#pragma once

#include <qn/debug_service.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace QN {

class Verification;

class SanityCheckService : public DebugService {
public:
    /// What is written of a run in which something was recorded. The numbers are known to callers;
    /// any other value is taken for None.
    enum class OutputType : std::int32_t {
        None = 0,            // nothing; the report is kept all the same
        Summary = 1,         // one line on the console
        DetailsToFile = 2,   // a line for each failure, in a file in the debug log's folder
        DetailsToVarnix = 3, // a line for each failure, on the console
    };
    enum class FoundWhen : std::int32_t { Before = 0, After = 1 };
    enum class Severity : std::int32_t { Warning = 0, Error = 1 };

    /// One check that failed in one run, on one side of it.
    class ReportRow {
    public:
        /// The tag of the run, such as "dead-code-fcn_f".
        [[nodiscard]] const std::string& testpoint() const noexcept { return testpoint_; }
        [[nodiscard]] const std::string& transform() const noexcept { return transform_; }
        [[nodiscard]] FoundWhen foundWhen() const noexcept { return foundWhen_; }
        [[nodiscard]] const std::string& checkId() const noexcept { return checkId_; }
        [[nodiscard]] Severity severity() const noexcept { return severity_; }
        /// The first failure with its place, and how many more there are.
        [[nodiscard]] const std::string& message() const noexcept { return message_; }
        /// The number of nodes, or other entities, on which the check failed.
        [[nodiscard]] int numFailingNodes() const noexcept { return numFailingNodes_; }

    private:
        friend class SanityCheckService;
        std::string testpoint_;
        std::string transform_;
        std::string checkId_;
        std::string message_;
        FoundWhen foundWhen_ = FoundWhen::Before;
        Severity severity_ = Severity::Warning;
        int numFailingNodes_ = 0;
    };

    /// The rows in order. A row stays where it is for the life of the service: when the report is
    /// cleared its rows become empty ones, and the next report fills them again. So who still has
    /// the address of a row reads a row, though another one.
    class Report {
    public:
        [[nodiscard]] std::size_t size() const noexcept { return size_; }
        [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
        [[nodiscard]] const ReportRow& operator[](std::size_t i) const { return rows_[i]; }
        [[nodiscard]] const ReportRow& front() const { return rows_.front(); }
        [[nodiscard]] auto begin() const noexcept { return rows_.begin(); }
        [[nodiscard]] auto end() const noexcept {
            return rows_.begin() + static_cast<std::ptrdiff_t>(size_);
        }

    private:
        friend class SanityCheckService;
        ReportRow& add();
        void clear();
        std::deque<ReportRow> rows_;
        std::size_t size_ = 0;
    };

    /// "before" and "after"; "unknown" for any other value.
    [[nodiscard]] static std::string foundWhenToString(FoundWhen when);
    /// "warning" and "error"; "unknown" for any other value.
    [[nodiscard]] static std::string severityToString(Severity severity);

    /// With the sides that are requested from the start, and what is written.
    SanityCheckService(bool before, bool after, OutputType type);
    ~SanityCheckService() override;

    [[nodiscard]] OutputType outputType() const noexcept { return outputType_; }
    void setOutputType(OutputType type);

    /// Both 1 at start. A check that fails nowhere is never recorded, whatever the thresholds.
    [[nodiscard]] int warningThreshold() const noexcept { return warningThreshold_; }
    void setWarningThreshold(int nodes);
    [[nodiscard]] int errorThreshold() const noexcept { return errorThreshold_; }
    void setErrorThreshold(int nodes);

    /// The fields that a line of details can have, in lower case.
    [[nodiscard]] static const std::set<std::string>& validFields();
    /// The fields that lines of details have, in this order; letter case does not matter, unknown
    /// names are passed over. Empty, as at start: all of them.
    [[nodiscard]] const std::vector<std::string>& selectDetails() const noexcept {
        return selectDetails_;
    }
    void setSelectDetails(const std::vector<std::string>& fields);

    /// Only lines in which this pattern (RE2) is found are written; empty for all. The report is
    /// not filtered.
    [[nodiscard]] const std::string& lineFilter() const noexcept { return lineFilter_; }
    /// A pattern that does not compile is kept as text, reported once on the console, and matches
    /// nothing.
    void setLineFilter(const std::string& pattern);

    /// Whether recording something ends the compilation: the run is asked to stop, and
    /// runTransform() throws CompilationStopped. Off at start.
    [[nodiscard]] bool assertOnRecordViolation() const noexcept { return asserts_; }
    void setAssertOnRecordViolation(bool assertOnRecord);

    /// All that was recorded since the start or the last clearing, in order.
    [[nodiscard]] const Report& getDetailedReport() const noexcept { return report_; }
    /// Empties the report. What is compiled already is compiled, and so checked, anew.
    void clearDetailedReport() {
        report_.clear();
        settingChanged();
    }

    /// The file that details were last written to; empty if there is none.
    [[nodiscard]] std::string detailsFile() const;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    void check(TransformRun& run, FoundWhen when);
    void record(TransformRun& run, FoundWhen when, const Verification& found);
    void writeDetails(const Verification& found, std::size_t firstRow);
    void writeSummary(std::size_t firstRow);
    void write(const std::vector<std::string>& lines);

    OutputType outputType_;
    int warningThreshold_ = 1;
    int errorThreshold_ = 1;
    bool asserts_ = false;
    std::vector<std::string> selectDetails_;
    std::string lineFilter_;
    Report report_;
    std::unique_ptr<State> state_;
};

} // namespace QN
