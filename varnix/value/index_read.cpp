// Reading by index: x[i], x[i, j], c{i}, and what `end` stands for.
#include "value/errors.hpp"
#include "value/gather.hpp"
#include "value/index.hpp"
#include "value/positions.hpp"

namespace varnix {
namespace {

using indexing::Positions;

/// The size of x[p]: a vector keeps its direction under a vector of indices.
[[nodiscard]] std::pair<std::size_t, std::size_t> linearShape(const Value& x, const Index& index,
                                                              const Positions& p) {
    const bool indexIsVector = p.rows == 1 || p.columns == 1;
    if (!index.colon && indexIsVector && x.count() != 1) {
        if (x.rows() == 1)
            return {1, p.count};
        if (x.columns() == 1)
            return {p.count, 1};
    }
    return {p.rows, p.columns};
}

Value readLinear(const Value& x, const Index& index) {
    const Positions p = indexing::resolveInside(index, x.count(), "elements");
    const auto [rows, columns] = linearShape(x, index, p);
    const std::size_t m = rows;
    return gather(x, rows, columns, [&](std::size_t i, std::size_t j) { return p.at(i + j * m); });
}

Value readMatrix(const Value& x, std::span<const Index> indices) {
    const std::size_t m = x.rows();
    const Positions r = indexing::resolveInside(indices[0], m, "rows");
    const Positions c = indexing::resolveInside(indices[1], x.columns(), "columns");
    return gather(x, r.count, c.count,
                  [&](std::size_t i, std::size_t j) { return r.at(i) + c.at(j) * m; });
}

/// Structs and functions stand alone: only the index 1 reads them.
Value readSingle(const Value& x, std::span<const Index> indices) {
    if (x.isFunction())
        fail(id::wrongType, "a function takes no index; call it with ( )");
    for (const Index& index : indices)
        if (indexing::resolveInside(index, 1, "elements").count != 1)
            fail(id::badIndex, "a struct is one element; the index must name it");
    return x;
}

[[nodiscard]] Value quickScalar(const hvArray* array, std::size_t place) {
    return numeric::withElementType(array->classID, [&]<class T>(T) {
        return numeric::scalarOf<T>(elements<T>(array)[place]);
    });
}

} // namespace

Value indexValue(const Value& x, std::span<const Index> indices) {
    if (const std::size_t place = indexing::quickPlace(x, indices); place != indexing::nowhere) {
        if (!x.isCounted())
            return x;
        if (x.isNumeric() || x.isLogical())
            return quickScalar(x.array(), place);
        return elementAt(x, place);
    }
    indexing::requireOneOrTwo(indices);
    if (x.isUnset())
        fail(id::wrongType, "there is no value to take an index of");
    if (x.isStruct() || x.isFunction())
        return readSingle(x, indices);
    return indices.size() == 1 ? readLinear(x, indices[0]) : readMatrix(x, indices);
}

Value indexCell(const Value& x, std::span<const Index> indices) {
    if (!x.isCell())
        fail(id::wrongType, "only a cell array takes an index in braces, not {}",
             x.isUnset() ? "nothing" : className(x));
    const std::size_t quick = indexing::quickPlace(x, indices);
    if (quick != indexing::nowhere)
        return cellAt(x.array(), quick);
    indexing::requireOneOrTwo(indices);
    std::size_t place = 0;
    std::size_t count = 1;
    std::size_t stride = 1;
    for (std::size_t k = 0; k < indices.size(); ++k) {
        const bool linear = indices.size() == 1;
        const std::size_t extent = linear ? x.count() : (k == 0 ? x.rows() : x.columns());
        const Positions p = indexing::resolveInside(
            indices[k], extent, linear ? "cells" : (k == 0 ? "rows" : "columns"));
        count *= p.count;
        if (p.count == 1)
            place += p.at(0) * stride;
        stride = x.rows();
    }
    if (count != 1)
        fail(id::badIndex, "an index in braces must name one cell, not {}", count);
    return cellAt(x.array(), place);
}

std::size_t endOf(const Value& x, std::size_t which, std::size_t total) {
    if (total == 1)
        return x.count();
    return which == 0 ? x.rows() : (which == 1 ? x.columns() : 1);
}

} // namespace varnix
