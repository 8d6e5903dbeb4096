// Profiling counters from the pipeline to the files: what they count, where they stand, how that is
// written; and that nothing of it is there while the feature is off.
#include "tests/service_support.hpp"

#include <qn/evaluator.hpp>
#include <qn/pipeline.hpp>
#include <qn/profile_counts.hpp>
#include <qn/testing_hooks.hpp>
#include <qn/text.hpp>

namespace QN {
namespace {

using testing_support::contentsOf;
using testing_support::filesIn;

// for (i = 0; i < n; ++i) { if (i < 3) s += i } return s; with the lines of a script.
constexpr const char* loop = R"((function looping i64
  (param $n i64)
  (user $i i64)
  (user $s i64)
  (block b0 (store $i 0i64 @2) (store $s 0i64 @2) (jump b1 @3))
  (block b1 (%1 i64 load $i @3) (%2 i64 load $n @3) (%3 logical lt %1 %2 @3) (br %3 b2 b5 @3))
  (block b2 (%4 i64 load $i @4) (%5 logical lt %4 3i64 @4) (br %5 b3 b4 @4))
  (block b3 (%6 i64 load $s @5) (%7 i64 load $i @5) (%8 i64 add:wrap %6 %7 @5) (store $s %8 @5)
            (jump b4 @5))
  (block b4 (%9 i64 load $i @7) (%10 i64 add:wrap %9 1i64 @7) (store $i %10 @7) (jump b1 @7))
  (block b5 (%11 i64 load $s @8) (ret %11 @8))))";

std::unique_ptr<Scope> parsed(const char* text) {
    ParseError error;
    std::unique_ptr<Scope> scope = parseQnel(text, error);
    EXPECT_NE(scope, nullptr) << error.format("test");
    return scope;
}

std::string qnelOf(const Scope& scope) {
    std::string text;
    printQnel(scope, text);
    return text;
}

class ProfileCountsTest : public testing_support::ServiceTest {
protected:
    ~ProfileCountsTest() override { instrument(false); }
    static void instrument(bool on) {
        TSFEAT_QUARNProfilingInstrumentation->setFeatValFromC(on ? 1 : 0);
    }

    /// The unit after the pipeline, and the counters after calls of its first function.
    struct Ran {
        std::unique_ptr<Scope> scope;
        std::vector<CounterPlace> places;
        std::vector<CounterValue> values;
    };
    static Ran ran(const char* text, const std::vector<std::int64_t>& arguments) {
        Ran result{parsed(text), {}, {}};
        runPipeline(*result.scope);
        result.places = counterPlaces(*result.scope);
        Evaluator evaluator(*result.scope);
        const Function& function = *result.scope->functions().front();
        for (const std::int64_t argument : arguments) {
            const Value value = Value::ofInt(Type::i64(), argument);
            (void)evaluator.call(function, std::span(&value, 1));
        }
        for (const CounterPlace& place : result.places) {
            result.values.push_back(
                {place.function, place.number, evaluator.counter(function, place.number)});
        }
        return result;
    }
    /// The count of the block that begins at a line.
    static std::uint64_t countAt(const Ran& r, std::uint32_t line) {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < r.places.size(); ++i) {
            sum += r.places[i].line == line ? r.values[i].count : 0;
        }
        return sum;
    }

    ProfileCounts counts;
};

TEST_F(ProfileCountsTest, CountersCountHowOftenEachBlockRuns) {
    instrument(true);
    const Ran r = ran(loop, {10});
    EXPECT_EQ(countAt(r, 2), 1U);
    EXPECT_EQ(countAt(r, 3), 11U); // the test of the loop
    EXPECT_EQ(countAt(r, 4), 10U);
    EXPECT_EQ(countAt(r, 5), 3U);
    EXPECT_EQ(countAt(r, 7), 10U);
    EXPECT_EQ(countAt(r, 8), 1U);
}

TEST_F(ProfileCountsTest, PlacesStandInTheOrderOfTheUnit) {
    const auto scope = parsed(R"(
(function second void (block b0 (count 7i64) (ret @9)) (block b1 (ret)))
(function first void (block b0 (count 0i64 @4) (count 1i64) (ret)))
(declare elsewhere f64 f64)
)");
    EXPECT_EQ(counterPlaces(*scope),
              (std::vector<CounterPlace>{{"second", 7, 9}, {"first", 0, 4}, {"first", 1, 0}}));
}

