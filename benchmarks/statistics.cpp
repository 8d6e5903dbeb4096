// The members of the measured native object, out of line on purpose; see statistics.hpp.
#include "statistics.hpp"

namespace bench {

Statistics::Statistics() noexcept = default;

Statistics::~Statistics() {
    if (slot.invalidate != nullptr) {
        slot.invalidate(slot.handle);
    }
    delete child_;
    for (Statistics* violation : violations_) {
        delete violation;
    }
}

bool Statistics::enabled() const {
    return enabled_;
}
void Statistics::setEnabled(bool value) {
    enabled_ = value;
}
std::int32_t Statistics::threshold() const {
    return threshold_;
}
void Statistics::setThreshold(std::int32_t value) {
    threshold_ = value;
}
std::uint64_t Statistics::count() const {
    return count_;
}
void Statistics::setCount(std::uint64_t value) {
    count_ = value;
}
const std::string& Statistics::outputFormat() const {
    return outputFormat_;
}
void Statistics::setOutputFormat(std::string_view value) {
    outputFormat_ = value;
}
const std::vector<std::string>& Statistics::fields() const {
    return fields_;
}
Statistics* Statistics::child() const {
    return child_;
}
const std::vector<Statistics*>& Statistics::violations() const {
    return violations_;
}
void Statistics::reset() {
    ++resets_;
}
std::string Statistics::hello() const {
    return std::string(helloValue);
}

void Statistics::populate(std::size_t violationCount) {
    if (child_ == nullptr) {
        child_ = new Statistics;
    }
    fields_ = {"id",    "tag",      "time",   "nodes", "severity",
               "place", "function", "origin", "scope", "text"};
    violations_.reserve(violationCount);
    while (violations_.size() < violationCount) {
        violations_.push_back(new Statistics);
    }
}

std::shared_ptr<Statistics> makeStatistics(std::size_t violationCount) {
    auto object = std::make_shared<Statistics>();
    object->setEnabled(true);
    object->setThreshold(thresholdValue);
    object->setCount(countValue);
    object->setOutputFormat(formatValue);
    object->populate(violationCount);
    return object;
}

} // namespace bench
