// Every transform leaves valid IR behind: after each run, on generated IR, no check fails.
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace QN;

namespace {

std::string failuresOf(const Scope& scope, const VerifyOptions& options) {
    std::string text;
    const Verification found = verify(scope, options);
    for (const Failure& failure : found.failures()) {
        text += toString(failure) + "\n";
    }
    return text;
}

/// Runs one transform and says what it has broken.
std::string runAndVerify(const Transform& transform, Scope& scope, bool mayBeUnreachable) {
    runTransformOnAll(transform, scope);
    VerifyOptions options;
    options.compacted = transform.name == "compaction";
    options.unreachableBlocks = mayBeUnreachable;
    return failuresOf(scope, options);
}

} // namespace

TEST(VerifiedTransforms, GeneratedIrIsValid) {
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        const auto scope = tools::generate({seed});
        ASSERT_EQ(failuresOf(*scope, {.unreachableBlocks = true}), "") << "seed " << seed;
    }
}

class EachTransformVerified : public ::testing::TestWithParam<const Transform*> {};

// Ten thousand functions for each.
TEST_P(EachTransformVerified, LeavesValidIr) {
    const Transform& transform = *GetParam();
    std::size_t functions = 0;
    for (std::uint32_t seed = 1; functions < 10000; ++seed) {
        const auto scope = tools::generate({seed});
        functions += scope->functions().size();
        ASSERT_EQ(runAndVerify(transform, *scope, transform.name != "control-flow"), "")
            << transform.name << ", seed " << seed;
    }
}

namespace {

std::vector<const Transform*> pointersToAll() {
    std::vector<const Transform*> all;
    for (const Transform& transform : allTransforms()) {
        all.push_back(&transform);
    }
    return all;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Transforms, EachTransformVerified, ::testing::ValuesIn(pointersToAll()),
                         [](const auto& test) {
                             std::string name(test.param->name);
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

// Ten thousand functions, all stages. Control flow is cleaned up first, and from there on every
// block must be reachable.
TEST(VerifiedTransforms, EachStageOfThePipelineLeavesValidIr) {
    std::size_t functions = 0;
    for (std::uint32_t seed = 1; functions < 10000; ++seed) {
        const auto scope = tools::generate({seed});
        functions += scope->functions().size();
        for (const std::string_view stage : pipeline()) {
            ASSERT_EQ(runAndVerify(*transformNamed(stage), *scope, false), "")
                << stage << ", seed " << seed;
        }
    }
}
