// Which known names are offered for a mistyped one.
#include "shell/names.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using varnix::nearestNames;

const std::vector<std::string> known = {
    "printf", "sprintf", "sin", "min", "internal", "internal.quarn", "area.Profiler", "startswith"};

TEST(NearestNames, ForgivesAFewLetters) {
    EXPECT_THAT(nearestNames("prinft", known, 3), ElementsAre("printf", "sprintf"));
    EXPECT_THAT(nearestNames("startwith", known, 3), ElementsAre("startswith"));
    EXPECT_THAT(nearestNames("internl.quarn", known, 3), ElementsAre("internal.quarn"));
}

TEST(NearestNames, NearestComeFirstAndNoMoreThanAsked) {
    EXPECT_THAT(nearestNames("printf", known, 3), ElementsAre("printf", "sprintf"));
    EXPECT_THAT(nearestNames("sim", known, 1), ElementsAre("sin"));
}

TEST(NearestNames, CaseDoesNotMatter) {
    EXPECT_THAT(nearestNames("PRINTF", known, 1), ElementsAre("printf"));
    EXPECT_THAT(nearestNames("INTERNAL.Quarn", known, 1), ElementsAre("internal.quarn"));
}

TEST(NearestNames, AShortNameFindsTheFullOne) {
    EXPECT_THAT(nearestNames("Profiler", known, 3), ElementsAre("area.Profiler"));
    EXPECT_THAT(nearestNames("profilr", known, 3), ElementsAre("area.Profiler"));
}

TEST(NearestNames, OffersNothingForWhatIsFarFromEverything) {
    EXPECT_THAT(nearestNames("banana", known, 3), IsEmpty());
    EXPECT_THAT(nearestNames("area.Printer", known, 3), IsEmpty());
    EXPECT_THAT(nearestNames("", known, 3), IsEmpty());
    EXPECT_THAT(nearestNames(std::string(100000, 'x'), known, 3), IsEmpty());
}

} // namespace
