// See the header.
#include "services/output_file.hpp"
#include "services/report_text.hpp"

#include <qn/default_services.hpp>
#include <qn/profile_counts.hpp>
#include <qn/scope.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>
#include <cinttypes>
#include <map>
#include <utility>

namespace QN {

namespace {

std::uint32_t lineFrom(const Node& first) noexcept {
    for (const Node* node = &first; node != nullptr; node = node->next()) {
        if (node->line() != 0) {
            return node->line();
        }
    }
    return 0;
}

std::int64_t numberOf(const Node& count) {
    return asConst(count.operand(0))->asInt();
}

} // namespace

std::vector<CounterPlace> counterPlaces(const Scope& unit) {
    std::vector<CounterPlace> places;
    for (const auto& function : unit.functions()) {
        if (!function->hasCfg()) {
            continue;
        }
        for (const Block& block : function->cfg().blocks()) {
            for (const Node& node : block.nodes()) {
                if (node.op() == Op::Count) {
                    places.push_back(
                        {std::string(function->name()), numberOf(node), lineFrom(node)});
                }
            }
        }
    }
    return places;
}

ProfileCounts::ProfileCounts() : files_(std::make_unique<detail::FileWriter>()) {}

ProfileCounts::~ProfileCounts() = default;

void ProfileCounts::add(std::string_view unit, std::span<const CounterPlace> places,
                        std::span<const CounterValue> values) {
    if (places.empty()) {
        return;
    }
    auto known = std::find_if(units_.begin(), units_.end(), [&](const Unit& u) {
        return u.name == unit && std::ranges::equal(u.places, places);
    });
    if (known == units_.end()) {
        units_.push_back({std::string(unit),
                          {places.begin(), places.end()},
                          std::vector<std::uint64_t>(places.size())});
        known = units_.end() - 1;
    }
    std::map<std::pair<std::string_view, std::int64_t>, std::uint64_t> counted;
    for (const CounterValue& value : values) {
        counted[{value.function, value.number}] += value.count;
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
        const auto value = counted.find({places[i].function, places[i].number});
        known->counts[i] += value == counted.end() ? 0 : value->second;
    }
}

void ProfileCounts::clear() {
    units_.clear();
    tableFile_.clear();
    target_.clear();
}

std::string ProfileCounts::table() const {
    std::string text;
    for (const Unit& unit : units_) {
        text.append(text.empty() ? "" : "\n").append("unit ").append(unit.name).append("\n");
        detail::print(text, "%20s %8s %6s  %s\n", "count", "counter", "line", "function");
        for (std::size_t i = 0; i < unit.places.size(); ++i) {
            const CounterPlace& place = unit.places[i];
            detail::print(text, "%20" PRIu64 " %8" PRId64 " ", unit.counts[i], place.number);
            if (place.line != 0) {
                detail::print(text, "%6" PRIu32 "  ", place.line);
            } else {
                detail::print(text, "%6s  ", "-");
            }
            text.append(place.function).append("\n");
        }
    }
    return text;
}

std::string ProfileCounts::json() const {
    std::string text = "{\"units\":[";
    const char* beforeUnit = "\n";
    for (const Unit& unit : units_) {
        text.append(beforeUnit).append("{\"unit\":");
        detail::appendQuotedJson(text, unit.name);
        text += ",\"counters\":[";
        const char* beforeCounter = "\n";
        for (std::size_t i = 0; i < unit.places.size(); ++i) {
            const CounterPlace& place = unit.places[i];
            text.append(beforeCounter).append("{\"function\":");
            detail::appendQuotedJson(text, place.function);
            detail::print(text,
                          ",\"number\":%" PRId64 ",\"line\":%" PRIu32 ",\"count\":%" PRIu64 "}",
                          place.number, place.line, unit.counts[i]);
            beforeCounter = ",\n";
        }
        text += "\n]}";
        beforeUnit = ",\n";
    }
    return text += "\n]}\n";
}

void ProfileCounts::write() {
    if (empty()) {
        return;
    }
    tssv::debug::DebugLog& log = DefaultServices::debugServices().debugLog();
    if (target_.empty() || folder_ != log.logDirectory() ||
        processIdInName_ != log.usePIDInName()) {
        folder_ = log.logDirectory();
        processIdInName_ = log.usePIDInName();
        target_ = log.logFilePath("profile-counts", "txt");
    }
    const std::string stem = target_.substr(0, target_.size() - 3);
    const bool written = files_->write(target_, table()) && files_->write(stem + "json", json());
    tableFile_ = written ? target_ : std::string();
}

} // namespace QN
