// Counts runs by transform, and the entities of each kind before and after them. The graphs keep
// these counts themselves, so a function costs the same whatever its size. A handful of transforms
// exist, so a list that is searched is enough.
#include "services/run_facts.hpp"

#include <qn/collect_statistics_service.hpp>
#include <qn/console.hpp>
#include <qn/transform_run.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace QN {

namespace {

constexpr std::array<const char*, 5> kinds = {"nodes", "blocks", "vars", "consts", "functions"};
using Entities = std::array<std::uint64_t, kinds.size()>;

void add(Entities& sum, const TransformRun& run) {
    detail::forEachFunctionOf(run, [&](Function& function) {
        const Cfg& cfg = function.cfg();
        sum[0] += cfg.numNodes();
        sum[1] += cfg.numBlocks();
        sum[2] += cfg.numVars();
        sum[3] += cfg.numConstants();
        sum[4] += 1;
    });
}

} // namespace

struct CollectStatisticsService::Counts {
    struct Row {
        std::string transform;
        std::uint64_t runs = 0;
        std::uint64_t changed = 0;
        std::uint64_t failed = 0;
        Entities before{};
        Entities after{};
    };
    std::vector<Row> rows;

    Row& rowOf(std::string_view transform) {
        const auto found = std::find_if(rows.begin(), rows.end(),
                                        [&](const Row& row) { return row.transform == transform; });
        if (found != rows.end()) {
            return *found;
        }
        rows.emplace_back().transform = transform;
        return rows.back();
    }
};

CollectStatisticsService::CollectStatisticsService() : counts_(std::make_unique<Counts>()) {}
CollectStatisticsService::~CollectStatisticsService() = default;

void CollectStatisticsService::prepass(TransformRun& run) {
    Counts::Row& row = counts_->rowOf(run.transformName());
    ++row.runs;
    add(row.before, run);
}

void CollectStatisticsService::postpass(TransformRun& run) {
    Counts::Row& row = counts_->rowOf(run.transformName());
    row.changed += run.changed() ? 1 : 0;
    row.failed += run.failed() ? 1 : 0;
    add(row.after, run);
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
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    char cell[64];
    std::string text;
    std::snprintf(cell, sizeof cell, "%-24s %8s %8s %8s", "transform", "runs", "changed", "failed");
    text += cell;
    for (const char* const kind : kinds) {
        std::snprintf(cell, sizeof cell, " %20s", kind);
        text += cell;
    }
    text += '\n';
    for (const Counts::Row& row : counts_->rows) {
        std::snprintf(cell, sizeof cell, " %8llu %8llu %8llu", number(row.runs),
                      number(row.changed), number(row.failed));
        text += row.transform;
        text.append(24 - std::min<std::size_t>(24, row.transform.size()), ' ');
        text += cell;
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            std::snprintf(cell, sizeof cell, "%llu > %llu", number(row.before[i]),
                          number(row.after[i]));
            const std::string change = cell;
            text.append(21 - std::min<std::size_t>(20, change.size()), ' ');
            text += change;
        }
        text += '\n';
    }
    return text;
}

} // namespace QN
