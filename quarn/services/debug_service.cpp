// Requests, filter and output folder of debug services.
#include <qn/console.hpp>
#include <qn/debug_service.hpp>
#include <qn/default_services.hpp>
#include <qn/scope.hpp>
#include <qn/transform_run.hpp>
#include <ts/debug_log.hpp>

#include <re2/re2.h>
#include <unistd.h>
#include <utility>

namespace QN {

DebugService::DebugService(bool before, bool after, std::string_view folder)
    : folder_(folder), before_(before), after_(after) {
    noteRequests();
    if (before_ || after_) {
        DefaultServices::debugServices().addService(this);
    }
}

DebugService::~DebugService() = default;

bool DebugService::setRequestedBefore(bool requested) {
    return setRequest(before_, requested);
}
bool DebugService::setRequestedAfter(bool requested) {
    return setRequest(after_, requested);
}
bool DebugService::setRequestedGlobalScope(bool requested) {
    return setRequest(globalScope_, requested);
}

bool DebugService::setRequest(bool& request, bool requested) {
    const bool old = std::exchange(request, requested);
    if (old == requested) {
        return old;
    }
    noteRequests();
    DebugServices& services = DefaultServices::debugServices();
    if (!before_ && !after_ && !globalScope_) {
        services.removeService(this);
    } else if (services.isRegistered(this)) {
        settingChanged();
    } else {
        services.addService(this);
    }
    return old;
}

void DebugService::setFilter(const std::string& pattern) {
    if (pattern == filter_) {
        return;
    }
    filter_ = pattern;
    pattern_.reset();
    if (!pattern.empty()) {
        re2::RE2::Options options;
        options.set_log_errors(false);
        pattern_ = std::make_unique<re2::RE2>(pattern, options);
    }
    noteRequests();
    if (pattern_ != nullptr && !pattern_->ok()) {
        consoleWrite("The filter '" + pattern + "' is not a valid pattern (" + pattern_->error() +
                     "); it selects nothing.\n");
    }
    settingChanged();
}

bool DebugService::matches(const TransformRun& run) const {
    return pattern_->ok() && re2::RE2::PartialMatch(run.tag(), *pattern_);
}

std::string DebugService::outputFolderName() const {
    const tssv::debug::DebugLog& log = DefaultServices::debugServices().debugLog();
    std::string path = log.logDirectory();
    if (folder_.empty()) {
        return path;
    }
    if (path.back() != '/') {
        path += '/';
    }
    path += folder_;
    if (log.usePIDInName()) {
        path += '-' + std::to_string(::getpid());
    }
    return path;
}

void DebugService::settingChanged() const noexcept {
    if (ServiceContainer* const services = container(); services != nullptr) {
        services->noteChange();
    }
}

} // namespace QN
