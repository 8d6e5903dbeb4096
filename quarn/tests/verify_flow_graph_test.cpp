// The verifier's own graph of blocks, held against what dominance means: a block dominates another
// if that cannot be reached without it.
#include "verify/flow_graph.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using QN::verification::FlowGraph;

namespace {

using Edges = std::vector<FlowGraph::Successors>;
constexpr std::uint32_t none = FlowGraph::none;

/// What can be reached from the entry by ways that avoid one block.
std::vector<bool> reachedWithout(const Edges& edges, std::uint32_t avoided) {
    std::vector<bool> reached(edges.size());
    std::vector<std::uint32_t> open;
    const auto meet = [&](std::uint32_t block) {
        if (block != none && block != avoided && !reached[block]) {
            reached[block] = true;
            open.push_back(block);
        }
    };
    meet(0);
    while (!open.empty()) {
        const std::uint32_t block = open.back();
        open.pop_back();
        for (const std::uint32_t next : edges[block]) {
            meet(next);
        }
    }
    return reached;
}

void expectRight(FlowGraph& graph, const Edges& edges) {
    graph.build(edges);
    const auto count = static_cast<std::uint32_t>(edges.size());
    const std::vector<bool> reached = reachedWithout(edges, none);
    std::uint32_t numReached = 0;
    std::vector<std::uint32_t> numDominators(count, 0);
    for (std::uint32_t b = 0; b < count; ++b) {
        ASSERT_EQ(graph.isReachable(b), reached[b]) << "block " << b;
        numReached += reached[b] ? 1 : 0;
    }
    ASSERT_EQ(graph.numReachable(), numReached);
    std::vector<std::vector<bool>> dominates(count);
    for (std::uint32_t a = 0; a < count; ++a) {
        if (!reached[a]) {
            continue;
        }
        dominates[a] = reachedWithout(edges, a);
        dominates[a].flip();
        for (std::uint32_t b = 0; b < count; ++b) {
            if (reached[b]) {
                ASSERT_EQ(graph.dominates(a, b), dominates[a][b]) << a << " over " << b;
                numDominators[b] += dominates[a][b] ? 1 : 0;
            }
        }
    }
    for (std::uint32_t b = 0; b < count; ++b) {
        const std::uint32_t over = graph.immediateDominator(b);
        if (b == 0 || !reached[b]) {
            ASSERT_EQ(over, none);
        } else { // of the others that dominate it, the one that all others dominate
            ASSERT_TRUE(over != none && over != b && dominates[over][b]) << "block " << b;
            ASSERT_EQ(numDominators[over] + 1, numDominators[b]) << "block " << b;
        }
    }
}

/// Blocks under random numbers, but for the entry.
Edges shuffled(const Edges& edges, std::mt19937& random) {
    std::vector<std::uint32_t> place(edges.size());
    for (std::uint32_t i = 0; i < place.size(); ++i) {
        place[i] = i;
    }
    for (std::size_t i = place.size(); i-- > 2;) {
        std::swap(place[i], place[1 + random() % i]);
    }
    Edges result(edges.size());
    for (std::size_t i = 0; i < edges.size(); ++i) {
        for (std::size_t side = 0; side < 2; ++side) {
            const std::uint32_t next = edges[i][side];
            result[place[i]][side] = next == none ? none : place[next];
        }
    }
    return result;
}

/// Branches that go a little forward, and back to blocks that the way came through for certain:
/// block N goes on to N + 1 unless it skips some.
Edges nested(std::uint32_t count, std::mt19937& random) {
    Edges edges(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto ahead = [&] {
            const auto next = static_cast<std::uint32_t>(i + 1 + random() % 4);
            return next < count ? next : none;
        };
        const auto back = [&] { return static_cast<std::uint32_t>(random() % (i + 1)); };
        switch (random() % 6) {
        case 0:
            edges[i] = {ahead(), none};
            break;
        case 1:
            edges[i] = {ahead(), back()};
            break;
        default:
            edges[i] = {ahead(), ahead()};
        }
    }
    return edges;
}

} // namespace

TEST(FlowGraph, KnowsDominatorsOfAnyGraph) {
    std::mt19937 random(1);
    FlowGraph graph; // one for all, to meet what earlier graphs left
    for (int round = 0; round < 1500; ++round) {
        const auto count = static_cast<std::uint32_t>(1 + random() % 40);
        Edges edges(count);
        for (auto& ends : edges) {
            const auto any = [&] { return static_cast<std::uint32_t>(random() % count); };
            switch (random() % 4) {
            case 0:
                ends = {none, none};
                break;
            case 1:
                ends = {any(), none};
                break;
            default:
                ends = {any(), any()};
            }
        }
        ASSERT_NO_FATAL_FAILURE(expectRight(graph, edges)) << "round " << round;
    }
}

TEST(FlowGraph, KnowsDominatorsOfNestedGraphs) {
    std::mt19937 random(2);
    FlowGraph graph;
    for (int round = 0; round < 1500; ++round) {
        const Edges edges = nested(static_cast<std::uint32_t>(1 + random() % 60), random);
        ASSERT_NO_FATAL_FAILURE(expectRight(graph, edges)) << "round " << round;
        ASSERT_NO_FATAL_FAILURE(expectRight(graph, shuffled(edges, random))) << "round " << round;
    }
}

// Only ways up by jumps make this end soon: the tree is as deep as the graph is large, and every
// block has an edge from its middle or its root to far away.
TEST(FlowGraph, TakesDeepGraphs) {
    constexpr std::uint32_t count = 200'000;
    FlowGraph graph;
    Edges edges(count);
    for (std::uint32_t i = 0; i + 1 < count; ++i) { // all may leave to one at the end
        edges[i] = {i + 1, count - 1};
    }
    edges[count - 1] = {none, none};
    graph.build(edges);
    EXPECT_EQ(graph.immediateDominator(count - 1), 0U);
    EXPECT_EQ(graph.immediateDominator(count - 2), count - 3);
    EXPECT_TRUE(graph.dominates(1, count - 2));
    EXPECT_FALSE(graph.dominates(1, count - 1));

    for (std::uint32_t i = 0; i + 1 < count; ++i) { // loops around one another, closed at the end
        edges[i] = {i + 1, none};
    }
    for (std::uint32_t i = count / 2; i < count; ++i) {
        edges[i][1] = count - 1 - i;
    }
    graph.build(edges);
    EXPECT_EQ(graph.numReachable(), count);
    EXPECT_EQ(graph.immediateDominator(count - 1), count - 2);

    edges[0] = {1, count / 2}; // and all of them entered twice
    graph.build(edges);
    EXPECT_EQ(graph.immediateDominator(count / 2), 0U);
    EXPECT_EQ(graph.immediateDominator(count - 1), count - 2);
    EXPECT_EQ(graph.immediateDominator(count / 4), 0U);
}
