// internal.quarn.UserVarLogging: which user variables are alive around each transform.
#pragma once

#include "debug/debugservicevi.hpp"

namespace QN {
class UserVarLoggingService;
}

namespace quarn_vi::debug {

/// Controls the one user-variable logging service of the process. Keeps nothing of its own.
class UserVarLoggingVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.UserVarLogging";

    UserVarLoggingVI();

    /// The service that all these controllers share, made on first use.
    static QN::UserVarLoggingService& sharedUserVarLoggingService();
};

class CosUserVarLogging : public objsys::factory::HandleClassInfo<CosUserVarLogging, 0> {
public:
    CosUserVarLogging();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
