// The sanity check service: grading, report, output, filters, and the end of a compilation.
#include "tests/service_support.hpp"

#include <qn/sanity_check_service.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <gmock/gmock.h>

using namespace QN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Output = SanityCheckService::OutputType;
using Severity = SanityCheckService::Severity;
using When = SanityCheckService::FoundWhen;

namespace {

class SanityCheckServiceTest : public testing_support::ServiceTest {
protected:
    SanityCheckServiceTest() {
        b.setLine(7);
        x = f.addParam(Type::f64(), "x");
        value = b.load(x);
        b.ret(value);
    }

    /// Puts `count` stores of a value of the wrong type before the end of the function.
    bool spoil(int count) {
        Builder before(g, *g.entry()->terminator());
        for (int i = 0; i < count; ++i) {
            before.store(x, g.constantLogical(true));
        }
        return true;
    }
    void spoilInARun(int count) {
        run("spoiler", f, [&] { return spoil(count); });
    }

    Scope scope{ScopeFlavor::Unit, "u"};
    Function& f = *scope.addFunction("f", Type::f64());
    Cfg& g = f.cfg();
    Builder b{g, g.addBlock()};
    Var* x = nullptr;
    Node* value = nullptr;
};

} // namespace

TEST_F(SanityCheckServiceTest, RecordsWhatFailsOnEachSide) {
    SanityCheckService service(true, true, Output::None);
    spoilInARun(3);
    run("idle", f, [] { return false; });
    const auto& report = service.getDetailedReport();
    ASSERT_EQ(report.size(), 3U);
    EXPECT_EQ(report[0].testpoint(), "spoiler-fcn_f");
    EXPECT_EQ(report[0].transform(), "spoiler");
    EXPECT_EQ(report[0].foundWhen(), When::After);
    EXPECT_EQ(report[0].checkId(), "type.store");
    EXPECT_EQ(report[0].severity(), Severity::Error);
    EXPECT_EQ(report[0].numFailingNodes(), 3);
    EXPECT_EQ(report[0].message(), "f: block 0: node 1 (id 3): line 7: store: the value is "
                                   "logical, not f64 (and 2 more)");
    EXPECT_EQ(report[1].testpoint(), "idle-fcn_f");
    EXPECT_EQ(report[1].foundWhen(), When::Before);
    EXPECT_EQ(report[2].foundWhen(), When::After);
    EXPECT_EQ(console, "");
}

TEST_F(SanityCheckServiceTest, WhatAFailedTransformHasLeftIsNotJudged) {
    SanityCheckService service(true, true, Output::None);
    TransformRun failing(1, "spoiler", scope, f, f.name());
    service.prepass(failing);
    spoil(1);
    failing.setOutcome(RunOutcome::Failed);
    service.postpass(failing);
    EXPECT_EQ(service.getDetailedReport().size(), 0U);
}

TEST_F(SanityCheckServiceTest, KeepsRowsInPlaceUntilTheReportIsCleared) {
    SanityCheckService service(false, true, Output::None);
    spoilInARun(1);
    const SanityCheckService::ReportRow* const row = &service.getDetailedReport().front();
    for (int i = 0; i < 1000; ++i) {
        run("idle", f, [] { return false; });
    }
    EXPECT_EQ(row, &service.getDetailedReport().front());
    EXPECT_EQ(row->testpoint(), "spoiler-fcn_f");
    EXPECT_EQ(service.getDetailedReport().size(), 1001U);
    service.clearDetailedReport();
    EXPECT_TRUE(service.getDetailedReport().empty());
}

TEST_F(SanityCheckServiceTest, ARowOfAClearedReportIsEmptyAndIsFilledAgain) {
    SanityCheckService service(false, true, Output::None);
    const auto& report = service.getDetailedReport();
    spoilInARun(1);
    run("a transform with a rather long name, so that it lies on the heap", f,
        [] { return false; });
    ASSERT_EQ(report.size(), 2U);
    const SanityCheckService::ReportRow& first = report[0];
    const SanityCheckService::ReportRow& second = report[1];
    service.clearDetailedReport();
    EXPECT_TRUE(report.empty());
    EXPECT_EQ(report.begin(), report.end());
    EXPECT_EQ(second.testpoint() + second.transform() + second.checkId() + second.message(), "");
    EXPECT_EQ(second.numFailingNodes(), 0);
    run("idle", f, [] { return false; });
    ASSERT_EQ(report.size(), 1U);
    EXPECT_EQ(std::distance(report.begin(), report.end()), 1);
    EXPECT_EQ(&report.front(), &first);
    EXPECT_EQ(first.testpoint(), "idle-fcn_f");
    EXPECT_EQ(second.testpoint(), "");
}

