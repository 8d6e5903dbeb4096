// The scrambler: results stay the same to the bit at every setting, a seed decides everything, the
// limit stops it, and each switch does what it says.
#include "services/scrambling.hpp"
#include "tests/service_support.hpp"
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/scramble_service.hpp>
#include <qn/text.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <gmock/gmock.h>
#include <stdexcept>

using namespace QN;
using namespace QN::testing_support;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

class Scramble : public ServiceTest {
protected:
    static std::string qnelOf(const Scope& scope) {
        std::string text;
        printQnel(scope, text);
        return text;
    }
    static std::vector<std::string> outcomesOf(const Scope& scope, std::uint32_t seed) {
        std::vector<std::string> outcomes;
        for (const auto& function : scope.functions()) {
            // The pipeline may remove the others.
            for (std::uint32_t i = 0; function->isExported() && i < 2; ++i) {
                outcomes.push_back(tools::outcomeOf(
                    scope, *function, tools::generateArguments(*function, seed * 31 + i)));
            }
        }
        return outcomes;
    }
    static std::unique_ptr<Scope> parse(const char* text) {
        ParseError error;
        auto scope = parseQnel(text, error);
        EXPECT_NE(scope, nullptr) << error.format("text");
        return scope;
    }
    // Scrambles `scope` once, before a transform that does nothing.
    void scrambleOnce(Scope& scope) {
        runOnScope("nothing", scope, [] { return false; });
    }
    void everything() {
        service.setIntroducePointers(true);
        service.setScalarVarPointerizationThresh(100);
        service.setAggregateVarPointerizationThresh(100);
    }

    ScrambleService service{false, false};
};

constexpr const char* small = R"((function f f64
  (param $x f64)
  (user $a f64)
  (user $b f64)
  (user $c f64[])
  (block b0
    (%1 f64 load $x)
    (%2 f64 add %1 1)
    (%3 f64 mul %1 2)
    (%4 f64 sub %1 3)
    (store $a %2)
    (store $b %3)
    (%5 f64 load $a)
    (%6 f64 load $b)
    (%7 f64[] newarray 2i64 2i64)
    (store $c %7)
    (stelem $c 1i64 %4)
    (%8 f64 ldelem $c 1i64)
    (%9 f64 add %5 %6)
    (%10 f64 add %9 %8)
    (ret %10)))
)";

} // namespace

TEST_F(Scramble, Defaults) {
    EXPECT_EQ(service.getLimit(), SIZE_MAX);
    EXPECT_EQ(service.getCount(), 0U);
    EXPECT_TRUE(service.scrambleNodeList());
    EXPECT_TRUE(service.scrambleLocalVars());
    EXPECT_FALSE(service.introducePointers());
    EXPECT_EQ(service.scalarVarPointerizationThresh(), 50);
    EXPECT_EQ(service.aggregateVarPointerizationThresh(), 50);
    EXPECT_FALSE(service.verbose());
}

// The bits of a setting: nodes, locals, pointers. With none on, nothing would be scrambled.
class ScrambleEverySetting : public Scramble, public ::testing::WithParamInterface<std::uint32_t> {
protected:
    static constexpr std::uint32_t seeds =
#if defined(__SANITIZE_ADDRESS__)
        100; // everything takes ten times as long
#else
        1000;
#endif

    std::string scrambled(Scope& scope, std::uint32_t seed) {
        service.setSeed(seed);
        service.setScrambleNodeList((GetParam() & 1) != 0);
        service.setScrambleLocalVars((GetParam() & 2) != 0);
        service.setIntroducePointers((GetParam() & 4) != 0);
        service.setScalarVarPointerizationThresh(static_cast<int>(seed % 101));
        service.setAggregateVarPointerizationThresh(static_cast<int>(seed * 7 % 101));
        runPipeline(scope);
        return qnelOf(scope);
    }
};

TEST_P(ScrambleEverySetting, ResultsStayTheSameAndASeedDecidesOverAThousandSeeds) {
    service.setRequestedBefore(true);
    service.setRequestedAfter(true);
    std::size_t changed = 0;
    for (std::uint32_t seed = 1; seed <= seeds; ++seed) {
        const auto plain = tools::generate({seed % 100 + 1});
        const auto first = tools::generate({seed % 100 + 1});
        const auto second = tools::generate({seed % 100 + 1});
        const std::string before = qnelOf(*plain);
        const std::string text = scrambled(*first, seed);
        ASSERT_EQ(scrambled(*second, seed), text) << "seed " << seed;
        const std::size_t count = service.getCount();
        service.setLimit(count); // from here on nothing is scrambled
        const auto optimized = tools::generate({seed % 100 + 1});
        changed += scrambled(*optimized, seed) != text ? 1 : 0;
        service.setLimit(SIZE_MAX);
        const Verification verified = verify(*first);
        ASSERT_TRUE(verified.ok()) << "seed " << seed << ": " << toString(verified.failures()[0]);
        ASSERT_EQ(outcomesOf(*first, seed), outcomesOf(*plain, seed)) << "seed " << seed << "\n"
                                                                      << before << "\nbecame\n"
                                                                      << text;
    }
    EXPECT_GT(changed, seeds / 2) << "it seldom did anything";
}

