// internal.quarn.SanityViolation: a read-only view of one row of the sanity checker's report.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>
#include <qn/sanity_check_service.hpp>

#include <cstdint>
#include <string>

namespace quarn_vi::debug {

/// Refers to a row in place: what it shows is the row's present state, and it must not be read once
/// the report was cleared or has grown. Without a row all texts read "empty".
class SanityViolationVI : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.SanityViolation";
    using Row = QN::SanityCheckService::ReportRow;

    SanityViolationVI() = default;
    explicit SanityViolationVI(const Row* row) : row_(row) {}

    std::string testpoint() const;
    std::string transform() const;
    std::string foundWhen() const;
    std::string checkId() const;
    std::string severity() const;
    std::string message() const;
    std::int32_t numFailingNodes() const;

private:
    const Row* row_ = nullptr;
};

class CosSanityViolation : public objsys::factory::HandleClassInfo<SanityViolationVI, 0> {
public:
    CosSanityViolation();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
