// Assigning by index: x[i] = e, x[i, j] = e, c{i} = e.
//
// Everything that can fail happens before the first element changes, so an error leaves x as it
// was. An array that grows at its end keeps spare room, so that appending one by one costs
// constant time on average; the room is that of its separate allocation.
#include "object/deferred_rows.hpp"
#include "value/errors.hpp"
#include "value/index.hpp"
#include "value/memory_limit.hpp"
#include "value/ops.hpp"
#include "value/positions.hpp"

#include <objsys/object_array.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <malloc.h>

namespace varnix {
namespace {

using indexing::Positions;

/// The places an assignment goes to, and the size of x afterwards.
struct Target {
    Positions rows; ///< of a linear index: all the places
    Positions columns;
    bool linear = true;
    std::size_t newRows = 0;
    std::size_t newColumns = 0;

    [[nodiscard]] std::size_t count() const {
        return linear ? rows.count : rows.count * columns.count;
    }
    /// Calls f(k, place) for each place in order.
    template <class F>
    void each(F&& f) const {
        if (linear) {
            for (std::size_t k = 0; k < rows.count; ++k)
                f(k, rows.at(k));
            return;
        }
        std::size_t k = 0;
        for (std::size_t j = 0; j < columns.count; ++j)
            for (std::size_t i = 0; i < rows.count; ++i)
                f(k++, rows.at(i) + columns.at(j) * newRows);
    }
};

[[nodiscard]] Target targetOf(const Value& x, std::span<const Index> indices, std::size_t eRows,
                              std::size_t eColumns) {
    indexing::requireOneOrTwo(indices);
    Target t;
    t.linear = indices.size() == 1;
    t.newRows = x.rows();
    t.newColumns = x.columns();
    const bool empty = x.count() == 0;
    if (t.linear) {
        const bool fresh = empty && indices[0].colon && x.rows() == 0 && x.columns() == 0;
        t.rows =
            fresh ? Positions::all(eRows * eColumns) : indexing::resolve(indices[0], x.count());
        if (t.rows.limit > x.count()) {
            if (x.rows() == 1 || (empty && x.columns() != 1)) {
                t.newRows = 1;
                t.newColumns = t.rows.limit;
            } else if (x.columns() == 1) {
                t.newRows = t.rows.limit;
            } else {
                fail(id::badIndex,
                     "index {} is outside {} elements, and a matrix grows only by two indices",
                     t.rows.limit, x.count());
            }
        }
        return t;
    }
    // A colon along a dimension that has no extent yet takes it from what is assigned.
    const auto along = [&](const Index& index, std::size_t extent, std::size_t given) {
        return index.colon && extent == 0 && empty ? Positions::all(given)
                                                   : indexing::resolve(index, extent);
    };
    t.rows = along(indices[0], x.rows(), eRows);
    t.columns = along(indices[1], x.columns(), eColumns);
    t.newRows = std::max(x.rows(), t.rows.limit);
    t.newColumns = std::max(x.columns(), t.columns.limit);
    return t;
}

void requireFit(const Target& t, const Value& e) {
    const std::size_t n = e.count();
    if (n == 1)
        return;
    const bool sameShape = e.rows() == t.rows.count && e.columns() == t.columns.count;
    const bool bothVectors = (t.rows.count == 1 || t.columns.count == 1) &&
                             (e.rows() == 1 || e.columns() == 1) && n == t.count();
    if (t.linear ? n != t.rows.count : !(sameShape || bothVectors))
        fail(id::wrongSize, "{} elements cannot be assigned to {} places", n, t.count());
}

/// e as elements that an array of x's class holds.
[[nodiscard]] Value asElementsOf(const Value& x, const Value& e) {
    const hvClassID id = x.classID();
    if (id == e.classID()) {
        if (x.isObject() && x.count() != 0 && !indexing::mayJoin(x.array(), e.array()))
            fail(id::wrongType, "{} cannot stand in an array of {}", className(e), className(x));
        return e;
    }
    const auto plain = [](const Value& v) { return v.isNumeric() || v.isLogical(); };
    if (!plain(x) || !plain(e) ||
        (numeric::isIntegerClass(id) && numeric::isIntegerClass(e.classID())))
        fail(id::wrongType, "{} cannot be assigned to an element of {}{}", className(e),
             className(x), x.isCell() ? "; braces { } set what a cell holds" : "");
    return convertTo(id, e);
}

void requireRoom(const Value& x, const Target& t) {
    if (t.newColumns != 0 && t.newRows > maxArrayBytes / elementSize(x.classID()) / t.newColumns)
        fail(id::tooLarge, "an array of {} by {} elements is too large", t.newRows, t.newColumns);
}

void requireNoGap(const Value& x, const Target& t) {
    if (!x.isObject() || (t.newRows == x.rows() && t.newColumns == x.columns()))
        return;
    std::vector<bool> filled(t.newRows * t.newColumns);
    for (std::size_t j = 0; j < x.columns(); ++j)
        for (std::size_t i = 0; i < x.rows(); ++i)
            filled[i + j * t.newRows] = true;
    t.each([&](std::size_t, std::size_t place) { filled[place] = true; });
    if (std::find(filled.begin(), filled.end(), false) != filled.end())
        fail(id::badIndex, "an object array cannot grow with a gap");
}

void fillBlank(hvArray* array, std::size_t from, std::size_t to) {
    const std::size_t size = elementSize(array->classID);
    std::memset(static_cast<char*>(array->data) + from * size,
                array->classID == hvCHAR_CLASS ? ' ' : 0, (to - from) * size);
}

/// The memory of `count` elements with spare room behind it.
[[nodiscard]] void* roomFor(void* old, std::size_t bytes) {
    const std::size_t ample = std::min(bytes + bytes / 2 + 64, maxArrayBytes);
    requireMemoryFor(bytes);
    void* memory = std::realloc(old, ample);
    if (!memory)
        fail(id::outOfMemory, "there is no memory for {} bytes", bytes);
    return memory;
}

/// Makes an array that only x holds longer at its end, its elements stay where they are. Returns a
/// reference to the longer array; where that is another one than before, the elements have moved
/// to it and x's is left without them.
[[nodiscard]] hvArray* extend(hvArray* array, std::size_t rows, std::size_t columns) {
    const std::size_t size = elementSize(array->classID);
    const std::size_t bytes = rows * columns * size;
    const std::size_t before = array->count();
    objsys::DeferredRows::settle(array);
    if ((array->flags & hvArray::SeparateData) == 0) {
        numeric::ArrayHolder longer(newArray(array->classID, 0, 0));
        longer->data = roomFor(nullptr, bytes);
        longer->flags = static_cast<std::uint8_t>(hvArray::SeparateData |
                                                  (array->flags & hvArray::Heterogeneous));
        longer->objectClass = array->objectClass;
        std::memcpy(longer->data, array->data, before * size);
        if (array->classID == hvCELL_CLASS || array->classID == hvOBJECT_CLASS)
            std::memset(array->data, 0, before * size);
        array = longer.release();
    } else {
        if (malloc_usable_size(array->data) < bytes)
            array->data = roomFor(array->data, bytes);
        hvShareArray(array);
    }
    array->rows = rows;
    array->columns = columns;
    fillBlank(array, before, rows * columns);
    return array;
}

/// A grown copy; x stays.
[[nodiscard]] hvArray* grownCopy(const hvArray* array, std::size_t rows, std::size_t columns) {
    hvArray* copy = newArray(array->classID, rows, columns);
    copy->objectClass = array->objectClass;
    copy->flags = static_cast<std::uint8_t>(array->flags & hvArray::Heterogeneous);
    fillBlank(copy, 0, rows * columns);
    const std::size_t size = elementSize(array->classID);
    for (std::size_t j = 0; j < array->columns; ++j)
        std::memcpy(static_cast<char*>(copy->data) + j * rows * size,
                    static_cast<const char*>(array->data) + j * array->rows * size,
                    array->rows * size);
    indexing::retainElements(copy, 0, copy->count());
    return copy;
}

/// A reference to x's elements, not shared with anyone but x, in the new size; the caller writes to
/// them and then assigns them to x. What can fail here fails before x has changed.
[[nodiscard]] hvArray* takeForWriting(Value& x, std::size_t rows, std::size_t columns) {
    const bool grows = rows != x.rows() || columns != x.columns();
    if (x.tag() != Tag::Array) { // a scalar or a handle
        const numeric::ArrayHolder box(x.toArray());
        return grownCopy(box.get(), rows, columns);
    }
    if (!grows)
        return hvShareArray(x.unshare());
    const bool atEnd = rows == x.rows() || (x.columns() == 1 && columns == 1);
    const bool moderate = x.count() != 0 && rows * columns <= 2 * x.count() + 16;
    return x.array()->refs == 1 && atEnd && moderate ? extend(x.array(), rows, columns)
                                                     : grownCopy(x.array(), rows, columns);
}

void replaceElement(hvArray* array, std::size_t place, const hvArray* from, std::size_t k) {
    if (array->classID == hvCELL_CLASS) {
        hvArray* held = hvShareArray(from->cells()[k]);
        hvDestroyArray(std::exchange(array->cells()[place], held));
    } else {
        objsys::COSInterface* element = from->objects()[k];
        if (element)
            hvShareArray(element->handle());
        if (objsys::COSInterface* old = std::exchange(array->objects()[place], element))
            hvDestroyArray(old->handle());
    }
}

void writeElements(hvArray* array, const Target& t, const hvArray* from) {
    const std::size_t step = from->count() == 1 ? 0 : 1;
    const std::size_t size = elementSize(array->classID);
    if (array->classID == hvCELL_CLASS || array->classID == hvOBJECT_CLASS) {
        t.each([&](std::size_t k, std::size_t place) {
            replaceElement(array, place, from, k * step);
        });
        return;
    }
    const char* in = static_cast<const char*>(from->data);
    char* out = static_cast<char*>(array->data);
    t.each([&](std::size_t k, std::size_t place) {
        std::memcpy(out + place * size, in + k * step * size, size);
    });
}

/// What x starts as when it holds nothing yet: an empty array of e's class.
[[nodiscard]] Value startFor(const Value& e) {
    hvArray* array = newArray(e.classID(), 0, 0);
    if (e.isObject())
        array->objectClass = e.array()->objectClass;
    return Value::fromArray(array);
}

/// Structs and functions do not form arrays: only the one element can be replaced.
void assignSingle(Value& x, std::span<const Index> indices, const Value& e) {
    if (!indexing::isNothing(x) && x.classID() != e.classID())
        fail(id::wrongType, "{} cannot be assigned to an element of {}", className(e),
             className(x));
    indexing::requireOneOrTwo(indices);
    for (const Index& index : indices)
        if (const Positions p = indexing::resolve(index, 1); p.count != 1 || p.limit != 1)
            fail(id::wrongType, "{} values do not form arrays; keep them in a cell",
                 className(e.classID()));
    x = Value(e);
}

/// x[i] = e for a plain place in an unshared array of e's own class.
[[nodiscard]] bool assignQuick(Value& x, std::span<const Index> indices, const Value& e) {
    if (x.tag() != Tag::Array || !e.isScalar() || x.array()->classID != e.classID() ||
        x.array()->refs != 1)
        return false;
    const std::size_t place = indexing::quickPlace(x, indices);
    if (place == indexing::nowhere)
        return false;
    if (e.tag() == Tag::Double)
        elements<double>(x.array())[place] = e.asDouble();
    else
        numeric::withElementType(e.classID(), [&]<class T>(T) {
            if constexpr (!std::is_same_v<T, double>)
                elements<T>(x.array())[place] = static_cast<T>(e.asUnsigned());
        });
    return true;
}

} // namespace

void assignIndex(Value& x, std::span<const Index> indices, const Value& e) {
    if (assignQuick(x, indices, e))
        return;
    if (e.isUnset())
        fail(id::wrongType, "there is no value to assign");
    if (e.isStruct() || e.isFunction() || x.isStruct() || x.isFunction())
        return assignSingle(x, indices, e);
    const bool fresh = indexing::isNothing(x) && !indexing::isNothing(e);
    Value start;
    if (fresh || x.isUnset())
        start = startFor(e);
    const Value& before = start.isUnset() ? x : start;
    const Value source = asElementsOf(before, e);
    const Target target = targetOf(before, indices, source.rows(), source.columns());
    requireFit(target, source);
    requireRoom(before, target); // before memory is used in proportion
    requireNoGap(before, target);
    const numeric::ArrayHolder from(source.toArray());
    if (!start.isUnset()) {
        hvArray* array = takeForWriting(start, target.newRows, target.newColumns);
        writeElements(array, target, from.get());
        x = Value::fromArray(array);
        return;
    }
    const bool mixed = x.isObject() && x.array()->objectClass != source.array()->objectClass;
    hvArray* array = takeForWriting(x, target.newRows, target.newColumns);
    writeElements(array, target, from.get());
    if (mixed)
        omSetClassOfHeterogeneousArray(array);
    x = Value::fromArray(array);
}

void assignCell(Value& x, std::span<const Index> indices, const Value& e) {
    if (e.isUnset())
        fail(id::wrongType, "there is no value to assign");
    if (!x.isCell() && !indexing::isNothing(x))
        fail(id::wrongType, "only a cell array takes an index in braces, not {}", className(x));
    const Value held(e); // another holder where e is x itself, which must not come to hold itself
    if (x.isCell() && x.array()->refs == 1)
        if (const std::size_t place = indexing::quickPlace(x, indices);
            place != indexing::nowhere) {
            setCell(x.array(), place, held);
            return;
        }
    Value start;
    if (!x.isCell())
        start = Value::fromArray(newArray(hvCELL_CLASS, 0, 0));
    Value& cells = x.isCell() ? x : start;
    const Target target = targetOf(cells, indices, 1, 1);
    if (target.count() != 1)
        fail(id::badIndex, "an index in braces must name one cell, not {}", target.count());
    requireRoom(cells, target);
    numeric::ArrayHolder box(held.toArray());
    hvArray* array = takeForWriting(cells, target.newRows, target.newColumns);
    target.each([&](std::size_t, std::size_t place) {
        hvDestroyArray(std::exchange(array->cells()[place], box.release()));
    });
    x = Value::fromArray(array);
}

} // namespace varnix
