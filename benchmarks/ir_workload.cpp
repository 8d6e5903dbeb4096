// See ir_workload.hpp.
#include "ir_workload.hpp"

#include "tools/generate.hpp"

#include <qn/copy.hpp>

#include <cmath>
#include <utility>

namespace bench {

std::unique_ptr<QN::Scope> makeOneFunction(std::size_t nodes) {
    // How many nodes a statement comes to depends on chance. Small functions differ a lot and are
    // made in no time; large ones take the generator seconds, and differ little from seed to seed.
    const bool isSmall = nodes <= 2'000;
    const double tolerance = isSmall ? 0.02 : 0.1;
    const std::uint32_t seeds = isSmall ? 30 : 2;
    std::unique_ptr<QN::Scope> nearest;
    double smallest = 1;
    for (std::uint32_t seed = 1; seed <= seeds && smallest > tolerance; ++seed) {
        auto statements = static_cast<double>(nodes) / 2.4;
        for (int round = 0; round < 3 && smallest > tolerance; ++round) {
            auto scope = QN::tools::generate(
                {.seed = seed, .functions = 1, .statements = static_cast<int>(statements) + 1});
            const double ratio = static_cast<double>(nodesOf(*scope)) / static_cast<double>(nodes);
            if (const double off = std::abs(ratio - 1); nearest == nullptr || off < smallest) {
                smallest = off;
                nearest = std::move(scope);
            }
            statements /= ratio;
        }
    }
    return nearest;
}

std::unique_ptr<QN::Scope> makeManyFunctions(std::size_t functions) {
    return QN::tools::generate(
        {.seed = 1, .functions = static_cast<int>(functions), .statements = 3});
}

std::unique_ptr<QN::Scope> copyOf(const QN::Scope& scope) {
    auto copy = std::make_unique<QN::Scope>(scope.flavor(), scope.name());
    for (const auto& function : scope.functions()) {
        QN::Function& made = *copy->addFunction(function->name(), function->resultType());
        for (const QN::Type* const type : function->paramTypes()) {
            made.addParam(type, {});
        }
        made.setExported(function->isExported());
        made.replaceCfg(QN::copyOf(function->cfg(), made));
    }
    return copy;
}

std::size_t nodesOf(const QN::Scope& scope) {
    std::size_t nodes = 0;
    for (const auto& function : scope.functions()) {
        nodes += function->cfg().numNodes();
    }
    return nodes;
}

std::size_t blocksOf(const QN::Scope& scope) {
    std::size_t blocks = 0;
    for (const auto& function : scope.functions()) {
        blocks += function->cfg().numBlocks();
    }
    return blocks;
}

} // namespace bench
