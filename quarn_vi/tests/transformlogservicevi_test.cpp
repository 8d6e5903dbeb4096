// internal.quarn.TransformLogService over the shared transform log service.

#include "debug/transformlogservicevi.hpp"
#include "tests/debugservice_properties.hpp"
#include "tests/runs.hpp"

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

TEST(TransformLogService, logsRunsOnlyWhileItIsOn) {
    const controllers::LogFolder folder;
    const controllers::Object object("TransformLogService");
    // It is there from when it is made; another test may have emptied the container.
    QN::DefaultServices::debugServices().addService(
        &quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService());
    controllers::Program program;
    object.set("Enabled", false);
    program.idle();
    EXPECT_EQ(folder.files(), 0u);
    object.set("Enabled", true);
    program.idle();
    object.set("Enabled", false);
    program.idle();
    ASSERT_EQ(folder.files(), 1u);
    const std::string log =
        controllers::contentsOf(std::filesystem::directory_iterator(folder.path())->path());
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_NE(log.find(" idle-fcn_f "), std::string::npos) << log;
}

// The switch is the service's own flag: whether the container holds the service is another matter.
TEST(TransformLogService, switchRegistersNothing) {
    const QN::ServiceContainer& services = QN::DefaultServices::debugServices();
    auto& service = quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService();
    const controllers::Object object("TransformLogService");
    const bool registered = services.isRegistered(&service);
    for (const bool value : {true, false}) {
        object.set("Enabled", value);
        EXPECT_EQ(services.isRegistered(&service), registered);
    }
}

} // namespace
