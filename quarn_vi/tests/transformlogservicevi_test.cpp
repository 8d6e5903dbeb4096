// internal.quarn.TransformLogService over the shared transform log service.

#include "debug/transformlogservicevi.hpp"
#include "tests/debugservice_properties.hpp"

#include <qn/transform_log_service.hpp>

namespace {

using controllers::Member;

TEST(TransformLogService, declaresOneProperty) {
    EXPECT_EQ(controllers::propertiesOf("TransformLogService"),
              (std::vector<Member>{{"Enabled", "logical scalar", false, 0}}));
    EXPECT_TRUE(controllers::methodsOf("TransformLogService").empty());
    EXPECT_TRUE(controllers::scriptClass("TransformLogService").superclasses().empty());
    EXPECT_FALSE(controllers::scriptClass("TransformLogService")
                     .findProperty(objsys::COSNameID("EnabledBefore")));
}

TEST(TransformLogService, switchIsTheServicesOwn) {
    auto& service = quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService();
    controllers::expectSharedSwitch(
        "TransformLogService", "Enabled", [&] { return service.getEnable(); },
        [&](bool v) { service.setEnable(v); });
}

} // namespace
