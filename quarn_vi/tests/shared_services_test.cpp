// The services that all controllers of one kind share: made on first use, with nothing requested.

#include "debug/memoryanalyzervi.hpp"
#include "debug/prettyprintervi.hpp"
#include "debug/sanitycheckervi.hpp"
#include "debug/scramblervi.hpp"
#include "debug/serializerfbtservicevi.hpp"
#include "debug/transformlogservicevi.hpp"
#include "debug/transformprofilervi.hpp"
#include "debug/uservarloggingvi.hpp"
#include "tests/controllers.hpp"

#include <qn/default_services.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/scramble_service.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>
#include <qn/user_var_logging_service.hpp>

namespace {

using namespace quarn_vi::debug;
using controllers::Object;

TEST(SharedServices, StartWithNothingRequested) {
    QN::DebugService* const services[] = {
        &PrettyPrinterVI::sharedPrettyPrintService(),
        &SanityCheckerVI::sharedSanityCheckService(),
        &MemoryAnalyzerVI::sharedPoolMemoryTrackingService(),
        &ScramblerVI::sharedScrambleService(),
        &TransformProfilerVI::sharedTransformProfilerService(),
        &SerializerFbtServiceVI::sharedSerializerFbtService(),
        &UserVarLoggingVI::sharedUserVarLoggingService(),
    };
    for (QN::DebugService* const service : services) {
        EXPECT_FALSE(service->requestedBefore());
        EXPECT_FALSE(service->requestedAfter());
        EXPECT_FALSE(service->requestedGlobalScope());
        EXPECT_FALSE(QN::DefaultServices::debugServices().isRegistered(service));
    }
    EXPECT_EQ(static_cast<int>(SanityCheckerVI::sharedSanityCheckService().outputType()), 0);
    EXPECT_FALSE(TransformLogServiceVI::sharedTransformLogService().getEnable());
}

TEST(SharedServices, AreOneForAllControllersAndOutliveThem) {
    for (const char* const name : {"PrettyPrinter", "SanityChecker", "MemoryAnalyzer", "Scrambler",
                                   "TransformProfiler", "SerializerFbtService", "UserVarLogging"}) {
        {
            const Object a(name);
            const Object b(name);
            a.set("EnabledBefore", true);
            EXPECT_TRUE(b.flag("EnabledBefore")) << name;
            a.set("FilterRegEx", "dead-code");
            EXPECT_EQ(b.text("FilterRegEx"), "dead-code") << name;
        }
        const Object later(name);
        EXPECT_TRUE(later.flag("EnabledBefore")) << name;
        EXPECT_EQ(later.text("FilterRegEx"), "dead-code") << name;
        later.set("EnabledBefore", false);
        later.set("FilterRegEx", "");
    }
    // Each kind has its own.
    Object("Scrambler").set("FilterRegEx", "x");
    EXPECT_EQ(Object("SanityChecker").text("FilterRegEx"), "");
    Object("Scrambler").set("FilterRegEx", "");
}

// The bases of native objects that controllers delete: no handle may reach them afterwards.
TEST(Controllers, DeletedBehindTheirHandlesAreInvalid) {
    const char* const properties[][2] = {
        {"DebugLogger", "Mode"},
        {"MemoryAnalyzer", "TraceLevel"},
        {"NamePrinter", "Enabled"},
        {"PoolHighWaterMark", "When"},
        {"PrettyPrinter", "OutputFormat"},
        {"SanityChecker", "OutputType"},
        {"SanityViolation", "Severity"},
        {"Scrambler", "Verbose"},
        {"StackTraces", "TagNodes"},
        {"TransformLogService", "Enabled"},
        {"TransformProfiler", "EventCount"},
        {"UserVarLogging", "FilterRegEx"},
        {"SerializerFbtService", "FilterRegEx"},
        {"CollectStatistics", "Enabled"},
    };
    for (const auto& [name, property] : properties) {
        const Object object(name);
        delete &object.native<objsys::factory::full::Wrappable>();
        const auto get = [&object, property = property] { (void)object.get(property); };
        EXPECT_EQ(sample::errorOf(get), "varnix:invalidHandle") << name;
    }
}

} // namespace