TEST_F(SanityCheckServiceTest, GradesByThresholds) {
    SanityCheckService service(false, true, Output::None);
    EXPECT_EQ(service.warningThreshold(), 1);
    EXPECT_EQ(service.errorThreshold(), 1);
    service.setWarningThreshold(3);
    service.setErrorThreshold(5);
    for (int i = 0; i < 6; ++i) {
        spoilInARun(1);
    }
    std::vector<std::pair<int, Severity>> grades;
    for (const auto& row : service.getDetailedReport()) {
        grades.emplace_back(row.numFailingNodes(), row.severity());
    }
    EXPECT_EQ(grades, (std::vector<std::pair<int, Severity>>{{3, Severity::Warning},
                                                             {4, Severity::Warning},
                                                             {5, Severity::Error},
                                                             {6, Severity::Error}}));
}

TEST_F(SanityCheckServiceTest, NeverRecordsWhatFailsNowhere) {
    SanityCheckService service(true, true, Output::DetailsToVarnix);
    service.setWarningThreshold(0);
    service.setErrorThreshold(-1);
    run("idle", f, [] { return false; });
    EXPECT_TRUE(service.getDetailedReport().empty());
    EXPECT_EQ(console, "");
}

TEST_F(SanityCheckServiceTest, AnErrorThresholdBelowTheWarningThresholdStillMakesErrors) {
    SanityCheckService service(false, true, Output::None);
    service.setWarningThreshold(100);
    service.setErrorThreshold(2);
    spoilInARun(2);
    ASSERT_EQ(service.getDetailedReport().size(), 1U);
    EXPECT_EQ(service.getDetailedReport()[0].severity(), Severity::Error);
}

TEST_F(SanityCheckServiceTest, WritesASummary) {
    SanityCheckService service(false, true, Output::Summary);
    service.setErrorThreshold(2);
    value->setLine(1U << 30);
    spoilInARun(2);
    EXPECT_EQ(console,
              "Sanity check after spoiler-fcn_f: 1 error, 1 warning (node.line, type.store)\n");
    EXPECT_TRUE(testing_support::filesIn(folder).empty());
}

TEST_F(SanityCheckServiceTest, WritesDetailsToTheConsole) {
    SanityCheckService service(false, true, Output::DetailsToVarnix);
    spoilInARun(1);
    EXPECT_EQ(console, "testpoint=spoiler-fcn_f  transform=spoiler  foundwhen=after  "
                       "severity=error  checkid=type.store  numfailingnodes=1  function=f  "
                       "block=0  node=1  line=7  message=store: the value is logical, not f64\n");
}

TEST_F(SanityCheckServiceTest, WritesTheSelectedFieldsInTheirOrder) {
    SanityCheckService service(false, true, Output::DetailsToVarnix);
    service.setSelectDetails({"NODE", "CheckId"});
    EXPECT_THAT(service.selectDetails(), ElementsAre("NODE", "CheckId"));
    spoilInARun(2);
    EXPECT_EQ(console, "node=1  checkid=type.store\nnode=2  checkid=type.store\n");
}

TEST_F(SanityCheckServiceTest, WritesDetailsToAFileInTheDebugLogsFolder) {
    SanityCheckService service(false, true, Output::DetailsToFile);
    service.setSelectDetails({"foundwhen", "testpoint"});
    spoilInARun(1);
    run("idle", f, [] { return false; });
    EXPECT_EQ(console, "");
    ASSERT_EQ(testing_support::filesIn(folder).size(), 1U);
    EXPECT_EQ(service.detailsFile(), folder + "/" + testing_support::filesIn(folder)[0]);
    EXPECT_EQ(testing_support::contentsOf(service.detailsFile()),
              "foundwhen=after  testpoint=spoiler-fcn_f\n"
              "foundwhen=after  testpoint=idle-fcn_f\n");
}

TEST_F(SanityCheckServiceTest, AFolderThatCannotBeMadeIsReportedAndTheRunGoesOn) {
    log.setLogDirectory("/dev/null/nowhere");
    SanityCheckService service(false, true, Output::DetailsToFile);
    spoilInARun(1);
    EXPECT_EQ(service.getDetailedReport().size(), 1U);
    EXPECT_THAT(console, HasSubstr("/dev/null/nowhere"));
}

TEST_F(SanityCheckServiceTest, FiltersLinesButNotTheReport) {
    SanityCheckService service(false, true, Output::DetailsToVarnix);
    service.setSelectDetails({"node"});
    service.setLineFilter("node=[13]");
    spoilInARun(3);
    EXPECT_EQ(console, "node=1\nnode=3\n");
    EXPECT_EQ(service.getDetailedReport()[0].numFailingNodes(), 3);
}

