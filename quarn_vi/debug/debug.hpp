// internal.quarn.Debug: the hub, one object through which a user reaches a controller of each kind.
//
// A new kind is a member at the end, an accessor, and a line in defineClass.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <memory>

namespace quarn_vi::debug {

class CollectStatistics;
class DebugLogger;
class LlvmDebugger;
class MemoryAnalyzerVI;
class NamePrinter;
class PrettyPrinterVI;
class SanityCheckerVI;
class ScramblerVI;
class TransformLogServiceVI;
class TransformProfilerVI;

/// Owns at most one controller of each kind, makes it when it is first asked for, and deletes them
/// in the reverse of the members' order. Controllers of most kinds control services of the process,
/// so those of two hubs act on the same settings.
class Debug : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.Debug";

    /// Without children. While the debug utilities are disabled it says on the console whom to ask.
    Debug();
    ~Debug() override;

    // The children. Null while a child was never made and the debug utilities are disabled; a child
    // that was made stays. When there is no memory for one, the error goes on to the caller and the
    // next call tries again.
    PrettyPrinterVI* prettyPrinter();
    DebugLogger* debugLogger();
    SanityCheckerVI* sanityChecker();
    NamePrinter* namePrinter();
    MemoryAnalyzerVI* memoryAnalyzer();
    TransformProfilerVI* transformProfiler();
    TransformLogServiceVI* transformLogService();
    ScramblerVI* scrambler();
    CollectStatistics* statisticsCollector();
    LlvmDebugger* llvmDebugger();

    /// Makes the dumps of two processes that compile the same thing the same: text, after each
    /// transform of a scope, names and numbers that depend on nothing but the IR. What is not
    /// needed for that stays as it is. Does as much as the children that there are allow.
    void setUpForDiffs();

    /// Opens and closes the debug utilities for the process; they are closed when the module is
    /// loaded. Touches nothing else.
    static void enable();
    static void disable();

private:
    std::unique_ptr<PrettyPrinterVI> prettyPrinter_;
    std::unique_ptr<DebugLogger> debugLogger_;
    std::unique_ptr<NamePrinter> namePrinter_;
    std::unique_ptr<MemoryAnalyzerVI> memoryAnalyzer_;
    std::unique_ptr<TransformProfilerVI> transformProfiler_;
    std::unique_ptr<TransformLogServiceVI> transformLogService_;
    std::unique_ptr<ScramblerVI> scrambler_;
    std::unique_ptr<CollectStatistics> statisticsCollector_;
    std::unique_ptr<SanityCheckerVI> sanityChecker_;
    std::unique_ptr<LlvmDebugger> llvmDebugger_;
};

class CosDebug : public objsys::factory::HandleClassInfo<Debug, 0> {
public:
    CosDebug();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
