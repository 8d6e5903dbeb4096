// The host's inside view of arrays: making uninitialised ones, copying, and the records behind
// structs and functions.
#pragma once

#include "value/small_heap.hpp"
#include "value/value.hpp"

#include <hv/detail/array_layout.hpp>
#include <objsys/name_id.hpp>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace varnix {

/// Most bytes that the elements of one array may take; more is "varnix:tooLarge".
inline constexpr std::size_t maxArrayBytes = std::size_t{1} << 33;

/// Bytes of one element in an array of that class (pointers for cells and objects).
[[nodiscard]] std::size_t elementSize(hvClassID id);
/// The class's name for scripts: "double", "logical", "char", "cell", "int32", "struct",
/// "function"; objects answer by their class instead.
[[nodiscard]] const char* className(hvClassID id);
/// The class name of any value, for objects the full name of their class.
[[nodiscard]] std::string className(const Value& value);

/// A new array with one reference, its elements not yet set (cells and objects: null).
/// Raises "varnix:tooLarge".
[[nodiscard]] hvArray* newArray(hvClassID id, std::size_t rows, std::size_t columns);

/// From the start of an array's memory to the elements that follow its header.
inline constexpr std::size_t headerBytes = (sizeof(hvArray) + 15) / 16 * 16;

/// A new array with one reference and that many bytes of elements behind its header, none of them
/// set; `bytes` must fit the class and the dimensions. Throws std::bad_alloc.
[[nodiscard]] inline hvArray* newHeader(hvClassID id, std::size_t rows, std::size_t columns,
                                        std::size_t bytes) {
    void* const memory = heap::take(headerBytes + bytes);
    return new (memory)
        hvArray{1, id, 0, 0, nullptr, rows, columns, static_cast<char*>(memory) + headerBytes};
}

/// A new 1 by N text with one reference, its characters not yet set. Raises "varnix:tooLarge".
[[nodiscard]] hvArray* newLongText(std::size_t length);
[[nodiscard]] inline hvArray* newText(std::size_t length) {
    return length <= heap::mostPooled - headerBytes ? newHeader(hvCHAR_CLASS, 1, length, length)
                                                    : newLongText(length);
}

/// A copy with one reference: elements copied, cells shared. Not for handles.
[[nodiscard]] hvArray* copyArray(const hvArray* array);

template <class T>
[[nodiscard]] T* elements(hvArray* array) {
    return static_cast<T*>(array->data);
}
template <class T>
[[nodiscard]] const T* elements(const hvArray* array) {
    return static_cast<const T*>(array->data);
}

/// The record behind a struct value: fields in the order in which they were added. Structs are
/// always 1 by 1.
struct StructRecord {
    std::vector<std::pair<objsys::COSNameID, Value>> fields;

    [[nodiscard]] Value* find(objsys::COSNameID name);
    [[nodiscard]] const Value* find(objsys::COSNameID name) const;
    /// The field's place, made at the end when it is new.
    Value& place(objsys::COSNameID name);
};
[[nodiscard]] inline StructRecord& structOf(hvArray* array) {
    return *static_cast<StructRecord*>(array->data);
}
[[nodiscard]] inline const StructRecord& structOf(const hvArray* array) {
    return *static_cast<const StructRecord*>(array->data);
}
/// A new struct without fields.
[[nodiscard]] Value newStruct();

/// The record behind a function value; the script language derives it.
class FunctionRecord {
public:
    virtual ~FunctionRecord() = default;
    /// As a script would write it: "fn name" or "fn(x) x + 1".
    [[nodiscard]] virtual std::string describe() const = 0;
    /// Whether two function values are the same function with the same captured values.
    [[nodiscard]] virtual bool equals(const FunctionRecord& other) const = 0;
};
[[nodiscard]] inline const FunctionRecord& functionOf(const hvArray* array) {
    return **static_cast<const std::shared_ptr<const FunctionRecord>*>(array->data);
}
[[nodiscard]] Value newFunction(std::shared_ptr<const FunctionRecord> record);

/// Cell `index` as a value; an absent cell is a 0 by 0 double.
[[nodiscard]] Value cellAt(const hvArray* cell, std::size_t index);
/// Sets a cell of an unshared cell array.
void setCell(hvArray* cell, std::size_t index, const Value& value);

/// Element `index` of any array as a value of the same class: a scalar, a one-character text, a
/// 1 by 1 cell, a handle.
[[nodiscard]] Value elementAt(const Value& value, std::size_t index);

} // namespace varnix
