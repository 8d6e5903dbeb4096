// internal.quarn.DebugLogger over the process's debug log.

#include "tests/controllers.hpp"

#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

namespace {

using controllers::Member;
using controllers::Object;

tssv::debug::DebugLog& log() {
    return QN::DefaultServices::debugServices().debugLog();
}

// A way to the log's mode, which its interface only moves between the two that it has: explicit
// instantiation may name a private member, and a friend function hands the pointer to it out.
using Mode = tssv::debug::DebugLog::Mode;
struct LogMode {
    friend constexpr Mode tssv::debug::DebugLog::*memberOf(LogMode);
};
template <Mode tssv::debug::DebugLog::*member>
struct Open {
    friend constexpr Mode tssv::debug::DebugLog::*memberOf(LogMode) { return member; }
};
template struct Open<&tssv::debug::DebugLog::mode_>;

/// Each test starts from the log's own defaults.
class DebugLogger : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }

private:
    static void reset() {
        log().setLogDirectory("");
        log().setUsePIDInName(true);
        tssv::debug::DebugLog::resetCounter();
    }
};

TEST_F(DebugLogger, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("DebugLogger"),
              (std::vector<Member>{{"LogDirectory", "char", false, 0},
                                   {"Mode", "char", true, 0},
                                   {"UsePIDInName", "logical scalar", false, 0}}));
    EXPECT_EQ(controllers::methodsOf("DebugLogger"),
              (std::vector<std::string>{"char logFilePath(internal.quarn.DebugLogger, char, char)",
                                        "void resetCounter(internal.quarn.DebugLogger)"}));
}

TEST_F(DebugLogger, directoryGoesToTheLogAndIsSeenByEveryObject) {
    const Object a("DebugLogger");
    const Object b("DebugLogger");
    a.set("LogDirectory", "/tmp/somewhere");
    EXPECT_EQ(log().logDirectory(), "/tmp/somewhere");
    EXPECT_EQ(b.text("LogDirectory"), "/tmp/somewhere");
    log().setLogDirectory("/tmp/elsewhere");
    EXPECT_EQ(a.text("LogDirectory"), "/tmp/elsewhere");
}

TEST_F(DebugLogger, modeFollowsTheLogAndIsReadOnly) {
    const Object object("DebugLogger");
    EXPECT_EQ(object.text("Mode"), "AUTO");
    object.set("LogDirectory", "/tmp/somewhere");
    EXPECT_EQ(object.text("Mode"), "MANUAL");
    object.set("LogDirectory", "");
    EXPECT_EQ(object.text("Mode"), "AUTO");
    EXPECT_EQ(sample::errorOf([&] { object.set("Mode", "MANUAL"); }), "varnix:readOnlyProperty");
    EXPECT_EQ(object.text("Mode"), "AUTO");
}

TEST_F(DebugLogger, modeThatTheLogDoesNotHaveTodayIsInvalid) {
    const Object object("DebugLogger");
    for (const int mode : {2, -1, 2147483647}) {
        log().*memberOf(LogMode()) = static_cast<Mode>(mode);
        EXPECT_EQ(object.text("Mode"), "INVALID") << mode;
    }
    log().*memberOf(LogMode()) = static_cast<Mode>(1);
    EXPECT_EQ(object.text("Mode"), "MANUAL");
    log().*memberOf(LogMode()) = static_cast<Mode>(0);
    EXPECT_EQ(object.text("Mode"), "AUTO");
}

TEST_F(DebugLogger, processIdSwitchGoesToTheLog) {
    const Object object("DebugLogger");
    object.set("UsePIDInName", false);
    EXPECT_FALSE(log().usePIDInName());
    EXPECT_FALSE(object.flag("UsePIDInName"));
    log().setUsePIDInName(true);
    EXPECT_TRUE(object.flag("UsePIDInName"));
}

TEST_F(DebugLogger, wrongTypesChangeNothing) {
    const Object object("DebugLogger");
    object.set("LogDirectory", "/tmp/somewhere");
    const auto text = sample::text("yes");
    controllers::expectWrongType(object, "LogDirectory", sample::number(1));
    controllers::expectWrongType(object, "UsePIDInName", sample::arrayValue(text));
    EXPECT_EQ(log().logDirectory(), "/tmp/somewhere");
    EXPECT_TRUE(log().usePIDInName());
}

TEST_F(DebugLogger, composesPathsThroughTheLog) {
    const Object object("DebugLogger");
    object.set("LogDirectory", "/tmp/logs");
    object.set("UsePIDInName", false);
    const auto first = sample::text("trace");
    const auto second = sample::text("txt");
    const std::vector<objsys::COSValue> arguments{sample::arrayValue(first),
                                                  sample::arrayValue(second)};
    const std::string path = object.callText("logFilePath", arguments);
    EXPECT_EQ(path, "/tmp/logs/trace-0001.txt");
    EXPECT_EQ(object.callText("logFilePath", arguments), "/tmp/logs/trace-0002.txt");
    object.call("resetCounter");
    EXPECT_EQ(object.callText("logFilePath", arguments), path);
    EXPECT_EQ(sample::errorOf([&] {
                  object.call("logFilePath", {sample::arrayValue(first), sample::number(3)});
              }),
              "varnix:wrongType");
    EXPECT_EQ(sample::errorOf([&] { object.call("logFilePath", {sample::arrayValue(first)}); }),
              "varnix:notEnoughInputs");
}

TEST_F(DebugLogger, methodsRefuseAnEmptyObject) {
    objsys::COSClass& cls = controllers::scriptClass("DebugLogger");
    const sample::Array none(omCreateOBJSYSMatrix(0, 0, cls.getFullName()));
    EXPECT_EQ(sample::errorOf(
                  [&] { (void)sample::method(cls, "resetCounter").callConverted(none.get(), {}); }),
              "varnix:nullSelf");
}

TEST_F(DebugLogger, settingsOutliveTheObject) {
    { Object("DebugLogger").set("LogDirectory", "/tmp/kept"); }
    EXPECT_EQ(Object("DebugLogger").text("LogDirectory"), "/tmp/kept");
}

} // namespace
