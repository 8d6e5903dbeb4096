// Requests, registration, filter and folder of debug services.
#include <qn/console.hpp>
#include <qn/debug_service.hpp>
#include <qn/default_services.hpp>
#include <qn/ir.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/scramble_service.hpp>
#include <qn/stack_trace_tag.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>
#include <qn/transform_run.hpp>
#include <ts/debug_log.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

using namespace QN;

namespace {

class Listener : public DebugService {
public:
    explicit Listener(bool before = false, bool after = false)
        : DebugService(before, after, "listener") {}

    int wantedBefore = 0;
    int wantedAfter = 0;
    void prepass(TransformRun& run) override { wantedBefore += wantsBefore(run) ? 1 : 0; }
    void postpass(TransformRun& run) override { wantedAfter += wantsAfter(run) ? 1 : 0; }
};

class DebugServiceTest : public ::testing::Test {
protected:
    DebugServiceTest() {
        setConsoleSink(
            [](void* self, std::string_view text) {
                static_cast<DebugServiceTest*>(self)->console += text;
            },
            this);
    }
    ~DebugServiceTest() override { setConsoleSink(nullptr, nullptr); }

    // One watched run of "folding" on `function`.
    void run(Function& function) {
        TransformRun run(1, "folding", function.scope(), function, function.name());
        DefaultServices::debugServices().forEach([&](Service& service) { service.prepass(run); });
        DefaultServices::debugServices().forEach([&](Service& service) { service.postpass(run); });
    }

    std::string console;
    DebugServices& services = DefaultServices::debugServices();
    Scope global{ScopeFlavor::Global, "everything"};
    Scope& unit = global.addChild(ScopeFlavor::Unit, "u1");
    Function& f = *unit.addFunction("mandel", Type::f64());
    Function& shared = *global.addFunction("shared", Type::f64());
};

} // namespace

TEST_F(DebugServiceTest, IsRegisteredWhileAnyRequestIsOn) {
    Listener listener;
    EXPECT_FALSE(services.isRegistered(&listener));
    EXPECT_FALSE(listener.setRequestedBefore(true));
    EXPECT_TRUE(services.isRegistered(&listener));
    EXPECT_FALSE(listener.setRequestedAfter(true));
    EXPECT_TRUE(listener.setRequestedBefore(false));
    EXPECT_TRUE(services.isRegistered(&listener));
    EXPECT_FALSE(listener.setRequestedGlobalScope(true));
    EXPECT_TRUE(listener.setRequestedAfter(false));
    EXPECT_TRUE(services.isRegistered(&listener));
    EXPECT_TRUE(listener.setRequestedGlobalScope(false));
    EXPECT_FALSE(services.isRegistered(&listener));
}

TEST_F(DebugServiceTest, ConstructorMakesTheRequests) {
    const Listener listener(false, true);
    EXPECT_FALSE(listener.requestedBefore());
    EXPECT_TRUE(listener.requestedAfter());
    EXPECT_FALSE(listener.requestedGlobalScope());
    EXPECT_TRUE(services.isRegistered(&listener));
}

TEST_F(DebugServiceTest, LeavesTheContainerWhenItIsDestroyed) {
    const std::size_t before = services.size();
    { const Listener listener(true, true); }
    EXPECT_EQ(services.size(), before);
}

TEST_F(DebugServiceTest, ActsOnTheRequestedSidesOnly) {
    Listener listener(true, false);
    run(f);
    EXPECT_EQ(listener.wantedBefore, 1);
    EXPECT_EQ(listener.wantedAfter, 0);
    listener.setRequestedAfter(true);
    run(f);
    EXPECT_EQ(listener.wantedBefore, 2);
    EXPECT_EQ(listener.wantedAfter, 1);
}

TEST_F(DebugServiceTest, SkipsTheGlobalScopeUnlessAsked) {
    Listener listener(true, true);
    run(shared);
    EXPECT_EQ(listener.wantedBefore, 0);
    listener.setRequestedGlobalScope(true);
    run(shared);
    run(f);
    EXPECT_EQ(listener.wantedBefore, 2);
    EXPECT_EQ(listener.wantedAfter, 2);
}

TEST_F(DebugServiceTest, FilterIsSearchedInTheTag) {
    Listener listener(true, false);
    for (const char* matching : {"", "mandel", "^folding-fcn_mandel$", "fcn_.*del", "FOLD|fold"}) {
        listener.setFilter(matching);
        EXPECT_EQ(listener.filter(), matching);
        listener.wantedBefore = 0;
        run(f);
        EXPECT_EQ(listener.wantedBefore, 1) << matching;
    }
    for (const char* other : {"-scope_", "^mandel", "Mandel"}) {
        listener.setFilter(other);
        listener.wantedBefore = 0;
        run(f);
        EXPECT_EQ(listener.wantedBefore, 0) << other;
    }
    EXPECT_EQ(console, "");
}

