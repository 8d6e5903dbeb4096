// internal.quarn.TransformProfiler over the shared transform profiler.

#include "debug/transformprofilervi.hpp"
#include "tests/debugservice_properties.hpp"
#include "tests/runs.hpp"

#include <qn/transform_profiler_service.hpp>

namespace {

using controllers::Member;
using controllers::Object;

QN::TransformProfilerService& service() {
    return quarn_vi::debug::TransformProfilerVI::sharedTransformProfilerService();
}

TEST(TransformProfiler, declaresItsMembersInOrder) {
    EXPECT_EQ(
        controllers::propertiesOf("TransformProfiler"),
        controllers::withDebugServiceProperties({{"DumpDestination", "char", false, 0},
                                                 {"RecordNumbering", "logical scalar", false, 0},
                                                 {"TagFcnsWithLogId", "logical scalar", false, 0},
                                                 {"EventEmitThreshold", "uint64 scalar", false, 0},
                                                 {"MemEventInterval", "uint64 scalar", false, 0},
                                                 {"EventCount", "uint64 scalar", true, 0}}));
    EXPECT_EQ(controllers::methodsOf("TransformProfiler"),
              (std::vector<std::string>{"char hello(internal.quarn.TransformProfiler)",
                                        "void dump(internal.quarn.TransformProfiler)",
                                        "void reset(internal.quarn.TransformProfiler)"}));
}

TEST(TransformProfiler, inheritsTheCommonSettings) {
    controllers::expectDebugServiceProperties("TransformProfiler", service());
}

TEST(TransformProfiler, greets) {
    EXPECT_EQ(Object("TransformProfiler").callText("hello"), "(-: hello :-)");
}

TEST(TransformProfiler, destinationIsPassedOnAsItIs) {
    const Object a("TransformProfiler");
    const Object b("TransformProfiler");
    const std::string old = service().dumpDestination();
    a.set("DumpDestination", "/tmp/where ever.json");
    EXPECT_EQ(service().dumpDestination(), "/tmp/where ever.json");
    EXPECT_EQ(b.text("DumpDestination"), "/tmp/where ever.json");
    controllers::expectWrongType(a, "DumpDestination", sample::number(2));
    EXPECT_EQ(service().dumpDestination(), "/tmp/where ever.json");
    service().setDumpDestination(old);
    EXPECT_EQ(a.text("DumpDestination"), old);
}

TEST(TransformProfiler, switchesAreShared) {
    controllers::expectSharedSwitch(
        "TransformProfiler", "RecordNumbering", [] { return service().recordNumbering(); },
        [](bool v) { service().setRecordNumbering(v); });
    controllers::expectSharedSwitch(
        "TransformProfiler", "TagFcnsWithLogId", [] { return service().tagFcnsWithLogId(); },
        [](bool v) { service().setTagFcnsWithLogId(v); });
}

TEST(TransformProfiler, intervalsGoToTheService) {
    const Object object("TransformProfiler");
    const std::size_t threshold = service().eventEmitThreshold();
    const std::size_t interval = service().memEventInterval();
    object.set("EventEmitThreshold", 7.0);
    object.set("MemEventInterval", 0.0);
    EXPECT_EQ(service().eventEmitThreshold(), 7u);
    EXPECT_EQ(service().memEventInterval(), 0u);
    controllers::expectWrongType(object, "EventEmitThreshold", sample::number(-1));
    controllers::expectWrongType(object, "MemEventInterval", sample::number(0.5));
    EXPECT_EQ(service().eventEmitThreshold(), 7u);
    service().setMemEventInterval(99);
    EXPECT_EQ(object.uint64("MemEventInterval"), 99u);
    service().setEventEmitThreshold(~std::size_t{0});
    EXPECT_EQ(object.uint64("EventEmitThreshold"), ~std::uint64_t{0});
    service().setEventEmitThreshold(threshold);
    service().setMemEventInterval(interval);
}

TEST(TransformProfiler, countIsReadOnlyAndResettable) {
    const Object object("TransformProfiler");
    object.call("reset");
    EXPECT_EQ(object.uint64("EventCount"), 0u);
    EXPECT_EQ(object.uint64("EventCount"), service().eventCount());
    EXPECT_EQ(sample::errorOf([&] { object.set("EventCount", 1.0); }), "varnix:readOnlyProperty");
}

TEST(TransformProfiler, countsReportsAndForgetsRuns) {
    const Object object("TransformProfiler");
    const Object other("TransformProfiler");
    controllers::Program program;
    object.call("reset");
    object.set("EnabledAfter", true);
    program.idle();
    program.idle();
    object.set("EnabledAfter", false);
    EXPECT_EQ(object.uint64("EventCount"), 2u);
    EXPECT_EQ(other.uint64("EventCount"), 2u);

    object.set("DumpDestination", "console");
    const std::string table = controllers::printed([&] { other.call("dump"); });
    EXPECT_NE(table.find("idle f\n"), std::string::npos) << table;
    EXPECT_EQ(object.uint64("EventCount"), 2u); // a report takes nothing away
    object.set("DumpDestination", "");

    other.call("reset");
    EXPECT_EQ(service().eventCount(), 0u);
    EXPECT_EQ(object.uint64("EventCount"), 0u);
}

TEST(TransformProfiler, methodsRefuseAnEmptyObject) {
    objsys::COSClass& cls = controllers::scriptClass("TransformProfiler");
    const sample::Array none(omCreateOBJSYSMatrix(0, 0, cls.getFullName()));
    for (const char* const name : {"hello", "dump", "reset"})
        EXPECT_EQ(
            sample::errorOf([&] { (void)sample::method(cls, name).callConverted(none.get(), {}); }),
            "varnix:nullSelf")
            << name;
}

} // namespace
