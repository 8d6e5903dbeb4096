// What a service remembers between prepass() and postpass(). A transform may run another one inside
// its own run, so there can be several; the latest closes first.
#pragma once

#include <qn/transform_run.hpp>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace QN::detail {

template <typename T>
class OpenRuns {
public:
    /// Begins a run. What is to be remembered goes into the result, which holds until the next call
    /// and may still have in it what an earlier run has left there.
    T& open(const TransformRun& run) {
        if (depth_ == places_.size()) {
            places_.emplace_back();
        }
        Place& place = places_[depth_++];
        place.run = run.id();
        return place.remembered;
    }
    void open(const TransformRun& run, T remembered) { open(run) = std::move(remembered); }

    /// What was remembered of this run; null if the service was not there at its start. It holds
    /// until the next call of open(). Runs inside it that never closed are forgotten.
    T* close(const TransformRun& run) noexcept {
        for (std::size_t i = depth_; i-- > 0;) {
            if (places_[i].run == run.id()) {
                depth_ = i;
                return &places_[i].remembered;
            }
        }
        return nullptr;
    }

    /// Number of runs that are under way.
    [[nodiscard]] std::size_t depth() const noexcept { return depth_; }
    void clear() noexcept { depth_ = 0; }

private:
    struct Place {
        std::uint64_t run = 0;
        T remembered{};
    };
    std::vector<Place> places_; // never shrinks
    std::size_t depth_ = 0;
};

} // namespace QN::detail
