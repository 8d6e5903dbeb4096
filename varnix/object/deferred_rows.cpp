#include "object/deferred_rows.hpp"

#include <objsys/interface.hpp>

#include <array>
#include <bit>
#include <span>

namespace objsys {

namespace {

constexpr unsigned places = 64;
constinit std::array<hvArray*, places> rows{};
constinit unsigned oldest = 0; ///< the place that is cleared next when all are taken

} // namespace

constinit std::uint64_t DeferredRows::taken_ = 0;

void DeferredRows::note(hvArray* row) noexcept {
    if (taken_ == ~std::uint64_t{0}) {
        count(rows[oldest]);
        oldest = (oldest + 1) % places;
    }
    const auto place = static_cast<unsigned>(std::countr_one(taken_));
    taken_ |= std::uint64_t{1} << place;
    rows[place] = row;
    row->deferred = static_cast<std::uint16_t>(place + 1);
}

void DeferredRows::forget(hvArray* row) noexcept {
    taken_ &= ~(std::uint64_t{1} << (row->deferred - 1U));
    row->deferred = 0;
}

void DeferredRows::count(hvArray* row) noexcept {
    forget(row);
    for (COSInterface* const element : std::span(row->objects(), row->count()))
        ++element->handle()->refs;
}

void DeferredRows::settleAll() noexcept {
    while (taken_ != 0)
        count(rows[static_cast<unsigned>(std::countr_zero(taken_))]);
}

} // namespace objsys
