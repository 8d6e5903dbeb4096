// internal.quarn.PoolHighWaterMark: a snapshot of when the IR's pools were fullest.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>
#include <qn/pool_high_water_mark.hpp>

#include <cstdint>
#include <string>

namespace quarn_vi::debug {

/// Holds a copy of a record, frozen when it was made.
class PoolHighWaterMarkVI : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.PoolHighWaterMark";

    PoolHighWaterMarkVI() = default;
    explicit PoolHighWaterMarkVI(const QN::PoolHighWaterMark& mark) : mark_(mark) {}

    std::string when() const { return mark_.when(); }
    std::string scopeFlavor() const { return mark_.scopeFlavor(); }
    std::string transformName() const { return mark_.transformName(); }
    std::string functionName() const { return mark_.functionName(); }
    /// In bytes.
    std::uint64_t poolMaxAllocated() const { return mark_.poolMaxAllocated(); }

private:
    QN::PoolHighWaterMark mark_;
};

class CosPoolHighWaterMark : public objsys::factory::HandleClassInfo<PoolHighWaterMarkVI, 0> {
public:
    CosPoolHighWaterMark();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
