// The changes that the scrambler makes, one function each. All keep the IR valid and every result
// as it is, and are n log n in what they look at.
#pragma once

#include <qn/cfg.hpp>

#include <cstdint>
#include <string_view>
#include <vector>

namespace QN::detail {

/// The same numbers for the same start on every machine; SplitMix64.
class Random {
public:
    explicit Random(std::uint64_t start) noexcept : state_(start) {}

    std::uint64_t next() noexcept {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    /// A number from 0 to below `limit`, which is not 0. The bias is limit / 2^64.
    std::uint64_t below(std::uint64_t limit) noexcept { return next() % limit; }

private:
    std::uint64_t state_;
};

/// A number that depends on every byte; FNV-1a.
[[nodiscard]] constexpr std::uint64_t hashOf(std::string_view text,
                                             std::uint64_t start = 0xCBF29CE484222325) noexcept {
    for (const char c : text) {
        start = (start ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return start;
}

/// Puts the nodes of a block into a random order in which each still follows what it depends on.
/// Returns whether the order is another one. `addressTaken` tells by variable id whether there is a
/// pointer to it.
bool reorderNodes(Cfg& cfg, Block& block, const std::vector<bool>& addressTaken, Random& random);

/// Declares the variables that are no parameters in a random order; returns whether it is another.
bool permuteLocals(Cfg& cfg, Random& random);

/// By variable id: whether its address is taken.
[[nodiscard]] std::vector<bool> findAddressTaken(const Cfg& cfg);

/// Whether introducePointer() would change something.
[[nodiscard]] bool canIntroducePointer(const Var& var);

/// Makes every access to `var` go through a pointer that a new temporary holds.
void introducePointer(Cfg& cfg, Var& var);

} // namespace QN::detail
