// What a service remembers between prepass() and postpass(). A transform may run another one inside
// its own run, so there can be several; the latest closes first.
#pragma once

#include <qn/transform_run.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace QN::detail {

template <typename T>
class OpenRuns {
public:
    /// Begins a run; what is to be remembered goes into the result, which holds until the next
    /// call.
    T& open(const TransformRun& run) { return stack_.emplace_back(run.id()).remembered; }
    void open(const TransformRun& run, T remembered) { open(run) = std::move(remembered); }
    /// Number of runs that are under way.
    [[nodiscard]] std::size_t depth() const noexcept { return stack_.size(); }

    /// What open() was given for this run; nothing if the service was not there at its start. Runs
    /// inside it that never closed are forgotten.
    std::optional<T> close(const TransformRun& run) {
        for (std::size_t i = stack_.size(); i-- > 0;) {
            if (stack_[i].id == run.id()) {
                std::optional<T> remembered(std::move(stack_[i].remembered));
                stack_.erase(stack_.begin() + static_cast<std::ptrdiff_t>(i), stack_.end());
                return remembered;
            }
        }
        return std::nullopt;
    }

    void clear() noexcept { stack_.clear(); }

private:
    struct Open {
        explicit Open(std::uint64_t run) : id(run) {}
        std::uint64_t id = 0;
        T remembered{};
    };
    std::vector<Open> stack_;
};

} // namespace QN::detail