TEST_F(SanityCheckServiceTest, ALineFilterThatDoesNotCompileIsKeptReportedOnceAndMatchesNothing) {
    SanityCheckService service(false, true, Output::DetailsToVarnix);
    service.setLineFilter("a(b");
    service.setLineFilter("a(b");
    EXPECT_EQ(service.lineFilter(), "a(b");
    EXPECT_EQ(console, "The line filter 'a(b' is not a valid pattern (missing ): a(b); it matches "
                       "nothing.\n");
    console.clear();
    spoilInARun(1);
    EXPECT_EQ(console, "");
    EXPECT_EQ(service.getDetailedReport().size(), 1U);
    service.setLineFilter("");
    run("idle", f, [] { return false; });
    EXPECT_THAT(console, HasSubstr("checkid=type.store"));
}

TEST_F(SanityCheckServiceTest, WritesSoManyDetailsAndCountsTheRest) {
    SanityCheckService service(false, true, Output::DetailsToVarnix);
    service.setSelectDetails({"checkid"});
    spoilInARun(1234);
    const std::vector<std::string> lines = testing_support::linesOf(console);
    ASSERT_EQ(lines.size(), 1001U);
    EXPECT_EQ(lines.back(), "type.store: and 234 more");
    EXPECT_EQ(service.getDetailedReport()[0].numFailingNodes(), 1234);
}

TEST_F(SanityCheckServiceTest, AssertingStopsTheCompilationWithAnError) {
    SanityCheckService service(true, false, Output::None);
    service.setAssertOnRecordViolation(true);
    const Transform idle{"idle", "", [](Function&) { return false; }, nullptr};
    EXPECT_FALSE(runTransform(idle, f)); // nothing is wrong yet
    spoil(1);
    try {
        runTransform(idle, f);
        ADD_FAILURE() << "the compilation went on";
    } catch (const CompilationStopped& stopped) {
        EXPECT_STREQ(stopped.what(),
                     "The sanity check before idle-fcn_f failed: f: block 0: node 1 (id 3): line "
                     "7: store: the value is logical, not f64 [type.store]");
    }
    EXPECT_EQ(service.getDetailedReport().size(), 1U);
}

TEST_F(SanityCheckServiceTest, ChecksTheWholeScopeOfAScopeRun) {
    SanityCheckService service(false, true, Output::None);
    Function& other = *scope.addFunction("other", Type::f64());
    Builder(other.cfg(), other.cfg().addBlock()).ret();
    runOnScope("inliner", scope, [&] { return spoil(1); });
    std::vector<std::string> found;
    for (const auto& row : service.getDetailedReport()) {
        found.push_back(row.testpoint() + " " + row.checkId());
    }
    EXPECT_THAT(found, ElementsAre("inliner-scope_u type.store", "inliner-scope_u type.return"));
}

TEST_F(SanityCheckServiceTest, FollowsTheFilterOfRuns) {
    SanityCheckService service(true, true, Output::None);
    service.setFilter("nothing-like-it");
    spoilInARun(1);
    EXPECT_TRUE(service.getDetailedReport().empty());
}

TEST_F(SanityCheckServiceTest, AllowsWhatARunAllows) {
    SanityCheckService service(true, true, Output::None);
    Block* const lost = g.addBlock();
    Builder(g, lost).ret(g.constantDouble(1));
    run("control-flow", f, [&] {
        g.removeBlock(lost);
        return true;
    });
    EXPECT_TRUE(service.getDetailedReport().empty());

    Builder(g, g.addBlock()).ret(g.constantDouble(1));
    run("control-flow", f, [] { return false; });
    ASSERT_EQ(service.getDetailedReport().size(), 1U);
    EXPECT_EQ(service.getDetailedReport()[0].checkId(), "flow.unreachable");
    EXPECT_EQ(service.getDetailedReport()[0].foundWhen(), When::After);
}

TEST_F(SanityCheckServiceTest, ExpectsDenseIdsAfterACompaction) {
    SanityCheckService service(false, true, Output::None);
    Node* const spare = Builder(g, *g.entry()->terminator()).load(x);
    g.remove(spare);
    run("dead-code", f, [] { return true; });
    EXPECT_TRUE(service.getDetailedReport().empty());
    run("compaction", f, [] { return true; });
    ASSERT_EQ(service.getDetailedReport().size(), 1U);
    EXPECT_EQ(service.getDetailedReport()[0].checkId(), "graph.compact");
}

TEST(SanityCheckServiceNames, AreFixed) {
    EXPECT_THAT(SanityCheckService::validFields(),
                ElementsAre("block", "checkid", "foundwhen", "function", "line", "message", "node",
                            "numfailingnodes", "severity", "testpoint", "transform"));
    EXPECT_EQ(SanityCheckService::foundWhenToString(When::Before), "before");
    EXPECT_EQ(SanityCheckService::foundWhenToString(When::After), "after");
    EXPECT_EQ(SanityCheckService::foundWhenToString(static_cast<When>(9)), "unknown");
    EXPECT_EQ(SanityCheckService::severityToString(Severity::Warning), "warning");
    EXPECT_EQ(SanityCheckService::severityToString(Severity::Error), "error");
    EXPECT_EQ(SanityCheckService::severityToString(static_cast<Severity>(9)), "unknown");
}
