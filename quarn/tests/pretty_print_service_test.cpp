// Dumps: names and numbers of files, what is left out, the index, and disks that do not take them.
#include "tests/service_support.hpp"

#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>

#include <gmock/gmock.h>
#include <memory>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Format = PrettyPrintService::OutputFormat;

namespace {

class PrettyPrint : public ServiceTest {
protected:
    PrettyPrint() {
        makeBody(f);
        service.setOutputFormat(Format::Text);
    }
    static void makeBody(Function& function) {
        Builder b(function.cfg(), function.cfg().addBlock());
        b.ret(function.cfg().constantDouble(0));
    }
    static bool grow(Function& function) {
        Builder(function.cfg(), *function.cfg().entry()->last())
            .toIndex(function.cfg().constantDouble(1));
        return true;
    }
    std::vector<std::string> dumps() { return filesIn(folder + "/pretty-print"); }
    std::string dump(const std::string& name) {
        return contentsOf(folder + "/pretty-print/" + name);
    }

    Scope unit{ScopeFlavor::Unit, "u"};
    Function& f = *unit.addFunction("fun", Type::f64());
    PrettyPrintService service{false, false};
};

} // namespace

TEST_F(PrettyPrint, Defaults) {
    const PrettyPrintService fresh(false, false);
    EXPECT_EQ(fresh.outputFormat(), Format::Html);
    EXPECT_FALSE(fresh.varNameDisambiguation());
    EXPECT_FALSE(fresh.gaplessNumbering());
    EXPECT_FALSE(fresh.removeIdenticalFiles());
    EXPECT_EQ(fresh.outputFolderName(), folder + "/pretty-print");
    EXPECT_FALSE(PrettyPrinter::doPrintMathRoundingOverflow());
    EXPECT_TRUE(PrettyPrinter::doSanityCheck());
}

TEST_F(PrettyPrint, OneFilePerRunAndSide) {
    service.setRequestedBefore(true);
    service.setRequestedAfter(true);
    run("growing", f, [this] { return grow(f); });
    runOnScope("inline", unit, [] { return false; });
    EXPECT_THAT(dumps(),
                ElementsAre("0001-before-growing-fcn_fun.txt", "0002-after-growing-fcn_fun.txt",
                            "0003-before-inline-scope_u.txt", "0004-after-inline-scope_u.txt"));
    EXPECT_EQ(dump("0001-before-growing-fcn_fun.txt"), "function fun() -> f64\n  b0:\n    ret 0\n");
    EXPECT_THAT(dump("0002-after-growing-fcn_fun.txt"), HasSubstr("toindex 1\n"));
    EXPECT_THAT(dump("0004-after-inline-scope_u.txt"), HasSubstr("scope u (unit)"));
}

TEST_F(PrettyPrint, EndingsFollowTheFormat) {
    service.setRequestedAfter(true);
    for (const Format format : {Format::Html, Format::Text, Format::Qnel, Format::Dot}) {
        service.setOutputFormat(format);
        EXPECT_EQ(service.outputFormat(), format);
        run("growing", f, [] { return false; });
    }
    service.setOutputFormat(static_cast<Format>(9));
    EXPECT_EQ(static_cast<int>(service.outputFormat()), 9);
    run("growing", f, [] { return false; });
    EXPECT_THAT(dumps(),
                ElementsAre("0002-after-growing-fcn_fun.html", "0004-after-growing-fcn_fun.txt",
                            "0006-after-growing-fcn_fun.qnel", "0008-after-growing-fcn_fun.dot",
                            "0010-after-growing-fcn_fun.html", "index.html"));
}

TEST_F(PrettyPrint, NumbersArePlacesUnlessGapless) {
    service.setRequestedAfter(true);
    service.setFilter("growing");
    run("other", f, [] { return false; });
    run("growing", f, [] { return false; });
    service.setGaplessNumbering(true);
    run("other", f, [] { return false; });
    run("growing", f, [] { return false; });
    service.setGaplessNumbering(false);
    run("growing", f, [] { return false; });
    EXPECT_THAT(dumps(),
                ElementsAre("0004-after-growing-fcn_fun.txt", "0005-after-growing-fcn_fun.txt",
                            "0010-after-growing-fcn_fun.txt"));
}

TEST_F(PrettyPrint, GaplessNumberingCountsOnlyWhatIsKept) {
    service.setRequestedAfter(true);
    service.setGaplessNumbering(true);
    service.setRemoveIdenticalFiles(true);
    for (int i = 0; i < 3; ++i) {
        run("nothing", f, [] { return false; });
        run("growing", f, [this] { return grow(f); });
    }
    EXPECT_THAT(dumps(),
                ElementsAre("0001-after-nothing-fcn_fun.txt", "0002-after-growing-fcn_fun.txt",
                            "0003-after-growing-fcn_fun.txt", "0004-after-growing-fcn_fun.txt"));
}

