#include "debug/debuglogger.hpp"

#include "framework/declaration.hpp"

#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

namespace quarn_vi::debug {

namespace {

tssv::debug::DebugLog& debugLog() {
    return QN::DefaultServices::debugServices().debugLog();
}

} // namespace

std::string DebugLogger::logDirectory() const {
    return debugLog().logDirectory();
}

void DebugLogger::setLogDirectory(const std::string& directory) {
    debugLog().setLogDirectory(directory);
}

std::string DebugLogger::mode() const {
    switch (static_cast<int>(debugLog().mode())) {
    case 0:
        return "AUTO";
    case 1:
        return "MANUAL";
    default:
        return "INVALID";
    }
}

bool DebugLogger::usePIDInName() const {
    return debugLog().usePIDInName();
}

void DebugLogger::setUsePIDInName(bool value) {
    debugLog().setUsePIDInName(value);
}

std::string DebugLogger::logFilePath(const std::string& first, const std::string& second) {
    return debugLog().logFilePath(first, second);
}

void DebugLogger::resetCounter() {
    tssv::debug::DebugLog::resetCounter();
}

CosDebugLogger::CosDebugLogger() : HandleClassInfo("DebugLogger", "QUARN Debug Log controller.") {}

void CosDebugLogger::defineClass(objsys::COSClassDefinition* definition) {
    using C = DebugLogger;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.constructor();
    declare.property<&C::logDirectory, &C::setLogDirectory>("LogDirectory");
    declare.readOnly<&C::mode>("Mode");
    declare.property<&C::usePIDInName, &C::setUsePIDInName>("UsePIDInName");
    declare.method<&C::logFilePath>("logFilePath");
    declare.method<&C::resetCounter>("resetCounter");
}

} // namespace quarn_vi::debug
