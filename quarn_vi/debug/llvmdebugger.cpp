#include "debug/llvmdebugger.hpp"

#include "framework/declaration.hpp"

#include <hv/array.hpp>
#include <qn/vmrt/engine_config.hpp>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace quarn_vi::debug {

namespace {

using Config = QN::VMRT::VMEngineConfig;

Config& config() {
    return Config::prototype();
}

template <class Enumeration>
struct Keyword {
    std::string_view text;
    Enumeration value;
};

// Each table in the order in which a given text is compared with it: whole and by its exact
// letters.
constexpr Keyword<Config::JitOptimizationLevel> levels[] = {
    {"None", Config::OptNone},
    {"Less", Config::OptLess},
    {"Default", Config::OptDefault},
    {"Aggressive", Config::OptAggressive},
    {"Accelerator", Config::OptAccelerator},
    {"Unspecified", Config::OptUnspecified},
};
constexpr Keyword<Config::DebugPrintType> debugPrints[] = {
    {"None", Config::DebugPrintNone},
    {"Printf", Config::DebugPrintPrintf},
    {"ValgrindPrint", Config::DebugPrintValgrind},
};
constexpr Keyword<Config::JitFramePointerPolicy> framePointers[] = {
    {"Eliminate", Config::FramePointerEliminate},
    {"Preserve", Config::FramePointerPreserve},
    {"Unspecified", Config::FramePointerUnspecified},
};

/// The row of a text; null when there is none.
template <class Table>
const auto* findText(const Table& table, std::string_view text) {
    const auto* const row =
        std::find_if(std::begin(table), std::end(table), [&](auto& k) { return k.text == text; });
    return row == std::end(table) ? nullptr : row;
}

/// The keyword of a value; "Unspecified" for one outside the table.
template <class Table, class Enumeration>
std::string keywordOf(const Table& table, Enumeration value) {
    for (const auto& row : table)
        if (row.value == value)
            return std::string(row.text);
    return "Unspecified";
}

} // namespace

bool LlvmDebugger::enabled() const {
    return config().useDebugReporter();
}

void LlvmDebugger::setEnabled(bool value) {
    config().setInsertRuntimeChecks(value);
    if (value)
        config().setUseDebugReporter(true);
}

bool LlvmDebugger::abortOnError() const {
    return config().abortOnError();
}

void LlvmDebugger::setAbortOnError(bool value) {
    if (value) {
        config().setInsertRuntimeChecks(true);
        config().setUseDebugReporter(true);
    }
    config().setAbortOnError(value);
}

std::uint64_t LlvmDebugger::defaultCodeSlabSizeKBytes() const {
    return config().defaultCodeSlabSize() >> 10;
}

void LlvmDebugger::setDefaultCodeSlabSizeKBytes(std::uint64_t kilobytes) {
    if (kilobytes == 0)
        hvxPrintf("Illegal value %Iu provided to LlvmDebugger::setDefaultCodeSlabSize (ignored)\n",
                  kilobytes);
    else
        config().setDefaultCodeSlabSize(kilobytes << 10);
}

bool LlvmDebugger::deleteCoreFcnCfgAfterConversion() const {
    return config().deleteCoreFcnCfgAfterConversion();
}

void LlvmDebugger::setDeleteCoreFcnCfgAfterConversion(bool value) {
    config().setDeleteCoreFcnCfgAfterConversion(value);
}

std::string LlvmDebugger::jitOptimizationLevel() const {
    return keywordOf(levels, config().jitOptimizationLevel());
}

void LlvmDebugger::setJitOptimizationLevel(const std::string& level) {
    if (const auto* const row = findText(levels, level))
        config().setJitOptimizationLevel(row->value);
    else
        hvxPrintf("Ignoring illegal setting %s provided to LlvmDebugger::setJitOptimizationLevel "
                  "(valid settings: 'None', 'Less', 'Default', 'Aggressive', 'Unspecified')\n",
                  level.c_str());
}

bool LlvmDebugger::dumpLlvmIR() const {
    return config().dumpLlvmIR();
}

void LlvmDebugger::setDumpLlvmIR(bool value) {
    config().setDumpLlvmIR(value);
}

std::string LlvmDebugger::instrumentIRDebugPrint() const {
    return keywordOf(debugPrints, config().instrumentIRDebugPrint());
}

void LlvmDebugger::setInstrumentIRDebugPrint(const std::string& type) {
    if (const auto* const row = findText(debugPrints, type))
        config().setInstrumentIRDebugPrint(row->value);
    else
        hvxPrintf("Ignoring illegal value %s provided to LlvmDebugger::setInstrumentIRDebugPrint "
                  "(valid settings: 'None', 'Printf', 'ValgrindPrint')\n",
                  type.c_str());
}

