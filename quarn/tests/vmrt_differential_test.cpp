// Machine code against the evaluator over generated programs: the same results to the last bit, the
// same traps in the same function at the same line.
//
// All levels see the same programs. How many is set by what a test run may take; with
// QUARN_TEST_FULL in the environment every level gets all of them.
#include "vmrt_support.hpp"

#include <qn/pipeline.hpp>

#include <cstdlib>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

constexpr std::uint32_t allPrograms = 10'000;
constexpr std::uint32_t argumentSets = 3;

std::uint32_t programsAt(VMEngineConfig::JitOptimizationLevel level) {
    if (std::getenv("QUARN_TEST_FULL") != nullptr || level == VMEngineConfig::OptNone) {
        return allPrograms;
    }
    return level == VMEngineConfig::OptDefault ? 400 : 150;
}

/// A trap without the function in which it is: inlining moves it into the caller.
std::string withoutFunction(std::string outcome) {
    const std::size_t name = outcome.find(" in f");
    const std::size_t line = outcome.find(" at ", name);
    return name == std::string::npos ? outcome : outcome.erase(name, line - name);
}

void compare(const VMEngineConfig& config, std::uint32_t seeds, bool pipeline) {
    const auto engine = VMRT::makeEngine(config);
    for (std::uint32_t seed = 1; seed <= seeds && !::testing::Test::HasFailure(); ++seed) {
        // Each with functions that call each other.
        const auto scope = tools::generate({seed, seed % 10 == 0 ? 3 : 1, 12});
        Function& last = *scope->functions().back();
        std::vector<std::string> expected;
        for (std::uint32_t i = 0; i < argumentSets; ++i) {
            expected.push_back(
                evaluatedOutcome(*scope, last, tools::generateArguments(last, seed * 17 + i)));
        }
        if (pipeline) {
            runPipeline(*scope);
        }
        const auto code = engine->prepare(*scope, last, "generated");
        for (std::uint32_t i = 0; i < argumentSets; ++i) {
            const auto arguments = tools::generateArguments(last, seed * 17 + i);
            const std::string before = arguments.empty() ? "" : shown(arguments.front());
            const std::string actual = machineOutcome(*code, last, arguments);
            if (pipeline) {
                EXPECT_EQ(withoutFunction(actual), withoutFunction(expected[i])) << "seed " << seed;
            } else {
                EXPECT_EQ(actual, expected[i]) << "seed " << seed;
            }
            EXPECT_EQ(arguments.empty() ? "" : shown(arguments.front()), before)
                << "an argument was changed, seed " << seed;
        }
    }
}

class EachLevel : public ::testing::TestWithParam<VMEngineConfig::JitOptimizationLevel> {};

} // namespace

TEST_P(EachLevel, GeneratedProgramsGiveWhatTheEvaluatorGives) {
    compare(atLevel(GetParam()), programsAt(GetParam()), false);
}

TEST_P(EachLevel, SoDoThoseThatWentThroughThePipeline) {
    compare(atLevel(GetParam()), programsAt(GetParam()) / 5, true);
}

INSTANTIATE_TEST_SUITE_P(Vmrt, EachLevel, ::testing::ValuesIn(allLevels));

TEST(VmrtDifferential, SoftFloatGivesTheSameBits) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    config.setUseSoftFloat(true);
    compare(config, 150, false);
}

TEST(VmrtDifferential, TheOlderLinkerGivesTheSame) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptNone);
    config.setUseMCJIT(true);
    compare(config, 300, false);
}

TEST(VmrtDifferential, RuntimeChecksAndDebugInformationChangeNoResult) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptLess);
    config.setEmitDWARF(true);
    config.setFramePointerPolicy(VMEngineConfig::FramePointerPreserve);
    compare(config, 100, true);
}
