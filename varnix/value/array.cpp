// Making, copying and freeing arrays.

#include "value/array.hpp"

#include "object/deferred_rows.hpp"
#include "object/instances.hpp"
#include "value/errors.hpp"
#include "value/memory_limit.hpp"
#include "value/small_heap.hpp"

#include <objsys/class.hpp>

#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

namespace varnix {

namespace {

using FunctionPointer = std::shared_ptr<const FunctionRecord>;

/// Bytes of one element, by hvClassID.
constexpr std::array<std::uint8_t, 16> elementSizes{0,
                                                    sizeof(hvArray*),
                                                    sizeof(double),
                                                    sizeof(bool),
                                                    sizeof(char),
                                                    sizeof(StructRecord),
                                                    sizeof(FunctionPointer),
                                                    sizeof(objsys::COSInterface*),
                                                    1,
                                                    2,
                                                    4,
                                                    8,
                                                    1,
                                                    2,
                                                    4,
                                                    8};

constexpr bool holdsReferences(hvClassID id) {
    constexpr unsigned holding =
        1U << hvCELL_CLASS | 1U << hvOBJECT_CLASS | 1U << hvSTRUCT_CLASS | 1U << hvFUNCTION_CLASS;
    return (holding >> id & 1U) != 0;
}

/// Bytes of the elements that follow the header; records of structs and functions count as one.
std::size_t dataBytes(const hvArray* array) {
    return array->count() * elementSizes[array->classID];
}

/// Releases what an array's elements hold; the references that drop to zero are freed later by the
/// loop in hvFreeUnreferenced, so depth of nesting does not matter.
void releaseElements(hvArray* array) noexcept {
    switch (array->classID) {
    case hvCELL_CLASS:
        for (hvArray* const cell : std::span(array->cells(), array->count()))
            hvDestroyArray(cell);
        break;
    case hvOBJECT_CLASS:
        if (array->deferred != 0) {
            objsys::DeferredRows::forget(array);
            break;
        }
        // Backwards: the instances at the end were touched last and are still in the cache, and the
        // ones at the start are where the next row of the same objects begins.
#pragma GCC unroll 4
        for (objsys::COSInterface** at = array->objects() + array->count();
             at != array->objects();) {
            objsys::COSInterface* const element = *--at;
            if (element && --element->handle()->refs == 0) [[unlikely]]
                objsys::InstanceAccess::handleReleased(element->handle());
        }
        break;
    case hvSTRUCT_CLASS:
        structOf(array).~StructRecord();
        break;
    case hvFUNCTION_CLASS:
        static_cast<FunctionPointer*>(array->data)->~FunctionPointer();
        break;
    default:
        break;
    }
}

void freeMemory(hvArray* array) noexcept {
    if (array->flags & hvArray::SeparateData) {
        std::free(array->data);
        heap::give(array, headerBytes);
    } else {
        heap::give(array, headerBytes + dataBytes(array));
    }
}

void freeOne(hvArray* array) noexcept {
    releaseElements(array);
    freeMemory(array);
}

} // namespace

std::size_t elementSize(hvClassID id) {
    return elementSizes[id];
}

const char* className(hvClassID id) {
    switch (id) {
    case hvCELL_CLASS:
        return "cell";
    case hvDOUBLE_CLASS:
        return "double";
    case hvLOGICAL_CLASS:
        return "logical";
    case hvCHAR_CLASS:
        return "char";
    case hvSTRUCT_CLASS:
        return "struct";
    case hvFUNCTION_CLASS:
        return "function";
    case hvOBJECT_CLASS:
        return "object";
    case hvINT8_CLASS:
        return "int8";
    case hvINT16_CLASS:
        return "int16";
    case hvINT32_CLASS:
        return "int32";
    case hvINT64_CLASS:
        return "int64";
    case hvUINT8_CLASS:
        return "uint8";
    case hvUINT16_CLASS:
        return "uint16";
    case hvUINT32_CLASS:
        return "uint32";
    case hvUINT64_CLASS:
        return "uint64";
    case hvUNKNOWN_CLASS:
        break;
    }
    return "nothing";
}

std::string className(const Value& value) {
    if (value.isObject() && value.array()->objectClass)
        return value.array()->objectClass->getFullName().str();
    return className(value.classID());
}

namespace {

[[noreturn]] void raiseTooLarge(hvClassID id, std::size_t rows, std::size_t columns) {
    fail(id::tooLarge, "an array of {} by {} {} elements is too large", rows, columns,
         className(id));
}

[[noreturn]] void raiseNoMemory(hvClassID id, std::size_t rows, std::size_t columns) {
    fail(id::outOfMemory, "there is no memory for {} by {} {} elements", rows, columns,
         className(id));
}

} // namespace

hvArray* newArray(hvClassID id, std::size_t rows, std::size_t columns) {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(rows, columns, &bytes) ||
        __builtin_mul_overflow(bytes, std::size_t{elementSizes[id]}, &bytes) ||
        bytes > maxArrayBytes)
        raiseTooLarge(id, rows, columns);
    if (bytes >= checkedFromBytes)
        requireMemoryFor(bytes);
    hvArray* array = nullptr;
    try {
        array = newHeader(id, rows, columns, bytes);
    } catch (const std::bad_alloc&) {
        raiseNoMemory(id, rows, columns);
    }
    if (id == hvCELL_CLASS || id == hvOBJECT_CLASS)
        std::memset(array->data, 0, bytes);
    return array;
}

