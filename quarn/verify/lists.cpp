// Checks of the graph's lists, counts and ids, and of the memory that they lie in.
#include "verify/checks.hpp"

#include <algorithm>
#include <string>
#include <vector>

namespace QN::verification::checks {

namespace {

void reportFlaws(const Survey& graph, Flaw::Of of, Sink& sink) {
    for (const Flaw& flaw : graph.flaws()) {
        if (flaw.of == of) {
            sink.fail(graph, flaw.where, flaw.text);
        }
    }
}

void compareCounts(const Survey& graph, std::string_view what, std::size_t said, std::size_t found,
                   Sink& sink) {
    if (said != found) {
        sink.fail(graph, {},
                  std::string("the graph counts ")
                      .append(std::to_string(said))
                      .append(" ")
                      .append(what)
                      .append(" where there are ")
                      .append(std::to_string(found)));
    }
}

// Reports each entity whose id one before it has. `place` makes a Where of a number in `all`.
template <typename Entities, typename Place>
void reportSharedIds(const Survey& graph, const Entities& all, Place place, Sink& sink) {
    const auto doNotGrow = [](const auto& a, const auto& b) { return a->id() >= b->id(); };
    if (std::adjacent_find(all.begin(), all.end(), doNotGrow) == all.end()) {
        return; // as in most graphs
    }
    std::vector<std::uint32_t> order(all.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return all[a]->id() < all[b]->id(); });
    for (std::size_t i = 1; i < order.size(); ++i) {
        if (all[order[i]]->id() == all[order[i - 1]]->id()) {
            sink.fail(graph, place(order[i]),
                      describe(graph, *all[order[i]]) + " has the id of another");
        }
    }
}

template <typename Entities, typename Place>
void reportIdsFrom(const Survey& graph, std::uint32_t limit, const Entities& all, Place place,
                   Sink& sink) {
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i]->id() >= limit) {
            sink.fail(graph, place(i),
                      describe(graph, *all[i]) + " has an id from the limit " +
                          std::to_string(limit) + " on");
        }
    }
}

auto placeOfVar(const Survey& graph) {
    return [&graph](std::size_t i) { return Where{noIndex, noIndex, graph.vars()[i]->line()}; };
}

} // namespace

void blockList(const Survey& graph, Sink& sink) {
    reportFlaws(graph, Flaw::Of::BlockList, sink);
}

void blockCount(const Survey& graph, Sink& sink) {
    compareCounts(graph, "blocks", graph.cfg().numBlocks(), graph.blocks().size(), sink);
}

void blockIdUnique(const Survey& graph, Sink& sink) {
    if (!graph.blockNumbers().idsAreSound()) {
        reportSharedIds(graph, graph.blocks(), Where::atBlock, sink);
    }
}

void blockIdLimit(const Survey& graph, Sink& sink) {
    if (!graph.blockNumbers().idsAreSound()) {
        reportIdsFrom(graph, graph.cfg().blockIdLimit(), graph.blocks(), Where::atBlock, sink);
    }
}

void blockOwner(const Survey& graph, Sink& sink) {
    for (std::size_t i = 0; i < graph.blocks().size(); ++i) {
        if (&graph.blocks()[i]->cfg() != &graph.cfg()) {
            sink.fail(graph, Where::atBlock(i), "the block names another graph as its own");
        }
    }
}

void nodeList(const Survey& graph, Sink& sink) {
    reportFlaws(graph, Flaw::Of::NodeList, sink);
}

void nodeCount(const Survey& graph, Sink& sink) {
    for (std::size_t i = 0; i < graph.blocks().size(); ++i) {
        const std::uint32_t found = graph.endNode(i) - graph.firstNode(i);
        if (graph.blocks()[i]->numNodes() != found) {
            sink.fail(graph, Where::atBlock(i),
                      "the block counts " + std::to_string(graph.blocks()[i]->numNodes()) +
                          " nodes where there are " + std::to_string(found));
        }
    }
}

