// See the header. The lines of one run:
//        12 before dead-code-fcn_mandel: x zr zi
//        12 after  dead-code-fcn_mandel: x zr
//        12 dead-code has optimized away zi (line 14) of mandel
// In a run over a scope the variables are written FUNCTION.NAME.
#include "services/open_runs.hpp"
#include "services/output_file.hpp"
#include "services/run_facts.hpp"

#include <qn/user_var_logging_service.hpp>

#include <algorithm>
#include <compare>
#include <cstdio>
#include <iterator>
#include <vector>

namespace QN {

namespace {

// Copied out of the graph, which a transform may replace whole.
struct UserVar {
    std::string function;
    std::string name;
    std::uint32_t line = 0;
    auto operator<=>(const UserVar&) const = default;
};

std::vector<UserVar> aliveIn(const TransformRun& run) {
    std::vector<UserVar> alive;
    detail::forEachFunctionOf(run, [&](Function& function) {
        for (const Var& var : function.cfg().vars()) {
            if (var.varKind() == VarKind::User && var.hasUses()) {
                alive.push_back(
                    {std::string(function.name()), std::string(var.name()), var.line()});
            }
        }
    });
    return alive;
}

std::string numberOf(const TransformRun& run) {
    char number[32];
    std::snprintf(number, sizeof number, "%8llu ", static_cast<unsigned long long>(run.id()));
    return number;
}

std::string listLine(const TransformRun& run, const char* side, const std::vector<UserVar>& vars) {
    std::string line = numberOf(run) + side + run.tag() + ":";
    for (const UserVar& var : vars) {
        line += ' ';
        if (run.isScopeRun()) {
            line.append(var.function).append(1, '.');
        }
        line += var.name;
    }
    return line.append(vars.empty() ? " none\n" : "\n");
}

} // namespace

struct UserVarLoggingService::State {
    detail::OpenRuns<std::vector<UserVar>> open;
    detail::LogFile file{"user-variables"};
};

UserVarLoggingService::UserVarLoggingService(bool before, bool after)
    : DebugService(before, after), state_(std::make_unique<State>()) {}

UserVarLoggingService::~UserVarLoggingService() = default;

std::string UserVarLoggingService::logFile() const {
    return state_->file.path();
}

void UserVarLoggingService::prepass(TransformRun& run) {
    const bool listed = wantsBefore(run);
    if (!listed && !wantsAfter(run)) {
        return;
    }
    std::vector<UserVar> alive = aliveIn(run);
    if (listed) {
        state_->file.append(listLine(run, "before ", alive));
    }
    if (requestedAfter()) {
        state_->open.open(run, std::move(alive));
    }
}

void UserVarLoggingService::postpass(TransformRun& run) {
    if (!wantsAfter(run)) {
        return;
    }
    std::vector<UserVar> after = aliveIn(run);
    std::string lines = listLine(run, "after  ", after);
    if (auto* const before = state_->open.close(run); before != nullptr) {
        std::sort(before->begin(), before->end());
        std::sort(after.begin(), after.end());
        std::vector<UserVar> gone;
        std::set_difference(before->begin(), before->end(), after.begin(), after.end(),
                            std::back_inserter(gone));
        for (const UserVar& var : gone) {
            lines += numberOf(run);
            lines.append(run.transformName()).append(" has optimized away ").append(var.name);
            if (var.line != 0) {
                lines.append(" (line ").append(std::to_string(var.line)).append(1, ')');
            }
            lines.append(" of ").append(var.function).append(1, '\n');
        }
    }
    state_->file.append(lines);
}

} // namespace QN