hvArray* copyArray(const hvArray* array) {
    switch (array->classID) {
    case hvSTRUCT_CLASS: {
        hvArray* const copy = newHeader(hvSTRUCT_CLASS, 1, 1, sizeof(StructRecord));
        new (copy->data) StructRecord(structOf(array));
        return copy;
    }
    case hvFUNCTION_CLASS: {
        hvArray* const copy = newHeader(hvFUNCTION_CLASS, 1, 1, sizeof(FunctionPointer));
        new (copy->data) FunctionPointer(*static_cast<const FunctionPointer*>(array->data));
        return copy;
    }
    default:
        break;
    }
    hvArray* const copy = newArray(array->classID, array->rows, array->columns);
    if (const std::size_t bytes = dataBytes(array))
        std::memcpy(copy->data, array->data, bytes);
    if (array->classID == hvCELL_CLASS) {
        for (std::size_t i = 0; i < copy->count(); ++i)
            hvShareArray(copy->cells()[i]);
    } else if (array->classID == hvOBJECT_CLASS) {
        copy->objectClass = array->objectClass;
        copy->flags = static_cast<std::uint8_t>(array->flags & hvArray::Heterogeneous);
        for (std::size_t i = 0; i < copy->count(); ++i)
            if (objsys::COSInterface* const element = copy->objects()[i])
                hvShareArray(element->handle());
    }
    return copy;
}

hvArray* newLongText(std::size_t length) {
    return newArray(hvCHAR_CLASS, 1, length);
}

Value* StructRecord::find(objsys::COSNameID name) {
    for (auto& [field, value] : fields)
        if (field == name)
            return &value;
    return nullptr;
}

const Value* StructRecord::find(objsys::COSNameID name) const {
    return const_cast<StructRecord*>(this)->find(name);
}

Value& StructRecord::place(objsys::COSNameID name) {
    if (Value* const value = find(name))
        return *value;
    return fields.emplace_back(name, Value()).second;
}

Value newStruct() {
    hvArray* const array = newHeader(hvSTRUCT_CLASS, 1, 1, sizeof(StructRecord));
    new (array->data) StructRecord;
    return Value::fromArray(array);
}

Value newFunction(std::shared_ptr<const FunctionRecord> record) {
    hvArray* const array = newHeader(hvFUNCTION_CLASS, 1, 1, sizeof(FunctionPointer));
    new (array->data) FunctionPointer(std::move(record));
    return Value::fromArray(array);
}

Value cellAt(const hvArray* cell, std::size_t index) {
    hvArray* const held = cell->cells()[index];
    return held ? Value::fromArray(hvShareArray(held)) : Value::emptyDouble();
}

void setCell(hvArray* cell, std::size_t index, const Value& value) {
    hvArray* const held = value.toArray();
    hvDestroyArray(std::exchange(cell->cells()[index], held));
}

Value elementAt(const Value& value, std::size_t index) {
    if (!value.isCounted() || value.isHandle() || value.isStruct() || value.isFunction())
        return value;
    const hvArray* const array = value.array();
    hvArray* const element = newArray(array->classID, 1, 1);
    const std::size_t size = elementSize(array->classID);
    std::memcpy(element->data, static_cast<const char*>(array->data) + index * size, size);
    if (array->classID == hvCELL_CLASS) {
        hvShareArray(element->cells()[0]);
    } else if (array->classID == hvOBJECT_CLASS) {
        element->objectClass = array->objectClass;
        if (element->objects()[0])
            hvShareArray(element->objects()[0]->handle());
    }
    return Value::fromArray(element);
}

} // namespace varnix

void hvFreeUnreferenced(hvArray* array) noexcept {
    if (array->isHandle()) {
        objsys::InstanceAccess::handleReleased(array);
        return;
    }
    if (!varnix::holdsReferences(array->classID)) { // most arrays: nothing can follow
        if (array->flags == 0) [[likely]]
            varnix::heap::give(array, varnix::headerBytes + varnix::dataBytes(array));
        else
            varnix::freeMemory(array);
        return;
    }
    // Freeing one array may drop the last reference to others, nested to any depth. They are
    // chained through their class pointers, which they no longer need, and freed by the outermost
    // call.
    static hvArray* pending = nullptr;
    static bool freeing = false;
    const auto link = [](hvArray* a) { return reinterpret_cast<hvArray**>(&a->objectClass); };
    if (freeing) {
        *link(array) = pending;
        pending = array;
        return;
    }
    freeing = true;
    varnix::freeOne(array);
    while (pending) {
        hvArray* const next = pending;
        pending = *link(next);
        varnix::freeOne(next);
    }
    freeing = false;
}
