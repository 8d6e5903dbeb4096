// internal.quarn.SerializerFbtService over the shared serializer service.

#include "debug/serializerfbtservicevi.hpp"
#include "tests/debugservice_properties.hpp"

#include <qn/serializer_fbt_service.hpp>

namespace {

TEST(SerializerFbtService, isJustADebugService) {
    EXPECT_EQ(controllers::propertiesOf("SerializerFbtService"),
              controllers::withDebugServiceProperties({}));
    EXPECT_TRUE(controllers::methodsOf("SerializerFbtService").empty());
    controllers::expectDebugServiceProperties(
        "SerializerFbtService",
        quarn_vi::debug::SerializerFbtServiceVI::sharedSerializerFbtService());
}

} // namespace
