// internal.quarn.SerializerFbtService: binary files of the IR around each transform.
#pragma once

#include "debug/debugservicevi.hpp"

namespace QN {
class SerializerFbtService;
}

namespace quarn_vi::debug {

/// Controls the one serializer service of the process. Keeps nothing of its own.
class SerializerFbtServiceVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.SerializerFbtService";

    SerializerFbtServiceVI();

    /// The service that all these controllers share, made on first use.
    static QN::SerializerFbtService& sharedSerializerFbtService();
};

class CosSerializerFbtService
    : public objsys::factory::HandleClassInfo<CosSerializerFbtService, 0> {
public:
    CosSerializerFbtService();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
