// internal.quarn.DebugService: the superclass that cannot be constructed, and the native base that
// forwards to any debug service.

#include "debug/debugservicevi.hpp"
#include "tests/controllers.hpp"

#include <qn/debug_service.hpp>

namespace {

using controllers::Member;
using controllers::Object;

class PlainService : public QN::DebugService {
public:
    PlainService() : DebugService(false, false) {}
};

/// A handle over a controller of its own service, as a derived class would have.
class DebugService : public testing::Test {
protected:
    PlainService service;
    quarn_vi::debug::DebugServiceVI controller{&service};
    Object object{sample::Array(objsys::factory::basic::BindingRegistry::announce(
        &controller, controllers::scriptClass("DebugService").getFullName()))};
};

TEST_F(DebugService, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("DebugService"),
              (std::vector<Member>{{"EnabledBefore", "logical scalar", false, 0},
                                   {"EnabledAfter", "logical scalar", false, 0},
                                   {"EnabledGlobalScope", "logical scalar", false, 0},
                                   {"FilterRegEx", "char", false, 0}}));
    EXPECT_TRUE(controllers::methodsOf("DebugService").empty());
    EXPECT_TRUE(controllers::scriptClass("DebugService").superclasses().empty());
}

TEST_F(DebugService, cannotBeConstructedByAScript) {
    EXPECT_EQ(sample::errorOf([] { Object("DebugService"); }), "varnix:notConstructible");
}

TEST_F(DebugService, eachSwitchReachesItsOwnSetting) {
    struct Row {
        const char* property;
        bool (QN::DebugService::*read)() const noexcept;
        bool (QN::DebugService::*write)(bool);
    };
    const Row rows[] = {
        {"EnabledBefore", &QN::DebugService::requestedBefore,
         &QN::DebugService::setRequestedBefore},
        {"EnabledAfter", &QN::DebugService::requestedAfter, &QN::DebugService::setRequestedAfter},
        {"EnabledGlobalScope", &QN::DebugService::requestedGlobalScope,
         &QN::DebugService::setRequestedGlobalScope},
    };
    const auto text = sample::text("x");
    for (const Row& row : rows) {
        EXPECT_FALSE(object.flag(row.property)) << row.property;
        object.set(row.property, true);
        EXPECT_TRUE((service.*row.read)()) << row.property;
        for (const Row& other : rows) {
            EXPECT_EQ((service.*other.read)(), &other == &row) << row.property;
        }
        controllers::expectWrongType(object, row.property, sample::arrayValue(text));
        EXPECT_TRUE((service.*row.read)()) << row.property;
        (service.*row.write)(false); // behind the controller's back
        EXPECT_FALSE(object.flag(row.property)) << row.property;
    }
}

TEST_F(DebugService, filterIsPassedOnAsItIs) {
    object.set("FilterRegEx", "fold.*-fcn_");
    EXPECT_EQ(service.filter(), "fold.*-fcn_");
    controllers::expectWrongType(object, "FilterRegEx", sample::number(1));
    EXPECT_EQ(object.text("FilterRegEx"), "fold.*-fcn_");
    service.setFilter("other");
    EXPECT_EQ(object.text("FilterRegEx"), "other");
    const sample::Array empty(hvCreateArray(hvCHAR_CLASS, 0, 0));
    object.set("FilterRegEx", sample::arrayValue(empty));
    EXPECT_EQ(service.filter(), "");
    const sample::Array read(object.get("FilterRegEx").asArray());
    EXPECT_EQ(hvGetM(read.get()), 1u);
    EXPECT_EQ(hvGetN(read.get()), 0u);
}

TEST(DebugServiceController, doesNotOwnItsService) {
    PlainService service;
    { const quarn_vi::debug::DebugServiceVI controller(&service); }
    service.setRequestedBefore(true);
    EXPECT_TRUE(service.requestedBefore());
}

} // namespace
