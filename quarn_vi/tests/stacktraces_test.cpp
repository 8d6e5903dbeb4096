// internal.quarn.StackTraces over the IR library's process-wide tagging switches.

#include "tests/controllers.hpp"

#include <qn/stack_trace_tag.hpp>

namespace {

using controllers::Member;
using controllers::Object;

struct Switch {
    const char* property;
    bool (*read)();
    void (*write)(bool);
};

const Switch switches[] = {
    {"TagNodes", [] { return QN::StackTraceTagHandler::handlesNodes(); },
     [](bool v) { QN::StackTraceTagHandler::setHandlesNodes(v); }},
    {"TagConsts", [] { return QN::StackTraceTagHandler::handlesConsts(); },
     [](bool v) { QN::StackTraceTagHandler::setHandlesConsts(v); }},
    {"TagVars", [] { return QN::StackTraceTagHandler::handlesVars(); },
     [](bool v) { QN::StackTraceTagHandler::setHandlesVars(v); }},
    {"TagTypes", [] { return QN::StackTraceTagHandler::handlesTypes(); },
     [](bool v) { QN::StackTraceTagHandler::setHandlesTypes(v); }},
    {"TrackDerivedNodes", [] { return QN::StackTraceTag::trackDerivedNodes(); },
     [](bool v) { QN::StackTraceTag::setTrackDerivedNodes(v); }},
};

/// Each test starts and ends with all switches off.
class StackTraces : public testing::Test {
protected:
    void SetUp() override { allOff(); }
    void TearDown() override { allOff(); }

private:
    static void allOff() {
        for (const Switch& s : switches)
            s.write(false);
    }
};

TEST_F(StackTraces, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("StackTraces"),
              (std::vector<Member>{{"TagNodes", "logical scalar", false, 0},
                                   {"TagConsts", "logical scalar", false, 0},
                                   {"TagVars", "logical scalar", false, 0},
                                   {"TagTypes", "logical scalar", false, 0},
                                   {"TrackDerivedNodes", "logical scalar", false, 0}}));
    EXPECT_TRUE(controllers::methodsOf("StackTraces").empty());
    EXPECT_TRUE(controllers::scriptClass("StackTraces").superclasses().empty());
}

TEST_F(StackTraces, eachPropertyReachesItsOwnSwitch) {
    const Object object("StackTraces");
    const Object other("StackTraces");
    const auto text = sample::text("on");
    for (const Switch& s : switches) {
        object.set(s.property, true);
        for (const Switch& each : switches)
            EXPECT_EQ(each.read(), &each == &s) << s.property;
        EXPECT_TRUE(other.flag(s.property)) << s.property;
        controllers::expectWrongType(object, s.property, sample::arrayValue(text));
        EXPECT_TRUE(s.read()) << s.property;
        s.write(false); // behind the controller's back
        EXPECT_FALSE(object.flag(s.property)) << s.property;
    }
}

TEST_F(StackTraces, handlesComeAndGoWithoutAnEffect) {
    { Object("StackTraces").set("TagVars", true); }
    EXPECT_TRUE(QN::StackTraceTagHandler::handlesVars());
    EXPECT_TRUE(Object("StackTraces").flag("TagVars"));
}

} // namespace
