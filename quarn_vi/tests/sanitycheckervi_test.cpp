// internal.quarn.SanityChecker and internal.quarn.SanityViolation.

#include "debug/sanitycheckervi.hpp"
#include "debug/sanityviolationvi.hpp"
#include "tests/debugservice_properties.hpp"
#include "tests/runs.hpp"

#include <qn/chk_id_uniqueness_verifier.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/testing_hooks.hpp>
#include <sv/sv.hpp>

namespace {

using controllers::Member;
using controllers::Object;
using OutputType = QN::SanityCheckService::OutputType;

QN::SanityCheckService& service() {
    return quarn_vi::debug::SanityCheckerVI::sharedSanityCheckService();
}

class SanityChecker : public testing::Test {
protected:
    void TearDown() override {
        service().setOutputType(static_cast<OutputType>(0));
        service().setSelectDetails({});
        service().setLineFilter("");
        service().clearDetailedReport();
        TSFEAT_QUARNCompactionCheckInDataAgainstOutData->setHookValFromC(0);
    }
};

TEST_F(SanityChecker, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("SanityChecker"),
              controllers::withDebugServiceProperties(
                  {{"OutputType", "char", false, 0},
                   {"WarningThreshold", "int32 scalar", false, 0},
                   {"ErrorThreshold", "int32 scalar", false, 0},
                   {"InDataOutDataChecking", "logical scalar", false, 0},
                   {"SelectDetails", "cell", false, 0},
                   {"LineFilter", "char", false, 0},
                   {"Violations", "internal.quarn.SanityViolation vector", true, 0},
                   {"AssertOnRecordViolation", "logical scalar", false, 0}}));
    EXPECT_EQ(controllers::methodsOf("SanityChecker"),
              (std::vector<std::string>{"char hello(internal.quarn.SanityChecker)",
                                        "void clearViolations(internal.quarn.SanityChecker)",
                                        "cell allCheckIds(internal.quarn.SanityChecker)"}));
}

TEST_F(SanityChecker, inheritsTheCommonSettings) {
    controllers::expectDebugServiceProperties("SanityChecker", service());
}

TEST_F(SanityChecker, greets) {
    EXPECT_EQ(Object("SanityChecker").callText("hello"), "^_^ hello ^_^");
}

TEST_F(SanityChecker, outputTypeTakesKeywordsInAnyLetterCase) {
    struct Row {
        const char* given;
        int value;
        const char* read;
    };
    const Row rows[] = {{"Summary", 1, "SUMMARY"},
                        {"details_to_file", 2, "DETAILS_TO_FILE"},
                        {"Details_To_Varnix", 3, "DETAILS_TO_VARNIX"},
                        {"DETAILS_TO_VARNIX", 3, "DETAILS_TO_VARNIX"},
                        {"nOnE", 0, "NONE"}};
    const Object object("SanityChecker");
    for (const Row& row : rows) {
        EXPECT_EQ(controllers::printed([&] { object.set("OutputType", row.given); }), "");
        EXPECT_EQ(static_cast<int>(service().outputType()), row.value) << row.given;
        EXPECT_EQ(object.text("OutputType"), row.read);
    }
}

TEST_F(SanityChecker, unknownOutputTypePrintsAMessageAndChangesNothing) {
    const Object object("SanityChecker");
    object.set("OutputType", "summary");
    for (const std::string word : {"details", "", "summaryx"}) {
        EXPECT_EQ(controllers::printed([&] { object.set("OutputType", word.c_str()); }),
                  word + " is not a valid choice, please pick from 'NONE', 'SUMMARY', "
                         "'DETAILS_TO_FILE' or 'DETAILS_TO_VARNIX'\n");
        EXPECT_EQ(static_cast<int>(service().outputType()), 1);
    }
    controllers::expectWrongType(object, "OutputType", sample::number(1));
    EXPECT_EQ(object.text("OutputType"), "SUMMARY");
    service().setOutputType(static_cast<OutputType>(9));
    EXPECT_EQ(object.text("OutputType"), "NONE");
    service().setOutputType(static_cast<OutputType>(-1));
    EXPECT_EQ(object.text("OutputType"), "NONE");
}

TEST_F(SanityChecker, thresholdsGoToTheServiceUnchecked) {
    const Object object("SanityChecker");
    const int warning = service().warningThreshold();
    const int error = service().errorThreshold();
    object.set("WarningThreshold", -5.0);
    object.set("ErrorThreshold", 2147483647.0);
    EXPECT_EQ(service().warningThreshold(), -5);
    EXPECT_EQ(service().errorThreshold(), 2147483647);
    controllers::expectWrongType(object, "WarningThreshold", sample::number(0.5));
    controllers::expectWrongType(object, "ErrorThreshold", sample::number(2147483648.0));
    EXPECT_EQ(service().warningThreshold(), -5);
    EXPECT_EQ(service().errorThreshold(), 2147483647);
    service().setWarningThreshold(warning);
    service().setErrorThreshold(error);
    EXPECT_EQ(object.int32("WarningThreshold"), warning);
    EXPECT_EQ(object.int32("ErrorThreshold"), error);
}

