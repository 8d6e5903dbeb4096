// A short sequence of values handed from a module to the host.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace objsys {

/// An ordered list of T, walked once by the receiver. Pointers in it are not owned.
template <class T>
class Enumeration {
public:
    Enumeration() = default;
    explicit Enumeration(std::vector<T> items) : items_(std::move(items)) {}

    [[nodiscard]] bool hasMore() const { return next_ < items_.size(); }
    /// The next item; call only while hasMore().
    [[nodiscard]] T next() { return items_[next_++]; }
    [[nodiscard]] std::size_t size() const { return items_.size(); }

private:
    std::vector<T> items_;
    std::size_t next_ = 0;
};

} // namespace objsys