INSTANTIATE_TEST_SUITE_P(Settings, ScrambleEverySetting, ::testing::Range(1U, 8U),
                         [](const auto& test) {
                             const auto part = [&](std::uint32_t bit, const char* name) {
                                 return (test.param & bit) != 0 ? name : "";
                             };
                             return std::string(part(1, "Nodes")) + part(2, "Locals") +
                                    part(4, "Pointers");
                         });

TEST_F(Scramble, TheSameSeedGivesTheSameIr) {
    everything();
    service.setRequestedBefore(true);
    std::vector<std::string> results;
    for (const unsigned seed : {7U, 8U, 4294967295U, 7U}) {
        const auto scope = tools::generate({3});
        service.setSeed(seed);
        scrambleOnce(*scope);
        results.push_back(qnelOf(*scope));
    }
    EXPECT_EQ(results[0], results[3]);
    EXPECT_NE(results[0], results[1]);
    EXPECT_NE(results[0], results[2]);
}

// The numbers stand for what every machine must make of this program and seed.
TEST_F(Scramble, TheSameSeedGivesTheSameIrOnEveryMachine) {
    everything();
    service.setRequestedBefore(true);
    service.setSeed(12345);
    const auto scope = parse(small);
    scrambleOnce(*scope);
    EXPECT_EQ(detail::hashOf(qnelOf(*scope)), 8380864863626361600U) << qnelOf(*scope);
    detail::Random random(42);
    EXPECT_EQ(random.next(), 13679457532755275413U);
}

TEST_F(Scramble, NodeListIsReorderedAndNothingElse) {
    service.setRequestedBefore(true);
    service.setScrambleLocalVars(false);
    const auto scope = parse(small);
    const std::vector<std::string> before = linesOf(qnelOf(*scope));
    service.setSeed(1);
    scrambleOnce(*scope);
    std::vector<std::string> after = linesOf(qnelOf(*scope));
    EXPECT_NE(after, before);
    EXPECT_TRUE(std::is_permutation(after.begin(), after.end(), before.begin(), before.end()));
    EXPECT_EQ(service.getCount(), 1U);
}

TEST_F(Scramble, LocalsArePermutedAndNothingElse) {
    service.setRequestedAfter(true);
    service.setScrambleNodeList(false);
    const auto scope = parse(small);
    const std::vector<std::string> before = linesOf(qnelOf(*scope));
    for (unsigned seed = 0; service.getCount() == 0; ++seed) {
        service.setSeed(seed);
        scrambleOnce(*scope);
    }
    std::vector<std::string> after = linesOf(qnelOf(*scope));
    EXPECT_NE(after, before);
    EXPECT_EQ(after[2], before[2]); // the parameter stays first
    std::sort(after.begin() + 3, after.begin() + 6);
    EXPECT_EQ(after, before);
}

TEST_F(Scramble, PercentagesDecideWhichVariablesGoBehindPointers) {
    service.setRequestedBefore(true);
    service.setScrambleNodeList(false);
    service.setScrambleLocalVars(false);
    service.setIntroducePointers(true);
    const auto pointersTo = [](const std::string& text) {
        return std::pair(text.find("f64* addrof") != std::string::npos,
                         text.find("f64[]* addrof") != std::string::npos);
    };
    for (const int scalars : {0, 100}) {
        for (const int arrays : {0, 100}) {
            service.setScalarVarPointerizationThresh(scalars);
            service.setAggregateVarPointerizationThresh(arrays);
            const auto scope = parse(small);
            scrambleOnce(*scope);
            EXPECT_EQ(pointersTo(qnelOf(*scope)), std::pair(scalars == 100, arrays == 100));
        }
    }
    EXPECT_EQ(service.getCount(), 8U); // three scalars twice, one array twice
}

TEST_F(Scramble, PointersAreIntroducedOnce) {
    service.setRequestedBefore(true);
    service.setScrambleNodeList(false);
    everything();
    const auto scope = parse(small);
    scrambleOnce(*scope);
    const std::size_t nodes = scope->find("f")->cfg().numNodes();
    scrambleOnce(*scope);
    EXPECT_EQ(scope->find("f")->cfg().numNodes(), nodes);
}

