#include "debug/uservarloggingvi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/user_var_logging_service.hpp>

namespace quarn_vi::debug {

QN::UserVarLoggingService& UserVarLoggingVI::sharedUserVarLoggingService() {
    return sharedService<QN::UserVarLoggingService, false, false>();
}

UserVarLoggingVI::UserVarLoggingVI() : DebugServiceVI(&sharedUserVarLoggingService()) {}

CosUserVarLogging::CosUserVarLogging()
    : HandleClassInfo("UserVarLogging", "QUARN User Var Logging Service controller.") {}

void CosUserVarLogging::defineClass(objsys::COSClassDefinition* definition) {
    objsys::factory::ClassDeclaration<UserVarLoggingVI> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
}

} // namespace quarn_vi::debug
