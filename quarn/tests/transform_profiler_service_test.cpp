// The transform profiler: what is recorded, where the report goes, and its three forms.
#include "tests/service_support.hpp"

#include <qn/timer.hpp>
#include <qn/transform.hpp>
#include <qn/transform_profiler_service.hpp>

#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

class TransformProfiler : public ServiceTest {
protected:
    TransformProfiler() {
        Builder b(f.cfg(), f.cfg().addBlock());
        b.ret(f.cfg().constantDouble(0));
    }
    void fold(Function& function) {
        run("folding", function, [&] {
            Builder(function.cfg(), *function.cfg().entry()->last())
                .toIndex(function.cfg().constantDouble(1));
            return true;
        });
    }

    static std::vector<std::string> fieldsOf(const std::string& line) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, ',');) {
            fields.push_back(field);
        }
        return fields;
    }
    /// The fields of the events in a report of values, without the headings.
    std::vector<std::vector<std::string>> events() {
        service.setDumpDestination(folder + "/events.csv");
        service.dump();
        std::vector<std::vector<std::string>> events;
        for (const std::string& line : linesOf(contentsOf(folder + "/events.csv"))) {
            events.push_back(fieldsOf(line));
        }
        events.erase(events.begin());
        return events;
    }
    /// Fields of an event.
    enum { Record, Run, Name, Kind, Target, Start, Time, Before, After, PoolBefore, PoolAfter };

    Scope unit{ScopeFlavor::Unit, "u"};
    Function& f = *unit.addFunction("say \"hi\", \\o/\x01\xC3\xA9", Type::f64());
    Function& g = *unit.addFunction("g", Type::f64());
    TransformProfilerService service{false, false};
};

// Events that overlap must lie one inside the other.
void expectNested(const nlohmann::json& trace) {
    std::vector<std::pair<double, double>> open;
    std::vector<std::pair<double, double>> runs;
    for (const auto& event : trace.at("traceEvents")) {
        if (event.at("ph") == "X") {
            const double start = event.at("ts");
            const double duration = event.at("dur");
            ASSERT_GE(duration, 0.0);
            runs.emplace_back(start, start + duration);
        }
    }
    std::sort(runs.begin(), runs.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first : a.second > b.second;
    });
    constexpr double halfNanosecond = 0.0005;
    for (const auto& current : runs) {
        while (!open.empty() && open.back().second <= current.first + halfNanosecond) {
            open.pop_back();
        }
        if (!open.empty()) {
            EXPECT_LE(current.second, open.back().second + halfNanosecond);
        }
        open.push_back(current);
    }
}

// What the transform "acts" does.
std::function<bool(Function&)> act;
constexpr Transform acts{"acts", "what a test says",
                         [](Function& function) { return act(function); }, nullptr};

/// Runs through the funnel, where the profiler stands closer to the transform if it is the only
/// service that is awake: what it records must not tell.
class ProfilerInTheFunnel : public TransformProfiler, public ::testing::WithParamInterface<bool> {
protected:
    ProfilerInTheFunnel() {
        Builder(g.cfg(), g.cfg().addBlock()).ret(g.cfg().constantDouble(0));
        act = [](Function&) { return false; };
        if (GetParam()) {
            DefaultServices::debugServices().addService(&company);
        }
    }
    ~ProfilerInTheFunnel() override { act = nullptr; }

    void runOn(Function& function) { runTransform(acts, function); }
    /// One field of all events.
    std::vector<std::string> fields(int which) {
        std::vector<std::string> found;
        for (const auto& event : events()) {
            found.push_back(event.at(static_cast<std::size_t>(which)));
        }
        return found;
    }

    Service company;
};

INSTANTIATE_TEST_SUITE_P(Company, ProfilerInTheFunnel, ::testing::Bool(),
                         [](const auto& one) { return one.param ? "InCompany" : "Alone"; });

} // namespace

