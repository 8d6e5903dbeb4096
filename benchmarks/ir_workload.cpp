// See ir_workload.hpp.
#include "ir_workload.hpp"

#include "tools/generate.hpp"

#include <qn/copy.hpp>

namespace bench {

std::unique_ptr<QN::Scope> makeOneFunction(std::size_t nodes) {
    // A statement comes to between two and five nodes; the nearest of a few tries is good enough.
    int statements = static_cast<int>(nodes / 3) + 1;
    std::unique_ptr<QN::Scope> scope;
    for (int round = 0; round < 6; ++round) {
        scope = QN::tools::generate({.seed = 1, .functions = 1, .statements = statements});
        const double off = static_cast<double>(nodes) / static_cast<double>(nodesOf(*scope));
        if (off > 0.97 && off < 1.03) {
            break;
        }
        statements = static_cast<int>(statements * off) + 1;
    }
    return scope;
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
