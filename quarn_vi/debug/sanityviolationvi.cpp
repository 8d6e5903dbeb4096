#include "debug/sanityviolationvi.hpp"

#include "framework/declaration.hpp"

namespace quarn_vi::debug {

namespace {
constexpr const char* noRow = "empty";
}

std::string SanityViolationVI::testpoint() const {
    return row_ ? row_->testpoint() : noRow;
}

std::string SanityViolationVI::transform() const {
    return row_ ? row_->transform() : noRow;
}

std::string SanityViolationVI::foundWhen() const {
    return row_ ? QN::SanityCheckService::foundWhenToString(row_->foundWhen()) : noRow;
}

std::string SanityViolationVI::checkId() const {
    return row_ ? row_->checkId() : noRow;
}

std::string SanityViolationVI::severity() const {
    return row_ ? QN::SanityCheckService::severityToString(row_->severity()) : noRow;
}

std::string SanityViolationVI::message() const {
    return row_ ? row_->message() : noRow;
}

std::int32_t SanityViolationVI::numFailingNodes() const {
    return row_ ? row_->numFailingNodes() : 0;
}

CosSanityViolation::CosSanityViolation()
    : HandleClassInfo("SanityViolation", "QUARN Sanity Violation") {}

void CosSanityViolation::defineClass(objsys::COSClassDefinition* definition) {
    using C = SanityViolationVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("varnix.mixin.Heterogeneous");
    declare.constructor();
    declare.readOnly<&C::testpoint>("Testpoint");
    declare.readOnly<&C::transform>("Transform");
    declare.readOnly<&C::foundWhen>("FoundWhen");
    declare.readOnly<&C::checkId>("CheckId");
    declare.readOnly<&C::severity>("Severity");
    declare.readOnly<&C::message>("Message");
    declare.readOnly<&C::numFailingNodes>("NumFailingNodes");
}

} // namespace quarn_vi::debug
