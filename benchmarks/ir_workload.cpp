// See ir_workload.hpp.
#include "ir_workload.hpp"

#include "tools/generate.hpp"

#include <qn/copy.hpp>

#include <cmath>
#include <utility>

namespace bench {

std::unique_ptr<QN::Scope> makeOneFunction(std::size_t nodes) {
    // How many nodes a statement comes to depends on the seed, and on chance in small functions; so
    // several are tried until one is near enough, and the nearest is taken.
    std::unique_ptr<QN::Scope> nearest;
    double smallest = 1;
    for (std::uint32_t seed = 1; seed <= 30 && smallest > 0.02; ++seed) {
        auto statements = static_cast<double>(nodes) / 3;
        for (int round = 0; round < 3 && smallest > 0.02; ++round) {
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
