// internal.quarn.UserVarLogging over the shared user-variable logging service.

#include "debug/uservarloggingvi.hpp"
#include "tests/debugservice_properties.hpp"

#include <qn/user_var_logging_service.hpp>

namespace {

TEST(UserVarLogging, isJustADebugService) {
    EXPECT_EQ(controllers::propertiesOf("UserVarLogging"),
              controllers::withDebugServiceProperties({}));
    EXPECT_TRUE(controllers::methodsOf("UserVarLogging").empty());
    controllers::expectDebugServiceProperties(
        "UserVarLogging", quarn_vi::debug::UserVarLoggingVI::sharedUserVarLoggingService());
}

} // namespace
