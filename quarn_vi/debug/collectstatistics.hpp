// internal.quarn.CollectStatistics: switches a statistics service of its own.
#pragma once

#include "debug/registerable.hpp"
#include "framework/class_info.hpp"

#include <memory>

namespace QN {
class CollectStatisticsService;
}

namespace quarn_vi::debug {

class CollectStatistics : public Registerable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.CollectStatistics";

    /// Makes the service and leaves it unregistered.
    CollectStatistics();
    /// Deletes the service, without taking it out of the container first: the library sees to that.
    ~CollectStatistics() override;

    QN::Service* service() override;

private:
    std::unique_ptr<QN::CollectStatisticsService> service_;
};

class CosCollectStatistics : public objsys::factory::HandleClassInfo<CollectStatistics, 0> {
public:
    CosCollectStatistics();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