TEST_F(ProfileCountsTest, OffThereAreNoCountersAndNotOneNodeMore) {
    instrument(false);
    const auto before = parsed(loop);
    runPipeline(*before);
    EXPECT_TRUE(counterPlaces(*before).empty());
    EXPECT_EQ(qnelOf(*before).find("count"), std::string::npos);

    instrument(true);
    const auto counted = parsed(loop);
    runPipeline(*counted);
    EXPECT_FALSE(counterPlaces(*counted).empty());

    instrument(false);
    const auto after = parsed(loop);
    runPipeline(*after);
    EXPECT_EQ(qnelOf(*after), qnelOf(*before));
}

TEST_F(ProfileCountsTest, OnThereIsOneCounterForEachBlockAndNothingElseMore) {
    const auto plain = parsed(loop);
    runPipeline(*plain);
    instrument(true);
    const auto counted = parsed(loop);
    runPipeline(*counted);
    const Cfg& with = counted->functions().front()->cfg();
    const Cfg& without = plain->functions().front()->cfg();
    EXPECT_EQ(with.numBlocks(), without.numBlocks());
    EXPECT_EQ(with.numNodes(), without.numNodes() + without.numBlocks());
    EXPECT_EQ(counterPlaces(*counted).size(), without.numBlocks());
}

TEST_F(ProfileCountsTest, TableIsForPeople) {
    counts.add("main(double)",
               std::vector<CounterPlace>{{"main", 0, 12}, {"main", 1, 0}, {"helper", 0, 123456}},
               std::vector<CounterValue>{{"main", 0, 1}, {"main", 1, 18446744073709551615U}});
    counts.add("g()", std::vector<CounterPlace>{{"g", 3, 1}}, {});
    EXPECT_EQ(counts.table(), R"(unit main(double)
               count  counter   line  function
                   1        0     12  main
18446744073709551615        1      -  main
                   0        0 123456  helper

unit g()
               count  counter   line  function
                   0        3      1  g
)");
}

TEST_F(ProfileCountsTest, JsonIsForPrograms) {
    counts.add("say \"hi\"(\\)", std::vector<CounterPlace>{{"f\xe9\n", 0, 12}, {"f", 1, 0}},
               std::vector<CounterValue>{{"f\xe9\n", 0, 1}, {"f", 1, 18446744073709551615U}});
    counts.add("g()", std::vector<CounterPlace>{{"g", 3, 1}}, {});
    const std::string expected = R"json({"units":[
{"unit":"say \"hi\"(\\)","counters":[
{"function":"f\u00e9\u000a","number":0,"line":12,"count":1},
{"function":"f","number":1,"line":0,"count":18446744073709551615}
]},
{"unit":"g()","counters":[
{"function":"g","number":3,"line":1,"count":0}
]}
]}
)json";
    EXPECT_EQ(counts.json(), expected);
}

TEST_F(ProfileCountsTest, NoCountsAreNoUnitsAndNoFiles) {
    EXPECT_TRUE(counts.empty());
    EXPECT_EQ(counts.table(), "");
    EXPECT_EQ(counts.json(), "{\"units\":[\n]}\n");
    counts.add("f()", {}, std::vector<CounterValue>{{"f", 0, 1}});
    EXPECT_TRUE(counts.empty());
    counts.write();
    EXPECT_EQ(counts.tableFile(), "");
    EXPECT_TRUE(filesIn(folder).empty());
}

TEST_F(ProfileCountsTest, SameCodeAddsUpAndOtherCodeOfTheNameStandsByItself) {
    const std::vector<CounterPlace> places{{"f", 0, 1}, {"f", 1, 2}};
    const std::vector<CounterPlace> others{{"f", 0, 1}};
    counts.add("f()", places, std::vector<CounterValue>{{"f", 0, 1}, {"f", 1, 10}});
    counts.add("f()", others, std::vector<CounterValue>{{"f", 0, 5}});
    counts.add("f()", places, std::vector<CounterValue>{{"f", 1, 100}, {"f", 0, 2}});
    EXPECT_EQ(counts.table(), R"(unit f()
               count  counter   line  function
                   3        0      1  f
                 110        1      2  f

unit f()
               count  counter   line  function
                   5        0      1  f
)");
}

