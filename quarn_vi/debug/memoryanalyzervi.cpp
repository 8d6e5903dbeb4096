#include "debug/memoryanalyzervi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <hv/array.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/testing_hooks.hpp>

namespace quarn_vi::debug {

namespace {

QN::PoolMemoryTrackingService& service() {
    return MemoryAnalyzerVI::sharedPoolMemoryTrackingService();
}

} // namespace

QN::PoolMemoryTrackingService& MemoryAnalyzerVI::sharedPoolMemoryTrackingService() {
    return sharedService<QN::PoolMemoryTrackingService, false, false>();
}

MemoryAnalyzerVI::MemoryAnalyzerVI() : DebugServiceVI(&sharedPoolMemoryTrackingService()) {}

std::string MemoryAnalyzerVI::hello() {
    return "^_^ hello ^_^";
}

void MemoryAnalyzerVI::resetHighWaterMark() {
    service().resetPoolHighWaterMark();
    highWaterMark_.reset();
}

std::int32_t MemoryAnalyzerVI::traceLevel() const {
    return service().poolStatsLevel();
}

void MemoryAnalyzerVI::setTraceLevel(std::int32_t level) {
    if (level == 1 || level == 2)
        service().setPoolStatsLevel(level);
    else
        hvxPrintf("illegal setting for trace level (must be [1 - 2])\n");
}

PoolHighWaterMarkVI* MemoryAnalyzerVI::poolHighWaterMark() {
    highWaterMark_ = std::make_unique<PoolHighWaterMarkVI>(service().poolHighWaterMark());
    return highWaterMark_.get();
}

bool MemoryAnalyzerVI::poolMemStats() const {
    return service().collectPoolStats();
}

void MemoryAnalyzerVI::setPoolMemStats(bool value) {
    service().setCollectPoolStats(value);
}

bool MemoryAnalyzerVI::poolInternalLeakDetect() const {
    (void)TSFEAT_QUARNPoolInternalLeakDetection->value();
    return service().poolInternalLeakDetection();
}

void MemoryAnalyzerVI::setPoolInternalLeakDetect(bool value) {
    service().setPoolInternalLeakDetection(value);
    TSFEAT_QUARNPoolInternalLeakDetection->setHookValFromC(value ? 1 : 0);
}

bool MemoryAnalyzerVI::cfgPoolInternalLeakDetect() const {
    return TSFEAT_QUARNCfgPoolInternalLeakDetection->value() != 0;
}

void MemoryAnalyzerVI::setCfgPoolInternalLeakDetect(bool value) {
    TSFEAT_QUARNCfgPoolInternalLeakDetection->setHookValFromC(value ? 1 : 0);
}

bool MemoryAnalyzerVI::poolSanityChecks() const {
    return TSFEAT_QUARNPoolSanityChecks->value() != 0;
}

void MemoryAnalyzerVI::setPoolSanityChecks(bool value) {
    TSFEAT_QUARNPoolSanityChecks->setHookValFromC(value ? 1 : 0);
}

CosMemoryAnalyzer::CosMemoryAnalyzer()
    : HandleClassInfo("MemoryAnalyzer", "QUARN Pool Memory Tracking controller.") {}

void CosMemoryAnalyzer::defineClass(objsys::COSClassDefinition* definition) {
    using C = MemoryAnalyzerVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
    declare.property<&C::traceLevel, &C::setTraceLevel>("TraceLevel");
    declare.readOnly<&C::poolHighWaterMark>("PoolHighWaterMark",
                                            objsys::factory::PropertyAttributes(0x2000));
    declare.property<&C::poolMemStats, &C::setPoolMemStats>("PoolMemStats");
    declare.property<&C::poolInternalLeakDetect, &C::setPoolInternalLeakDetect>(
        "PoolInternalLeakDetect");
    declare.property<&C::cfgPoolInternalLeakDetect, &C::setCfgPoolInternalLeakDetect>(
        "CfgPoolInternalLeakDetect");
    declare.property<&C::poolSanityChecks, &C::setPoolSanityChecks>("PoolSanityChecks");
    declare.method<&C::hello>("hello");
    declare.method<&C::resetHighWaterMark>("ResetHighWaterMark");
}

} // namespace quarn_vi::debug