TEST_P(ProfilerInTheFunnel, RecordsWhatRunsDo) {
    service.setRequestedBefore(true);
    act = [](Function& function) {
        Builder(function.cfg(), *function.cfg().entry()->last())
            .toIndex(function.cfg().constantDouble(1));
        return true;
    };
    EXPECT_TRUE(runTransform(acts, g));
    EXPECT_TRUE(runTransform(acts, g));
    act = [](Function&) { return false; };
    EXPECT_FALSE(runTransform(acts, f));
    const auto all = events();
    ASSERT_EQ(all.size(), 3U);
    for (const auto& event : all) {
        EXPECT_EQ(event[Name], "acts");
        EXPECT_EQ(event[Kind], "function");
        EXPECT_GE(std::stod(event[Time]), 0.0);
        EXPECT_EQ(std::stoul(event[Run]), std::stoul(all[0][Run]) + std::stoul(event[Record]) - 1);
    }
    EXPECT_EQ(all[0][Target], "g");
    EXPECT_EQ(std::stoi(all[0][After]), std::stoi(all[0][Before]) + 1);
    EXPECT_EQ(all[1][Before], all[0][After]);
    EXPECT_EQ(all[1].back(), "changed");
    EXPECT_NE(all[2][Target], "g");
    EXPECT_EQ(all[2].back(), "unchanged");
    EXPECT_LE(std::stod(all[0][Start]) + std::stod(all[0][Time]), std::stod(all[1][Start]) + 0.002);
}

TEST_P(ProfilerInTheFunnel, RecordsRunsThatFail) {
    service.setRequestedAfter(true);
    runOn(g); // the first run makes room for the next ones
    act = [](Function&) -> bool { throw std::runtime_error("refused"); };
    EXPECT_THROW(runOn(g), std::runtime_error);
    act = [](Function&) { return true; };
    runOn(g);
    EXPECT_EQ(fields(PoolAfter + 1), (std::vector<std::string>{"unchanged", "failed", "changed"}));
}

TEST_P(ProfilerInTheFunnel, RecordsRunsInsideOthers) {
    service.setRequestedAfter(true);
    act = [this](Function& function) {
        if (&function == &f) {
            runOn(g);
            runOn(g);
        }
        return &function == &f;
    };
    runOn(f);
    const auto all = events();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0][Target], "g");
    EXPECT_EQ(all[1][Target], "g");
    EXPECT_EQ(all[2].back(), "changed");
    EXPECT_EQ(std::stoul(all[2][Run]) + 2, std::stoul(all[1][Run]));
}

TEST_P(ProfilerInTheFunnel, FollowsItsSettings) {
    service.setRequestedAfter(true);
    service.setMemEventInterval(2);
    runOn(g);
    runOn(g);
    EXPECT_EQ(fields(PoolBefore).at(0), "");
    EXPECT_NE(fields(PoolBefore).at(1), "");
    service.setFilter("fcn_g");
    runOn(f); // its name has commas, which events() does not look through
    EXPECT_EQ(service.eventCount(), 2U);
    runOn(g);
    EXPECT_EQ(service.eventCount(), 3U);
    service.setFilter("");
    service.setDumpDestination(folder + "/p.csv");
    service.setEventEmitThreshold(4);
    runOn(f);
    EXPECT_EQ(linesOf(contentsOf(folder + "/p-1.csv")).size(), 5U);
    Scope global(ScopeFlavor::Global, "all");
    Function& common = *global.addFunction("common", Type::f64());
    Builder(common.cfg(), common.cfg().addBlock()).ret(common.cfg().constantDouble(0));
    runOn(common);
    EXPECT_EQ(service.eventCount(), 4U);
    service.setRequestedGlobalScope(true);
    runOn(common);
    EXPECT_EQ(service.eventCount(), 5U);
    service.setRequestedAfter(false);
    runOn(f);
    EXPECT_EQ(service.eventCount(), 5U);
}

