// A feature flag: a process-wide switch that a library exports by pointer and that turns one of
// its features on or off. It differs from a testing hook in purpose only: a feature is meant for
// users, a hook for tests, and the two types keep them from being mixed up.
//
// Owner: the library that exports the feature owns it for the life of the process. One thread only.
#pragma once

#include <ts/switch_changes.hpp>

#include <cstdint>

class TsFeature {
public:
    /// A feature that starts with `value`; zero is off, anything else is on.
    constexpr explicit TsFeature(std::int32_t value = 0) noexcept : value_(value) {}

    /// The value, zero for off. Every read raises the query counter by one.
    std::int32_t value() noexcept {
        ++queryCount_;
        return value_;
    }

    /// Whether the feature is on; counts as a query.
    bool isOn() noexcept { return value() != 0; }

    /// How often the feature has been queried. Wraps at 2^32. Reading the counter is not counted.
    [[nodiscard]] std::uint32_t queryCount() const noexcept { return queryCount_; }

    /// Sets the value from native code; returns the value that it replaces. Not counted as a query.
    int setFeatValFromC(int value) noexcept {
        const int old = value_;
        value_ = value;
        tssv::detail::switchChanges += value != old ? 1 : 0;
        return old;
    }

private:
    std::int32_t value_;
    std::uint32_t queryCount_ = 0;
};