TEST_F(SanityChecker, compactionHookCountsItsReads) {
    const Object object("SanityChecker");
    TsTestingHook& hook = *TSFEAT_QUARNCompactionCheckInDataAgainstOutData;
    const auto uses = hook.useCount();
    object.set("InDataOutDataChecking", true);
    EXPECT_EQ(hook.useCount(), uses);
    (void)object.flag("InDataOutDataChecking");
    EXPECT_TRUE(object.flag("InDataOutDataChecking"));
    EXPECT_EQ(hook.useCount(), uses + 2);
    EXPECT_EQ(hook.value(), 1);
    const auto text = sample::text("off");
    controllers::expectWrongType(object, "InDataOutDataChecking", sample::arrayValue(text));
    EXPECT_EQ(hook.value(), 1);
    object.set("InDataOutDataChecking", false);
    EXPECT_EQ(hook.value(), 0);
}

TEST_F(SanityChecker, fieldsAreKeptAsWritten) {
    const Object object("SanityChecker");
    std::vector<std::string> upper;
    for (std::string field : QN::SanityCheckService::validFields()) {
        for (char& c : field)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        upper.push_back(field);
    }
    EXPECT_EQ(controllers::printed([&] { object.set("SelectDetails", upper); }), "");
    EXPECT_EQ(service().selectDetails(), upper);
    EXPECT_EQ(object.texts("SelectDetails"), upper);
    object.set("SelectDetails", std::vector<std::string>{});
    EXPECT_TRUE(service().selectDetails().empty());
}

TEST_F(SanityChecker, unknownFieldPrintsTheChoiceAndChangesNothing) {
    const Object object("SanityChecker");
    const std::string first = *QN::SanityCheckService::validFields().begin();
    object.set("SelectDetails", std::vector<std::string>{first});
    std::string expected = "Invalid field name: no such field\n"
                           "Please choose from the following valid fields:\n";
    for (const std::string& field : QN::SanityCheckService::validFields())
        expected += "  " + field + "\n";
    expected += "(Field names are not case sensitive.)\n";
    EXPECT_EQ(controllers::printed([&] {
                  object.set("SelectDetails",
                             std::vector<std::string>{first, "No Such Field", "Another"});
              }),
              expected);
    EXPECT_EQ(service().selectDetails(), std::vector<std::string>{first});
}

TEST_F(SanityChecker, fieldsMustBeACellOfTexts) {
    const Object object("SanityChecker");
    const std::string first = *QN::SanityCheckService::validFields().begin();
    object.set("SelectDetails", std::vector<std::string>{first});
    EXPECT_EQ(sample::errorOf([&] { object.set("SelectDetails", 1.0); }), "varnix:mustBeCellArray");
    const sample::Array mixed =
        sample::cellOf(1, 2, {hvCreateString(first.c_str()), hvCreateDoubleScalar(2)});
    EXPECT_EQ(sample::errorOf([&] { object.set("SelectDetails", sample::arrayValue(mixed)); }),
              "varnix:mustBeString");
    EXPECT_EQ(service().selectDetails(), std::vector<std::string>{first});
}

TEST_F(SanityChecker, lineFilterIsPassedOnAsItIs) {
    const Object object("SanityChecker");
    object.set("LineFilter", "dominance");
    EXPECT_EQ(service().lineFilter(), "dominance");
    controllers::expectWrongType(object, "LineFilter", sample::number(1));
    EXPECT_EQ(object.text("LineFilter"), "dominance");
}

TEST_F(SanityChecker, assertSwitchIsShared) {
    controllers::expectSharedSwitch(
        "SanityChecker", "AssertOnRecordViolation",
        [] { return service().assertOnRecordViolation(); },
        [](bool v) { service().setAssertOnRecordViolation(v); });
}

TEST_F(SanityChecker, emptyReportGivesAnEmptyRow) {
    const Object object("SanityChecker");
    object.call("clearViolations");
    const sample::Array row(object.get("Violations").asArray());
    EXPECT_EQ(hvGetM(row.get()), 1u);
    EXPECT_EQ(hvGetN(row.get()), 0u);
    EXPECT_EQ(row->objectClass->getFullName().str(), "internal.quarn.SanityViolation");
}

/// The objects of an object array, in order.
std::vector<Object> elementsOf(const sample::Array& row) {
    std::vector<Object> elements;
    for (std::size_t i = 0; i < hvGetNumberOfElements(row.get()); ++i)
        elements.emplace_back(
            sample::Array(hvShareArray(omGetArrayElement(row.get(), i)->handle())));
    return elements;
}

