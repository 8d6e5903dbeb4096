// internal.quarn.ProfilingInstrumentation over the IR library's feature flag.

#include "tests/controllers.hpp"

#include <qn/testing_hooks.hpp>

namespace {

using controllers::Member;
using controllers::Object;

class ProfilingInstrumentation : public testing::Test {
protected:
    void TearDown() override { TSFEAT_QUARNProfilingInstrumentation->setFeatValFromC(0); }
};

TEST_F(ProfilingInstrumentation, declaresItsMembers) {
    EXPECT_EQ(controllers::propertiesOf("ProfilingInstrumentation"),
              (std::vector<Member>{{"Enabled", "logical scalar", false, 0}}));
    EXPECT_TRUE(controllers::methodsOf("ProfilingInstrumentation").empty());
}

TEST_F(ProfilingInstrumentation, switchesTheFeatureForEveryHandle) {
    const Object a("ProfilingInstrumentation");
    const Object b("ProfilingInstrumentation");
    a.set("Enabled", true);
    EXPECT_TRUE(a.flag("Enabled"));
    EXPECT_TRUE(b.flag("Enabled"));
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->value(), 1);
    TSFEAT_QUARNProfilingInstrumentation->setFeatValFromC(-7); // any value but zero is on
    EXPECT_TRUE(b.flag("Enabled"));
    b.set("Enabled", false);
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->value(), 0);
    EXPECT_FALSE(a.flag("Enabled"));
}

TEST_F(ProfilingInstrumentation, readsCountAndWritesDoNot) {
    const Object object("ProfilingInstrumentation");
    const auto before = TSFEAT_QUARNProfilingInstrumentation->queryCount();
    object.set("Enabled", true);
    object.set("Enabled", false);
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->queryCount(), before);
    (void)object.flag("Enabled");
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->queryCount(), before + 1);
    (void)object.flag("Enabled");
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->queryCount(), before + 2);
}

TEST_F(ProfilingInstrumentation, valueOutlivesTheHandle) {
    { Object("ProfilingInstrumentation").set("Enabled", true); }
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->value(), 1);
}

TEST_F(ProfilingInstrumentation, wrongTypeChangesNothing) {
    const Object object("ProfilingInstrumentation");
    object.set("Enabled", true);
    const auto text = sample::text("off");
    controllers::expectWrongType(object, "Enabled", sample::arrayValue(text));
    EXPECT_EQ(TSFEAT_QUARNProfilingInstrumentation->value(), 1);
}

} // namespace
