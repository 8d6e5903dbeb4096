#include "debug/prettyprintervi.hpp"

#include "debug/keywords.hpp"
#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/pretty_print_service.hpp>
#include <qn/pretty_printer.hpp>
#include <ut/ut.hpp>

namespace quarn_vi::debug {

namespace {

struct FormatKeyword {
    const char* keyword;
    int value;
};
// In the order in which a given text is compared with them.
constexpr FormatKeyword formats[] = {{"TEXT", 1}, {"QNEL", 2}, {"DOT", 3}, {"HTML", 0}};

QN::PrettyPrintService& service() {
    return PrettyPrinterVI::sharedPrettyPrintService();
}

} // namespace

QN::PrettyPrintService& PrettyPrinterVI::sharedPrettyPrintService() {
    return sharedService<QN::PrettyPrintService, false, false>();
}

PrettyPrinterVI::PrettyPrinterVI()
    : DebugServiceVI(&sharedPrettyPrintService()), stackTraces_(new StackTraces) {}

std::string PrettyPrinterVI::prettyPrintDir() const {
    return service().outputFolderName();
}

std::string PrettyPrinterVI::outputFormat() const {
    const int value = static_cast<int>(service().outputFormat());
    for (const FormatKeyword& format : formats)
        if (format.value == value)
            return format.keyword;
    return "HTML";
}

void PrettyPrinterVI::setOutputFormat(const std::string& format) {
    for (const FormatKeyword& known : formats) {
        if (equalIgnoringCase(format, known.keyword)) {
            service().setOutputFormat(
                static_cast<QN::PrettyPrintService::OutputFormat>(known.value));
            return;
        }
    }
    utPrintf("%s is not a valid choice, please pick from 'HTML', 'TEXT' or 'QNEL'\n",
             format.c_str());
}

bool PrettyPrinterVI::enabledPrintRoundingOverflow() const {
    return QN::PrettyPrinter::doPrintMathRoundingOverflow();
}

void PrettyPrinterVI::setEnabledPrintRoundingOverflow(bool value) {
    QN::PrettyPrinter::setDoPrintMathRoundingOverflow(value);
}

bool PrettyPrinterVI::enabledSanityChecking() const {
    return QN::PrettyPrinter::doSanityCheck();
}

void PrettyPrinterVI::setEnabledSanityChecking(bool value) {
    QN::PrettyPrinter::setDoSanityCheck(value);
}

bool PrettyPrinterVI::varNameDisambiguation() const {
    return service().varNameDisambiguation();
}

void PrettyPrinterVI::setVarNameDisambiguation(bool value) {
    service().setVarNameDisambiguation(value);
}

bool PrettyPrinterVI::gaplessNumbering() const {
    return service().gaplessNumbering();
}

void PrettyPrinterVI::setGaplessNumbering(bool value) {
    service().setGaplessNumbering(value);
}

bool PrettyPrinterVI::removeIdenticalFiles() const {
    return service().removeIdenticalFiles();
}

void PrettyPrinterVI::setRemoveIdenticalFiles(bool value) {
    service().setRemoveIdenticalFiles(value);
}

std::string PrettyPrinterVI::hello() {
    return "(-: hello :-)";
}

CosPrettyPrinter::CosPrettyPrinter()
    : HandleClassInfo("PrettyPrinter", "QUARN Pretty Printer Service controller.") {}

void CosPrettyPrinter::defineClass(objsys::COSClassDefinition* definition) {
    using C = PrettyPrinterVI;
    constexpr objsys::factory::PropertyAttributes provided(0x2000);
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
    declare.readOnly<&C::prettyPrintDir>("PrettyPrintDir", provided);
    declare.readOnly<&C::stackTraces>("StackTraces", provided);
    declare.property<&C::outputFormat, &C::setOutputFormat>("OutputFormat");
    declare.property<&C::enabledPrintRoundingOverflow, &C::setEnabledPrintRoundingOverflow>(
        "EnabledPrintRoundingOverflow");
    declare.property<&C::enabledSanityChecking, &C::setEnabledSanityChecking>(
        "EnabledSanityChecking");
    declare.property<&C::varNameDisambiguation, &C::setVarNameDisambiguation>(
        "VarNameDisambiguation");
    declare.property<&C::gaplessNumbering, &C::setGaplessNumbering>("GaplessNumbering");
    declare.property<&C::removeIdenticalFiles, &C::setRemoveIdenticalFiles>("RemoveIdenticalFiles");
    declare.method<&C::hello>("hello");
}

} // namespace quarn_vi::debug
