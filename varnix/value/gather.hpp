// Making an array from chosen elements of another one, of any class. Inside the host only.
#pragma once

#include "value/numeric.hpp"
#include "value/positions.hpp"

#include <objsys/object_array.hpp>

namespace varnix {

/// A rows by columns array of x's class whose element (i, j) is element place(i, j) of x, places
/// counted from 0 and inside x. Not for structs and functions. Raises "varnix:tooLarge".
template <class F>
[[nodiscard]] Value gather(const Value& x, std::size_t rows, std::size_t columns, F&& place) {
    const numeric::ArrayHolder from(x.toArray());
    numeric::ArrayHolder result(newArray(from->classID, rows, columns));
    result->objectClass = from->objectClass;
    const auto copy = [&]<class T>(T) {
        const T* in = elements<T>(from.get());
        T* out = elements<T>(result.get());
        for (std::size_t j = 0; j < columns; ++j)
            for (std::size_t i = 0; i < rows; ++i)
                *out++ = in[place(i, j)];
    };
    switch (elementSize(from->classID)) {
    case 1:
        copy(std::uint8_t{});
        break;
    case 2:
        copy(std::uint16_t{});
        break;
    case 4:
        copy(std::uint32_t{});
        break;
    default:
        copy(std::uint64_t{});
        break;
    }
    indexing::retainElements(result.get(), 0, rows * columns);
    if ((from->flags & hvArray::Heterogeneous) != 0)
        omSetClassOfHeterogeneousArray(result.get());
    return Value::fromArray(result.release());
}

} // namespace varnix