TEST_F(PrettyPrint, IdenticalIsComparedPerSubjectAndForm) {
    Function& g = *unit.addFunction("g", Type::f64());
    makeBody(g);
    service.setRequestedAfter(true);
    service.setRemoveIdenticalFiles(true);
    for (const Format format : {Format::Html, Format::Qnel, Format::Dot}) {
        service.setOutputFormat(format);
        run("a", f, [] { return false; });
        run("a", g, [] { return false; });
        run("b", f, [] { return false; });
        run("b", g, [] { return false; });
    }
    EXPECT_EQ(dumps().size(), 7U); // two of each form, and the index
    {
        // A scope in the place of an earlier one starts afresh.
        for (int i = 0; i < 2; ++i) {
            Scope other(ScopeFlavor::Unit, "u");
            Function& again = *other.addFunction("fun", Type::f64());
            makeBody(again);
            run("c", again, [] { return false; });
        }
    }
    EXPECT_EQ(dumps().size(), 9U);
}

TEST_F(PrettyPrint, BeforeIsKeptAndMakesAnEqualAfterGo) {
    service.setRequestedBefore(true);
    service.setRequestedAfter(true);
    service.setRemoveIdenticalFiles(true);
    run("a", f, [] { return false; });
    run("b", f, [] { return false; });
    EXPECT_THAT(dumps(), ElementsAre("0001-before-a-fcn_fun.txt", "0003-before-b-fcn_fun.txt"));
}

TEST_F(PrettyPrint, NumbersBeginAnewInANewFolder) {
    service.setRequestedAfter(true);
    run("a", f, [] { return false; });
    log.setLogDirectory(folder + "/second");
    run("a", f, [] { return false; });
    run("a", f, [] { return false; });
    EXPECT_THAT(filesIn(folder + "/second/pretty-print"),
                ElementsAre("0001-after-a-fcn_fun.txt", "0003-after-a-fcn_fun.txt"));
}

TEST_F(PrettyPrint, IdenticalIsWhatStandsInTheSameFolder) {
    service.setRequestedAfter(true);
    service.setRemoveIdenticalFiles(true);
    run("a", f, [] { return false; });
    log.setLogDirectory(folder + "/second");
    run("a", f, [] { return false; });
    run("a", f, [] { return false; });
    EXPECT_THAT(filesIn(folder + "/second/pretty-print"), ElementsAre("0001-after-a-fcn_fun.txt"));
}

TEST_F(PrettyPrint, NamesAreToldApartWhenAsked) {
    f.cfg().addVar(VarKind::User, Type::f64(), "x");
    f.cfg().addVar(VarKind::User, Type::f64(), "x");
    service.setRequestedAfter(true);
    run("a", f, [] { return false; });
    service.setVarNameDisambiguation(true);
    run("a", f, [] { return false; });
    for (const Format format : {Format::Html, Format::Dot}) {
        service.setOutputFormat(format);
        run("a", f, [] { return false; });
    }
    EXPECT_THAT(dump("0002-after-a-fcn_fun.txt"), Not(HasSubstr("x_1")));
    EXPECT_THAT(dump("0004-after-a-fcn_fun.txt"), HasSubstr("x_1"));
    EXPECT_THAT(dump("0006-after-a-fcn_fun.html"), HasSubstr("x_1"));
    EXPECT_THAT(dump("0008-after-a-fcn_fun.dot"), HasSubstr("x_1"));
}

TEST_F(PrettyPrint, RoundingAndOverflowAreShownWhenAsked) {
    Builder(f.cfg(), *f.cfg().entry()->last())
        .binary(Op::Add, f.cfg().constantInt(Type::i32(), 1), f.cfg().constantInt(Type::i32(), 2));
    for (const PrintForm form : {PrintForm::Text, PrintForm::Dot, PrintForm::Html}) {
        std::string plain;
        PrettyPrinter(form).print(f, plain);
        PrettyPrinter::setDoPrintMathRoundingOverflow(true);
        std::string shown;
        PrettyPrinter(form).print(f, shown);
        PrettyPrinter::setDoPrintMathRoundingOverflow(false);
        EXPECT_THAT(plain, Not(HasSubstr("away,sat"))) << endingOf(form);
        EXPECT_THAT(shown, HasSubstr("away,sat")) << endingOf(form);
    }
}

TEST_F(PrettyPrint, WhatAVerificationFindsStandsAtTheTop) {
    f.cfg().remove(f.cfg().entry()->last()); // the block now lacks its end
    Builder(f.cfg(), f.cfg().entry()).toIndex(f.cfg().constantDouble(1));
    for (const PrintForm form :
         {PrintForm::Text, PrintForm::Qnel, PrintForm::Dot, PrintForm::Html}) {
        std::string text;
        PrettyPrinter(form).print(f, text);
        EXPECT_THAT(text, HasSubstr("[block.terminator]")) << endingOf(form);
        if (form == PrintForm::Text || form == PrintForm::Qnel) {
            EXPECT_THAT(linesOf(text)[0],
                        ::testing::StartsWith(form == PrintForm::Text ? "# check: " : "; check: "));
        }
        PrettyPrinter::setDoSanityCheck(false);
        std::string unchecked;
        PrettyPrinter(form).print(f, unchecked);
        PrettyPrinter::setDoSanityCheck(true);
        EXPECT_THAT(unchecked, Not(HasSubstr("[block.terminator]"))) << endingOf(form);
    }
}

