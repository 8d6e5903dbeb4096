// See the header. A line of details has the selected fields as NAME=VALUE, two blanks apart:
//   testpoint=dead-code-fcn_f  severity=error  checkid=type.store  function=f  block=0  node=3
#include "services/output_file.hpp"

#include <qn/console.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/transform_run.hpp>
#include <qn/verify.hpp>

#include <algorithm>
#include <array>
#include <climits>
#include <iterator>
#include <re2/re2.h>
#include <string_view>

namespace QN {

struct SanityCheckService::State {
    std::unique_ptr<re2::RE2> pattern; // null for an empty line filter
    detail::LogFile file{"sanity-check"};
};

namespace {

using Row = SanityCheckService::ReportRow;

// At most so many failures of a check are written out in one run.
constexpr std::size_t mostDetails = 1000;

std::string numberOr(const std::optional<std::uint32_t>& number) {
    return number ? std::to_string(*number) : "-";
}

struct Field {
    std::string_view name;
    std::string (*valueOf)(const Row& row, const Failure& failure);
};

// In the order in which they are written when none are selected.
constexpr std::array<Field, 11> fields = {{
    {"testpoint", [](const Row& row, const Failure&) { return row.testpoint(); }},
    {"transform", [](const Row& row, const Failure&) { return row.transform(); }},
    {"foundwhen",
     [](const Row& row, const Failure&) {
         return SanityCheckService::foundWhenToString(row.foundWhen());
     }},
    {"severity",
     [](const Row& row, const Failure&) {
         return SanityCheckService::severityToString(row.severity());
     }},
    {"checkid", [](const Row& row, const Failure&) { return row.checkId(); }},
    {"numfailingnodes",
     [](const Row& row, const Failure&) { return std::to_string(row.numFailingNodes()); }},
    {"function",
     [](const Row&, const Failure& failure) {
         return failure.place.function.empty() ? "-" : failure.place.function;
     }},
    {"block", [](const Row&, const Failure& failure) { return numberOr(failure.place.block); }},
    {"node", [](const Row&, const Failure& failure) { return numberOr(failure.place.node); }},
    {"line",
     [](const Row&, const Failure& failure) {
         return failure.place.line == 0 ? "-" : std::to_string(failure.place.line);
     }},
    {"message", [](const Row&, const Failure& failure) { return failure.message; }},
}};

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return text;
}

std::vector<const Field*> fieldsOf(const std::vector<std::string>& selection) {
    std::vector<const Field*> chosen;
    for (const std::string& name : selection) {
        const auto found =
            std::find_if(fields.begin(), fields.end(),
                         [lower = lowerCase(name)](const Field& f) { return f.name == lower; });
        if (found != fields.end()) {
            chosen.push_back(found);
        }
    }
    if (selection.empty()) {
        for (const Field& field : fields) {
            chosen.push_back(&field);
        }
    }
    return chosen;
}

std::string counted(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

SanityCheckService::ReportRow& SanityCheckService::Report::add() {
    if (size_ == rows_.size()) {
        rows_.emplace_back();
    }
    return rows_[size_++];
}

void SanityCheckService::Report::clear() {
    std::fill_n(rows_.begin(), size_, ReportRow());
    size_ = 0;
}

std::string SanityCheckService::foundWhenToString(FoundWhen when) {
    return when == FoundWhen::Before ? "before" : when == FoundWhen::After ? "after" : "unknown";
}

std::string SanityCheckService::severityToString(Severity severity) {
    return severity == Severity::Warning ? "warning"
           : severity == Severity::Error ? "error"
                                         : "unknown";
}

SanityCheckService::SanityCheckService(bool before, bool after, OutputType type)
    : DebugService(before, after), outputType_(type), state_(std::make_unique<State>()) {}

SanityCheckService::~SanityCheckService() = default;

// Settings

void SanityCheckService::setOutputType(OutputType type) {
    outputType_ = type;
    settingChanged();
}

void SanityCheckService::setWarningThreshold(int nodes) {
    warningThreshold_ = nodes;
    settingChanged();
}

void SanityCheckService::setErrorThreshold(int nodes) {
    errorThreshold_ = nodes;
    settingChanged();
}

void SanityCheckService::setAssertOnRecordViolation(bool assertOnRecord) {
    asserts_ = assertOnRecord;
    settingChanged();
}

const std::set<std::string>& SanityCheckService::validFields() {
    // Built once, because callers keep the reference.
    static const std::set<std::string> names = [] {
        std::set<std::string> all;
        for (const Field& field : fields) {
            all.emplace(field.name);
        }
        return all;
    }();
    return names;
}

void SanityCheckService::setSelectDetails(const std::vector<std::string>& selection) {
    selectDetails_ = selection;
    settingChanged();
}

void SanityCheckService::setLineFilter(const std::string& pattern) {
    if (pattern == lineFilter_) {
        return;
    }
    lineFilter_ = pattern;
    state_->pattern.reset();
    if (!pattern.empty()) {
        re2::RE2::Options options;
        options.set_log_errors(false);
        state_->pattern = std::make_unique<re2::RE2>(pattern, options);
        if (!state_->pattern->ok()) {
            consoleWrite("The line filter '" + pattern + "' is not a valid pattern (" +
                         state_->pattern->error() + "); it matches nothing.\n");
        }
    }
    settingChanged();
}

std::string SanityCheckService::detailsFile() const {
    return state_->file.path();
}

// Runs

void SanityCheckService::prepass(TransformRun& run) {
    if (wantsBefore(run)) {
        check(run, FoundWhen::Before);
    }
}

void SanityCheckService::postpass(TransformRun& run) {
    // What a failed transform leaves need not be valid.
    if (!run.failed() && wantsAfter(run)) {
        check(run, FoundWhen::After);
    }
}

void SanityCheckService::check(TransformRun& run, FoundWhen when) {
    VerifyOptions options;
    options.unreachableBlocks = when == FoundWhen::Before && run.transformName() == "control-flow";
    options.compacted =
        when == FoundWhen::After && run.transformName() == "compaction" && run.changed();
    options.detailsPerCheck =
        outputType_ == OutputType::DetailsToFile || outputType_ == OutputType::DetailsToVarnix
            ? mostDetails
            : 1;
    const Verification found =
        run.isScopeRun() ? verify(run.scope(), options) : verify(*run.function(), options);
    if (!found.ok()) {
        record(run, when, found);
    }
}

void SanityCheckService::record(TransformRun& run, FoundWhen when, const Verification& found) {
    const std::size_t firstRow = report_.size();
    const std::span<const CheckInfo> checks = allChecks();
    for (std::size_t i = 0; i < checks.size(); ++i) {
        const auto check = static_cast<Check>(i);
        const int count =
            static_cast<int>(std::min<std::size_t>(found.count(check), std::size_t{INT_MAX}));
        if (count == 0 || (count < warningThreshold_ && count < errorThreshold_)) {
            continue;
        }
        const auto first =
            std::find_if(found.failures().begin(), found.failures().end(),
                         [check](const Failure& failure) { return failure.check == check; });
        Row& row = report_.add();
        row.testpoint_ = run.tag();
        row.transform_ = run.transformName();
        row.foundWhen_ = when;
        row.checkId_ = checks[i].id;
        row.severity_ = count >= errorThreshold_ ? Severity::Error : Severity::Warning;
        row.numFailingNodes_ = count;
        row.message_ = toString(first->place) + ": " + first->message;
        if (count > 1) {
            row.message_ += " (and " + std::to_string(count - 1) + " more)";
        }
    }
    if (report_.size() == firstRow) {
        return;
    }
    if (outputType_ == OutputType::Summary) {
        writeSummary(firstRow);
    } else if (outputType_ == OutputType::DetailsToFile ||
               outputType_ == OutputType::DetailsToVarnix) {
        writeDetails(found, firstRow);
    }
    if (asserts_) {
        const Row& row = report_[firstRow];
        run.requestStop("The sanity check " + foundWhenToString(when) + " " + row.testpoint_ +
                        " failed: " + row.message_ + " [" + row.checkId_ + "]");
    }
}

// Output

void SanityCheckService::writeSummary(std::size_t firstRow) {
    std::size_t errors = 0;
    std::string ids;
    for (std::size_t i = firstRow; i < report_.size(); ++i) {
        errors += report_[i].severity_ == Severity::Error ? 1 : 0;
        ids.append(ids.empty() ? "" : ", ").append(report_[i].checkId_);
    }
    const std::size_t warnings = report_.size() - firstRow - errors;
    write({"Sanity check " + foundWhenToString(report_[firstRow].foundWhen_) + " " +
           report_[firstRow].testpoint_ + ": " + counted(errors, "error") + ", " +
           counted(warnings, "warning") + " (" + ids + ")"});
}

void SanityCheckService::writeDetails(const Verification& found, std::size_t firstRow) {
    const std::vector<const Field*> chosen = fieldsOf(selectDetails_);
    std::vector<std::string> lines;
    for (std::size_t i = firstRow; i < report_.size(); ++i) {
        const Row& row = report_[i];
        std::size_t written = 0;
        for (const Failure& failure : found.failures()) {
            if (infoOf(failure.check).id != row.checkId_) {
                continue;
            }
            std::string line;
            for (const Field* const field : chosen) {
                line.append(line.empty() ? "" : "  ")
                    .append(field->name)
                    .append("=")
                    .append(field->valueOf(row, failure));
            }
            lines.push_back(std::move(line));
            ++written;
        }
        if (const auto all = static_cast<std::size_t>(row.numFailingNodes_); written < all) {
            lines.push_back(row.checkId_ + ": and " + std::to_string(all - written) + " more");
        }
    }
    write(lines);
}

void SanityCheckService::write(const std::vector<std::string>& lines) {
    const re2::RE2* const pattern = state_->pattern.get();
    std::string text;
    for (const std::string& line : lines) {
        if (pattern == nullptr || (pattern->ok() && re2::RE2::PartialMatch(line, *pattern))) {
            text.append(line).append("\n");
        }
    }
    if (text.empty()) {
        return;
    }
    if (outputType_ == OutputType::DetailsToFile) {
        state_->file.append(text);
    } else {
        consoleWrite(text);
    }
}

} // namespace QN