// Each in the middle of a run.
TEST_P(ProfilerInTheFunnel, IsResetSwitchedOffAndLeftAlone) {
    service.setRequestedAfter(true);
    runOn(f); // makes room
    act = [this](Function&) {
        service.reset();
        return false;
    };
    runOn(f);
    EXPECT_EQ(service.eventCount(), 0U);
    act = [this](Function&) {
        service.setRequestedAfter(false);
        return false;
    };
    runOn(f);
    EXPECT_EQ(service.eventCount(), 0U);
    service.setRequestedAfter(true);
    act = [](Function& function) {
        function.deleteCfg();
        return true;
    };
    runOn(g);
    ASSERT_EQ(service.eventCount(), 1U);
    EXPECT_EQ(fields(After), std::vector<std::string>{"0"});
}

TEST_P(ProfilerInTheFunnel, MayGoInTheMiddleOfARun) {
    std::unique_ptr<TransformProfilerService> other;
    const auto comes = [&] {
        act = [](Function&) { return false; };
        other = std::make_unique<TransformProfilerService>(true, false);
        runOn(f); // makes room
        EXPECT_EQ(other->eventCount(), 1U);
    };
    comes();
    act = [&](Function&) {
        other.reset();
        return true;
    };
    EXPECT_TRUE(runTransform(acts, f));
    EXPECT_EQ(other, nullptr);
    comes();
    act = [&](Function&) -> bool {
        other.reset();
        throw std::runtime_error("refused");
    };
    EXPECT_THROW(runOn(f), std::runtime_error);
    EXPECT_EQ(other, nullptr);
}

namespace {

/// Functions that a transform runs on one behind the other.
class ProfiledSequence : public ProfilerInTheFunnel {
protected:
    ProfiledSequence() {
        for (const char* const name : {"a", "b", "c"}) {
            addFunction(name);
        }
        service.setRequestedAfter(true);
        runTransformOnAll(acts, row); // makes room, and the names known
        service.reset();
    }

    void addFunction(const char* name) {
        Function& function = *row.addFunction(name, Type::f64());
        Builder(function.cfg(), function.cfg().addBlock()).ret(function.cfg().constantDouble(0));
    }
    static void passTime() {
        const std::uint64_t start = Timer::readClock();
        while (Timer::readClock() - start < 20'000) {
        }
    }
    /// Whether each event but the first starts at the moment at which the one before ended.
    std::vector<bool> follows() {
        std::vector<bool> follows;
        double end = -1;
        for (const auto& event : events()) {
            const double start = std::stod(event.at(Start));
            follows.push_back(std::abs(start - end) < 0.002); // three roundings to nanoseconds
            end = start + std::stod(event.at(Time));
        }
        follows.erase(follows.begin());
        return follows;
    }

    Scope row{ScopeFlavor::Unit, "row"};
};

INSTANTIATE_TEST_SUITE_P(Company, ProfiledSequence, ::testing::Bool(),
                         [](const auto& one) { return one.param ? "InCompany" : "Alone"; });

} // namespace

TEST_P(ProfiledSequence, RunsShareTheMomentsBetweenThem) {
    const bool alone = !GetParam();
    RunSequence sequence;
    runTransformOnAll(acts, row, sequence);
    runTransformOnAll(acts, row, sequence);
    EXPECT_EQ(follows(), (std::vector<bool>{alone, alone, alone, alone, alone}));
}

TEST_P(ProfiledSequence, LearningANameIsNotMeasured) {
    const bool alone = !GetParam();
    addFunction("d");
    addFunction("e");
    runTransformOnAll(acts, row);
    EXPECT_EQ(follows(), (std::vector<bool>{alone, alone, alone, false}));
}

TEST_P(ProfiledSequence, RunsByThemselvesDoNot) {
    for (const auto& function : row.functions()) {
        runOn(*function);
        passTime();
    }
    runTransformOnAll(acts, row);
    EXPECT_EQ(follows(), (std::vector<bool>{false, false, false, !GetParam(), !GetParam()}));
}

