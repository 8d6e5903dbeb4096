// internal.quarn.TransformProfiler: what each run of a transform cost.
#pragma once

#include "debug/debugservicevi.hpp"

#include <cstdint>
#include <string>

namespace QN {
class TransformProfilerService;
}

namespace quarn_vi::debug {

/// Controls the one transform profiler of the process. Keeps nothing of its own.
class TransformProfilerVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.TransformProfiler";

    TransformProfilerVI();

    /// The service that all these controllers share, made on first use.
    static QN::TransformProfilerService& sharedTransformProfilerService();

    std::string dumpDestination() const;
    void setDumpDestination(const std::string& destination);
    bool recordNumbering() const;
    void setRecordNumbering(bool value);
    bool tagFcnsWithLogId() const;
    void setTagFcnsWithLogId(bool value);
    std::uint64_t eventEmitThreshold() const;
    void setEventEmitThreshold(std::uint64_t threshold);
    std::uint64_t memEventInterval() const;
    void setMemEventInterval(std::uint64_t interval);
    std::uint64_t eventCount() const;

    std::string hello();
    void dump();
    void reset();
};

class CosTransformProfiler : public objsys::factory::HandleClassInfo<CosTransformProfiler, 0> {
public:
    CosTransformProfiler();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
