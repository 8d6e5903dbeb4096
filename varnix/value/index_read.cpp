// Reading by index: x[i], x[i, j], c{i}, and what `end` stands for.
#include "value/errors.hpp"
#include "value/index.hpp"
#include "value/positions.hpp"

#include <objsys/object_array.hpp>

#include <cstring>

namespace varnix {
namespace {

using indexing::Positions;

/// Calls f with an unsigned integer as wide as the elements.
template <class F>
void withWidth(std::size_t bytes, F&& f) {
    switch (bytes) {
    case 1:
        return f(std::uint8_t{});
    case 2:
        return f(std::uint16_t{});
    case 4:
        return f(std::uint32_t{});
    default:
        return f(std::uint64_t{});
    }
}

/// A new array like `from` (class, class of objects) of another size; elements not set.
[[nodiscard]] numeric::ArrayHolder likeOf(const hvArray* from, std::size_t rows,
                                          std::size_t columns) {
    numeric::ArrayHolder result(newArray(from->classID, rows, columns));
    result->objectClass = from->objectClass;
    return result;
}

[[nodiscard]] Value finish(numeric::ArrayHolder result, const hvArray* from) {
    if ((from->flags & hvArray::Heterogeneous) != 0)
        omSetClassOfHeterogeneousArray(result.get());
    return Value::fromArray(result.release());
}

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

Value readLinear(const Value& x, const hvArray* from, const Index& index) {
    const Positions p = indexing::resolveInside(index, from->count(), "elements");
    const auto [rows, columns] = linearShape(x, index, p);
    numeric::ArrayHolder result = likeOf(from, rows, columns);
    withWidth(elementSize(from->classID), [&]<class T>(T) {
        const T* in = elements<T>(from);
        T* out = elements<T>(result.get());
        for (std::size_t i = 0; i < p.count; ++i)
            out[i] = in[p.at(i)];
    });
    indexing::retainElements(result.get(), 0, p.count);
    return finish(std::move(result), from);
}

Value readMatrix(const hvArray* from, std::span<const Index> indices) {
    const Positions r = indexing::resolveInside(indices[0], from->rows, "rows");
    const Positions c = indexing::resolveInside(indices[1], from->columns, "columns");
    numeric::ArrayHolder result = likeOf(from, r.count, c.count);
    withWidth(elementSize(from->classID), [&]<class T>(T) {
        const T* in = elements<T>(from);
        T* out = elements<T>(result.get());
        for (std::size_t j = 0; j < c.count; ++j)
            for (std::size_t i = 0; i < r.count; ++i)
                *out++ = in[r.at(i) + c.at(j) * from->rows];
    });
    indexing::retainElements(result.get(), 0, r.count * c.count);
    return finish(std::move(result), from);
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
    const numeric::ArrayHolder from(x.toArray());
    return indices.size() == 1 ? readLinear(x, from.get(), indices[0])
                               : readMatrix(from.get(), indices);
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
