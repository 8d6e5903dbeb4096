// internal.quarn.Debug: the switch, the children, and the settings for comparing dumps.

#include "debug/collectstatistics.hpp"
#include "debug/debug.hpp"
#include "debug/debuglogger.hpp"
#include "debug/llvmdebugger.hpp"
#include "debug/memoryanalyzervi.hpp"
#include "debug/nameprinter.hpp"
#include "debug/prettyprintervi.hpp"
#include "debug/sanitycheckervi.hpp"
#include "debug/scramblervi.hpp"
#include "debug/transformlogservicevi.hpp"
#include "debug/transformprofilervi.hpp"
#include "tests/controllers.hpp"

#include <qn/default_services.hpp>
#include <qn/pipeline.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>
#include <qn/scope.hpp>
#include <qn/text.hpp>
#include <qn/transform_log_service.hpp>
#include <ts/debug_log.hpp>

#include <cstdlib>
#include <gmock/gmock.h>
#include <optional>

namespace {

using controllers::Member;
using controllers::Object;
using controllers::printed;
using NativeHub = quarn_vi::debug::Debug;

const std::string supportMessage = "Please contact Corvane technical support for assistance.\n";

/// Starts with the utilities closed, as after loading, and without the environment variable.
class Debug : public testing::Test {
protected:
    Debug() {
        NativeHub::disable();
        ::unsetenv("ZQE_INSTALL");
    }
    ~Debug() override {
        NativeHub::disable();
        ::unsetenv("ZQE_INSTALL");
        // It registers itself when it is made; other tests start from an empty container.
        services().removeService(
            &quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService());
    }
    static QN::ServiceContainer& services() { return QN::DefaultServices::debugServices(); }
    /// A hub made without a word.
    static Object openHub() {
        NativeHub::enable();
        return Object("Debug");
    }
    static Object closedHub() {
        NativeHub::disable();
        std::optional<Object> hub;
        (void)printed([&] { hub.emplace("Debug"); });
        return std::move(*hub);
    }
};

struct Child {
    const char* property;
    const char* cls;
};
/// In the order in which they are declared.
constexpr Child children[] = {
    {"PrettyPrinter", "PrettyPrinter"},
    {"DebugLogger", "DebugLogger"},
    {"SanityChecker", "SanityChecker"},
    {"NamePrinter", "NamePrinter"},
    {"MemoryAnalyzer", "MemoryAnalyzer"},
    {"TransformProfiler", "TransformProfiler"},
    {"TransformLogService", "TransformLogService"},
    {"Scrambler", "Scrambler"},
    {"StatisticsCollector", "CollectStatistics"},
    {"LlvmDebugger", "LlvmDebugger"},
};

std::string fullName(const char* shortName) {
    return std::string("internal.quarn.") + shortName;
}

/// A property as an array of objects: empty, or of one element.
sample::Array read(const Object& hub, const char* property) {
    return sample::Array(hub.get(property).asArray());
}

void callOnTheClass(const char* method) {
    (void)sample::method(controllers::scriptClass("Debug"), method).callConverted(nullptr, {});
}

TEST_F(Debug, declaresItsMembersInOrder) {
    std::vector<Member> members;
    for (const Child& child : children)
        members.push_back({child.property, fullName(child.cls), true, 0x2000});
    EXPECT_EQ(controllers::propertiesOf("Debug"), members);
    EXPECT_EQ(controllers::methodsOf("Debug"),
              (std::vector<std::string>{"void setUpForDiffs(internal.quarn.Debug)",
                                        "static void enable()", "static void disable()"}));
    objsys::COSClass& cls = controllers::scriptClass("Debug");
    EXPECT_TRUE(cls.superclasses().empty());
    ASSERT_EQ(cls.constructors().size(), 1u);
    EXPECT_TRUE(cls.constructors()[0]->getSignature().arguments.empty());
}

// A process of its own: nothing has called enable or disable before.
TEST(DebugSwitch, isOffWhenTheModuleIsLoaded) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::unsetenv("ZQE_INSTALL");
            NativeHub hub; // speaks to standard output
            std::exit(hub.debugLogger() == nullptr ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Debug, closedHubSaysWhomToAsk) {
    EXPECT_EQ(printed([] { Object("Debug"); }), supportMessage);
    EXPECT_EQ(printed([] { Object("Debug"); }), supportMessage); // each time
}

TEST_F(Debug, inHouseInstallationsGetASecondLine) {
    const std::string second = "Internal users - please see "
                               "'https://wiki.corvane.internal/quarn/debug' to learn how to enable "
                               "it.\n";
    for (const char* const value : {"1", "/opt/install", "0", " "}) {
        ::setenv("ZQE_INSTALL", value, 1);
        EXPECT_EQ(printed([] { Object("Debug"); }), supportMessage + second) << value;
    }
    ::setenv("ZQE_INSTALL", "", 1);
    EXPECT_EQ(printed([] { Object("Debug"); }), supportMessage);
}

TEST_F(Debug, openHubSaysNothing) {
    ::setenv("ZQE_INSTALL", "1", 1);
    NativeHub::enable();
    EXPECT_EQ(printed([] { Object("Debug"); }), "");
}

TEST_F(Debug, switchIsCalledOnTheClass) {
    EXPECT_EQ(printed([] { callOnTheClass("enable"); }), "");
    EXPECT_EQ(printed([] { Object("Debug"); }), "");
    EXPECT_EQ(printed([] { callOnTheClass("disable"); }), "");
    EXPECT_EQ(printed([] { Object("Debug"); }), supportMessage);
    EXPECT_EQ(printed([] {
                  callOnTheClass("enable");
                  callOnTheClass("enable"); // twice is once
                  Object("Debug");
              }),
              "");
}

TEST_F(Debug, childrenOfAClosedHubAreEmptyArrays) {
    const Object hub = closedHub();
    for (const Child& child : children) {
        EXPECT_EQ(printed([&] {
                      const sample::Array array = read(hub, child.property);
                      EXPECT_EQ(hvGetNumberOfElements(array.get()), 0u) << child.property;
                      EXPECT_EQ(hvGetM(array.get()), 0u);
                      EXPECT_EQ(hvGetN(array.get()), 0u);
                      ASSERT_NE(array->objectClass, nullptr);
                      EXPECT_EQ(array->objectClass->getFullName().str(), fullName(child.cls));
                  }),
                  "");
    }
}

TEST_F(Debug, childrenAreMadeOnceAndKept) {
    const Object hub = openHub();
    for (const Child& child : children) {
        const Object first = hub.child(child.property);
        EXPECT_EQ(first.cls().getFullName().str(), fullName(child.cls));
        EXPECT_EQ(hub.child(child.property).instance(), first.instance()) << child.property;
    }
}

TEST_F(Debug, childrenOutliveTheirHandles) {
    const Object hub = openHub();
    for (const Child& child : children) {
        const void* const native =
            hub.child(child.property).instance()->getNativeObject(objsys::COSNameID());
        EXPECT_NE(native, nullptr);
        EXPECT_EQ(hub.child(child.property).instance()->getNativeObject(objsys::COSNameID()),
                  native)
            << child.property;
    }
}

TEST_F(Debug, childrenAreNotMadeBeforeTheyAreAskedFor) {
    NativeHub hub;
    NativeHub::enable();
    (void)hub.scrambler();
    NativeHub::disable();
    EXPECT_NE(hub.scrambler(), nullptr);
    EXPECT_EQ(hub.prettyPrinter(), nullptr);
    EXPECT_EQ(hub.debugLogger(), nullptr);
    EXPECT_EQ(hub.sanityChecker(), nullptr);
    EXPECT_EQ(hub.namePrinter(), nullptr);
    EXPECT_EQ(hub.memoryAnalyzer(), nullptr);
    EXPECT_EQ(hub.transformProfiler(), nullptr);
    EXPECT_EQ(hub.transformLogService(), nullptr);
    EXPECT_EQ(hub.statisticsCollector(), nullptr);
    EXPECT_EQ(hub.llvmDebugger(), nullptr);
}

TEST_F(Debug, childrenStayAndWorkAfterDisable) {
    const Object hub = openHub();
    const Object scrambler = hub.child("Scrambler");
    callOnTheClass("disable");
    EXPECT_EQ(hub.child("Scrambler").instance(), scrambler.instance());
    EXPECT_EQ(hub.child("Scrambler").callText("hello"), "^_^ hello ^_^");
    EXPECT_EQ(hvGetNumberOfElements(read(hub, "MemoryAnalyzer").get()), 0u);
    callOnTheClass("enable");
    EXPECT_EQ(hub.child("MemoryAnalyzer").callText("hello"), "^_^ hello ^_^");
}

TEST_F(Debug, hubThatWasClosedOpensWithTheSwitch) {
    const Object hub = closedHub();
    callOnTheClass("enable");
    for (const Child& child : children)
        EXPECT_EQ(hub.child(child.property).cls().getFullName().str(), fullName(child.cls));
}

TEST_F(Debug, hubsOwnTheirChildrenButShareWhatTheseControl) {
    const Object a = openHub();
    const Object b = openHub();
    for (const Child& child : children)
        EXPECT_NE(a.child(child.property).instance(), b.child(child.property).instance());
    a.child("Scrambler").set("Verbose", true);
    EXPECT_TRUE(b.child("Scrambler").flag("Verbose"));
    a.child("Scrambler").set("Verbose", false);
    // Statistics are each controller's own.
    a.child("StatisticsCollector").set("Enabled", true);
    EXPECT_FALSE(b.child("StatisticsCollector").flag("Enabled"));
    a.child("StatisticsCollector").set("Enabled", false);
}

TEST_F(Debug, childrenCannotBeAssigned) {
    const Object hub = openHub();
    for (const Child& child : children) {
        const Object own = hub.child(child.property);
        const Object other(child.cls);
        const objsys::COSValue value =
            objsys::COSValue::ofArray(other.handle(), objsys::COSNameID(fullName(child.cls)));
        EXPECT_EQ(sample::errorOf([&] { hub.set(child.property, value); }),
                  "varnix:readOnlyProperty");
        EXPECT_EQ(sample::errorOf([&] { hub.set(child.property, 1.0); }),
                  "varnix:readOnlyProperty");
        EXPECT_EQ(hub.child(child.property).instance(), own.instance());
    }
}

TEST_F(Debug, namesArePrintedOnStandardOutput) {
    const Object hub = openHub();
    QN::ParseError error;
    const auto scope = QN::parseQnel("(function lone f64 (block b0 (ret 1)))", error);
    ASSERT_NE(scope, nullptr) << error.message;
    const Object names = hub.child("NamePrinter");
    names.set("Enabled", true);
    EXPECT_THAT(printed([&] { QN::runPipeline(*scope); }),
                testing::ContainsRegex("constant-folding-fcn_lone"));
    names.set("Enabled", false);
    EXPECT_EQ(printed([&] { QN::runPipeline(*scope); }), "");
}

TEST_F(Debug, childrenGoWithTheirHub) {
    NativeHub::enable();
    auto hub = std::make_unique<NativeHub>();
    const objsys::COSNameID name = controllers::scriptClass("Debug").getFullName();
    const Object handle(sample::Array(sample::BindingRegistry::announce(hub.get(), name)));
    std::vector<Object> kept;
    for (const Child& child : children)
        kept.push_back(handle.child(child.property));
    const std::size_t before = services().size();
    kept[8].set("Enabled", true); // the statistics collector's service goes while registered
    EXPECT_EQ(services().size(), before + 1);
    hub.reset();
    EXPECT_EQ(services().size(), before);
    for (const Object& child : kept)
        EXPECT_FALSE(child.instance()->isValid());
    EXPECT_FALSE(handle.instance()->isValid());
}

TEST_F(Debug, methodsRefuseAnEmptyObject) {
    objsys::COSClass& cls = controllers::scriptClass("Debug");
    const sample::Array none(omCreateOBJSYSMatrix(0, 0, cls.getFullName()));
    EXPECT_EQ(sample::errorOf([&] {
                  (void)sample::method(cls, "setUpForDiffs").callConverted(none.get(), {});
              }),
              "varnix:nullSelf");
    EXPECT_EQ(sample::errorOf([] { Object("Debug", {sample::number(1)}); }),
              "varnix:tooManyInputs");
}

/// Everything that setUpForDiffs may touch, set to the opposite first.
class SetUpForDiffs : public Debug {
protected:
    SetUpForDiffs() { opposite(); }
    ~SetUpForDiffs() override {
        printer().setRequestedBefore(false);
        printer().setRequestedAfter(false);
        printer().setRequestedGlobalScope(false);
        printer().setFilter("");
        printer().setOutputFormat(static_cast<QN::PrettyPrintService::OutputFormat>(0));
        printer().setVarNameDisambiguation(nameDisambiguation_);
        printer().setRemoveIdenticalFiles(removeIdentical_);
        printer().setGaplessNumbering(gapless_);
        QN::PrettyPrinter::setDoSanityCheck(sanity_);
        QN::PrettyPrinter::setDoPrintMathRoundingOverflow(rounding_);
        log().setUsePIDInName(true);
        log().setLogDirectory("");
    }
    static QN::PrettyPrintService& printer() {
        return quarn_vi::debug::PrettyPrinterVI::sharedPrettyPrintService();
    }
    static tssv::debug::DebugLog& log() { return QN::DefaultServices::debugServices().debugLog(); }
    static void opposite() {
        log().setUsePIDInName(true);
        log().setLogDirectory("/tmp/kept");
        printer().setOutputFormat(static_cast<QN::PrettyPrintService::OutputFormat>(3));
        printer().setVarNameDisambiguation(false);
        printer().setRemoveIdenticalFiles(false);
        printer().setFilter("fold");
        QN::PrettyPrinter::setDoSanityCheck(true);
        printer().setRequestedAfter(false);
        printer().setRequestedBefore(false);
        printer().setRequestedGlobalScope(false);
        printer().setGaplessNumbering(false);
        QN::PrettyPrinter::setDoPrintMathRoundingOverflow(false);
    }
    static void expectPrinterUntouched() {
        EXPECT_EQ(static_cast<int>(printer().outputFormat()), 3);
        EXPECT_FALSE(printer().varNameDisambiguation());
        EXPECT_FALSE(printer().removeIdenticalFiles());
        EXPECT_EQ(printer().filter(), "fold");
        EXPECT_TRUE(QN::PrettyPrinter::doSanityCheck());
        EXPECT_FALSE(printer().requestedAfter());
    }
    static void expectPrinterSetUp() {
        EXPECT_EQ(static_cast<int>(printer().outputFormat()), 1);
        EXPECT_TRUE(printer().varNameDisambiguation());
        EXPECT_TRUE(printer().removeIdenticalFiles());
        EXPECT_EQ(printer().filter(), "-scope_");
        EXPECT_FALSE(QN::PrettyPrinter::doSanityCheck());
        EXPECT_TRUE(printer().requestedAfter());
    }

private:
    bool nameDisambiguation_ = printer().varNameDisambiguation();
    bool removeIdentical_ = printer().removeIdenticalFiles();
    bool gapless_ = printer().gaplessNumbering();
    bool sanity_ = QN::PrettyPrinter::doSanityCheck();
    bool rounding_ = QN::PrettyPrinter::doPrintMathRoundingOverflow();
};

TEST_F(SetUpForDiffs, setsWhatMakesDumpsComparable) {
    const Object hub = openHub();
    EXPECT_EQ(printed([&] { hub.call("setUpForDiffs"); }), "");
    expectPrinterSetUp();
    EXPECT_FALSE(log().usePIDInName());
    const Object seen = hub.child("PrettyPrinter");
    EXPECT_EQ(seen.text("OutputFormat"), "TEXT");
    EXPECT_EQ(seen.text("FilterRegEx"), "-scope_");
    EXPECT_FALSE(seen.flag("EnabledSanityChecking"));
    EXPECT_TRUE(seen.flag("EnabledAfter"));
    EXPECT_FALSE(hub.child("DebugLogger").flag("UsePIDInName"));
}

TEST_F(SetUpForDiffs, leavesTheRestAsItIs) {
    const Object hub = openHub();
    for (const bool value : {false, true}) {
        printer().setRequestedBefore(value);
        printer().setRequestedGlobalScope(value);
        printer().setGaplessNumbering(value);
        QN::PrettyPrinter::setDoPrintMathRoundingOverflow(value);
        hub.call("setUpForDiffs");
        EXPECT_EQ(printer().requestedBefore(), value);
        EXPECT_EQ(printer().requestedGlobalScope(), value);
        EXPECT_EQ(printer().gaplessNumbering(), value);
        EXPECT_EQ(QN::PrettyPrinter::doPrintMathRoundingOverflow(), value);
        EXPECT_EQ(log().logDirectory(), "/tmp/kept");
    }
}

TEST_F(SetUpForDiffs, twiceIsOnce) {
    const Object hub = openHub();
    hub.call("setUpForDiffs");
    hub.call("setUpForDiffs");
    expectPrinterSetUp();
}

TEST_F(SetUpForDiffs, makesTheTwoChildrenItNeedsAndNoOther) {
    NativeHub::enable();
    NativeHub hub;
    hub.setUpForDiffs();
    NativeHub::disable();
    EXPECT_NE(hub.prettyPrinter(), nullptr);
    EXPECT_NE(hub.debugLogger(), nullptr);
    EXPECT_EQ(hub.sanityChecker(), nullptr);
    EXPECT_EQ(hub.namePrinter(), nullptr);
    EXPECT_EQ(hub.memoryAnalyzer(), nullptr);
    EXPECT_EQ(hub.transformProfiler(), nullptr);
    EXPECT_EQ(hub.transformLogService(), nullptr);
    EXPECT_EQ(hub.scrambler(), nullptr);
    EXPECT_EQ(hub.statisticsCollector(), nullptr);
    EXPECT_EQ(hub.llvmDebugger(), nullptr);
}

TEST_F(SetUpForDiffs, ofAnEmptyClosedHubDoesNothingSilently) {
    const Object hub = closedHub();
    EXPECT_EQ(printed([&] { hub.call("setUpForDiffs"); }), "");
    expectPrinterUntouched();
    EXPECT_TRUE(log().usePIDInName());
}

TEST_F(SetUpForDiffs, ofAClosedHubWithALoggerOnlyDoesTheFirstStep) {
    const Object hub = openHub();
    (void)hub.child("DebugLogger");
    callOnTheClass("disable");
    EXPECT_EQ(printed([&] { hub.call("setUpForDiffs"); }), "");
    EXPECT_FALSE(log().usePIDInName());
    expectPrinterUntouched();
}

TEST_F(SetUpForDiffs, ofAClosedHubWithAPrinterOnlyLeavesTheLogAlone) {
    const Object hub = openHub();
    (void)hub.child("PrettyPrinter");
    callOnTheClass("disable");
    hub.call("setUpForDiffs");
    expectPrinterSetUp();
    EXPECT_TRUE(log().usePIDInName());
}

} // namespace