TEST_P(ProfiledSequence, ReportsBetweenRunsAreNotMeasured) {
    const bool alone = !GetParam();
    service.setDumpDestination(folder + "/p.csv");
    service.setEventEmitThreshold(4);
    RunSequence sequence;
    runTransformOnAll(acts, row, sequence);
    runTransformOnAll(acts, row, sequence);
    EXPECT_EQ(follows(), std::vector<bool>{alone}); // the last two
    const std::vector<std::string> written = linesOf(contentsOf(folder + "/p-1.csv"));
    ASSERT_EQ(written.size(), 5U);
    const std::vector<std::string> last = fieldsOf(written.back());
    EXPECT_GT(std::stod(events().front().at(Start)),
              std::stod(last.at(Start)) + std::stod(last.at(Time)) + 0.002);
}

// What the runs in the middle do is not part of the one behind them.
TEST_P(ProfiledSequence, RunsThatAreNotMeasuredAloneDivideOthers) {
    constexpr Transform overScope{"over", "takes time", nullptr, [](Scope&) {
                                      passTime();
                                      return false;
                                  }};
    const std::vector<std::function<void(RunSequence&)>> middles = {
        [&](RunSequence& sequence) { // nobody is awake, or one that does not measure
            service.setRequestedAfter(false);
            runTransformOnAll(acts, row, sequence);
            service.setRequestedAfter(true);
        },
        [&](RunSequence& sequence) {
            service.setFilter("none");
            runTransformOnAll(acts, row, sequence);
            service.setFilter("");
        },
        [&](RunSequence& sequence) {
            Service visitor;
            DefaultServices::debugServices().addService(&visitor);
            runTransformOnAll(acts, row, sequence);
        },
        [&](RunSequence& sequence) { runTransformOnAll(overScope, row, sequence); },
        [&](RunSequence& sequence) { // of a transform that fails
            act = [](Function&) -> bool { throw std::runtime_error("refused"); };
            EXPECT_THROW(runTransformOnAll(acts, row, sequence), std::runtime_error);
            passTime();
        },
    };
    const auto runOnAll = [this](RunSequence& sequence) {
        act = [](Function&) { return false; };
        runTransformOnAll(acts, row, sequence);
    };
    for (const auto& middle : middles) {
        service.reset();
        RunSequence sequence;
        runOnAll(sequence);
        act = [](Function&) {
            passTime();
            return false;
        };
        middle(sequence);
        const std::size_t before = service.eventCount();
        runOnAll(sequence);
        const auto all = events();
        const auto& last = all.at(before - 1);
        EXPECT_GT(std::stod(all.at(before).at(Start)),
                  std::stod(last.at(Start)) + std::stod(last.at(Time)) + 0.002)
            << &middle - middles.data();
    }
}

TEST_F(TransformProfiler, Defaults) {
    EXPECT_EQ(service.dumpDestination(), "");
    EXPECT_TRUE(service.recordNumbering());
    EXPECT_FALSE(service.tagFcnsWithLogId());
    EXPECT_EQ(service.eventEmitThreshold(), 0U);
    EXPECT_EQ(service.memEventInterval(), 1U);
    EXPECT_EQ(service.eventCount(), 0U);
}

TEST_F(TransformProfiler, CountsRunsWhileASideIsRequested) {
    fold(f);
    EXPECT_EQ(service.eventCount(), 0U);
    service.setRequestedBefore(true);
    fold(f);
    EXPECT_EQ(service.eventCount(), 1U);
    service.setRequestedBefore(false);
    service.setRequestedAfter(true);
    fold(f);
    EXPECT_EQ(service.eventCount(), 2U);
    service.setFilter("scope_");
    fold(f);
    EXPECT_EQ(service.eventCount(), 2U);
    service.reset();
    EXPECT_EQ(service.eventCount(), 0U);
}

TEST_F(TransformProfiler, RunsOverTheGlobalScopeAreAskedForSeparately) {
    Scope global(ScopeFlavor::Global, "all");
    Function& common = *global.addFunction("common", Type::f64());
    const auto runBoth = [&] {
        run("folding", common, [] { return false; });
        run("folding", g, [] { return false; });
    };
    service.setRequestedBefore(true);
    runBoth();
    runBoth();
    EXPECT_EQ(service.eventCount(), 2U);
    service.setRequestedGlobalScope(true);
    runBoth();
    EXPECT_EQ(service.eventCount(), 4U);
    service.setRequestedBefore(false); // the scope by itself selects no side
    runBoth();
    EXPECT_EQ(service.eventCount(), 4U);
}

