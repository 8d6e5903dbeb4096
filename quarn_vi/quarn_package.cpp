#include "quarn_package.hpp"

#include "debug/collectstatistics.hpp"
#include "debug/debug.hpp"
#include "debug/debuglogger.hpp"
#include "debug/debugservicevi.hpp"
#include "debug/llvmdebugger.hpp"
#include "debug/memoryanalyzervi.hpp"
#include "debug/nameprinter.hpp"
#include "debug/poolhighwatermarkvi.hpp"
#include "debug/prettyprintervi.hpp"
#include "debug/profiler.hpp"
#include "debug/profilinginstrumentation.hpp"
#include "debug/sanitycheckervi.hpp"
#include "debug/sanityviolationvi.hpp"
#include "debug/scramblervi.hpp"
#include "debug/serializerfbtservicevi.hpp"
#include "debug/stacktraces.hpp"
#include "debug/timerprobe.hpp"
#include "debug/timervi.hpp"
#include "debug/transformlogservicevi.hpp"
#include "debug/transformprofilervi.hpp"
#include "debug/uservarloggingvi.hpp"

#include <objsys/package.hpp>

namespace quarn_vi {

namespace {

template <class Descriptor>
objsys::COSClassInfo* make() {
    return new Descriptor;
}

// The order is fixed: it is the one in which the host lists the classes.
constexpr CatalogueRow rows[] = {
    {make<debug::CosDebug>},
    {make<debug::CosDebugService>},
    {make<debug::CosPrettyPrinter>},
    {make<debug::CosTransformProfiler>},
    {make<debug::CosTransformLogService>},
    {make<debug::CosScrambler>},
    {make<debug::CosStackTraces>},
    {make<debug::CosProfiler>},
    {make<debug::CosTimer>},
    {make<debug::CosTimerProbe>},
    {make<debug::CosDebugLogger>},
    {make<debug::CosProfilingInstrumentation>},
    {make<debug::CosNamePrinter>},
    {make<debug::CosSanityChecker>},
    {make<debug::CosSanityViolation>},
    {make<debug::CosMemoryAnalyzer>},
    {make<debug::CosPoolHighWaterMark>},
    {make<debug::CosCollectStatistics>},
    {make<debug::CosLlvmDebugger>},
    {make<debug::CosUserVarLogging>},
    {make<debug::CosSerializerFbtService>},
};

} // namespace

std::span<const CatalogueRow> catalogue() {
    return rows;
}

const char* QUARNPackage::getName() const {
    return "quarn";
}

void QUARNPackage::registerClasses(objsys::COSPackage* package) {
    for (const CatalogueRow& row : catalogue())
        package->addClass(row.makeDescriptor());
}

void publishPackage() {
    using objsys::COSNameID;
    using objsys::COSPackage;
    COSPackage* const internal = COSPackage::getPackage(COSNameID("internal"));
    if (COSPackage* const existing = COSPackage::getPackage(COSNameID("internal.quarn")))
        QUARNPackage().registerClasses(existing);
    else
        internal->addPackage(new QUARNPackage);
}

} // namespace quarn_vi