bool LlvmDebugger::instrumentIRVerbosityLLVMIR() const {
    return config().instrumentIRVerbosityLLVMIR();
}

void LlvmDebugger::setInstrumentIRVerbosityLLVMIR(bool value) {
    config().setInstrumentIRVerbosityLLVMIR(value);
}

bool LlvmDebugger::instrumentIRVerbosityQUARN() const {
    return config().instrumentIRVerbosityQUARN();
}

void LlvmDebugger::setInstrumentIRVerbosityQUARN(bool value) {
    config().setInstrumentIRVerbosityQUARN(value);
}

bool LlvmDebugger::dumpHostAssembly() const {
    return config().dumpHostAssembly();
}

void LlvmDebugger::setDumpHostAssembly(bool value) {
    config().setDumpHostAssembly(value);
}

std::string LlvmDebugger::framePointerPolicy() const {
    return keywordOf(framePointers, config().framePointerPolicy());
}

void LlvmDebugger::setFramePointerPolicy(const std::string& policy) {
    if (const auto* const row = findText(framePointers, policy))
        config().setFramePointerPolicy(row->value);
    else
        hvxPrintf("Ignoring illegal setting %s provided to LlvmDebugger::setFramePointerPolicy "
                  "(valid settings: 'Eliminate', 'Preserve', 'Unspecified')\n",
                  policy.c_str());
}

bool LlvmDebugger::useSoftFloat() const {
    return config().useSoftFloat();
}

void LlvmDebugger::setUseSoftFloat(bool value) {
    config().setUseSoftFloat(value);
}

bool LlvmDebugger::jitEmitDebugInfo() const {
    return config().jitEmitDebugInfo();
}

void LlvmDebugger::setJitEmitDebugInfo(bool value) {
    config().setJitEmitDebugInfo(value);
}

bool LlvmDebugger::enableFastISel() const {
    return config().enableFastISel();
}

void LlvmDebugger::setEnableFastISel(bool value) {
    config().setEnableFastISel(value);
}

bool LlvmDebugger::emitDWARF() const {
    return config().emitDWARF();
}

void LlvmDebugger::setEmitDWARF(bool value) {
    config().setEmitDWARF(value);
}

bool LlvmDebugger::useMCJIT() const {
    return config().useMCJIT();
}

void LlvmDebugger::setUseMCJIT(bool value) {
    config().setUseMCJIT(value);
}

CosLlvmDebugger::CosLlvmDebugger()
    : HandleClassInfo("LlvmDebugger", "QUARN LLVM Debugging Utility Service controller.") {}

void CosLlvmDebugger::defineClass(objsys::COSClassDefinition* definition) {
    using C = LlvmDebugger;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.constructor();
    declare.property<&C::enabled, &C::setEnabled>("enabled");
    declare.property<&C::abortOnError, &C::setAbortOnError>("abortOnError");
    declare.property<&C::defaultCodeSlabSizeKBytes, &C::setDefaultCodeSlabSizeKBytes>(
        "defaultCodeSlabSizeKBytes");
    declare.property<&C::deleteCoreFcnCfgAfterConversion, &C::setDeleteCoreFcnCfgAfterConversion>(
        "deleteCoreFcnCfgAfterConversion");
    declare.property<&C::jitOptimizationLevel, &C::setJitOptimizationLevel>("jitOptimizationLevel");
    declare.property<&C::dumpLlvmIR, &C::setDumpLlvmIR>("dumpLlvmIR");
    declare.property<&C::instrumentIRDebugPrint, &C::setInstrumentIRDebugPrint>(
        "instrumentIRDebugPrint");
    declare.property<&C::instrumentIRVerbosityLLVMIR, &C::setInstrumentIRVerbosityLLVMIR>(
        "instrumentIRVerbosityLLVMIR");
    declare.property<&C::instrumentIRVerbosityQUARN, &C::setInstrumentIRVerbosityQUARN>(
        "instrumentIRVerbosityQUARN");
    declare.property<&C::dumpHostAssembly, &C::setDumpHostAssembly>("dumpHostAssembly");
    declare.property<&C::framePointerPolicy, &C::setFramePointerPolicy>("framePointerPolicy");
    declare.property<&C::useSoftFloat, &C::setUseSoftFloat>("useSoftFloat");
    declare.property<&C::jitEmitDebugInfo, &C::setJitEmitDebugInfo>("jitEmitDebugInfo");
    declare.property<&C::enableFastISel, &C::setEnableFastISel>("enableFastISel");
}

} // namespace quarn_vi::debug
