// The settings of the machine-code engine. An engine copies prototype() when it is made, so a
// change applies from the next compilation on. No LLVM here: reading and changing settings loads
// nothing.
//
// To add a setting: a member, its two functions, its effect in vmrt/, a test of the effect.
#pragma once

#include <cstdint>

namespace QN::VMRT {

class VMEngineConfig {
public:
    enum JitOptimizationLevel : int {
        OptNone = 0,
        OptLess = 1,
        OptDefault = 2,
        OptAggressive = 3,
        OptAccelerator = 4, ///< the highest level, for exactly this processor
        OptUnspecified = 5, ///< the engine's choice: OptDefault
    };
    enum DebugPrintType : int {
        DebugPrintNone = 0,
        DebugPrintPrintf = 1,
        DebugPrintValgrind = 2, ///< valgrind's log; silent outside valgrind
    };
    enum JitFramePointerPolicy : int {
        FramePointerPreserve = 0,
        FramePointerEliminate = 1,
        FramePointerUnspecified = 2, ///< LLVM's choice
    };

    /// The settings of the next engine; one object for the life of the process.
    [[nodiscard]] static VMEngineConfig& prototype() noexcept;

    /// Whether failed runtime checks are reported, with function and line, before they raise.
    [[nodiscard]] bool useDebugReporter() const noexcept { return useDebugReporter_; }
    void setUseDebugReporter(bool on) noexcept { change(useDebugReporter_, on); }
    /// Checks of bounds, of division by zero, of values lost in conversions to integers.
    [[nodiscard]] bool insertRuntimeChecks() const noexcept { return insertRuntimeChecks_; }
    void setInsertRuntimeChecks(bool on) noexcept { change(insertRuntimeChecks_, on); }
    /// A failed check aborts the process instead of raising an error.
    [[nodiscard]] bool abortOnError() const noexcept { return abortOnError_; }
    void setAbortOnError(bool on) noexcept { change(abortOnError_, on); }

    /// Bytes of address space that the memory manager takes at a time.
    [[nodiscard]] std::uint64_t defaultCodeSlabSize() const noexcept { return codeSlabSize_; }
    void setDefaultCodeSlabSize(std::uint64_t bytes) noexcept { change(codeSlabSize_, bytes); }
    /// Frees a function's graph once it is converted to LLVM's IR.
    [[nodiscard]] bool deleteCoreFcnCfgAfterConversion() const noexcept { return deleteCfg_; }
    void setDeleteCoreFcnCfgAfterConversion(bool on) noexcept { change(deleteCfg_, on); }

    [[nodiscard]] JitOptimizationLevel jitOptimizationLevel() const noexcept { return level_; }
    void setJitOptimizationLevel(JitOptimizationLevel level) noexcept { change(level_, level); }
    /// The fast instruction selector at level None.
    [[nodiscard]] bool enableFastISel() const noexcept { return fastISel_; }
    void setEnableFastISel(bool on) noexcept { change(fastISel_, on); }
    [[nodiscard]] JitFramePointerPolicy framePointerPolicy() const noexcept {
        return framePointer_;
    }
    void setFramePointerPolicy(JitFramePointerPolicy policy) noexcept {
        change(framePointer_, policy);
    }
    [[nodiscard]] bool useSoftFloat() const noexcept { return softFloat_; }
    void setUseSoftFloat(bool on) noexcept { change(softFloat_, on); }
    /// Tells debuggers about functions and their lines.
    [[nodiscard]] bool jitEmitDebugInfo() const noexcept { return debugInfo_; }
    void setJitEmitDebugInfo(bool on) noexcept { change(debugInfo_, on); }
    /// DWARF in the object code, without telling debuggers.
    [[nodiscard]] bool emitDWARF() const noexcept { return emitDWARF_; }
    void setEmitDWARF(bool on) noexcept { change(emitDWARF_, on); }
    /// The older of LLVM's two linkers of code in memory.
    [[nodiscard]] bool useMCJIT() const noexcept { return useMCJIT_; }
    void setUseMCJIT(bool on) noexcept { change(useMCJIT_, on); }

    /// Files in the debug log's folder: FUNCTION.ll and FUNCTION.s.
    [[nodiscard]] bool dumpLlvmIR() const noexcept { return dumpLlvmIR_; }
    void setDumpLlvmIR(bool on) noexcept { change(dumpLlvmIR_, on); }
    [[nodiscard]] bool dumpHostAssembly() const noexcept { return dumpHostAssembly_; }
    void setDumpHostAssembly(bool on) noexcept { change(dumpHostAssembly_, on); }

    /// Code that prints what it executes, each LLVM instruction, each operation of this library's
    /// IR, or both.
    [[nodiscard]] DebugPrintType instrumentIRDebugPrint() const noexcept { return debugPrint_; }
    void setInstrumentIRDebugPrint(DebugPrintType type) noexcept { change(debugPrint_, type); }
    [[nodiscard]] bool instrumentIRVerbosityLLVMIR() const noexcept { return printLlvm_; }
    void setInstrumentIRVerbosityLLVMIR(bool on) noexcept { change(printLlvm_, on); }
    [[nodiscard]] bool instrumentIRVerbosityQUARN() const noexcept { return printQuarn_; }
    void setInstrumentIRVerbosityQUARN(bool on) noexcept { change(printQuarn_, on); }

    /// Grows whenever a setting gets another value. Who keeps compiled code can tell from it
    /// whether the code was made under the present settings.
    [[nodiscard]] std::uint64_t generation() const noexcept { return generation_; }

private:
    template <typename T>
    void change(T& setting, T value) noexcept {
        if (setting != value) {
            setting = value;
            ++generation_;
        }
    }

    std::uint64_t generation_ = 0;
    std::uint64_t codeSlabSize_ = std::uint64_t{1} << 20;
    JitOptimizationLevel level_ = OptDefault;
    DebugPrintType debugPrint_ = DebugPrintNone;
    JitFramePointerPolicy framePointer_ = FramePointerUnspecified;
    bool useDebugReporter_ = false;
    bool insertRuntimeChecks_ = false;
    bool abortOnError_ = false;
    bool deleteCfg_ = true;
    bool fastISel_ = true;
    bool softFloat_ = false;
    bool debugInfo_ = false;
    bool emitDWARF_ = false;
    bool useMCJIT_ = false;
    bool dumpLlvmIR_ = false;
    bool dumpHostAssembly_ = false;
    bool printLlvm_ = false;
    bool printQuarn_ = true;
};

} // namespace QN::VMRT
