// Checks of the ends of blocks, the edges between blocks, and of dominance.
#include "verify/checks.hpp"

#include <algorithm>
#include <vector>

namespace QN::verification::checks {

namespace {

bool isTerminator(Op op) {
    return static_cast<std::size_t>(op) < opCount && hasFlag(op, OpFlag::Terminator);
}

} // namespace

void blockTerminator(const Survey& graph, Sink& sink) {
    for (std::size_t i = 0; i < graph.blocks().size(); ++i) {
        const Node* const last = graph.lastNode(i);
        // An operation that does not exist is reported as such.
        if (last == nullptr ||
            (static_cast<std::size_t>(last->op()) < opCount && !isTerminator(last->op()))) {
            sink.fail(graph, Where::atBlock(i),
                      last == nullptr ? "the block is empty"
                                      : "the block ends with " + describe(graph, *last) +
                                            ", which is no terminator");
        }
    }
}

void blockTerminatorLast(const Batch& batch, Sink& sink) {
    for (const NodeFacts& node : batch.nodes()) {
        if (isTerminator(node.op) && !node.is(NodeFacts::EndsBlock)) {
            sink.fail(batch, node, "a terminator stands before the end of its block");
        }
    }
}

void flowPredecessors(const Survey& graph, Sink& sink) {
    std::vector<bool> isReported(graph.blocks().size());
    for (const Flaw& flaw : graph.flaws()) {
        if (flaw.of == Flaw::Of::Predecessors) {
            isReported[flaw.where.block] = true;
            sink.fail(graph, flaw.where, flaw.text);
        }
    }
    if (graph.allOperandsAreListed()) {
        return;
    }
    // Some operand is in no list: compare the edges that terminators have with those that lists
    // lead to, block by block.
    std::vector<std::int64_t> missing(graph.blocks().size(), 0);
    for (const Node* const node : graph.nodes()) {
        for (const Operand& operand : node->operands()) {
            const Entity* const to = operand.value();
            if (to != nullptr && graph.memory().isListed(to) && to->kind() == EntityKind::Block) {
                ++missing[graph.blockNumbers()[static_cast<const Block*>(to)]];
            }
        }
    }
    for (std::size_t i = 0; i < missing.size(); ++i) {
        if (isReported[i]) {
            continue;
        }
        for (const Operand& use : graph.blocks()[i]->uses()) { // has no flaw, so can be walked
            missing[i] -= graph.memory().isListed(use.user()) ? 1 : 0;
        }
        if (missing[i] != 0) {
            sink.fail(graph, Where::atBlock(i),
                      "a terminator that leads to the block is not among its uses");
        }
    }
}

void flowUnreachable(const Survey& graph, Sink& sink) {
    if (sink.options().unreachableBlocks || graph.flow().numReachable() == graph.blocks().size()) {
        return;
    }
    for (std::uint32_t i = 0; i < graph.blocks().size(); ++i) {
        if (!graph.flow().isReachable(i)) {
            sink.fail(graph, Where::atBlock(i), "the block cannot be reached from the entry");
        }
    }
}

void flowDominators(const Survey& graph, Sink& sink) {
    const Dominators* const kept = graph.cfg().keptDominators();
    if (kept == nullptr || !graph.blockNumbers().idsAreSound()) {
        return;
    }
    if (kept->order().size() != graph.flow().numReachable()) {
        sink.fail(graph, {},
                  "the dominators that the graph keeps know " +
                      std::to_string(kept->order().size()) + " reachable blocks of " +
                      std::to_string(graph.flow().numReachable()));
        return;
    }
    for (std::uint32_t i = 0; i < graph.blocks().size(); ++i) {
        const std::uint32_t over = graph.flow().immediateDominator(i);
        const Block* const expected = over == FlowGraph::none ? nullptr : graph.blocks()[over];
        if (kept->immediate(*graph.blocks()[i]) != expected ||
            kept->isReachable(*graph.blocks()[i]) != graph.flow().isReachable(i)) {
            sink.fail(graph, Where::atBlock(i),
                      "the graph keeps another immediate dominator of the block");
        }
    }
}

void flowDominance(const Batch& batch, Sink& sink) {
    const Survey& graph = batch.survey();
    batch.forEachFlagged(NodeFacts::Far, [&](const NodeFacts& node) {
        for (std::size_t i = 0; i < node.operands.size(); ++i) {
            const std::uint32_t definition = node.operands[i].node;
            if (definition == noIndex) {
                continue;
            }
            const std::uint32_t from = graph.blockOf(definition);
            const bool holds = from == node.block ? definition < node.number
                                                  : !graph.flow().isReachable(node.block) ||
                                                        (graph.flow().isReachable(from) &&
                                                         graph.flow().dominates(from, node.block));
            if (!holds) {
                sink.fail(batch, node,
                          "operand " + std::to_string(i + 1) + ", " +
                              describe(graph, *node.operands[i].value) + " in block " +
                              std::to_string(graph.blocks()[from]->id()) +
                              ", is not defined on every way to here");
                return;
            }
        }
    });
}

} // namespace QN::verification::checks
