// internal.quarn.TransformLogService: one line of log for each run of a transform.
#pragma once

#include "debug/debugservicevi.hpp"

namespace QN {
class TransformLogService;
}

namespace quarn_vi::debug {

/// Controls the one transform log service of the process. Keeps nothing of its own.
class TransformLogServiceVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.TransformLogService";

    TransformLogServiceVI();

    /// The service that all these controllers share, made on first use.
    static QN::TransformLogService& sharedTransformLogService();

    /// The log's own switch. The class shows none of the settings of DebugService.
    bool enabled() const;
    void setEnabled(bool value);
};

class CosTransformLogService : public objsys::factory::HandleClassInfo<CosTransformLogService, 0> {
public:
    CosTransformLogService();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
