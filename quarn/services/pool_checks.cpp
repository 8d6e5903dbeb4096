// See pool_checks.hpp.
#include "services/pool_checks.hpp"

#include "services/run_facts.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <unordered_set>

namespace QN::detail {

namespace {

std::string inFunction(const Function& function) {
    return " in function '" + std::string(function.name()) + "'";
}

// "node %12 (add)", "block 3", "variable 'x'": what an allocation of a graph holds.
std::string describe(const Pool::Record& record) {
    switch (record.kind) {
    case EntityKind::Node: {
        const auto* const node = static_cast<const Node*>(record.address);
        return "node %" + std::to_string(node->id()) + " (" + std::string(infoOf(node->op()).text) +
               ")";
    }
    case EntityKind::Block:
        return "block " + std::to_string(static_cast<const Block*>(record.address)->id());
    case EntityKind::Var:
        return "variable '" + std::string(static_cast<const Var*>(record.address)->name()) + "'";
    default:
        return std::string(toString(record.kind)) + " of " + std::to_string(record.bytes) +
               " bytes";
    }
}

void findGraphLeaks(const Function& function, std::vector<PoolFinding>& found) {
    const Cfg& cfg = function.cfg();
    const std::vector<Pool::Record> records = cfg.pool().records();
    if (records.empty()) {
        return;
    }
    std::unordered_set<const void*> reachable;
    for (const Block& block : cfg.blocks()) {
        reachable.insert(&block);
        for (const Node& node : block.nodes()) {
            reachable.insert(&node);
        }
    }
    for (const Var& var : cfg.vars()) {
        reachable.insert(&var);
    }
    for (const Pool::Record& record : records) {
        const bool looked = record.kind == EntityKind::Node || record.kind == EntityKind::Block ||
                            record.kind == EntityKind::Var;
        if (looked && !record.released && !reachable.contains(record.address)) {
            found.push_back(
                {record.address, 0,
                 describe(record) + inFunction(function) + " is allocated but unreachable"});
        }
    }
}

void findNameLeaks(const Scope& scope, std::vector<PoolFinding>& found) {
    const std::vector<Pool::Record> records = scope.pool().records();
    if (records.empty()) {
        return;
    }
    std::unordered_set<const void*> reachable{scope.name().data()};
    for (const auto& function : scope.functions()) {
        reachable.insert(function->name().data());
    }
    for (const Pool::Record& record : records) {
        if (record.kind == EntityKind::Name && !record.released &&
            !reachable.contains(record.address)) {
            found.push_back({record.address, 0,
                             describe(record) + " in scope '" + std::string(scope.name()) +
                                 "' is allocated but unreachable"});
        }
    }
}

void findPoolDamage(const Pool& pool, const std::string& place, std::vector<PoolFinding>& found) {
    for (const Pool::Damage& damage : pool.checkCanaries()) {
        const char* what = "";
        switch (damage.what) {
        case Pool::Damage::What::Underrun:
            what = "the bytes before it have been written to";
            break;
        case Pool::Damage::What::Overrun:
            what = "the bytes behind it have been written to";
            break;
        case Pool::Damage::What::UseAfterRelease:
            what = "it has been written to after its release";
            break;
        }
        // The contents of a damaged allocation are not to be trusted, so they are not looked at.
        found.push_back({damage.record.address, static_cast<std::uint8_t>(damage.what),
                         std::string(toString(damage.record.kind)) + " of " +
                             std::to_string(damage.record.bytes) + " bytes" + place + ": " + what});
    }
}

struct Amount {
    std::size_t count = 0;
    std::size_t bytes = 0;
    void add(std::size_t more) noexcept {
        ++count;
        bytes += more;
    }
};

using Amounts = std::array<Amount, entityKindCount>;

void addGraph(const Cfg& cfg, Amounts& amounts) {
    const auto add = [&](EntityKind kind, std::size_t bytes) {
        amounts[static_cast<std::size_t>(kind)].add(bytes);
    };
    for (const Block& block : cfg.blocks()) {
        add(EntityKind::Block, sizeof(Block));
        for (const Node& node : block.nodes()) {
            add(EntityKind::Node, node.bytes());
        }
    }
    for (const Var& var : cfg.vars()) {
        add(EntityKind::Var, sizeof(Var));
        add(EntityKind::Name, var.name().size());
    }
    for (const Callee& callee : cfg.callees()) {
        add(EntityKind::Callee, sizeof(Callee));
        add(EntityKind::Name, callee.name().size());
    }
    for (const Const& constant : cfg.constants()) {
        static_cast<void>(constant);
        add(EntityKind::Const, sizeof(Const));
    }
}

} // namespace

std::vector<PoolFinding> findLeaks(const TransformRun& run, bool graphs, bool names) {
    std::vector<PoolFinding> found;
    if (graphs) {
        forEachFunctionOf(run, [&](Function& function) { findGraphLeaks(function, found); });
    }
    if (names && run.isScopeRun()) {
        findNameLeaks(run.scope(), found);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<PoolFinding> findDamage(const TransformRun& run) {
    std::vector<PoolFinding> found;
    forEachFunctionOf(run, [&](Function& function) {
        findPoolDamage(function.cfg().pool(), inFunction(function), found);
    });
    findPoolDamage(run.scope().pool(), " in scope '" + std::string(run.scope().name()) + "'",
                   found);
    std::sort(found.begin(), found.end());
    return found;
}

std::string poolStatistics(const TransformRun& run, const char* side, int level) {
    std::size_t allocated = run.scope().pool().bytesAllocated();
    std::size_t released = run.scope().pool().bytesReleased();
    std::size_t reserved = run.scope().pool().bytesReserved();
    Amounts amounts{};
    forEachFunctionOf(run, [&](Function& function) {
        const Pool& pool = function.cfg().pool();
        allocated += pool.bytesAllocated();
        released += pool.bytesReleased();
        reserved += pool.bytesReserved();
        if (level >= 2) {
            addGraph(function.cfg(), amounts);
        }
    });
    char line[256];
    std::snprintf(line, sizeof line, "%8llu %s ", static_cast<unsigned long long>(run.id()), side);
    std::string text = line + run.tag();
    std::snprintf(line, sizeof line,
                  ": %zu bytes allocated, %zu of them released, %zu reserved; all pools %zu\n",
                  allocated, released, reserved, Pool::totalReserved());
    text += line;
    if (level >= 2) {
        for (std::size_t i = 0; i < amounts.size(); ++i) {
            if (amounts[i].count != 0) {
                std::snprintf(line, sizeof line, "%8s %-8s %10zu alive %12zu bytes\n", "",
                              std::string(toString(static_cast<EntityKind>(i))).c_str(),
                              amounts[i].count, amounts[i].bytes);
                text += line;
            }
        }
    }
    return text;
}

} // namespace QN::detail
