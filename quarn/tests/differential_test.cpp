// Every transform on generated IR: results stay the same to the last bit, and the text form
// survives.
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/text.hpp>
#include <qn/transform.hpp>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>

using namespace QN;

namespace {

constexpr std::uint32_t argumentSets = 3;

std::vector<std::string> outcomesOf(const Scope& scope, std::uint32_t seed) {
    std::vector<std::string> outcomes;
    const Function& last = *scope.find("f2");
    for (std::uint32_t i = 0; i < argumentSets; ++i) {
        outcomes.push_back(
            tools::outcomeOf(scope, last, tools::generateArguments(last, seed * 17 + i)));
    }
    return outcomes;
}

std::string qnelOf(const Scope& scope) {
    std::string text;
    printQnel(scope, text);
    return text;
}

class EachTransform : public ::testing::TestWithParam<const Transform*> {};

/// Runs `change` on what each seed gives and compares before with after.
template <typename Change>
std::size_t compareOver(std::uint32_t seeds, Change change) {
    std::size_t changed = 0;
    for (std::uint32_t seed = 1; seed <= seeds; ++seed) {
        const auto scope = tools::generate({seed});
        const std::vector<std::string> before = outcomesOf(*scope, seed);
        const std::string text = qnelOf(*scope);
        change(*scope);
        const std::string textAfter = qnelOf(*scope);
        changed += text != textAfter ? 1 : 0;
        EXPECT_EQ(outcomesOf(*scope, seed), before) << "seed " << seed;
        ParseError error;
        const auto parsed = parseQnel(textAfter, error);
        EXPECT_TRUE(parsed != nullptr) << "seed " << seed << ": " << error.format("after");
        if (parsed != nullptr) {
            EXPECT_EQ(qnelOf(*parsed), textAfter) << "seed " << seed;
        }
        if (::testing::Test::HasFailure()) {
            ADD_FAILURE() << text << "\nbecame\n" << textAfter;
            break;
        }
    }
    return changed;
}

std::vector<const Transform*> pointersToAll() {
    std::vector<const Transform*> all;
    for (const Transform& transform : allTransforms()) {
        all.push_back(&transform);
    }
    return all;
}

} // namespace

TEST_P(EachTransform, KeepsResults) {
    const std::size_t changed =
        compareOver(300, [](Scope& scope) { runTransformOnAll(*GetParam(), scope); });
    EXPECT_GT(changed, 0U) << "it never did anything";
}

// The others may open new ground for themselves.
TEST(Transforms, SomeDoNothingTheSecondTime) {
    for (const char* const name :
         {"bounds-checks", "compaction", "profiling", "rounding-overflow", "unused-functions"}) {
        const Transform& transform = *transformNamed(name);
        for (std::uint32_t seed = 1; seed <= 50; ++seed) {
            const auto scope = tools::generate({seed});
            runTransformOnAll(transform, *scope);
            const std::string once = qnelOf(*scope);
            EXPECT_FALSE(runTransformOnAll(transform, *scope)) << name << ", seed " << seed;
            EXPECT_EQ(qnelOf(*scope), once);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Transforms, EachTransform, ::testing::ValuesIn(pointersToAll()),
                         [](const auto& test) {
                             std::string name(test.param->name);
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(Pipeline, KeepsResults) {
    compareOver(1500, [](Scope& scope) { runPipeline(scope); });
}

TEST(Pipeline, EveryTransformOnTopOfTheOthersKeepsResults) {
    compareOver(200, [](Scope& scope) {
        for (int round = 0; round < 2; ++round) {
            for (const Transform& transform : allTransforms()) {
                runTransformOnAll(transform, scope);
            }
        }
    });
}

// Transforms meet what others made of the IR, in orders that the pipeline does not have.
TEST(Pipeline, TransformsInAnyOrderKeepResults) {
    std::mt19937 random(11);
    compareOver(1000, [&](Scope& scope) {
        for (int i = 0; i < 10; ++i) {
            runTransformOnAll(allTransforms()[random() % allTransforms().size()], scope);
        }
    });
}

TEST(Generator, TheSameSeedGivesTheSameIr) {
    EXPECT_EQ(qnelOf(*tools::generate({5})), qnelOf(*tools::generate({5})));
    EXPECT_NE(qnelOf(*tools::generate({5})), qnelOf(*tools::generate({6})));
}

// Whichever compiler built the system. The number changes with what the generator writes, and only
// then.
TEST(Generator, TheSameSeedsGiveTheSameIrInEveryBuild) {
    std::uint64_t digest = 0xcbf29ce484222325; // FNV-1a
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        for (const char each : qnelOf(*tools::generate({seed}))) {
            digest = (digest ^ static_cast<unsigned char>(each)) * 0x100000001b3;
        }
    }
    EXPECT_EQ(digest, 12722066539470968170U);
}

TEST(Generator, MostRunsEndWithAResult) {
    std::size_t traps = 0;
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        const auto scope = tools::generate({seed});
        for (const std::string& outcome : outcomesOf(*scope, seed)) {
            EXPECT_EQ(outcome.find("invalid IR"), std::string::npos) << "seed " << seed << outcome;
            traps += outcome.starts_with("trap") ? 1 : 0;
        }
    }
    EXPECT_LT(traps, 200U);
    EXPECT_GT(traps, 0U);
}
