// internal.quarn.PrettyPrinter over the shared pretty-print service.

#include "debug/prettyprintervi.hpp"
#include "tests/debugservice_properties.hpp"

#include <qn/default_services.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>
#include <ts/debug_log.hpp>

namespace {

using controllers::Member;
using controllers::Object;
using quarn_vi::debug::PrettyPrinterVI;

QN::PrettyPrintService& service() {
    return PrettyPrinterVI::sharedPrettyPrintService();
}

class PrettyPrinter : public testing::Test {
protected:
    void TearDown() override {
        service().setOutputFormat(static_cast<QN::PrettyPrintService::OutputFormat>(0));
    }
};

TEST_F(PrettyPrinter, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("PrettyPrinter"),
              controllers::withDebugServiceProperties(
                  {{"PrettyPrintDir", "char", true, 0x2000},
                   {"StackTraces", "internal.quarn.StackTraces", true, 0x2000},
                   {"OutputFormat", "char", false, 0},
                   {"EnabledPrintRoundingOverflow", "logical scalar", false, 0},
                   {"EnabledSanityChecking", "logical scalar", false, 0},
                   {"VarNameDisambiguation", "logical scalar", false, 0},
                   {"GaplessNumbering", "logical scalar", false, 0},
                   {"RemoveIdenticalFiles", "logical scalar", false, 0}}));
    EXPECT_EQ(controllers::methodsOf("PrettyPrinter"),
              (std::vector<std::string>{"char hello(internal.quarn.PrettyPrinter)"}));
}

TEST_F(PrettyPrinter, inheritsTheCommonSettings) {
    controllers::expectDebugServiceProperties("PrettyPrinter", service());
}

TEST_F(PrettyPrinter, greets) {
    EXPECT_EQ(Object("PrettyPrinter").callText("hello"), "(-: hello :-)");
}

TEST_F(PrettyPrinter, formatTakesKeywordsInAnyLetterCase) {
    struct Row {
        const char* given;
        int value;
        const char* read;
    };
    const Row rows[] = {{"text", 1, "TEXT"}, {"tExT", 1, "TEXT"}, {"Qnel", 2, "QNEL"},
                        {"qnel", 2, "QNEL"}, {"QNEL", 2, "QNEL"}, {"dot", 3, "DOT"},
                        {"DOT", 3, "DOT"},   {"HTML", 0, "HTML"}, {"html", 0, "HTML"}};
    const Object object("PrettyPrinter");
    for (const Row& row : rows) {
        EXPECT_EQ(controllers::printed([&] { object.set("OutputFormat", row.given); }), "");
        EXPECT_EQ(static_cast<int>(service().outputFormat()), row.value) << row.given;
        EXPECT_EQ(object.text("OutputFormat"), row.read) << row.given;
    }
}

TEST_F(PrettyPrinter, unknownFormatPrintsAMessageAndChangesNothing) {
    const Object object("PrettyPrinter");
    object.set("OutputFormat", "dot");
    for (const std::string word : {"txt", "", "tex", "texts", "TEXT "}) {
        EXPECT_EQ(controllers::printed([&] { object.set("OutputFormat", word.c_str()); }),
                  word + " is not a valid choice, please pick from 'HTML', 'TEXT' or 'QNEL'\n");
        EXPECT_EQ(object.text("OutputFormat"), "DOT") << word;
    }
    controllers::expectWrongType(object, "OutputFormat", sample::number(1));
    EXPECT_EQ(static_cast<int>(service().outputFormat()), 3);
}

TEST_F(PrettyPrinter, formatOutsideTheTableReadsAsHtml) {
    for (const int value : {77, 4, -1}) {
        service().setOutputFormat(static_cast<QN::PrettyPrintService::OutputFormat>(value));
        EXPECT_EQ(Object("PrettyPrinter").text("OutputFormat"), "HTML") << value;
    }
}

TEST_F(PrettyPrinter, switchesAreShared) {
    using P = QN::PrettyPrinter;
    controllers::expectSharedSwitch(
        "PrettyPrinter", "EnabledPrintRoundingOverflow",
        [] { return P::doPrintMathRoundingOverflow(); },
        [](bool v) { P::setDoPrintMathRoundingOverflow(v); });
    controllers::expectSharedSwitch(
        "PrettyPrinter", "EnabledSanityChecking", [] { return P::doSanityCheck(); },
        [](bool v) { P::setDoSanityCheck(v); });
    controllers::expectSharedSwitch(
        "PrettyPrinter", "VarNameDisambiguation", [] { return service().varNameDisambiguation(); },
        [](bool v) { service().setVarNameDisambiguation(v); });
    controllers::expectSharedSwitch(
        "PrettyPrinter", "GaplessNumbering", [] { return service().gaplessNumbering(); },
        [](bool v) { service().setGaplessNumbering(v); });
    controllers::expectSharedSwitch(
        "PrettyPrinter", "RemoveIdenticalFiles", [] { return service().removeIdenticalFiles(); },
        [](bool v) { service().setRemoveIdenticalFiles(v); });
}

TEST_F(PrettyPrinter, settingsOutliveBothObjects) {
    {
        const Object a("PrettyPrinter");
        const Object b("PrettyPrinter");
        a.set("GaplessNumbering", true);
        EXPECT_TRUE(b.flag("GaplessNumbering"));
    }
    EXPECT_TRUE(Object("PrettyPrinter").flag("GaplessNumbering"));
    service().setGaplessNumbering(false);
}

TEST_F(PrettyPrinter, showsTheServicesFolder) {
    const Object object("PrettyPrinter");
    EXPECT_EQ(object.text("PrettyPrintDir"), service().outputFolderName());
    tssv::debug::DebugLog& log = QN::DefaultServices::debugServices().debugLog();
    log.setLogDirectory("/elsewhere");
    EXPECT_TRUE(object.text("PrettyPrintDir").starts_with("/elsewhere/"));
    log.setLogDirectory("");
    EXPECT_EQ(sample::errorOf([&] { object.set("PrettyPrintDir", "/tmp"); }),
              "varnix:readOnlyProperty");
}

TEST_F(PrettyPrinter, stackTracesChildIsTheParentsOwn) {
    const Object a("PrettyPrinter");
    const Object b("PrettyPrinter");
    const Object child = a.child("StackTraces");
    EXPECT_EQ(child.instance(), a.child("StackTraces").instance());
    EXPECT_NE(child.instance(), b.child("StackTraces").instance());
    EXPECT_EQ(child.cls().getFullName().str(), "internal.quarn.StackTraces");
    EXPECT_EQ(&child.native<quarn_vi::debug::StackTraces>(),
              a.native<PrettyPrinterVI>().stackTraces());
}

TEST_F(PrettyPrinter, childSurvivesItsHandle) {
    const Object parent("PrettyPrinter");
    { const Object child = parent.child("StackTraces"); }
    EXPECT_FALSE(parent.child("StackTraces").flag("TagNodes"));
}

TEST_F(PrettyPrinter, childDiesWithItsNativeParent) {
    auto parent = std::make_unique<PrettyPrinterVI>();
    const Object child{sample::Array(objsys::factory::basic::BindingRegistry::announce(
        parent->stackTraces(), controllers::scriptClass("StackTraces").getFullName()))};
    parent.reset();
    EXPECT_EQ(sample::errorOf([&] { (void)child.flag("TagNodes"); }), "varnix:invalidHandle");
}

} // namespace
