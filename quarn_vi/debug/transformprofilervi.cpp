#include "debug/transformprofilervi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <qn/transform_profiler_service.hpp>

namespace quarn_vi::debug {

namespace {

QN::TransformProfilerService& service() {
    return TransformProfilerVI::sharedTransformProfilerService();
}

} // namespace

QN::TransformProfilerService& TransformProfilerVI::sharedTransformProfilerService() {
    return sharedService<QN::TransformProfilerService, false, false>();
}

TransformProfilerVI::TransformProfilerVI() : DebugServiceVI(&sharedTransformProfilerService()) {}

std::string TransformProfilerVI::dumpDestination() const {
    return service().dumpDestination();
}

void TransformProfilerVI::setDumpDestination(const std::string& destination) {
    service().setDumpDestination(destination);
}

bool TransformProfilerVI::recordNumbering() const {
    return service().recordNumbering();
}

void TransformProfilerVI::setRecordNumbering(bool value) {
    service().setRecordNumbering(value);
}

bool TransformProfilerVI::tagFcnsWithLogId() const {
    return service().tagFcnsWithLogId();
}

void TransformProfilerVI::setTagFcnsWithLogId(bool value) {
    service().setTagFcnsWithLogId(value);
}

std::uint64_t TransformProfilerVI::eventEmitThreshold() const {
    return service().eventEmitThreshold();
}

void TransformProfilerVI::setEventEmitThreshold(std::uint64_t threshold) {
    service().setEventEmitThreshold(threshold);
}

std::uint64_t TransformProfilerVI::memEventInterval() const {
    return service().memEventInterval();
}

void TransformProfilerVI::setMemEventInterval(std::uint64_t interval) {
    service().setMemEventInterval(interval);
}

std::uint64_t TransformProfilerVI::eventCount() const {
    return service().eventCount();
}

std::string TransformProfilerVI::hello() {
    return "(-: hello :-)";
}

void TransformProfilerVI::dump() {
    service().dump();
}

void TransformProfilerVI::reset() {
    service().reset();
}

CosTransformProfiler::CosTransformProfiler()
    : HandleClassInfo("TransformProfiler", "QUARN Transform Activity Monitor.") {}

void CosTransformProfiler::defineClass(objsys::COSClassDefinition* definition) {
    using C = TransformProfilerVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
    declare.property<&C::dumpDestination, &C::setDumpDestination>("DumpDestination");
    declare.property<&C::recordNumbering, &C::setRecordNumbering>("RecordNumbering");
    declare.property<&C::tagFcnsWithLogId, &C::setTagFcnsWithLogId>("TagFcnsWithLogId");
    declare.property<&C::eventEmitThreshold, &C::setEventEmitThreshold>("EventEmitThreshold");
    declare.property<&C::memEventInterval, &C::setMemEventInterval>("MemEventInterval");
    declare.readOnly<&C::eventCount>("EventCount");
    declare.method<&C::hello>("hello");
    declare.method<&C::dump>("dump");
    declare.method<&C::reset>("reset");
}

} // namespace quarn_vi::debug
