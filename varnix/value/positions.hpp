// What an index list means for an array of a given size. Inside value/ only.
#pragma once

#include "value/index.hpp"
#include "value/numeric.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace varnix::indexing {

/// The places that one index names along one dimension (or along all elements), from 0.
class Positions {
public:
    /// Everything along an extent.
    static Positions all(std::size_t extent) {
        Positions p;
        p.rows = p.count = p.limit = extent;
        return p;
    }
    [[nodiscard]] std::size_t at(std::size_t i) const { return list.empty() ? first + i : list[i]; }

    std::size_t count = 0;
    std::size_t limit = 0; ///< one more than the greatest place
    std::size_t rows = 0;  ///< shape of the index; a colon is a column
    std::size_t columns = 1;
    std::size_t first = 0;         ///< places first, first + 1, ... where `list` is empty
    std::vector<std::size_t> list; ///< the places one by one
};

/// Resolves an index; a colon stands for `extent` places. Raises "varnix:badIndex" for what is no
/// whole number from 1, "varnix:wrongType" for what is no index. Does not look at the upper bound.
[[nodiscard]] Positions resolve(const Index& index, std::size_t extent);
/// The same for reading: raises "varnix:badIndex" for places outside the extent; `what` names the
/// extent: "elements", "rows", "columns".
[[nodiscard]] Positions resolveInside(const Index& index, std::size_t extent, const char* what);

/// The one place (from 0) that a scalar double names, or `nowhere` when it is no plain index
/// inside the extent; the quick way for loops.
inline constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
[[nodiscard]] inline std::size_t quickPosition(const Index& index, std::size_t extent) {
    if (index.colon || index.value.tag() != Tag::Double)
        return nowhere;
    const double d = index.value.asDouble();
    if (!(d >= 1.0 && d <= static_cast<double>(extent)))
        return nowhere;
    const auto place = static_cast<std::size_t>(d);
    return static_cast<double>(place) == d ? place - 1 : nowhere;
}
/// The linear place that one or two scalar doubles name, or `nowhere`.
[[nodiscard]] inline std::size_t quickPlace(const Value& x, std::span<const Index> indices) {
    if (indices.size() == 1)
        return quickPosition(indices[0], x.count());
    if (indices.size() != 2)
        return nowhere;
    const std::size_t row = quickPosition(indices[0], x.rows());
    const std::size_t column = quickPosition(indices[1], x.columns());
    return row == nowhere || column == nowhere ? nowhere : row + column * x.rows();
}

/// Raises "varnix:badIndex" unless there are one or two indices.
void requireOneOrTwo(std::span<const Index> indices);

/// Whether the value is [], which stands for nothing yet: a 0 by 0 double.
[[nodiscard]] inline bool isNothing(const Value& v) {
    return v.isUnset() || (v.classID() == hvDOUBLE_CLASS && v.rows() == 0 && v.columns() == 0);
}

/// Adds references for the pointers in elements from..from+n of a cell or object array.
void retainElements(hvArray* array, std::size_t from, std::size_t n);

/// Whether objects of two arrays may stand in one: the same class, or both derived from
/// varnix.mixin.Heterogeneous.
[[nodiscard]] bool mayJoin(const hvArray* a, const hvArray* b);

} // namespace varnix::indexing
