// A testing hook: a process-wide switch that a library exports by pointer, so that a test or a
// debugging session can change how the library behaves without a rebuild.
//
// Owner: the library that exports the hook owns it for the life of the process. Plain variables on
// purpose: hooks are read and written on one thread only.
#pragma once

#include <ts/switch_changes.hpp>

#include <cstdint>

class TsTestingHook {
public:
    /// A hook that starts with `value`; zero is off, anything else is on.
    constexpr explicit TsTestingHook(std::int32_t value = 0) noexcept : value_(value) {}

    /// The value, zero for off. Every read is counted, so that a test can prove that the code
    /// which the hook guards has been reached.
    std::int32_t value() noexcept {
        ++useCount_;
        return value_;
    }

    /// Whether the hook is on; counts as a read.
    bool isOn() noexcept { return value() != 0; }

    /// How often the hook has been read. Wraps at 2^32. Reading the counter is not counted.
    [[nodiscard]] std::uint32_t useCount() const noexcept { return useCount_; }

    /// Sets the value from native code; returns the value that it replaces. Not counted as a read.
    int setHookValFromC(int value) noexcept {
        const int old = value_;
        value_ = value;
        tssv::detail::switchChanges += value != old ? 1 : 0;
        return old;
    }

private:
    std::int32_t value_;
    std::uint32_t useCount_ = 0;
};
