// Counts runs by transform. A handful of transforms exist, so a list that is searched is enough.
#include <qn/collect_statistics_service.hpp>
#include <qn/console.hpp>
#include <qn/transform_run.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace QN {

struct CollectStatisticsService::Counts {
    struct Row {
        std::string transform;
        std::uint64_t runs = 0;
        std::uint64_t changed = 0;
        std::uint64_t failed = 0;
    };
    std::vector<Row> rows;

    Row& rowOf(std::string_view transform) {
        const auto found = std::find_if(rows.begin(), rows.end(),
                                        [&](const Row& row) { return row.transform == transform; });
        if (found != rows.end()) {
            return *found;
        }
        rows.push_back({std::string(transform)});
        return rows.back();
    }
};

CollectStatisticsService::CollectStatisticsService() : counts_(std::make_unique<Counts>()) {}
CollectStatisticsService::~CollectStatisticsService() = default;

void CollectStatisticsService::prepass(TransformRun& run) {
    ++counts_->rowOf(run.transformName()).runs;
}

void CollectStatisticsService::postpass(TransformRun& run) {
    Counts::Row& row = counts_->rowOf(run.transformName());
    row.changed += run.changed() ? 1 : 0;
    row.failed += run.failed() ? 1 : 0;
}

void CollectStatisticsService::added() {
    counts_->rows.clear();
}

void CollectStatisticsService::removed() {
    if (const std::string text = table(); !text.empty()) {
        consoleWrite(text);
    }
}

std::string CollectStatisticsService::table() const {
    if (counts_->rows.empty()) {
        return {};
    }
    char line[160];
    std::snprintf(line, sizeof line, "%-32s %10s %10s %10s\n", "transform", "runs", "changed",
                  "failed");
    std::string text = line;
    for (const Counts::Row& row : counts_->rows) {
        std::snprintf(line, sizeof line, "%-32s %10llu %10llu %10llu\n", row.transform.c_str(),
                      static_cast<unsigned long long>(row.runs),
                      static_cast<unsigned long long>(row.changed),
                      static_cast<unsigned long long>(row.failed));
        text += line;
    }
    return text;
}

} // namespace QN
