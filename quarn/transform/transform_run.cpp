// The parts of a run that only services need: its tag and the request to stop.
#include <qn/transform_run.hpp>

namespace QN {

const std::string& TransformRun::tag() const {
    if (tag_.empty()) {
        tag_.append(transform_).append(isScopeRun() ? "-scope_" : "-fcn_").append(target_);
    }
    return tag_;
}

void TransformRun::requestStop(std::string_view reason) {
    if (stopReason_.empty()) {
        stopReason_ = reason.empty() ? "stopped" : reason;
    }
}

} // namespace QN
