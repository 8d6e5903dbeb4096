// Every transform leaves valid IR behind: after each run, on generated IR, no check fails.
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <gtest/gtest.h>
#include <string>

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

TEST(VerifiedTransforms, EachLeavesValidIr) {
    for (const Transform& transform : allTransforms()) {
        for (std::uint32_t seed = 1; seed <= 200; ++seed) {
            const auto scope = tools::generate({seed});
            ASSERT_EQ(runAndVerify(transform, *scope, transform.name != "control-flow"), "")
                << transform.name << ", seed " << seed;
        }
    }
}

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
