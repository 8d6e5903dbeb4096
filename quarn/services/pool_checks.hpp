// What can be told about a scope's and its graphs' pools: sizes, what is unreachable, what is
// damaged.
//
// Each question is linear in what the pools hold.
#pragma once

#include <qn/transform_run.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace QN::detail {

/// One thing that is wrong with one allocation.
struct PoolFinding {
    const void* address;
    std::uint8_t sort; // distinguishes several findings at one address
    std::string text;

    friend bool operator<(const PoolFinding& a, const PoolFinding& b) noexcept {
        return a.address != b.address ? a.address < b.address : a.sort < b.sort;
    }
};

/// Allocations under the run that are neither released nor reachable, in pools that keep records:
/// nodes, blocks and variables of graphs; with `names`, names in the scope's pool too.
[[nodiscard]] std::vector<PoolFinding> findLeaks(const TransformRun& run, bool graphs, bool names);

/// Allocations under the run whose canaries or remains have been written to.
[[nodiscard]] std::vector<PoolFinding> findDamage(const TransformRun& run);

/// The statistics of `level` for the pools under the run, a number of whole lines.
[[nodiscard]] std::string poolStatistics(const TransformRun& run, const char* side, int level);

} // namespace QN::detail
