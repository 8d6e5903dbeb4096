// Dominance against its definition, loops, on generated graphs; and their cost on graphs of awkward
// shape.
#include "tools/generate.hpp"

#include <qn/copy.hpp>
#include <qn/ir.hpp>
#include <qn/loops.hpp>

#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace QN;

namespace {

/// A graph of `count` blocks with random edges.
void makeRandomGraph(Cfg& g, std::size_t count, std::mt19937& random) {
    std::vector<Block*> blocks;
    for (std::size_t i = 0; i < count; ++i) {
        blocks.push_back(g.addBlock());
    }
    for (Block* const block : blocks) {
        Builder b(g, block);
        const auto any = [&] { return blocks[random() % count]; };
        switch (random() % 4) {
        case 0:
            b.ret();
            break;
        case 1:
            b.jump(any());
            break;
        default: {
            Block* const yes = any();
            b.branch(g.constantLogical(true), yes, any());
        }
        }
    }
}

/// The blocks that can be reached from the entry without passing through `avoided`.
std::vector<bool> reachedWithout(const Cfg& g, const Block* avoided) {
    std::vector<bool> reached(g.blockIdLimit(), false);
    std::vector<Block*> pending;
    if (g.entry() != avoided) {
        pending.push_back(g.entry());
        reached[g.entry()->id()] = true;
    }
    while (!pending.empty()) {
        Block* const block = pending.back();
        pending.pop_back();
        for (std::size_t i = 0; i < block->numSuccessors(); ++i) {
            Block* const next = block->successor(i);
            if (next != avoided && !reached[next->id()]) {
                reached[next->id()] = true;
                pending.push_back(next);
            }
        }
    }
    return reached;
}

} // namespace

TEST(Dominators, AgreeWithTheirDefinition) {
    std::mt19937 random(3);
    for (int round = 0; round < 300; ++round) {
        Scope scope(ScopeFlavor::Unit, "u");
        Cfg& g = scope.addFunction("f", Type::voidType())->cfg();
        makeRandomGraph(g, 2 + random() % 14, random);
        const Dominators& dominators = g.dominators();
        const std::vector<bool> reachable = reachedWithout(g, nullptr);
        for (const Block& a : g.blocks()) {
            ASSERT_EQ(dominators.isReachable(a), reachable[a.id()]);
            const std::vector<bool> without = reachedWithout(g, &a);
            for (const Block& b : g.blocks()) {
                const bool expected = reachable[a.id()] && reachable[b.id()] && !without[b.id()];
                ASSERT_EQ(dominators.dominates(a, b), expected)
                    << "round " << round << ": b" << a.id() << " over b" << b.id();
            }
            if (const Block* const immediate = dominators.immediate(a); immediate != nullptr) {
                // Every other dominator of a dominates the immediate one.
                for (const Block& b : g.blocks()) {
                    if (&b != &a && dominators.dominates(b, a)) {
                        ASSERT_TRUE(dominators.dominates(b, *immediate));
                    }
                }
                ASSERT_LT(dominators.indexOf(*immediate), dominators.indexOf(a));
            } else {
                ASSERT_TRUE(!reachable[a.id()] || &a == g.entry());
            }
        }
    }
}

TEST(Loops, NestAsWritten) {
    Scope scope(ScopeFlavor::Unit, "u");
    Cfg& g = scope.addFunction("f", Type::voidType())->cfg();
    std::vector<Block*> b;
    for (int i = 0; i < 7; ++i) {
        b.push_back(g.addBlock());
    }
    Const* const yes = g.constantLogical(true);
    Builder(g, b[0]).jump(b[1]);
    Builder(g, b[1]).branch(yes, b[2], b[6]); // outer header
    Builder(g, b[2]).branch(yes, b[3], b[5]); // inner header
    Builder(g, b[3]).branch(yes, b[3], b[4]); // a loop of one block, in the inner one
    Builder(g, b[4]).jump(b[2]);
    Builder(g, b[5]).jump(b[1]);
    Builder(g, b[6]).ret();
    const Loops loops(g);
    ASSERT_EQ(loops.all().size(), 3U);
    const auto outer = loops.innermost(*b[1]);
    const auto inner = loops.innermost(*b[2]);
    const auto single = loops.innermost(*b[3]);
    EXPECT_EQ(loops.all()[outer].header, b[1]);
    EXPECT_EQ(loops.all()[outer].depth, 1U);
    EXPECT_EQ(loops.all()[inner].parent, outer);
    EXPECT_EQ(loops.all()[single].parent, inner);
    EXPECT_EQ(loops.all()[single].depth, 3U);
    EXPECT_EQ(loops.innermost(*b[5]), outer);
    EXPECT_EQ(loops.innermost(*b[4]), inner);
    EXPECT_EQ(loops.innermost(*b[6]), Loop::none);
    EXPECT_EQ(loops.innermost(*b[0]), Loop::none);
    EXPECT_TRUE(loops.isInside(single, outer));
    EXPECT_TRUE(loops.isInside(inner, inner));
    EXPECT_FALSE(loops.isInside(outer, inner));
    EXPECT_FALSE(loops.isInside(Loop::none, outer));
    EXPECT_LT(outer, inner);
    EXPECT_LT(inner, single);
    EXPECT_EQ(loops.all()[outer].ownBlocks.size(), 2U);
}

