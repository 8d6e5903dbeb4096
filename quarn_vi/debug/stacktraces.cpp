#include "debug/stacktraces.hpp"

#include "framework/declaration.hpp"

#include <qn/stack_trace_tag.hpp>

namespace quarn_vi::debug {

using QN::StackTraceTag;
using QN::StackTraceTagHandler;

bool StackTraces::tagNodes() const {
    return StackTraceTagHandler::handlesNodes();
}

void StackTraces::setTagNodes(bool value) {
    StackTraceTagHandler::setHandlesNodes(value);
}

bool StackTraces::tagConsts() const {
    return StackTraceTagHandler::handlesConsts();
}

void StackTraces::setTagConsts(bool value) {
    StackTraceTagHandler::setHandlesConsts(value);
}

bool StackTraces::tagVars() const {
    return StackTraceTagHandler::handlesVars();
}

void StackTraces::setTagVars(bool value) {
    StackTraceTagHandler::setHandlesVars(value);
}

bool StackTraces::tagTypes() const {
    return StackTraceTagHandler::handlesTypes();
}

void StackTraces::setTagTypes(bool value) {
    StackTraceTagHandler::setHandlesTypes(value);
}

bool StackTraces::trackDerivedNodes() const {
    return StackTraceTag::trackDerivedNodes();
}

void StackTraces::setTrackDerivedNodes(bool value) {
    StackTraceTag::setTrackDerivedNodes(value);
}

CosStackTraces::CosStackTraces()
    : HandleClassInfo("StackTraces", "QUARN Stack Trace Tag controller.") {}

void CosStackTraces::defineClass(objsys::COSClassDefinition* definition) {
    using C = StackTraces;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.constructor();
    declare.property<&C::tagNodes, &C::setTagNodes>("TagNodes");
    declare.property<&C::tagConsts, &C::setTagConsts>("TagConsts");
    declare.property<&C::tagVars, &C::setTagVars>("TagVars");
    declare.property<&C::tagTypes, &C::setTagTypes>("TagTypes");
    declare.property<&C::trackDerivedNodes, &C::setTrackDerivedNodes>("TrackDerivedNodes");
}

} // namespace quarn_vi::debug
