// The verifier over graphs whose memory was overwritten at random: it ends, reads nothing that the
// pool does not hold (under the address sanitizer), and says where it found what.
#include "tests/verify_surgeon.hpp"
#include "tools/generate.hpp"

#include <qn/verify.hpp>

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace QN;
using namespace QN::surgeon;

namespace {

/// All words of 32 bits in the memory of a graph's pool.
std::vector<std::uint32_t*> wordsOf(Cfg& cfg) {
    std::vector<std::uint32_t*> words;
    for (const std::span<const std::byte> extent : cfg.pool().extents()) {
        auto* const first = reinterpret_cast<std::uint32_t*>(const_cast<std::byte*>(extent.data()));
        for (std::size_t i = 0; i < extent.size() / sizeof *first; ++i) {
            words.push_back(first + i);
        }
    }
    return words;
}

/// Something that may once have been a reference, a small number, or neither.
std::uint32_t likelyWord(std::mt19937& random, const std::vector<std::uint32_t*>& words) {
    const std::uint32_t other = *words[random() % words.size()];
    switch (random() % 5) {
    case 0:
        return other;
    case 1:
        return other + static_cast<std::uint32_t>(random() % 9) - 4;
    case 2:
        return static_cast<std::uint32_t>(random() % 300);
    case 3:
        return Ref<std::uint32_t>(
                   reinterpret_cast<std::uint32_t*>(
                       reinterpret_cast<std::uintptr_t>(words[random() % words.size()]) &
                       ~std::uintptr_t{7}))
            .bits();
    default:
        return static_cast<std::uint32_t>(random());
    }
}

} // namespace

TEST(Damaged, GraphsAreVerifiedToTheEnd) {
    std::mt19937 random(1);
    std::size_t found = 0;
    std::size_t graphs = 0;
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        for (const std::size_t changes : {1U, 1U, 2U, 5U, 30U, 300U}) {
            const auto scope = tools::generate({seed});
            for (const auto& function : scope->functions()) {
                Cfg& cfg = function->cfg();
                const std::vector<std::uint32_t*> words = wordsOf(cfg);
                for (std::size_t i = 0; i < changes; ++i) {
                    *words[random() % words.size()] = likelyWord(random, words);
                }
                const Verification result = verify(*function);
                ++graphs;
                found += result.ok() ? 0 : 1;
                for (const Failure& failure : result.failures()) {
                    ASSERT_FALSE(failure.message.empty());
                    ASSERT_EQ(failure.place.function, function->name());
                }
            }
            (void)verify(*scope);
        }
    }
    // A change of a single word may do no harm: a line, a constant's value, a name's letter.
    EXPECT_GT(found, graphs * 2 / 3) << "of " << graphs;
}

TEST(Damaged, HeadsOfListsMayBeAnything) {
    std::mt19937 random(2);
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        const auto scope = tools::generate({seed});
        for (const auto& function : scope->functions()) {
            Cfg& cfg = function->cfg();
            const std::vector<std::uint32_t*> words = wordsOf(cfg);
            const auto spoil = [&](auto& member) {
                if (random() % 3 == 0) {
                    std::uint32_t word = likelyWord(random, words);
                    std::memcpy(static_cast<void*>(&member), &word, sizeof word);
                }
            };
            spoil(cut(&cfg, CfgFirstBlock()));
            spoil(cut(&cfg, CfgFirstVar()));
            spoil(cut(&cfg, CfgLastConst()));
            spoil(cut(&cfg, CfgLastCallee()));
            spoil(cut(&cfg, CfgNumBlocks()));
            spoil(cut(&cfg, CfgNumNodes()));
            spoil(cut(&cfg, CfgNextNodeId()));
            const Verification result = verify(*function);
            EXPECT_EQ(result.total(), result.failures().size());
        }
    }
}

TEST(Damaged, AGraphWithoutAnythingIsValid) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::voidType());
    EXPECT_TRUE(verify(f).ok());
    f.deleteCfg();
    EXPECT_TRUE(verify(f).ok());
}

TEST(Failures, NameTheirPlaces) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::f64());
    Cfg& g = f.cfg();
    Builder b(g, g.addBlock());
    b.ret(g.constantDouble(1));
    Builder other(g, g.addBlock());
    other.setLine(12);
    other.unary(Op::Not, g.constantDouble(1));
    other.unary(Op::Not, g.constantDouble(1));
    other.setLine(13);
    other.ret(g.constantLogical(true));

    const Verification found = verify(f);
    ASSERT_EQ(found.failures().size(), 4U);
    std::vector<std::string> texts;
    for (const Failure& failure : found.failures()) {
        texts.push_back(toString(failure));
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "f: block 1: the block cannot be reached from the entry "
                         "[flow.unreachable]",
                         "f: block 1: node 0 (id 2): line 12: not: f64 from f64; all must be "
                         "logical [type.logical]",
                         "f: block 1: node 1 (id 3): line 12: not: f64 from f64; all must be "
                         "logical [type.logical]",
                         "f: block 1: node 2 (id 4): line 13: ret: returns logical from a function "
                         "with the result type f64 [type.return]",
                     }));
    EXPECT_EQ(found.count(Check::typeLogical), 2U);
    EXPECT_EQ(found.count(Check::typeStore), 0U);
    EXPECT_EQ(found.total(), 4U);

    const Verification brief = verify(f, {.detailsPerCheck = 1});
    EXPECT_EQ(brief.failures().size(), 3U);
    EXPECT_EQ(brief.total(), 4U);
    EXPECT_TRUE(verify(f, {.unreachableBlocks = true}).count(Check::flowUnreachable) == 0);
}

// Nested loops, ladders and a switch-like fan: what is kept and what the verifier computes by
// another algorithm must agree on generated graphs of all shapes.
TEST(Dominators, OfTheVerifierAreThoseOfTheGraph) {
    std::mt19937 random(3);
    for (int round = 0; round < 400; ++round) {
        Scope scope(ScopeFlavor::Unit, "u");
        Function& f = *scope.addFunction("f", Type::voidType());
        Cfg& g = f.cfg();
        std::vector<Block*> blocks;
        const std::size_t count = 1 + random() % 40;
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
            default:
                b.branch(g.constantLogical(true), any(), any());
            }
        }
        (void)g.dominators();
        const Verification found = verify(f, {.unreachableBlocks = true});
        ASSERT_TRUE(found.ok()) << toString(found.failures().front());
    }
}