TEST_F(ProfileCountsTest, ValuesWithoutAPlaceAreDropped) {
    counts.add("f()", std::vector<CounterPlace>{{"f", 1, 2}},
               std::vector<CounterValue>{{"f", 0, 77}, {"f", 1, 4}, {"g", 1, 99}});
    EXPECT_EQ(counts.table(), R"(unit f()
               count  counter   line  function
                   4        1      2  f
)");
}

TEST_F(ProfileCountsTest, FilesGoWhereTheDebugLogSays) {
    counts.add("f()", std::vector<CounterPlace>{{"f", 0, 1}},
               std::vector<CounterValue>{{"f", 0, 4}});
    log.setLogDirectory(folder + "/made/at/need");
    counts.write();
    EXPECT_EQ(filesIn(folder + "/made/at/need"),
              (std::vector<std::string>{"profile-counts-0001.json", "profile-counts-0001.txt"}));
    EXPECT_EQ(counts.tableFile(), folder + "/made/at/need/profile-counts-0001.txt");
    EXPECT_EQ(contentsOf(counts.tableFile()), counts.table());
    EXPECT_EQ(contentsOf(folder + "/made/at/need/profile-counts-0001.json"), counts.json());
    EXPECT_EQ(console, "");
}

TEST_F(ProfileCountsTest, WritingAgainRenewsTheFilesUntilTheLogMoves) {
    const std::vector<CounterPlace> places{{"f", 0, 1}};
    const std::vector<CounterValue> once{{"f", 0, 1}};
    counts.add("f()", places, once);
    counts.write();
    counts.add("f()", places, once);
    counts.write();
    EXPECT_EQ(filesIn(folder),
              (std::vector<std::string>{"profile-counts-0001.json", "profile-counts-0001.txt"}));
    EXPECT_EQ(contentsOf(counts.tableFile()), counts.table());
    log.setLogDirectory(folder + "/other");
    counts.write();
    EXPECT_EQ(counts.tableFile(), folder + "/other/profile-counts-0002.txt");
    log.setUsePIDInName(true);
    counts.write();
    EXPECT_EQ(counts.tableFile(),
              folder + "/other/profile-counts-" + std::to_string(::getpid()) + "-0003.txt");
    counts.clear();
    EXPECT_TRUE(counts.empty());
    EXPECT_EQ(counts.tableFile(), "");
    counts.add("f()", places, once);
    counts.write();
    EXPECT_EQ(counts.tableFile(),
              folder + "/other/profile-counts-" + std::to_string(::getpid()) + "-0004.txt");
}

TEST_F(ProfileCountsTest, FailureToWriteIsToldOnceOnTheConsole) {
    std::ofstream(folder + "/file") << "in the way";
    log.setLogDirectory(folder + "/file");
    counts.add("f()", std::vector<CounterPlace>{{"f", 0, 1}}, {});
    counts.write();
    EXPECT_EQ(counts.tableFile(), "");
    counts.write();
    EXPECT_EQ(console, "Cannot write files in '" + folder + "/file': Not a directory.\n");
    log.setLogDirectory(folder);
    counts.write();
    EXPECT_EQ(contentsOf(counts.tableFile()), counts.table());
}

TEST_F(ProfileCountsTest, FilesThatDidNotFitGetTheirNamesLater) {
    counts.add("f()", std::vector<CounterPlace>{{"f", 0, 1}}, {});
    {
        const testing_support::FullDisk full(3);
        counts.write();
        counts.write();
    }
    EXPECT_EQ(counts.tableFile(), "");
    EXPECT_EQ(testing_support::linesOf(console).size(), 1U);
    EXPECT_TRUE(filesIn(folder).empty());
    counts.write();
    EXPECT_EQ(filesIn(folder),
              (std::vector<std::string>{"profile-counts-0001.json", "profile-counts-0001.txt"}));
}

} // namespace
} // namespace QN
