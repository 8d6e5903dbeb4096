#include "debug/debugservicevi.hpp"

#include "framework/declaration.hpp"

#include <qn/debug_service.hpp>

namespace quarn_vi::debug {

bool DebugServiceVI::enabledBefore() const {
    return service_->requestedBefore();
}

void DebugServiceVI::setEnabledBefore(bool value) {
    service_->setRequestedBefore(value);
}

bool DebugServiceVI::enabledAfter() const {
    return service_->requestedAfter();
}

void DebugServiceVI::setEnabledAfter(bool value) {
    service_->setRequestedAfter(value);
}

bool DebugServiceVI::enabledGlobalScope() const {
    return service_->requestedGlobalScope();
}

void DebugServiceVI::setEnabledGlobalScope(bool value) {
    service_->setRequestedGlobalScope(value);
}

std::string DebugServiceVI::filterRegEx() const {
    return service_->filter();
}

void DebugServiceVI::setFilterRegEx(const std::string& pattern) {
    service_->setFilter(pattern);
}

CosDebugService::CosDebugService()
    : HandleClassInfo("DebugService", "QUARN DebugService base class.") {}

void CosDebugService::defineClass(objsys::COSClassDefinition* definition) {
    using C = DebugServiceVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.property<&C::enabledBefore, &C::setEnabledBefore>("EnabledBefore");
    declare.property<&C::enabledAfter, &C::setEnabledAfter>("EnabledAfter");
    declare.property<&C::enabledGlobalScope, &C::setEnabledGlobalScope>("EnabledGlobalScope");
    declare.property<&C::filterRegEx, &C::setFilterRegEx>("FilterRegEx");
}

} // namespace quarn_vi::debug
