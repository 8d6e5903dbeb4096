#include "debug/scramblervi.hpp"

#include "debug/sharedservice.hpp"
#include "framework/declaration.hpp"

#include <hv/array.hpp>
#include <qn/scramble_service.hpp>

namespace quarn_vi::debug {

namespace {

QN::ScrambleService& service() {
    return ScramblerVI::sharedScrambleService();
}

constexpr bool isPercentage(std::int32_t value) {
    return static_cast<std::uint32_t>(value) <= 100;
}

} // namespace

QN::ScrambleService& ScramblerVI::sharedScrambleService() {
    return sharedService<QN::ScrambleService, false, false>();
}

ScramblerVI::ScramblerVI() : DebugServiceVI(&sharedScrambleService()) {}

std::uint64_t ScramblerVI::scrambleLimit() const {
    return service().getLimit();
}

void ScramblerVI::setScrambleLimit(std::uint64_t limit) {
    service().setLimit(limit);
}

std::uint64_t ScramblerVI::scrambleCount() const {
    return service().getCount();
}

bool ScramblerVI::scrambleNodeList() const {
    return service().scrambleNodeList();
}

void ScramblerVI::setScrambleNodeList(bool value) {
    service().setScrambleNodeList(value);
}

bool ScramblerVI::scrambleLocalVars() const {
    return service().scrambleLocalVars();
}

void ScramblerVI::setScrambleLocalVars(bool value) {
    service().setScrambleLocalVars(value);
}

bool ScramblerVI::introducePointers() const {
    return service().introducePointers();
}

void ScramblerVI::setIntroducePointers(bool value) {
    service().setIntroducePointers(value);
}

std::int32_t ScramblerVI::scalarVarPointerizationThresh() const {
    return service().scalarVarPointerizationThresh();
}

void ScramblerVI::setScalarVarPointerizationThresh(std::int32_t percent) {
    if (isPercentage(percent))
        service().setScalarVarPointerizationThresh(percent);
    else
        hvxPrintf("Illegal value %d provided to ScramblerVI::setScalarVarPointerizationThresh "
                  "(ignored)\n",
                  percent);
}

std::int32_t ScramblerVI::aggregateVarPointerizationThresh() const {
    return service().aggregateVarPointerizationThresh();
}

void ScramblerVI::setAggregateVarPointerizationThresh(std::int32_t percent) {
    if (isPercentage(percent))
        service().setAggregateVarPointerizationThresh(percent);
    else
        hvxPrintf("Illegal value %d provided to ScramblerVI::setAggregateVarPointerizationThresh "
                  "(ignored)\n",
                  percent);
}

bool ScramblerVI::verbose() const {
    return service().verbose();
}

void ScramblerVI::setVerbose(bool value) {
    service().setVerbose(value);
}

std::string ScramblerVI::hello() {
    return "^_^ hello ^_^";
}

void ScramblerVI::resetScrambleCount() {
    service().resetCount();
}

void ScramblerVI::randomSeed(std::uint32_t seed) {
    service().setSeed(seed);
}

CosScrambler::CosScrambler() : HandleClassInfo("Scrambler", "QUARN NodeScrambler controller.") {}

void CosScrambler::defineClass(objsys::COSClassDefinition* definition) {
    using C = ScramblerVI;
    objsys::factory::ClassDeclaration<C> declare(definition);
    declare.superclass("internal.quarn.DebugService");
    declare.constructor();
    declare.property<&C::scrambleLimit, &C::setScrambleLimit>("ScrambleLimit");
    declare.readOnly<&C::scrambleCount>("ScrambleCount");
    declare.property<&C::scrambleNodeList, &C::setScrambleNodeList>("ScrambleNodeList");
    declare.property<&C::scrambleLocalVars, &C::setScrambleLocalVars>("ScrambleLocalVars");
    declare.property<&C::introducePointers, &C::setIntroducePointers>("IntroducePointers");
    declare.property<&C::scalarVarPointerizationThresh, &C::setScalarVarPointerizationThresh>(
        "ScalarVarPointerizationThreshold");
    declare.property<&C::aggregateVarPointerizationThresh, &C::setAggregateVarPointerizationThresh>(
        "AggregateVarPointerizationThresh");
    declare.property<&C::verbose, &C::setVerbose>("Verbose");
    declare.method<&C::hello>("hello");
    declare.method<&C::resetScrambleCount>("ResetScrambleCount");
    declare.method<&C::randomSeed>("RandomSeed");
}

} // namespace quarn_vi::debug