void nodeTotal(const Survey& graph, Sink& sink) {
    compareCounts(graph, "nodes", graph.cfg().numNodes(), graph.nodes().size(), sink);
}

void nodeBlock(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::WrongBlock, [&](const NodeFacts& node) {
        sink.fail(batch, node, "the node names another block than the one in whose list it is");
    });
}

void nodeIdUnique(const Survey& graph, Sink& sink) {
    if (!graph.nodeNumbers().idsAreSound()) {
        reportSharedIds(graph, graph.nodes(), Where::atNode, sink);
    }
}

void nodeIdLimit(const Survey& graph, Sink& sink) {
    if (!graph.nodeNumbers().idsAreSound()) {
        reportIdsFrom(graph, graph.cfg().nodeIdLimit(), graph.nodes(), Where::atNode, sink);
    }
}

void varList(const Survey& graph, Sink& sink) {
    reportFlaws(graph, Flaw::Of::VarList, sink);
}

void varCount(const Survey& graph, Sink& sink) {
    compareCounts(graph, "variables", graph.cfg().numVars(), graph.vars().size(), sink);
}

void varIdUnique(const Survey& graph, Sink& sink) {
    reportSharedIds(graph, graph.vars(), placeOfVar(graph), sink);
}

void varIdLimit(const Survey& graph, Sink& sink) {
    reportIdsFrom(graph, graph.cfg().varIdLimit(), graph.vars(), placeOfVar(graph), sink);
}

void constList(const Survey& graph, Sink& sink) {
    reportFlaws(graph, Flaw::Of::ConstList, sink);
}

void constCount(const Survey& graph, Sink& sink) {
    compareCounts(graph, "constants", graph.cfg().numConstants(), graph.consts().size(), sink);
}

void constId(const Survey& graph, Sink& sink) {
    for (std::size_t i = 0; i < graph.consts().size(); ++i) {
        if (graph.consts()[i]->id() != i) {
            sink.fail(graph, {},
                      describe(graph, *graph.consts()[i]) + " is number " + std::to_string(i) +
                          " in the list");
        }
    }
}

void calleeList(const Survey& graph, Sink& sink) {
    reportFlaws(graph, Flaw::Of::CalleeList, sink);
}

void graphReleased(const Survey& graph, Sink& sink) {
    for (const Pool::Record& record : graph.cfg().pool().records()) {
        if (record.released && graph.memory().isListed(record.address)) {
            sink.fail(graph, {},
                      describe(graph, *static_cast<const Entity*>(record.address)) +
                          " is in a list, but was given back to the pool");
        }
    }
}

void graphCanaries(const Survey& graph, Sink& sink) {
    for (const Pool::Damage& damage : graph.cfg().pool().checkCanaries()) {
        const std::string_view where = damage.what == Pool::Damage::What::Underrun  ? "before"
                                       : damage.what == Pool::Damage::What::Overrun ? "behind"
                                                                                    : "into";
        sink.fail(graph, {},
                  std::string("something wrote ")
                      .append(where)
                      .append(damage.record.released ? " a released allocation of "
                                                     : " an allocation of ")
                      .append(std::to_string(damage.record.bytes))
                      .append(" bytes for a ")
                      .append(toString(damage.record.kind)));
    }
}

void graphCompact(const Survey& graph, Sink& sink) {
    if (!sink.options().compacted) {
        return;
    }
    const auto compare = [&](std::string_view what, std::size_t ids, std::size_t count) {
        if (ids > count) {
            sink.fail(graph, {},
                      std::to_string(ids) + " ids are in use for " + std::to_string(count) + " " +
                          std::string(what));
        }
    };
    compare("blocks", graph.cfg().blockIdLimit(), graph.blocks().size());
    compare("variables", graph.cfg().varIdLimit(), graph.vars().size());
    // Node ids count from 1.
    compare("nodes", graph.cfg().nodeIdLimit() - std::size_t{1}, graph.nodes().size());
}

} // namespace QN::verification::checks
