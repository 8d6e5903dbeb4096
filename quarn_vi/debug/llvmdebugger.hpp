// internal.quarn.LlvmDebugger: the settings of the virtual-machine runtime, which turns IR into
// machine code through LLVM.
#pragma once

#include "debug/registerable.hpp"
#include "framework/class_info.hpp"

#include <cstdint>
#include <string>

namespace quarn_vi::debug {

/// An empty object: every call goes to the one configuration that the runtime copies when it makes
/// its next engine. Registerable is its base by kinship only: there is no service to switch, and
/// `enabled` here is a setting of its own.
class LlvmDebugger : public Registerable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.LlvmDebugger";

    /// Whether failed runtime checks are reported.
    bool enabled() const;
    /// True switches the runtime checks and their reporter on; false switches the checks off and
    /// leaves the reporter as it is, so that `enabled` still reads true after it once was.
    void setEnabled(bool value);
    bool abortOnError() const;
    /// True switches the runtime checks and their reporter on as well; false only the abort off.
    void setAbortOnError(bool value);
    /// Whole kilobytes, rounded down.
    std::uint64_t defaultCodeSlabSizeKBytes() const;
    /// 0 prints a message and changes nothing; beyond 64 bits of bytes the size wraps around.
    void setDefaultCodeSlabSizeKBytes(std::uint64_t kilobytes);
    bool deleteCoreFcnCfgAfterConversion() const;
    void setDeleteCoreFcnCfgAfterConversion(bool value);
    /// "None", "Less", "Default", "Aggressive", "Accelerator" or "Unspecified".
    std::string jitOptimizationLevel() const;
    /// Exactly one of these; anything else prints a message and changes nothing.
    void setJitOptimizationLevel(const std::string& level);
    bool dumpLlvmIR() const;
    void setDumpLlvmIR(bool value);
    /// "None", "Printf" or "ValgrindPrint"; "Unspecified" for a value that is none of them.
    std::string instrumentIRDebugPrint() const;
    /// Exactly one of the three; anything else prints a message and changes nothing.
    void setInstrumentIRDebugPrint(const std::string& type);
    bool instrumentIRVerbosityLLVMIR() const;
    void setInstrumentIRVerbosityLLVMIR(bool value);
    bool instrumentIRVerbosityQUARN() const;
    void setInstrumentIRVerbosityQUARN(bool value);
    bool dumpHostAssembly() const;
    void setDumpHostAssembly(bool value);
    /// "Preserve", "Eliminate" or "Unspecified".
    std::string framePointerPolicy() const;
    /// Exactly one of these; anything else prints a message and changes nothing.
    void setFramePointerPolicy(const std::string& policy);
    bool useSoftFloat() const;
    void setUseSoftFloat(bool value);
    bool jitEmitDebugInfo() const;
    void setJitEmitDebugInfo(bool value);
    bool enableFastISel() const;
    void setEnableFastISel(bool value);

    // Two settings that scripts do not see.
    bool emitDWARF() const;
    void setEmitDWARF(bool value);
    bool useMCJIT() const;
    void setUseMCJIT(bool value);
};

class CosLlvmDebugger : public objsys::factory::HandleClassInfo<LlvmDebugger, 0> {
public:
    CosLlvmDebugger();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
