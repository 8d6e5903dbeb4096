// Fetching the graphs of a scope into the processor's cache while the ones before them are worked
// on. A scope with many small functions lies far from the processor, and every walk of a graph
// would wait for one link after the other.
//
// For who walks all functions of a scope in order: fetchAhead() before each, what it gives while
// the function is walked.
#pragma once

#include <qn/scope.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace QN::detail {

/// The memory of a graph that will be walked soon, for who fetches it a little at a time while he
/// walks another. Asked for all at once, the processor stands still until it has taken note of the
/// last.
class Upcoming {
public:
    Upcoming() noexcept = default;
    /// Reads nothing but the graph itself.
    explicit Upcoming(const Cfg& graph) noexcept : pool_(&graph.pool()) { goOn(); }

    [[nodiscard]] bool empty() const noexcept { return next_ == end_; }
    /// Fetches two lines, if there is anything left.
    void fetchSome() noexcept {
        if (empty()) {
            return;
        }
        __builtin_prefetch(reinterpret_cast<const void*>(next_));
        __builtin_prefetch(reinterpret_cast<const void*>(next_ + line));
        if (end_ - next_ > 2 * line) {
            next_ += 2 * line;
        } else {
            goOn();
        }
    }
    void fetchRest() noexcept {
        while (!empty()) {
            fetchSome();
        }
    }

private:
    static constexpr std::size_t line = 64;

    // To the next chunk, if it has one.
    void goOn() noexcept {
        constexpr std::size_t most = 2048; // more would push itself out again
        next_ = end_ = 0;
        if (chunk_ < pool_->numFirst()) {
            const std::span<const std::byte> chunk = pool_->first(chunk_++);
            next_ = reinterpret_cast<std::uintptr_t>(chunk.data());
            end_ = next_ + std::min(chunk.size(), most);
        }
    }

    const Pool* pool_ = nullptr;
    std::size_t chunk_ = 0; // the next one
    std::uintptr_t next_ = 0;
    std::uintptr_t end_ = 0;
};

/// Each function comes in steps, as one has to be there to know where the next lies: itself, its
/// graph, then the graph's memory. That of the next function is returned, for the caller to fetch
/// while he works on function `i`.
inline Upcoming fetchAhead(const std::vector<std::unique_ptr<Function>>& functions, std::size_t i) {
    constexpr std::size_t line = 64;
    const auto fetch = [](const auto* object) {
        for (std::size_t at = 0; at < sizeof *object; at += line) {
            __builtin_prefetch(reinterpret_cast<const char*>(object) + at);
        }
    };
    const auto graphOf = [&](std::size_t index) -> const Cfg* {
        return index < functions.size() && functions[index] != nullptr && functions[index]->hasCfg()
                   ? &functions[index]->cfg()
                   : nullptr;
    };
    if (i + 4 < functions.size()) {
        fetch(functions[i + 4].get());
    }
    if (const Cfg* const graph = graphOf(i + 3); graph != nullptr) {
        fetch(graph);
    }
    if (const Cfg* const graph = graphOf(i + 2); graph != nullptr) {
        __builtin_prefetch(functions[i + 2]->paramTypes().data());
    }
    const Cfg* const next = graphOf(i + 1);
    return next == nullptr ? Upcoming() : Upcoming(*next);
}

} // namespace QN::detail
