#include "debug/transformlogservicevi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/transform_log_service.hpp>

namespace quarn_vi::debug {

QN::TransformLogService& TransformLogServiceVI::sharedTransformLogService() {
    return sharedService<QN::TransformLogService>();
}

TransformLogServiceVI::TransformLogServiceVI() : DebugServiceVI(&sharedTransformLogService()) {}

bool TransformLogServiceVI::enabled() const {
    return sharedTransformLogService().getEnable();
}

void TransformLogServiceVI::setEnabled(bool value) {
    sharedTransformLogService().setEnable(value);
}

CosTransformLogService::CosTransformLogService()
    : HandleClassInfo("TransformLogService", "QUARN Transform Log Service.") {}

void CosTransformLogService::defineClass(objsys::COSClassDefinition* definition) {
    objsys::factory::ClassDeclaration<TransformLogServiceVI> declare(definition);
    declare.constructor();
    declare.property<&TransformLogServiceVI::enabled, &TransformLogServiceVI::setEnabled>(
        "Enabled");
}

} // namespace quarn_vi::debug