TEST_F(Scramble, LimitStopsItAndCountIsReset) {
    service.setRequestedBefore(true);
    everything();
    service.setLimit(3);
    const auto scope = parse(small);
    scrambleOnce(*scope);
    EXPECT_EQ(service.getCount(), 3U);
    const std::string stopped = qnelOf(*scope);
    scrambleOnce(*scope);
    EXPECT_EQ(qnelOf(*scope), stopped);
    service.resetCount();
    EXPECT_EQ(service.getCount(), 0U);
    scrambleOnce(*scope);
    EXPECT_NE(qnelOf(*scope), stopped);
    service.resetCount();
    service.setLimit(0);
    const auto other = parse(small);
    const std::string untouched = qnelOf(*other);
    scrambleOnce(*other);
    EXPECT_EQ(qnelOf(*other), untouched);
}

// Whether a counter counts when a node traps depends on their order, and so does which one traps.
TEST_F(Scramble, CountersAndWhatMayTrapKeepTheirOrder) {
    constexpr const char* text = R"((function f f64
  (param $a f64[])
  (param $x f64)
  (block b0
    (count 0i64)
    (%1 f64 load $x)
    (%2 i64 toindex %1)
    (count 1i64)
    (%3 f64 mul %1 3)
    (%4 i64 toindex %3)
    (%5 f64 ldelem $a %2)
    (%6 f64 add %3 4)
    (count 2i64)
    (%10 i64 numel $a)
    (chkbounds %4 %10)
    (%7 f64 ldelem:inb $a %4)
    (%8 f64 add %5 %7)
    (%9 f64 add %8 %6)
    (ret %9)))
)";
    service.setRequestedBefore(true);
    service.setScrambleLocalVars(false);
    const auto orderIn = [](const Scope& scope) {
        std::string order;
        for (const Node& node : scope.find("f")->cfg().entry()->nodes()) {
            if (node.op() == Op::Count || node.mayTrap() || node.has(OpFlag::Indexes)) {
                order += std::to_string(node.id()) + ' ';
            }
        }
        return order;
    };
    const std::string order = orderIn(*parse(text));
    for (unsigned seed = 1; seed <= 100; ++seed) {
        const auto scope = parse(text);
        service.setSeed(seed);
        scrambleOnce(*scope);
        ASSERT_EQ(orderIn(*scope), order) << qnelOf(*scope);
    }
    EXPECT_GT(service.getCount(), 50U);
}

TEST_F(Scramble, WhatAFailedTransformHasLeftIsLeftAlone) {
    const Transform fails{"fails", "throws",
                          [](Function&) -> bool { throw std::runtime_error("failed"); }, nullptr};
    service.setRequestedAfter(true);
    const auto scope = parse(small);
    const std::string before = qnelOf(*scope);
    EXPECT_THROW(runTransform(fails, *scope->find("f")), std::runtime_error);
    EXPECT_EQ(qnelOf(*scope), before);
    EXPECT_EQ(service.getCount(), 0U);
}

TEST_F(Scramble, FilterAndSidesSelectRuns) {
    service.setRequestedAfter(true);
    service.setFilter("other");
    const auto scope = parse(small);
    scrambleOnce(*scope);
    EXPECT_EQ(service.getCount(), 0U);
    service.setFilter("scope_main");
    scrambleOnce(*scope);
    EXPECT_GT(service.getCount(), 0U);
}

TEST_F(Scramble, RunsInsideOtherRunsAreLeftAlone) {
    service.setRequestedBefore(true);
    service.setFilter("inner");
    const auto scope = parse(small);
    runOnScope("outer", *scope, [&] {
        run("inner", *scope->find("f"), [] { return false; });
        return false;
    });
    EXPECT_EQ(service.getCount(), 0U);
    run("inner", *scope->find("f"), [] { return false; });
    EXPECT_GT(service.getCount(), 0U);
}

TEST_F(Scramble, VerboseTellsOfEachRun) {
    service.setRequestedBefore(true);
    everything();
    const auto scope = parse(small);
    scrambleOnce(*scope);
    EXPECT_EQ(console, "");
    service.setVerbose(true);
    const auto other = parse(small);
    scrambleOnce(*other);
    EXPECT_THAT(console, MatchesRegex("Scrambled before nothing-scope_main: 1 block reordered, "
                                      "[01] permutations? of locals, 4 variables behind pointers; "
                                      "count [0-9]+\n"));
}
