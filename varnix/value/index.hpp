// Indexing, assignment by index, and joining.
//
// An index is a number, an array of numbers, a logical array, or a colon for everything. Indices
// count from 1. Reading outside is "varnix:badIndex"; assigning outside grows the array, filling
// with zeros (texts with blanks, cells with absent cells); a gap cannot open in an object array.
#pragma once

#include "value/value.hpp"

#include <span>

namespace varnix {

/// One index of an index list.
struct Index {
    bool colon = false; ///< `:`, then `value` is not used
    Value value;
};

/// x[i] or x[i, j]: a part of x, of the same class.
[[nodiscard]] Value indexValue(const Value& x, std::span<const Index> indices);
/// c{i}: what one cell holds; raises "varnix:wrongType" when x is no cell array and
/// "varnix:badIndex" unless the indices name exactly one cell.
[[nodiscard]] Value indexCell(const Value& x, std::span<const Index> indices);
/// x[i] = e, in place where x's array is not shared. An Unset x starts as an empty array of e's
/// class. x stays as it was when an error is raised.
void assignIndex(Value& x, std::span<const Index> indices, const Value& e);
/// x{i} = e. An Unset x starts as an empty cell array.
void assignCell(Value& x, std::span<const Index> indices, const Value& e);
/// The number that `end` stands for: position `which` (from 0) of `total` indices into x.
[[nodiscard]] std::size_t endOf(const Value& x, std::size_t which, std::size_t total);

/// [a, b] and [a; b].
[[nodiscard]] Value joinHorizontally(std::span<const Value> parts);
[[nodiscard]] Value joinVertically(std::span<const Value> parts);

} // namespace varnix