TEST_F(SanityChecker, violationsAreTheRowsOfTheReportInOrder) {
    const Object object("SanityChecker");
    object.set("WarningThreshold", 1.0);
    object.set("ErrorThreshold", 3.0);
    object.set("EnabledAfter", true);
    controllers::Program program;
    program.spoil<2>();
    object.set("EnabledBefore", true);
    program.spoil<1>();
    object.set("EnabledBefore", false);
    object.set("EnabledAfter", false);
    object.set("ErrorThreshold", 1.0);
    ASSERT_EQ(service().getDetailedReport().size(), 3u);

    const sample::Array row(object.get("Violations").asArray());
    EXPECT_EQ(hvGetM(row.get()), 1u);
    EXPECT_EQ(hvGetN(row.get()), 3u);
    EXPECT_EQ(row->objectClass->getFullName().str(), "internal.quarn.SanityViolation");
    const std::vector<Object> violations = elementsOf(row);
    struct Expected {
        const char* foundWhen;
        const char* severity;
        int nodes;
    };
    const Expected expected[] = {
        {"after", "warning", 2}, {"before", "warning", 2}, {"after", "error", 3}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& reported = service().getDetailedReport()[i];
        const Object& violation = violations[i];
        EXPECT_EQ(violation.text("Testpoint"), "spoiler-fcn_f");
        EXPECT_EQ(violation.text("Transform"), "spoiler");
        EXPECT_EQ(violation.text("FoundWhen"), expected[i].foundWhen);
        EXPECT_EQ(violation.text("CheckId"), "type.store");
        EXPECT_EQ(violation.text("Severity"), expected[i].severity);
        EXPECT_EQ(violation.text("Message"), reported.message());
        EXPECT_NE(reported.message(), "");
        EXPECT_EQ(violation.int32("NumFailingNodes"), expected[i].nodes);
    }
}

TEST_F(SanityChecker, eachReadOfTheViolationsMakesNewObjects) {
    const Object object("SanityChecker");
    object.set("EnabledAfter", true);
    controllers::Program program;
    program.spoil<1>();
    object.set("EnabledAfter", false);
    auto first = elementsOf(sample::Array(object.get("Violations").asArray()));
    const auto second = elementsOf(sample::Array(object.get("Violations").asArray()));
    using quarn_vi::debug::SanityViolationVI;
    EXPECT_NE(first.at(0).instance(), second.at(0).instance());
    const SanityViolationVI& native = first.at(0).native<SanityViolationVI>();
    EXPECT_NE(&native, &second.at(0).native<SanityViolationVI>());
    first.clear(); // the handle goes, its object does not
    EXPECT_EQ(native.testpoint(), "spoiler-fcn_f");

    object.call("clearViolations");
    EXPECT_TRUE(service().getDetailedReport().empty());
    EXPECT_TRUE(elementsOf(sample::Array(object.get("Violations").asArray())).empty());
}

// An object whose row is gone must not be read, but a person at the prompt will try.
TEST_F(SanityChecker, violationOfAClearedReportBreaksNothing) {
    const Object object("SanityChecker");
    object.set("EnabledAfter", true);
    controllers::Program program;
    program.spoil<1>();
    object.set("EnabledAfter", false);
    const auto violations = elementsOf(sample::Array(object.get("Violations").asArray()));
    object.call("clearViolations");
    EXPECT_EQ(violations.at(0).text("Message"), "");
    EXPECT_EQ(violations.at(0).int32("NumFailingNodes"), 0);
}

TEST_F(SanityChecker, listsEveryCheckIdOfTheCatalogue) {
    const Object object("SanityChecker");
    const sample::Array ids(object.call("allCheckIds").asArray());
    const auto expected = QN::ChkIdUniquenessVerifier::allCheckIds(std::string(svVarnixRoot()));
    EXPECT_GE(expected.size(), 30u);
    ASSERT_EQ(hvGetNumberOfElements(ids.get()), expected.size());
    EXPECT_EQ(hvGetN(ids.get()), 1u);
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(sample::charactersOf(hvGetCell(ids.get(), i)), expected[i]);
}

TEST(SanityViolation, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("SanityViolation"),
              (std::vector<Member>{{"Testpoint", "char", true, 0},
                                   {"Transform", "char", true, 0},
                                   {"FoundWhen", "char", true, 0},
                                   {"CheckId", "char", true, 0},
                                   {"Severity", "char", true, 0},
                                   {"Message", "char", true, 0},
                                   {"NumFailingNodes", "int32 scalar", true, 0}}));
    EXPECT_TRUE(controllers::methodsOf("SanityViolation").empty());
    EXPECT_EQ(controllers::scriptClass("SanityViolation").superclasses()[0]->getFullName().str(),
              "varnix.mixin.Heterogeneous");
}

TEST(SanityViolation, scriptsOwnObjectHasNoRow) {
    const Object object("SanityViolation");
    for (const char* const property :
         {"Testpoint", "Transform", "FoundWhen", "CheckId", "Severity", "Message"}) {
        EXPECT_EQ(object.text(property), "empty") << property;
        EXPECT_EQ(sample::errorOf([&] { object.set(property, "x"); }), "varnix:readOnlyProperty");
    }
    EXPECT_EQ(object.int32("NumFailingNodes"), 0);
}

} // namespace
