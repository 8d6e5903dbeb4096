// Object arrays whose references to their elements are not counted yet.
//
// Most rows of objects that a module hands out are looked at and dropped. Counting a reference in
// each of their handles, and taking it back, touches every handle twice, which for a thousand
// objects takes longer than all the rest. So such a row is only noted here; its references are
// counted ("settled") when it matters: before a handle dies that a row noted here may hold, and
// before the row is written to. A handle that lives therefore always has a count of at least one.
// Noting, forgetting and settling a row is constant time but for the counting itself, which happens
// at most once in a row's life. The table has a fixed number of places; the oldest row is settled
// when they are all taken. One table for the process, as there is one interpreter thread.
#pragma once

#include <hv/detail/array_layout.hpp>

#include <cstdint>

namespace objsys {

class DeferredRows {
public:
    /// Notes a row that is filled with instances and has counted none of them.
    static void note(hvArray* row) noexcept;
    /// Forgets a noted row that is about to be freed with its references.
    static void forget(hvArray* row) noexcept;
    /// Counts the references of a row if it is noted; then it is an array like any other.
    static void settle(hvArray* array) noexcept {
        if (array->deferred != 0) [[unlikely]]
            count(array);
    }
    /// Whether any row is noted.
    static bool any() noexcept { return taken_ != 0; }
    /// Settles all rows. To be called whenever a handle has lost its last counted reference.
    static void settleAll() noexcept;

private:
    static void count(hvArray* row) noexcept;

    /// A bit for each place. Asked whenever a handle dies, so nobody outside the library may see
    /// it: that would take a look at a table.
    [[gnu::visibility("hidden")]] static std::uint64_t taken_;
};

} // namespace objsys
