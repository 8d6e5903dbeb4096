// Arrays of script objects. All indices count from 0 in linear (column) order.
#pragma once

#include <hv/array.hpp>
#include <objsys/interface.hpp>
#include <objsys/name_id.hpp>

#include <cstddef>

/// A rows by columns object array of the class with that full name, its elements empty (null); the
/// caller gets one reference. Raises "varnix:undefined" when there is no such class.
hvArray* omCreateOBJSYSMatrix(std::size_t rows, std::size_t columns, objsys::COSNameID className);

/// Element `index` of an object array, still owned by the array; null when the array is null or no
/// object array, when the index is out of range, or when the element is empty.
inline objsys::COSInterface* omGetArrayElement(const hvArray* array, std::size_t index) {
    if (array && array->isHandle()) [[likely]]
        return index == 0 ? objsys::COSInterface::ofHandle(array) : nullptr;
    if (!array || array->classID != hvOBJECT_CLASS)
        return nullptr;
    return index < array->count() ? array->objects()[index] : nullptr;
}

/// The same under the name that constructors use.
inline objsys::COSInterface* cosiGetArrayElement(const hvArray* array, std::size_t index) {
    return omGetArrayElement(array, index);
}

/// Stores an instance (null empties the element) and adds a reference to it for the array. The
/// array must be an object array made by omCreateOBJSYSMatrix that nobody shares. Raises
/// "varnix:badIndex" for an index outside it.
void omSetArrayElement(hvArray* array, std::size_t index, objsys::COSInterface* element);

/// Gives the array the most derived class that all its elements have in common and marks it as
/// heterogeneous where they differ. An empty array, and one whose elements share its class
/// already, stays as it is.
void omSetClassOfHeterogeneousArray(hvArray* array);