// An event lies between the moments at which its run was asked for and had ended, and holds the
// moments between which the transform acted; so by either clock.
TEST_F(TransformProfiler, TimesAreThoseOfTheRuns) {
    service.setRequestedAfter(true);
    const bool counter = detail::timersUseCounter;
    for (const bool uses : {counter, false}) {
        detail::timersUseCounter = uses;
        service.reset();
        std::uint64_t outside[2];
        std::uint64_t inside[2];
        for (int i = 0; i < 2; ++i) { // the first tells the name and the moment that is zero
            outside[0] = Timer::readClock();
            run("slow", g, [&] {
                inside[0] = Timer::readClock();
                do {
                    inside[1] = Timer::readClock();
                } while (inside[1] - inside[0] < 100'000);
                return false;
            });
            outside[1] = Timer::readClock();
        }
        const double microseconds = 1e6 * Timer::secondsPerTick();
        const auto made = events();
        ASSERT_EQ(made.size(), 2U);
        const double rounded = 0.002;
        const double time = std::stod(made[1][Time]);
        EXPECT_GE(time, microseconds * static_cast<double>(inside[1] - inside[0]) - rounded);
        EXPECT_LE(time, microseconds * static_cast<double>(outside[1] - outside[0]) + rounded);
        EXPECT_EQ(made[0][Start], "0.000");
        EXPECT_GE(std::stod(made[1][Start]), std::stod(made[0][Time]) - rounded);
    }
    detail::timersUseCounter = counter;
}

TEST_F(TransformProfiler, EventsHoldThePoolsBeforeAndAfter) {
    Function& h = *unit.addFunction("h", Type::f64());
    Builder(h.cfg(), h.cfg().addBlock()).ret(h.cfg().constantDouble(0));
    service.setRequestedBefore(true);
    const std::size_t before = Pool::totalReserved();
    run("growing", h, [&] {
        Builder builder(h.cfg(), *h.cfg().entry()->last());
        for (int i = 0; i < 20'000; ++i) {
            builder.toIndex(h.cfg().constantDouble(1));
        }
        return true;
    });
    const std::size_t after = Pool::totalReserved();
    EXPECT_GT(after, before);
    run("waiting", g, [] { return false; });
    service.setDumpDestination(folder + "/trace.json");
    service.dump();
    const auto trace = nlohmann::json::parse(contentsOf(folder + "/trace.json"));
    std::vector<std::size_t> counters;
    for (const auto& event : trace.at("traceEvents")) {
        if (event.at("ph") == "C") {
            counters.push_back(event.at("args").at("bytes"));
        }
    }
    EXPECT_THAT(counters, ElementsAre(before, after, after, after));
    const auto made = events();
    ASSERT_EQ(made.size(), 2U);
    EXPECT_EQ(made[0][PoolBefore], std::to_string(before));
    EXPECT_EQ(made[0][PoolAfter], std::to_string(after));
    EXPECT_EQ(made[1][PoolBefore], std::to_string(after));
    EXPECT_EQ(made[1][PoolAfter], std::to_string(after));
}

// Names are found again by their place, where another scope may have put another one since.
TEST_F(TransformProfiler, NamesOfLaterScopesAreTheirOwn) {
    service.setRequestedAfter(true);
    std::set<const void*> places;
    std::vector<std::string> expected;
    for (int i = 0; i < 20; ++i) {
        Scope scope(ScopeFlavor::Unit, "u");
        expected.push_back("f" + std::to_string(i));
        Function& function = *scope.addFunction(expected.back(), Type::f64());
        places.insert(function.name().data());
        run("folding", function, [] { return false; });
        run("folding", function, [] { return false; });
    }
    EXPECT_LT(places.size(), 20U) << "no place was used again";
    const auto made = events();
    ASSERT_EQ(made.size(), 40U);
    for (std::size_t i = 0; i < made.size(); ++i) {
        EXPECT_EQ(made[i][Target], expected[i / 2]);
    }
}

TEST_F(TransformProfiler, ConsoleTable) {
    service.setRequestedAfter(true);
    service.setDumpDestination("console");
    fold(f);
    runOnScope("inline", unit, [this] {
        run("folding", g, [] { return false; });
        return false;
    });
    service.dump();
    const std::string number = " *[0-9.]+";
    EXPECT_THAT(linesOf(console),
                ElementsAre(MatchesRegex(" +record +start us +time us .*"),
                            MatchesRegex(" +1" + number + number +
                                         " +1 +2 +[0-9]+ changed   "
                                         "folding say .*"),
                            MatchesRegex(" +2.* unchanged   folding g"),
                            MatchesRegex(" +3.* unchanged inline scope u"), "",
                            MatchesRegex(" +runs +changed .*transform"), MatchesRegex(" +[12] .*"),
                            MatchesRegex(" +[12] .*")));
    EXPECT_GE(std::stod(linesOf(console)[6].substr(19)), std::stod(linesOf(console)[7].substr(19)));
    EXPECT_THAT(console, HasSubstr("        2         1 "));
    EXPECT_THAT(console, HasSubstr("        1         0 "));
}

TEST_F(TransformProfiler, DefaultDestinationIsANewFileInTheDebugLogsFolder) {
    service.setRequestedAfter(true);
    fold(f);
    service.dump();
    service.dump();
    EXPECT_EQ(filesIn(folder), (std::vector<std::string>{"transform-profile-0001.txt",
                                                         "transform-profile-0002.txt"}));
    EXPECT_EQ(console, "");
}

TEST_F(TransformProfiler, CommaSeparatedValues) {
    service.setRequestedAfter(true);
    service.setDumpDestination(folder + "/p.csv");
    service.setRecordNumbering(false);
    service.setTagFcnsWithLogId(true);
    service.setMemEventInterval(2);
    run("folding", g, [] { return false; });
    fold(f);
    service.dump();
    EXPECT_THAT(
        linesOf(contentsOf(folder + "/p.csv")),
        ElementsAre("run,transform,kind,target,start_us,time_us,nodes_before,nodes_after,"
                    "pool_bytes_before,pool_bytes_after,outcome",
                    MatchesRegex("1,folding,function,g#1,0\\.000,[0-9.]+,0,0,,,unchanged"),
                    MatchesRegex("2,folding,function,\"say \"\"hi\"\", .*#2\",[0-9.]+,[0-9.]+,1,2,"
                                 "[0-9]+,[0-9]+,changed")));
}

TEST_F(TransformProfiler, TraceIsValidAndNested) {
    service.setRequestedAfter(true);
    service.setDumpDestination(folder + "/new folder/trace.json");
    for (int i = 0; i < 200; ++i) {
        runOnScope("outer", unit, [this] {
            fold(f);
            run("middle", g, [this] {
                fold(f);
                return false;
            });
            return true;
        });
    }
    service.dump();
    const auto trace = nlohmann::json::parse(contentsOf(folder + "/new folder/trace.json"));
    expectNested(trace);
    std::size_t runEvents = 0;
    std::size_t counters = 0;
    for (const auto& event : trace.at("traceEvents")) {
        EXPECT_TRUE(event.at("pid").is_number_integer());
        if (event.at("ph") == "C") {
            ++counters;
            EXPECT_GT(event.at("args").at("bytes"), 0);
        }
        if (event.at("ph") != "X") {
            continue;
        }
        ++runEvents;
        EXPECT_EQ(event.at("args").at("record"), runEvents);
        if (event.at("name") == "folding") {
            EXPECT_EQ(event.at("args").at("target"),
                      "say \"hi\", \\o/\x01\xC3\x83\xC2\xA9"); // its bytes as code points
            EXPECT_EQ(event.at("args").at("outcome"), "changed");
            EXPECT_EQ(event.at("args").at("nodesAfter").get<int>(),
                      event.at("args").at("nodesBefore").get<int>() + 1);
        }
    }
    EXPECT_EQ(runEvents, 800U);
    EXPECT_EQ(counters, 1600U);
}

TEST_F(TransformProfiler, ThresholdWritesPartsAndBoundsWhatIsKept) {
    service.setRequestedAfter(true);
    service.setDumpDestination(folder + "/p.csv");
    service.setEventEmitThreshold(2);
    for (int i = 0; i < 5; ++i) {
        fold(f);
    }
    EXPECT_EQ(service.eventCount(), 5U);
    service.dump();
    EXPECT_EQ(filesIn(folder), (std::vector<std::string>{"p-1.csv", "p-2.csv", "p.csv"}));
    EXPECT_EQ(linesOf(contentsOf(folder + "/p-1.csv")).size(), 3U);
    EXPECT_THAT(linesOf(contentsOf(folder + "/p-2.csv")).at(1), MatchesRegex("3,3,folding.*"));
    EXPECT_EQ(linesOf(contentsOf(folder + "/p.csv")).size(), 2U);
}

TEST_F(TransformProfiler, AResetBeginsWithTheFirstPartAgain) {
    service.setRequestedAfter(true);
    service.setDumpDestination(folder + "/p.csv");
    service.setEventEmitThreshold(2);
    fold(f);
    fold(f);
    service.reset();
    run("other", g, [] { return false; });
    run("other", g, [] { return false; });
    EXPECT_EQ(filesIn(folder), std::vector<std::string>{"p-1.csv"});
    EXPECT_THAT(linesOf(contentsOf(folder + "/p-1.csv")).at(1), MatchesRegex("1,3,other.*"));
}

TEST_F(TransformProfiler, RunsUnderWayOutliveTheEventsThatAreWritten) {
    service.setRequestedAfter(true);
    service.setDumpDestination(folder + "/p.txt");
    service.setEventEmitThreshold(2);
    runOnScope("outer", unit, [this] {
        fold(f);
        run("middle", g, [this] {
            run("inner", g, [] { return false; });
            return false;
        });
        run("last", g, [] { return false; });
        return false;
    });
    service.dump();
    const auto namesIn = [this](const char* file) {
        std::string names;
        for (const std::string& line : linesOf(contentsOf(folder + file))) {
            if (line.empty()) {
                break; // the sums follow
            }
            const std::size_t at = line.find("changed ");
            names += at == std::string::npos ? "" : line.substr(at + 8) + "|";
        }
        return names;
    };
    EXPECT_THAT(namesIn("/p-1.txt"), MatchesRegex("    folding say .*\\|    inner g\\|"));
    EXPECT_EQ(namesIn("/p-2.txt"), "  middle g|  last g|");
    EXPECT_EQ(namesIn("/p.txt"), "outer scope u|");
    EXPECT_THAT(linesOf(contentsOf(folder + "/p.txt")).at(1), MatchesRegex(" +5 +0\\.000 .*"));
    EXPECT_EQ(service.eventCount(), 5U);
}

// More than memory is got for at a time, again and again.
TEST_F(TransformProfiler, ThousandsOfEventsKeepTheirOrder) {
    service.setRequestedBefore(true);
    for (const std::size_t count : {3000U, 1024U, 1023U, 2049U}) {
        service.reset();
        runOnScope("outer", unit, [this, count] {
            for (std::size_t i = 1; i < count; ++i) {
                run("nothing", i % 2 == 0 ? f : g, [] { return false; });
            }
            return false;
        });
        EXPECT_EQ(service.eventCount(), count);
        const auto all = events();
        ASSERT_EQ(all.size(), count);
        EXPECT_EQ(all.back()[Name], "outer");
        const std::size_t outer = std::stoul(all.back()[Run]);
        for (std::size_t i = 1; i < count; ++i) {
            ASSERT_EQ(all[i - 1][Record], std::to_string(i));
            ASSERT_EQ(all[i - 1][Run], std::to_string(outer + i));
            ASSERT_EQ(all[i - 1][Target] == "g", i % 2 != 0);
        }
    }
}

TEST_F(TransformProfiler, ThousandsOfEventsAreWrittenWhileRunsAreUnderWay) {
    service.setRequestedBefore(true);
    service.setDumpDestination(folder + "/p.csv");
    service.setEventEmitThreshold(1500);
    for (int i = 0; i < 1100; ++i) {
        fold(f);
    }
    runOnScope("outer", unit, [this] {
        for (int i = 0; i < 1500; ++i) {
            run("middle", g, [this] {
                fold(f);
                return false;
            });
        }
        return false;
    });
    EXPECT_EQ(service.eventCount(), 4101U);
    service.dump();
    const auto linesIn = [this](const char* file) { return linesOf(contentsOf(folder + file)); };
    EXPECT_EQ(linesIn("/p-1.csv").size(), 1501U);
    EXPECT_EQ(linesIn("/p-2.csv").size(), 1501U);
    ASSERT_EQ(linesIn("/p.csv").size(), 1102U);
    EXPECT_THAT(linesIn("/p.csv").at(1), MatchesRegex("3001,[0-9]+,(folding|middle),.*"));
    EXPECT_THAT(linesIn("/p.csv").back(), MatchesRegex("4101,[0-9]+,outer,scope,u,.*"));
}

TEST_F(TransformProfiler, DestinationThatIsNoFileTakesTheReportIn) {
    service.setRequestedAfter(true);
    fold(f);
    const std::string pipe = folder + "/pipe.csv";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    service.setDumpDestination(pipe);
    service.dump();
    char start[8] = {};
    EXPECT_EQ(::read(reader, start, 7), 7);
    EXPECT_STREQ(start, "record,");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    service.setEventEmitThreshold(2);
    fold(f);
    char rest[4096];
    const ssize_t length = ::read(reader, rest, sizeof rest);
    ASSERT_GT(length, 0);
    EXPECT_THAT(std::string(rest, static_cast<std::size_t>(length)),
                HasSubstr("record,run,")); // a part of its own, for it is a report by itself
    ::close(reader);
    service.setEventEmitThreshold(0);
    fold(f);

    // A link stays one, whether its target is there or not.
    const std::string link = folder + "/link.csv";
    std::filesystem::create_symlink(folder + "/target.csv", link);
    service.setDumpDestination(link);
    for (int i = 0; i < 2; ++i) {
        service.dump();
        EXPECT_TRUE(std::filesystem::is_symlink(link));
        EXPECT_EQ(linesOf(contentsOf(folder + "/target.csv")).size(), 2U);
    }
    EXPECT_EQ(filesIn(folder), (std::vector<std::string>{"link.csv", "pipe.csv", "target.csv"}));
    EXPECT_EQ(console, "");
}

TEST_F(TransformProfiler, DestinationThatIsAFolderIsToldByItsName) {
    service.setRequestedAfter(true);
    fold(f);
    const std::string inTheWay = folder + "/p.csv";
    std::filesystem::create_directory(inTheWay);
    service.setDumpDestination(inTheWay);
    service.dump();
    service.setDumpDestination(inTheWay + "/");
    service.dump();
    EXPECT_EQ(console, "Cannot write '" + inTheWay + "': Is a directory.\n" + "Cannot write '" +
                           inTheWay + "/': Is a directory.\n");
    EXPECT_EQ(filesIn(folder), std::vector<std::string>{"p.csv"});
    EXPECT_TRUE(filesIn(inTheWay).empty());
}

TEST_F(TransformProfiler, DestinationThatCannotBeWrittenIsToldAndLeavesNothing) {
    service.setRequestedAfter(true);
    fold(f);
    service.setDumpDestination("/dev/null/x/p.csv");
    service.dump();
    EXPECT_EQ(console, "Cannot write files in '/dev/null/x': Not a directory.\n");
    service.setDumpDestination(folder); // a folder stands in the way of the name
    console.clear();
    service.dump();
    EXPECT_THAT(console, HasSubstr("Is a directory"));
    EXPECT_TRUE(filesIn(folder).empty());
}
