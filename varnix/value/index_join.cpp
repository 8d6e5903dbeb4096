// Joining: [a, b] and [a; b].
//
// [] (0 by 0) vanishes from every join; a 0 by 0 part of another class has no elements either but
// its class counts, so that text and number do not mix unseen.
#include "value/errors.hpp"
#include "value/index.hpp"
#include "value/ops.hpp"
#include "value/positions.hpp"

#include <objsys/object_array.hpp>

#include <cstring>

namespace varnix {
namespace {

[[nodiscard]] bool isFlat(hvClassID id) {
    return id == hvDOUBLE_CLASS || id == hvLOGICAL_CLASS || numeric::isIntegerClass(id);
}

[[noreturn]] void failMix(const Value& a, const Value& b) {
    fail(id::wrongType, "{} and {} cannot be joined", className(a), className(b));
}

/// The class of the joined array.
[[nodiscard]] hvClassID joinedClass(std::span<const Value> parts) {
    const Value* first = nullptr;
    hvClassID result = hvUNKNOWN_CLASS;
    for (const Value& part : parts) {
        if (part.isUnset())
            fail(id::wrongType, "there is no value to join");
        if (indexing::isNothing(part))
            continue;
        const hvClassID id = part.classID();
        if (!first) {
            first = &part;
            result = id;
        } else if (id != result) {
            if (!isFlat(id) || !isFlat(result))
                failMix(*first, part);
            if (numeric::isIntegerClass(id) && numeric::isIntegerClass(result))
                fail(id::wrongType, "two different integer types, {} and {}, cannot be joined",
                     className(result), className(id));
            result = numeric::isIntegerClass(result) ? result
                     : numeric::isIntegerClass(id)   ? id
                                                     : hvDOUBLE_CLASS;
        } else if (id == hvSTRUCT_CLASS || id == hvFUNCTION_CLASS) {
            fail(id::wrongType, "{} values do not form arrays; keep them in a cell", className(id));
        } else if (id == hvOBJECT_CLASS && !indexing::mayJoin(first->array(), part.array())) {
            failMix(*first, part);
        }
    }
    return first ? result : hvDOUBLE_CLASS;
}

[[nodiscard]] bool vanishes(const Value& part) {
    return part.rows() == 0 && part.columns() == 0;
}

/// The size of the result in both directions; `along` is the one that adds up.
struct Extent {
    std::size_t along = 0;
    std::size_t across = 0;
};

[[nodiscard]] Extent extentOf(std::span<const Value> parts, bool horizontal) {
    Extent result;
    const Value* first = nullptr;
    for (const Value& part : parts) {
        if (vanishes(part))
            continue;
        const std::size_t across = horizontal ? part.rows() : part.columns();
        if (!first) {
            first = &part;
            result.across = across;
        } else if (across != result.across) {
            if (first->isChar() && !horizontal)
                fail(id::wrongSize, "texts below each other need the same length, not {} and {}",
                     first->columns(), part.columns());
            fail(id::wrongSize, "{} and {} cannot be joined {}", numeric::sizeText(*first),
                 numeric::sizeText(part), horizontal ? "side by side" : "below each other");
        }
        if (__builtin_add_overflow(result.along, horizontal ? part.columns() : part.rows(),
                                   &result.along))
            fail(id::tooLarge, "the joined array is too large");
    }
    return result;
}

/// Copies a part into the result, its first element going to (row, column).
void place(hvArray* to, const hvArray* from, std::size_t row, std::size_t column) {
    const std::size_t size = elementSize(to->classID);
    for (std::size_t j = 0; j < from->columns; ++j)
        std::memcpy(static_cast<char*>(to->data) + ((column + j) * to->rows + row) * size,
                    static_cast<const char*>(from->data) + j * from->rows * size,
                    from->rows * size);
}

Value joinScalarDoubles(std::span<const Value> parts, bool horizontal) {
    numeric::ArrayHolder result(
        newArray(hvDOUBLE_CLASS, horizontal ? 1 : parts.size(), horizontal ? parts.size() : 1));
    for (std::size_t i = 0; i < parts.size(); ++i)
        elements<double>(result.get())[i] = parts[i].asDouble();
    return Value::fromArray(result.release());
}

Value join(std::span<const Value> parts, bool horizontal) {
    if (parts.size() == 1 && !parts[0].isUnset())
        return parts[0];
    bool plain = !parts.empty();
    for (const Value& part : parts)
        plain = plain && part.tag() == Tag::Double;
    if (plain)
        return joinScalarDoubles(parts, horizontal);

    const hvClassID id = joinedClass(parts);
    const Extent extent = extentOf(parts, horizontal);
    const Value* only = nullptr; // the one part that counts, which is the result as it is
    std::size_t counted = 0;
    for (const Value& part : parts)
        if (!vanishes(part)) {
            only = &part;
            ++counted;
        }
    if (counted == 1 && only->classID() == id)
        return *only;

    numeric::ArrayHolder result(newArray(id, horizontal ? extent.across : extent.along,
                                         horizontal ? extent.along : extent.across));
    std::size_t at = 0;
    bool mixed = false;
    for (const Value& part : parts) {
        const bool object = id == hvOBJECT_CLASS && part.isObject();
        if (object) {
            objsys::COSClass* const cls = part.array()->objectClass;
            if (!result->objectClass)
                result->objectClass = cls;
            mixed = mixed || cls != result->objectClass ||
                    (part.array()->flags & hvArray::Heterogeneous) != 0;
        }
        if (vanishes(part))
            continue;
        const Value converted = part.classID() == id ? part : convertTo(id, part);
        const numeric::ArrayHolder from(converted.toArray());
        place(result.get(), from.get(), horizontal ? 0 : at, horizontal ? at : 0);
        at += horizontal ? part.columns() : part.rows();
    }
    indexing::retainElements(result.get(), 0, result->count());
    if (mixed)
        omSetClassOfHeterogeneousArray(result.get());
    return Value::fromArray(result.release());
}

} // namespace

Value joinHorizontally(std::span<const Value> parts) {
    return join(parts, true);
}

Value joinVertically(std::span<const Value> parts) {
    return join(parts, false);
}

} // namespace varnix
