// The moment at which the pools of the process held the most memory.
//
// Owner: a plain value; copies are free of what they were copied from.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace QN {

class PoolHighWaterMark {
public:
    /// No mark yet: empty texts and zero.
    PoolHighWaterMark() = default;
    PoolHighWaterMark(std::string when, std::string scopeFlavor, std::string transformName,
                      std::string functionName, std::uint64_t poolMaxAllocated)
        : when_(std::move(when)), scopeFlavor_(std::move(scopeFlavor)),
          transformName_(std::move(transformName)), functionName_(std::move(functionName)),
          poolMaxAllocated_(poolMaxAllocated) {}

    /// "before run N", "during run N" or "after run N", N as in the transform log.
    [[nodiscard]] const std::string& when() const noexcept { return when_; }
    /// "global", "session" or "unit".
    [[nodiscard]] const std::string& scopeFlavor() const noexcept { return scopeFlavor_; }
    [[nodiscard]] const std::string& transformName() const noexcept { return transformName_; }
    /// The function, or for a run over a scope the scope's name.
    [[nodiscard]] const std::string& functionName() const noexcept { return functionName_; }
    /// Bytes that all pools held together.
    [[nodiscard]] std::uint64_t poolMaxAllocated() const noexcept { return poolMaxAllocated_; }

private:
    std::string when_;
    std::string scopeFlavor_;
    std::string transformName_;
    std::string functionName_;
    std::uint64_t poolMaxAllocated_ = 0;
};

} // namespace QN
