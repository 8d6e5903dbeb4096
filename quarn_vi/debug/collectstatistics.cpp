#include "debug/collectstatistics.hpp"

#include "framework/declaration.hpp"

#include <qn/collect_statistics_service.hpp>

#include <new>

namespace quarn_vi::debug {

CollectStatistics::CollectStatistics()
    : service_(new (std::nothrow) QN::CollectStatisticsService) {}

CollectStatistics::~CollectStatistics() = default;

QN::Service* CollectStatistics::service() {
    return service_.get();
}

CosCollectStatistics::CosCollectStatistics()
    : HandleClassInfo("CollectStatistics", "QUARN CollectStatistics Service controller.") {}

void CosCollectStatistics::defineClass(objsys::COSClassDefinition* definition) {
    objsys::factory::ClassDeclaration<CollectStatistics> declare(definition);
    declare.constructor();
    declare.property<&Registerable::enabled, &Registerable::setEnabled>("Enabled");
}

} // namespace quarn_vi::debug