TEST_F(DebugServiceTest, MalformedFilterIsKeptReportedOnceAndSelectsNothing) {
    Listener listener(true, true);
    listener.setFilter("a(b");
    EXPECT_EQ(listener.filter(), "a(b");
    EXPECT_EQ(console,
              "The filter 'a(b' is not a valid pattern (missing ): a(b); it selects nothing.\n");
    run(f);
    run(f);
    listener.setFilter("a(b");
    EXPECT_EQ(listener.wantedBefore, 0);
    EXPECT_EQ(console.find("The filter", 1), std::string::npos);
    listener.setFilter("");
    run(f);
    EXPECT_EQ(listener.wantedBefore, 1);
}

TEST_F(DebugServiceTest, ChangesAreNoted) {
    Listener listener(true, false);
    const std::uint64_t start = services.generation();
    listener.setRequestedBefore(true);
    listener.setFilter("");
    EXPECT_EQ(services.generation(), start);
    listener.setRequestedAfter(true);
    EXPECT_GT(services.generation(), start);
    const std::uint64_t then = services.generation();
    listener.setFilter("x");
    EXPECT_GT(services.generation(), then);
}

// A function that is compiled already leaves no dump and no event behind unless it is compiled
// anew, so whatever a person does to a service that is on must be told.
TEST_F(DebugServiceTest, EverythingDoneToAServiceThatIsOnIsNoted) {
    PrettyPrintService printer(false, true);
    SanityCheckService checker(false, true, SanityCheckService::OutputType::None);
    PoolMemoryTrackingService pools(false, true);
    ScrambleService scrambler(false, true);
    TransformProfilerService profiler(false, true);
    TransformLogService log;
    const std::pair<const char*, std::function<void()>> actions[] = {
        {"format", [&] { printer.setOutputFormat(PrettyPrintService::OutputFormat::Dot); }},
        {"names", [&] { printer.setVarNameDisambiguation(true); }},
        {"gapless", [&] { printer.setGaplessNumbering(true); }},
        {"identical", [&] { printer.setRemoveIdenticalFiles(true); }},
        {"modes", [] { PrettyPrinter::setDoPrintMathRoundingOverflow(true); }},
        {"modes off", [] { PrettyPrinter::setDoPrintMathRoundingOverflow(false); }},
        {"checks off", [] { PrettyPrinter::setDoSanityCheck(false); }},
        {"checks", [] { PrettyPrinter::setDoSanityCheck(true); }},
        {"output", [&] { checker.setOutputType(SanityCheckService::OutputType::Summary); }},
        {"warnings", [&] { checker.setWarningThreshold(2); }},
        {"errors", [&] { checker.setErrorThreshold(3); }},
        {"fields", [&] { checker.setSelectDetails({"node"}); }},
        {"lines", [&] { checker.setLineFilter("x"); }},
        {"asserting", [&] { checker.setAssertOnRecordViolation(true); }},
        {"clear", [&] { checker.clearDetailedReport(); }},
        {"level", [&] { pools.setPoolStatsLevel(2); }},
        {"statistics", [&] { pools.setCollectPoolStats(true); }},
        {"leaks", [&] { pools.setPoolInternalLeakDetection(true); }},
        {"mark", [&] { pools.resetPoolHighWaterMark(); }},
        {"limit", [&] { scrambler.setLimit(3); }},
        {"count", [&] { scrambler.resetCount(); }},
        {"nodes", [&] { scrambler.setScrambleNodeList(false); }},
        {"locals", [&] { scrambler.setScrambleLocalVars(false); }},
        {"pointers", [&] { scrambler.setIntroducePointers(true); }},
        {"scalars", [&] { scrambler.setScalarVarPointerizationThresh(1); }},
        {"arrays", [&] { scrambler.setAggregateVarPointerizationThresh(1); }},
        {"verbose", [&] { scrambler.setVerbose(true); }},
        {"seed", [&] { scrambler.setSeed(9); }},
        {"destination", [&] { profiler.setDumpDestination("console"); }},
        {"numbering", [&] { profiler.setRecordNumbering(false); }},
        {"ids", [&] { profiler.setTagFcnsWithLogId(true); }},
        {"threshold", [&] { profiler.setEventEmitThreshold(5); }},
        {"interval", [&] { profiler.setMemEventInterval(5); }},
        {"reset", [&] { profiler.reset(); }},
        {"log", [&] { log.setEnable(true); }},
        {"tags", [] { StackTraceTagHandler::setHandlesVars(true); }},
        {"tags off", [] { StackTraceTagHandler::setHandlesVars(false); }},
        {"derived", [] { StackTraceTag::setTrackDerivedNodes(true); }},
        {"derived off", [] { StackTraceTag::setTrackDerivedNodes(false); }},
    };
    for (const auto& [name, act] : actions) {
        const std::uint64_t before = services.generation();
        act();
        EXPECT_GT(services.generation(), before) << name;
    }
}

TEST_F(DebugServiceTest, FolderIsUnderTheDebugLogsFolder) {
    tssv::debug::DebugLog& log = services.debugLog();
    const bool usesPid = log.usePIDInName();
    log.setLogDirectory("/some/where");
    const Listener listener;
    log.setUsePIDInName(false);
    EXPECT_EQ(listener.outputFolderName(), "/some/where/listener");
    log.setUsePIDInName(true);
    EXPECT_EQ(listener.outputFolderName(), "/some/where/listener-" + std::to_string(::getpid()));
    log.setLogDirectory("");
    log.setUsePIDInName(usesPid);
}
