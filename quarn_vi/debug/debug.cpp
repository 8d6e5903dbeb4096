#include "debug/debug.hpp"

#include "debug/collectstatistics.hpp"
#include "debug/debuglogger.hpp"
#include "debug/llvmdebugger.hpp"
#include "debug/memoryanalyzervi.hpp"
#include "debug/nameprinter.hpp"
#include "debug/prettyprintervi.hpp"
#include "debug/sanitycheckervi.hpp"
#include "debug/scramblervi.hpp"
#include "debug/transformlogservicevi.hpp"
#include "debug/transformprofilervi.hpp"
#include "framework/declaration.hpp"

#include <hv/array.hpp>

#include <cstdlib>
#include <iostream>

namespace quarn_vi::debug {

namespace {

/// The switch of the process. Only enable and disable write it; only hubs read it.
bool debugUtilitiesEnabled = false;

/// The child that `member` keeps, made now if it may be.
template <class Child, class... Arguments>
Child* child(std::unique_ptr<Child>& member, Arguments&... arguments) {
    if (!member && debugUtilitiesEnabled)
        member = std::make_unique<Child>(arguments...);
    return member.get();
}

} // namespace

Debug::Debug() {
    if (debugUtilitiesEnabled)
        return;
    hvxPrintf("Please contact Corvane technical support for assistance.\n");
    const char* const install = std::getenv("ZQE_INSTALL");
    if (install && *install)
        hvxPrintf("Internal users - please see 'https://wiki.corvane.internal/quarn/debug' to "
                  "learn how to enable it.\n");
}

Debug::~Debug() = default;

PrettyPrinterVI* Debug::prettyPrinter() {
    return child(prettyPrinter_);
}

DebugLogger* Debug::debugLogger() {
    return child(debugLogger_);
}

SanityCheckerVI* Debug::sanityChecker() {
    return child(sanityChecker_);
}

NamePrinter* Debug::namePrinter() {
    return child(namePrinter_, std::cout);
}

MemoryAnalyzerVI* Debug::memoryAnalyzer() {
    return child(memoryAnalyzer_);
}

TransformProfilerVI* Debug::transformProfiler() {
    return child(transformProfiler_);
}

TransformLogServiceVI* Debug::transformLogService() {
    return child(transformLogService_);
}

ScramblerVI* Debug::scrambler() {
    return child(scrambler_);
}

CollectStatistics* Debug::statisticsCollector() {
    return child(statisticsCollector_);
}

LlvmDebugger* Debug::llvmDebugger() {
    return child(llvmDebugger_);
}

void Debug::setUpForDiffs() {
    if (DebugLogger* const log = debugLogger())
        log->setUsePIDInName(false);
    PrettyPrinterVI* const printer = prettyPrinter();
    if (!printer)
        return;
    printer->setOutputFormat("TEXT");
    printer->setVarNameDisambiguation(true);
    printer->setRemoveIdenticalFiles(true);
    printer->setFilterRegEx("-scope_");
    printer->setEnabledSanityChecking(false);
    printer->setEnabledAfter(true);
}

void Debug::enable() {
    debugUtilitiesEnabled = true;
}

void Debug::disable() {
    debugUtilitiesEnabled = false;
}

CosDebug::CosDebug() : HandleClassInfo("Debug", "QUARN debug utilities.") {}

void CosDebug::defineClass(objsys::COSClassDefinition* definition) {
    using C = Debug;
    constexpr objsys::factory::PropertyAttributes provided(0x2000);
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.constructor();
    declare.readOnly<&C::prettyPrinter>("PrettyPrinter", provided);
    declare.readOnly<&C::debugLogger>("DebugLogger", provided);
    declare.readOnly<&C::sanityChecker>("SanityChecker", provided);
    declare.readOnly<&C::namePrinter>("NamePrinter", provided);
    declare.readOnly<&C::memoryAnalyzer>("MemoryAnalyzer", provided);
    declare.readOnly<&C::transformProfiler>("TransformProfiler", provided);
    declare.readOnly<&C::transformLogService>("TransformLogService", provided);
    declare.readOnly<&C::scrambler>("Scrambler", provided);
    declare.readOnly<&C::statisticsCollector>("StatisticsCollector", provided);
    declare.readOnly<&C::llvmDebugger>("LlvmDebugger", provided);
    declare.method<&C::setUpForDiffs>("setUpForDiffs");
    declare.staticMethod<&C::enable>("enable");
    declare.staticMethod<&C::disable>("disable");
}

} // namespace quarn_vi::debug
