#include "debug/sanitycheckervi.hpp"

#include "debug/keywords.hpp"
#include "debug/sanityviolationvi.hpp"
#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/chk_id_uniqueness_verifier.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/testing_hooks.hpp>
#include <sv/sv.hpp>
#include <ut/ut.hpp>

#include <algorithm>
#include <cctype>
#include <set>

namespace quarn_vi::debug {

namespace {

using OutputType = QN::SanityCheckService::OutputType;

// By value, and in the order in which a given text is compared with them.
constexpr const char* outputTypes[] = {"NONE", "SUMMARY", "DETAILS_TO_FILE", "DETAILS_TO_VARNIX"};

QN::SanityCheckService& service() {
    return SanityCheckerVI::sharedSanityCheckService();
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

QN::SanityCheckService& SanityCheckerVI::sharedSanityCheckService() {
    return sharedService<QN::SanityCheckService, false, false, static_cast<OutputType>(0)>();
}

SanityCheckerVI::SanityCheckerVI() : DebugServiceVI(&sharedSanityCheckService()) {}

std::string SanityCheckerVI::outputType() const {
    const auto value = static_cast<std::size_t>(service().outputType());
    return value < std::size(outputTypes) ? outputTypes[value] : "NONE";
}

void SanityCheckerVI::setOutputType(const std::string& type) {
    for (std::size_t value = 0; value < std::size(outputTypes); ++value) {
        if (equalIgnoringCase(type, outputTypes[value])) {
            service().setOutputType(static_cast<OutputType>(value));
            return;
        }
    }
    utPrintf("%s is not a valid choice, please pick from 'NONE', 'SUMMARY', 'DETAILS_TO_FILE' or "
             "'DETAILS_TO_VARNIX'\n",
             type.c_str());
}

std::int32_t SanityCheckerVI::warningThreshold() const {
    return service().warningThreshold();
}

void SanityCheckerVI::setWarningThreshold(std::int32_t value) {
    service().setWarningThreshold(value);
}

std::int32_t SanityCheckerVI::errorThreshold() const {
    return service().errorThreshold();
}

void SanityCheckerVI::setErrorThreshold(std::int32_t value) {
    service().setErrorThreshold(value);
}

bool SanityCheckerVI::inDataOutDataChecking() const {
    return TSFEAT_QUARNCompactionCheckInDataAgainstOutData->value() != 0;
}

void SanityCheckerVI::setInDataOutDataChecking(bool value) {
    TSFEAT_QUARNCompactionCheckInDataAgainstOutData->setHookValFromC(value ? 1 : 0);
}

std::vector<std::string> SanityCheckerVI::selectDetails() const {
    return service().selectDetails();
}

void SanityCheckerVI::setSelectDetails(const std::vector<std::string>& fields) {
    const std::set<std::string>& valid = QN::SanityCheckService::validFields();
    for (const std::string& field : fields) {
        const std::string name = lowerCase(field);
        if (valid.count(name) != 0)
            continue;
        utPrintf("Invalid field name: %s\n", name.c_str());
        utPrintf("Please choose from the following valid fields:\n");
        for (const std::string& choice : valid)
            utPrintf("  %s\n", choice.c_str());
        utPrintf("(Field names are not case sensitive.)\n");
        return;
    }
    service().setSelectDetails(fields);
}

std::string SanityCheckerVI::lineFilter() const {
    return service().lineFilter();
}

void SanityCheckerVI::setLineFilter(const std::string& pattern) {
    service().setLineFilter(pattern);
}

std::vector<SanityViolationVI*> SanityCheckerVI::violations() const {
    std::vector<SanityViolationVI*> result;
    for (const QN::SanityCheckService::ReportRow& row : service().getDetailedReport())
        result.push_back(new SanityViolationVI(&row));
    return result;
}

bool SanityCheckerVI::assertOnRecordViolation() const {
    return service().assertOnRecordViolation();
}

void SanityCheckerVI::setAssertOnRecordViolation(bool value) {
    service().setAssertOnRecordViolation(value);
}

std::string SanityCheckerVI::hello() {
    return "^_^ hello ^_^";
}

void SanityCheckerVI::clearViolations() {
    service().clearDetailedReport();
}

std::vector<std::string> SanityCheckerVI::allCheckIds() {
    const std::string root = svVarnixRoot();
    return QN::ChkIdUniquenessVerifier::allCheckIds(root);
}

CosSanityChecker::CosSanityChecker()
    : HandleClassInfo("SanityChecker", "QUARN Sanity Checker Service controller.") {}

void CosSanityChecker::defineClass(objsys::COSClassDefinition* definition) {
    using C = SanityCheckerVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
    declare.property<&C::outputType, &C::setOutputType>("OutputType");
    declare.property<&C::warningThreshold, &C::setWarningThreshold>("WarningThreshold");
    declare.property<&C::errorThreshold, &C::setErrorThreshold>("ErrorThreshold");
    declare.property<&C::inDataOutDataChecking, &C::setInDataOutDataChecking>(
        "InDataOutDataChecking");
    declare.property<&C::selectDetails, &C::setSelectDetails>("SelectDetails");
    declare.property<&C::lineFilter, &C::setLineFilter>("LineFilter");
    declare.readOnly<&C::violations>("Violations");
    declare.property<&C::assertOnRecordViolation, &C::setAssertOnRecordViolation>(
        "AssertOnRecordViolation");
    declare.method<&C::hello>("hello");
    declare.method<&C::clearViolations>("clearViolations");
    declare.method<&C::allCheckIds>("allCheckIds");
}

} // namespace quarn_vi::debug
