// The parts of a run that only services need: its tag and the request to stop.
#include <qn/transform_run.hpp>

namespace QN {

void TransformRun::FreeTexts::operator()(Texts* texts) const noexcept {
    delete texts;
}

const std::string& TransformRun::tag() const {
    std::string& tag = texts().tag;
    if (tag.empty()) {
        tag.append(transform_).append(isScopeRun() ? "-scope_" : "-fcn_").append(target_);
    }
    return tag;
}

void TransformRun::requestStop(std::string_view reason) {
    if (std::string& kept = texts().stopReason; kept.empty()) {
        kept = reason.empty() ? "stopped" : reason;
    }
}

} // namespace QN
