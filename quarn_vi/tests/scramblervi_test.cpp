// internal.quarn.Scrambler over the shared scramble service.

#include "debug/scramblervi.hpp"
#include "tests/debugservice_properties.hpp"
#include "tests/runs.hpp"

#include <qn/scramble_service.hpp>
#include <qn/text.hpp>

namespace {

using controllers::Member;
using controllers::Object;

QN::ScrambleService& service() {
    return quarn_vi::debug::ScramblerVI::sharedScrambleService();
}

TEST(Scrambler, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("Scrambler"),
              controllers::withDebugServiceProperties(
                  {{"ScrambleLimit", "uint64 scalar", false, 0},
                   {"ScrambleCount", "uint64 scalar", true, 0},
                   {"ScrambleNodeList", "logical scalar", false, 0},
                   {"ScrambleLocalVars", "logical scalar", false, 0},
                   {"IntroducePointers", "logical scalar", false, 0},
                   {"ScalarVarPointerizationThreshold", "int32 scalar", false, 0},
                   {"AggregateVarPointerizationThresh", "int32 scalar", false, 0},
                   {"Verbose", "logical scalar", false, 0}}));
    EXPECT_EQ(
        controllers::methodsOf("Scrambler"),
        (std::vector<std::string>{"char hello(internal.quarn.Scrambler)",
                                  "void ResetScrambleCount(internal.quarn.Scrambler)",
                                  "void RandomSeed(internal.quarn.Scrambler, uint32 scalar)"}));
}

TEST(Scrambler, inheritsTheCommonSettings) {
    controllers::expectDebugServiceProperties("Scrambler", service());
}

TEST(Scrambler, greets) {
    EXPECT_EQ(Object("Scrambler").callText("hello"), "^_^ hello ^_^");
}

TEST(Scrambler, limitGoesToTheService) {
    const Object object("Scrambler");
    const std::size_t old = service().getLimit();
    object.set("ScrambleLimit", 12345.0);
    EXPECT_EQ(service().getLimit(), 12345u);
    controllers::expectWrongType(object, "ScrambleLimit", sample::number(-1));
    controllers::expectWrongType(object, "ScrambleLimit", sample::number(1.5));
    EXPECT_EQ(service().getLimit(), 12345u);
    service().setLimit(~std::size_t{0});
    EXPECT_EQ(object.uint64("ScrambleLimit"), ~std::uint64_t{0});
    service().setLimit(old);
}

TEST(Scrambler, countIsReadOnly) {
    const Object object("Scrambler");
    object.call("ResetScrambleCount");
    EXPECT_EQ(object.uint64("ScrambleCount"), 0u);
    EXPECT_EQ(sample::errorOf([&] { object.set("ScrambleCount", 3.0); }),
              "varnix:readOnlyProperty");
}

/// What a run makes of the program with this scrambler.
std::string scrambled(const Object& scrambler) {
    controllers::Program program;
    scrambler.set("EnabledAfter", true);
    program.idle();
    scrambler.set("EnabledAfter", false);
    std::string text;
    QN::printQnel(program.function(), text);
    return text;
}

TEST(Scrambler, countGrowsAndIsReset) {
    const Object object("Scrambler");
    const Object other("Scrambler");
    (void)scrambled(object);
    const std::uint64_t count = object.uint64("ScrambleCount");
    EXPECT_GT(count, 0u);
    EXPECT_EQ(count, service().getCount());
    EXPECT_EQ(other.uint64("ScrambleCount"), count);
    other.call("ResetScrambleCount");
    EXPECT_EQ(service().getCount(), 0u);
    EXPECT_EQ(object.uint64("ScrambleCount"), 0u);
}

TEST(Scrambler, seedReachesTheService) {
    const Object object("Scrambler");
    object.call("RandomSeed", {sample::number(1)});
    const std::string one = scrambled(object);
    object.call("RandomSeed", {sample::number(4294967295.0)});
    const std::string other = scrambled(object);
    EXPECT_NE(one, other);
    service().setSeed(4294967295u);
    EXPECT_EQ(scrambled(object), other);
    service().setSeed(1);
    EXPECT_EQ(scrambled(object), one);
    service().setSeed(0);
    object.call("ResetScrambleCount");
}

TEST(Scrambler, switchesAreShared) {
    controllers::expectSharedSwitch(
        "Scrambler", "ScrambleNodeList", [] { return service().scrambleNodeList(); },
        [](bool v) { service().setScrambleNodeList(v); });
    controllers::expectSharedSwitch(
        "Scrambler", "ScrambleLocalVars", [] { return service().scrambleLocalVars(); },
        [](bool v) { service().setScrambleLocalVars(v); });
    controllers::expectSharedSwitch(
        "Scrambler", "IntroducePointers", [] { return service().introducePointers(); },
        [](bool v) { service().setIntroducePointers(v); });
    controllers::expectSharedSwitch(
        "Scrambler", "Verbose", [] { return service().verbose(); },
        [](bool v) { service().setVerbose(v); });
}

struct Threshold {
    const char* property;
    const char* setter;
    int (*read)();
    void (*write)(int);
};

TEST(Scrambler, thresholdsArePercentages) {
    const Threshold thresholds[] = {
        {"ScalarVarPointerizationThreshold", "setScalarVarPointerizationThresh",
         [] { return static_cast<int>(service().scalarVarPointerizationThresh()); },
         [](int v) { service().setScalarVarPointerizationThresh(v); }},
        {"AggregateVarPointerizationThresh", "setAggregateVarPointerizationThresh",
         [] { return static_cast<int>(service().aggregateVarPointerizationThresh()); },
         [](int v) { service().setAggregateVarPointerizationThresh(v); }},
    };
    const Object object("Scrambler");
    for (const Threshold& t : thresholds) {
        const int old = t.read();
        for (const double good : {0.0, 100.0, 37.0}) {
            EXPECT_EQ(controllers::printed([&] { object.set(t.property, good); }), "");
            EXPECT_EQ(t.read(), static_cast<int>(good));
            EXPECT_EQ(object.int32(t.property), static_cast<int>(good));
        }
        for (const int bad : {101, -1, 2147483647, -2147483647 - 1}) {
            EXPECT_EQ(controllers::printed([&] { object.set(t.property, double(bad)); }),
                      "Illegal value " + std::to_string(bad) +
                          " provided to ScramblerVI::" + t.setter + " (ignored)\n");
            EXPECT_EQ(t.read(), 37);
        }
        const auto text = sample::text("5");
        controllers::expectWrongType(object, t.property, sample::arrayValue(text));
        EXPECT_EQ(t.read(), 37);
        t.write(5); // behind the controller's back
        EXPECT_EQ(object.int32(t.property), 5);
        t.write(old);
    }
}

TEST(Scrambler, seedTakesEveryUnsignedNumber) {
    const Object object("Scrambler");
    object.call("RandomSeed", {sample::number(0)});
    object.call("RandomSeed", {sample::number(4294967295.0)});
    EXPECT_EQ(sample::errorOf([&] { object.call("RandomSeed", {sample::number(-1)}); }),
              "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([&] { object.call("RandomSeed", {sample::number(4294967296.0)}); }),
              "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([&] { object.call("RandomSeed"); }), "varnix:notEnoughInputs");
}

} // namespace
