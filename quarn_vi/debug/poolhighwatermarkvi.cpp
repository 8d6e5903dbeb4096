#include "debug/poolhighwatermarkvi.hpp"

#include "framework/declaration.hpp"

namespace quarn_vi::debug {

CosPoolHighWaterMark::CosPoolHighWaterMark()
    : HandleClassInfo("PoolHighWaterMark", "QUARN Pool Memory High Water Mark") {}

void CosPoolHighWaterMark::defineClass(objsys::COSClassDefinition* definition) {
    using C = PoolHighWaterMarkVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.constructor();
    declare.readOnly<&C::when>("When");
    declare.readOnly<&C::scopeFlavor>("ScopeFlavor");
    declare.readOnly<&C::transformName>("TransformName");
    declare.readOnly<&C::functionName>("FunctionName");
    declare.readOnly<&C::poolMaxAllocated>("PoolMaxAllocated");
}

} // namespace quarn_vi::debug