TEST_F(PrettyPrint, TagsThatAreNoFileNamesAreMadeSo) {
    Function& odd = *unit.addFunction("a/b\n" + std::string(300, 'x'), Type::f64());
    makeBody(odd);
    service.setRequestedAfter(true);
    run("growing", odd, [] { return false; });
    ASSERT_EQ(dumps().size(), 1U);
    EXPECT_THAT(dumps()[0], ::testing::StartsWith("0002-after-growing-fcn_a_b_xxx"));
}

TEST_F(PrettyPrint, IndexListsTheDumpsInOrder) {
    Function& odd = *unit.addFunction("<p> #1", Type::f64());
    makeBody(odd);
    service.setOutputFormat(Format::Html);
    service.setRequestedBefore(true);
    service.setRequestedAfter(true);
    run("growing", f, [] { return false; });
    run("growing", odd, [] { return false; });
    const std::vector<std::string> lines = linesOf(dump("index.html"));
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0], "<!DOCTYPE html>");
    EXPECT_EQ(lines[lines.size() - 4],
              "<div><a href=\"0001-before-growing-fcn_fun.html\">0001 before "
              "growing-fcn_fun</a></div>");
    EXPECT_EQ(lines[lines.size() - 1],
              "<div><a href=\"0004-after-growing-fcn_%3Cp%3E%20%231.html\">0004 after "
              "growing-fcn_&lt;p&gt; #1</a></div>");
}

TEST_F(PrettyPrint, IndexThatDoesNotTakeALineListsItLater) {
    service.setOutputFormat(Format::Html);
    service.setRequestedAfter(true);
    const std::filesystem::path index = folder + "/pretty-print/index.html";
    std::filesystem::create_directories(index.parent_path());
    std::filesystem::create_symlink("/dev/full", index);
    run("a", f, [] { return false; });
    run("b", f, [] { return false; });
    EXPECT_EQ(console, "Cannot write to '" + index.string() + "': No space left on device.\n");
    std::filesystem::remove(index);
    run("c", f, [] { return false; });
    const std::vector<std::string> lines = linesOf(dump("index.html"));
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0], "<!DOCTYPE html>");
    EXPECT_THAT(lines[lines.size() - 3], HasSubstr("0002-after-a-fcn_fun.html"));
    EXPECT_THAT(lines[lines.size() - 2], HasSubstr("0004-after-b-fcn_fun.html"));
    EXPECT_THAT(lines[lines.size() - 1], HasSubstr("0006-after-c-fcn_fun.html"));
}

TEST_F(PrettyPrint, IndexIsMadeAnewWhenSomebodyRemovesTheFolder) {
    service.setOutputFormat(Format::Html);
    service.setRequestedAfter(true);
    run("a", f, [] { return false; });
    std::filesystem::remove_all(folder);
    run("b", f, [] { return false; });
    EXPECT_THAT(dumps(), ElementsAre("0004-after-b-fcn_fun.html", "index.html"));
    EXPECT_THAT(dump("index.html"), HasSubstr("0004-after-b-fcn_fun.html"));
    EXPECT_THAT(dump("index.html"), Not(HasSubstr("0002-after-a-fcn_fun.html")));
}

TEST_F(PrettyPrint, FolderThatCannotBeMadeIsToldOnce) {
    log.setLogDirectory("/dev/null");
    service.setRequestedAfter(true);
    run("a", f, [] { return false; });
    run("a", f, [] { return false; });
    EXPECT_EQ(console, "Cannot write files in '/dev/null/pretty-print': Not a directory.\n");
}

TEST_F(PrettyPrint, FullDiskLeavesNothingBehindAndIsToldOnce) {
    service.setRequestedAfter(true);
    service.setGaplessNumbering(true);
    run("a", f, [] { return false; });
    {
        const FullDisk full(10);
        run("b", f, [] { return false; });
        run("b", f, [] { return false; });
    }
    EXPECT_EQ(console, "Cannot write files in '" + folder + "/pretty-print': File too large.\n");
    run("c", f, [] { return false; });
    EXPECT_THAT(dumps(), ElementsAre("0001-after-a-fcn_fun.txt", "0002-after-c-fcn_fun.txt"));
}

TEST_F(PrettyPrint, WhatCouldNotBeWrittenIsNoDumpThatAnAfterRepeats) {
    service.setRequestedBefore(true);
    service.setRequestedAfter(true);
    service.setRemoveIdenticalFiles(true);
    auto disk = std::make_unique<FullDisk>(10);
    run("a", f, [&] {
        disk.reset();
        return false;
    });
    EXPECT_THAT(dumps(), ElementsAre("0002-after-a-fcn_fun.txt"));
}
