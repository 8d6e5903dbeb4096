// See ir_workload.hpp.
#include "ir_workload.hpp"

#include "tools/generate.hpp"

#include <qn/copy.hpp>
#include <qn/ir.hpp>

#include <vector>

namespace bench {

// The generator takes time that grows with the square of a function, so a large one is put together
// of many small ones: each goes on to the next where it returned.
std::unique_ptr<QN::Scope> makeOneFunction(std::size_t nodes) {
    auto scope = std::make_unique<QN::Scope>(QN::ScopeFlavor::Unit, "one");
    QN::Cfg& graph = scope->addFunction("f", QN::Type::voidType())->cfg();
    std::vector<QN::Node*> returns; // of the piece before
    for (std::uint32_t seed = 1; graph.numNodes() < nodes; ++seed) {
        const auto piece = QN::tools::generate({.seed = seed, .functions = 1, .statements = 12});
        const QN::Cfg& from = piece->functions().front()->cfg();
        QN::GraphCopier copier(from, graph);
        for (const QN::Var& var : from.vars()) {
            copier.copyVar(var, var.name().empty() ? QN::VarKind::Temp : QN::VarKind::User);
        }
        copier.copyBlocks();
        QN::Block& start = copier.of(*from.entry());
        for (QN::Node* const end : returns) {
            QN::Block* const block = end->block();
            graph.remove(end);
            QN::Builder(graph, block).jump(&start);
        }
        returns.clear();
        for (const QN::Block& block : from.blocks()) {
            if (QN::Node& end = copier.of(*block.terminator()); end.op() == QN::Op::Ret) {
                returns.push_back(&end);
            }
        }
    }
    for (QN::Node* const end : returns) {
        QN::Block* const block = end->block();
        graph.remove(end);
        QN::Builder(graph, block).ret();
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
