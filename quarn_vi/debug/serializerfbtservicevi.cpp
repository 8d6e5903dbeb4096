#include "debug/serializerfbtservicevi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/serializer_fbt_service.hpp>

namespace quarn_vi::debug {

QN::SerializerFbtService& SerializerFbtServiceVI::sharedSerializerFbtService() {
    return sharedService<QN::SerializerFbtService, false, false>();
}

SerializerFbtServiceVI::SerializerFbtServiceVI() : DebugServiceVI(&sharedSerializerFbtService()) {}

CosSerializerFbtService::CosSerializerFbtService()
    : HandleClassInfo("SerializerFbtService", "QUARN Serializer FBT Service Controller") {}

void CosSerializerFbtService::defineClass(objsys::COSClassDefinition* definition) {
    objsys::factory::ClassDeclaration<SerializerFbtServiceVI> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
}

} // namespace quarn_vi::debug