TEST(Loops, BodiesAgreeWithTheirDefinition) {
    std::mt19937 random(5);
    for (int round = 0; round < 300; ++round) {
        Scope scope(ScopeFlavor::Unit, "u");
        Cfg& g = scope.addFunction("f", Type::voidType())->cfg();
        makeRandomGraph(g, 2 + random() % 12, random);
        const Dominators& dominators = g.dominators();
        const Loops loops(g);
        std::size_t headers = 0;
        for (Block* const header : dominators.order()) {
            // The body: blocks under the header from which a latch is reached without the header.
            std::vector<bool> body(g.blockIdLimit(), false);
            std::vector<Block*> pending;
            header->forEachPredecessor([&](Block& latch) {
                if (dominators.dominates(*header, latch)) {
                    pending.push_back(&latch);
                }
            });
            if (pending.empty()) {
                continue;
            }
            ++headers;
            body[header->id()] = true;
            while (!pending.empty()) {
                Block* const block = pending.back();
                pending.pop_back();
                if (!body[block->id()]) {
                    body[block->id()] = true;
                    block->forEachPredecessor([&](Block& before) {
                        if (dominators.isReachable(before)) {
                            pending.push_back(&before);
                        }
                    });
                }
            }
            const std::uint32_t loop = loops.innermost(*header);
            ASSERT_EQ(loops.all()[loop].header, header);
            for (const Block& block : g.blocks()) {
                ASSERT_EQ(loops.isInside(loops.innermost(block), loop), bool{body[block.id()]})
                    << "round " << round << ": b" << block.id() << " in the loop of b"
                    << header->id();
            }
        }
        ASSERT_EQ(loops.all().size(), headers);
    }
}

TEST(Analyses, AwkwardShapesCostNoMoreThanOthers) {
    constexpr int count = 100'000;
    Scope scope(ScopeFlavor::Unit, "u");
    // A chain in which every block may leave to one exit, its edges in either order.
    for (const bool reversed : {false, true}) {
        Cfg& g = scope.addFunction(reversed ? "reversed" : "exits", Type::voidType())->cfg();
        Block* const exit = g.addBlock();
        Block* block = g.addBlock();
        g.moveBlock(exit, block);
        const Block* const entry = block;
        for (int i = 0; i < count; ++i) {
            Block* const next = g.addBlock();
            Builder(g, block).branch(g.constantLogical(true), exit, next);
            block = next;
        }
        Builder(g, block).jump(exit);
        Builder(g, exit).ret();
        if (reversed) {
            Block* const other = g.addBlock();
            g.replaceUses(exit, other);
            Builder(g, other).ret();
            EXPECT_EQ(g.dominators().immediate(*other), entry);
        } else {
            EXPECT_EQ(g.dominators().immediate(*exit), entry);
        }
    }
    // Loops inside loops.
    Cfg& g = scope.addFunction("nest", Type::voidType())->cfg();
    std::vector<Block*> headers;
    headers.push_back(g.addBlock());
    for (int i = 0; i < count; ++i) {
        headers.push_back(g.addBlock());
        Builder(g, headers[headers.size() - 2]).jump(headers.back());
    }
    Block* block = headers.back();
    for (std::size_t i = headers.size(); i-- > 1;) {
        Block* const next = g.addBlock();
        Builder(g, block).branch(g.constantLogical(true), headers[i], next);
        block = next;
    }
    Builder(g, block).ret();
    const Loops loops(g);
    EXPECT_EQ(loops.all().size(), static_cast<std::size_t>(count));
    EXPECT_EQ(loops.all().back().depth, static_cast<std::uint32_t>(count));
}

TEST(Copy, SaysTheSameAndTellsDifferences) {
    for (std::uint32_t seed = 1; seed <= 100; ++seed) {
        const auto scope = tools::generate({seed});
        Function& f = *scope->functions().back();
        const auto copy = copyOf(f.cfg(), f);
        EXPECT_EQ(differenceOf(f.cfg(), *copy), "");
        EXPECT_EQ(differenceOf(*copy, f.cfg()), "");
        EXPECT_EQ(copy->numNodes(), f.cfg().numNodes());
        copy->entry()->first()->setLine(9999);
        EXPECT_NE(differenceOf(f.cfg(), *copy), "");
    }
    Scope scope(ScopeFlavor::Unit, "u");
    Cfg& a = scope.addFunction("a", Type::f64())->cfg();
    Cfg& b = scope.addFunction("b", Type::f64())->cfg();
    Builder(a, a.addBlock()).ret(a.constantDouble(1));
    Builder(b, b.addBlock()).ret(b.constantDouble(2));
    EXPECT_EQ(differenceOf(a, b), "'ret 1': operand 0 differs");
    b.entry()->last()->setOperand(0, b.constantDouble(1));
    EXPECT_EQ(differenceOf(a, b), "");
    a.addVar(VarKind::User, Type::f64(), "x");
    EXPECT_EQ(differenceOf(a, b), "the number of variables differs");
    b.addVar(VarKind::User, Type::f64(), "y");
    EXPECT_EQ(differenceOf(a, b), "variable 'x' differs");
}
