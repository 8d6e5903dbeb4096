// internal.quarn.MemoryAnalyzer: tracking of the memory pools that the IR lives in.
#pragma once

#include "debug/debugservicevi.hpp"
#include "debug/poolhighwatermarkvi.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace QN {
class PoolMemoryTrackingService;
}

namespace quarn_vi::debug {

/// Controls the one pool-tracking service of the process, and owns the latest snapshot of its
/// high-water mark: the next one, a reset, or the controller's end deletes it.
class MemoryAnalyzerVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.MemoryAnalyzer";

    MemoryAnalyzerVI();

    /// The service that all these controllers share, made on first use.
    static QN::PoolMemoryTrackingService& sharedPoolMemoryTrackingService();

    std::string hello();
    void resetHighWaterMark();

    std::int32_t traceLevel() const;
    /// 1 or 2; anything else prints a message and changes nothing.
    void setTraceLevel(std::int32_t level);
    /// A new snapshot of the present record, owned by this controller.
    PoolHighWaterMarkVI* poolHighWaterMark();
    bool poolMemStats() const;
    void setPoolMemStats(bool value);
    /// The service's own flag; counts as a use of the hook of that name all the same.
    bool poolInternalLeakDetect() const;
    /// Sets the service's flag and the hook.
    void setPoolInternalLeakDetect(bool value);
    bool cfgPoolInternalLeakDetect() const;
    void setCfgPoolInternalLeakDetect(bool value);
    bool poolSanityChecks() const;
    void setPoolSanityChecks(bool value);

private:
    std::unique_ptr<PoolHighWaterMarkVI> highWaterMark_;
};

class CosMemoryAnalyzer : public objsys::factory::HandleClassInfo<CosMemoryAnalyzer, 0> {
public:
    CosMemoryAnalyzer();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
