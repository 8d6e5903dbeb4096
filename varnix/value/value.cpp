#include "value/value.hpp"

#include "object/deferred_rows.hpp"
#include "value/array.hpp"

#include <objsys/interface.hpp>

#include <array>
#include <cstring>

namespace varnix {

namespace {

constexpr std::array<hvClassID, 13> tagClasses{
    hvUNKNOWN_CLASS, hvDOUBLE_CLASS,  hvLOGICAL_CLASS, hvINT8_CLASS,   hvINT16_CLASS,
    hvINT32_CLASS,   hvINT64_CLASS,   hvUINT8_CLASS,   hvUINT16_CLASS, hvUINT32_CLASS,
    hvUINT64_CLASS,  hvUNKNOWN_CLASS, hvOBJECT_CLASS};

template <class T>
T first(const hvArray* array) {
    return *elements<T>(array);
}

/// The scalar in a 1 by 1 numeric or logical array.
Value scalarOf(const hvArray* array) {
    switch (array->classID) {
    case hvDOUBLE_CLASS:
        return Value::ofDouble(first<double>(array));
    case hvLOGICAL_CLASS:
        return Value::ofLogical(first<bool>(array));
    case hvINT8_CLASS:
        return Value::ofSigned(Tag::Int8, first<std::int8_t>(array));
    case hvINT16_CLASS:
        return Value::ofSigned(Tag::Int16, first<std::int16_t>(array));
    case hvINT32_CLASS:
        return Value::ofSigned(Tag::Int32, first<std::int32_t>(array));
    case hvINT64_CLASS:
        return Value::ofSigned(Tag::Int64, first<std::int64_t>(array));
    case hvUINT8_CLASS:
        return Value::ofUnsigned(Tag::UInt8, first<std::uint8_t>(array));
    case hvUINT16_CLASS:
        return Value::ofUnsigned(Tag::UInt16, first<std::uint16_t>(array));
    case hvUINT32_CLASS:
        return Value::ofUnsigned(Tag::UInt32, first<std::uint32_t>(array));
    case hvUINT64_CLASS:
        return Value::ofUnsigned(Tag::UInt64, first<std::uint64_t>(array));
    default:
        return {};
    }
}

} // namespace

hvClassID classOfTag(Tag tag) {
    return tagClasses[static_cast<std::size_t>(tag)];
}

Tag tagOfClass(hvClassID id) {
    switch (id) {
    case hvDOUBLE_CLASS:
        return Tag::Double;
    case hvLOGICAL_CLASS:
        return Tag::Logical;
    case hvINT8_CLASS:
        return Tag::Int8;
    case hvINT16_CLASS:
        return Tag::Int16;
    case hvINT32_CLASS:
        return Tag::Int32;
    case hvINT64_CLASS:
        return Tag::Int64;
    case hvUINT8_CLASS:
        return Tag::UInt8;
    case hvUINT16_CLASS:
        return Tag::UInt16;
    case hvUINT32_CLASS:
        return Tag::UInt32;
    case hvUINT64_CLASS:
        return Tag::UInt64;
    default:
        return Tag::Unset;
    }
}

Value Value::fromArray(hvArray* array) {
    if (!array)
        return {};
    if (array->isHandle())
        return ofHandle(array);
    if (array->rows == 1 && array->columns == 1) {
        if (tagOfClass(array->classID) != Tag::Unset) {
            Value scalar = scalarOf(array);
            hvDestroyArray(array);
            return scalar;
        }
        if (array->classID == hvOBJECT_CLASS && array->objects()[0]) {
            Value handle(Tag::Handle);
            handle.bits_.a = hvShareArray(array->objects()[0]->handle());
            hvDestroyArray(array);
            return handle;
        }
    }
    Value value(Tag::Array);
    value.bits_.a = array;
    return value;
}

Value Value::text(std::string_view characters) {
    Value value(Tag::Array);
    value.bits_.a = hvCreateStringN(characters.data(), characters.size());
    return value;
}

Value Value::emptyDouble() {
    return fromArray(newArray(hvDOUBLE_CLASS, 0, 0));
}

hvArray* Value::toArray() const {
    if (isUnset())
        return nullptr;
    if (isCounted())
        return hvShareArray(bits_.a);
    hvArray* const array = newArray(classOfTag(tag_), 1, 1);
    // Little-endian: the low bytes of the payload are the element.
    std::memcpy(array->data, &bits_, elementSize(array->classID));
    return array;
}

hvArray* Value::unshare() {
    if (bits_.a->refs > 1) {
        hvArray* const copy = copyArray(bits_.a);
        --bits_.a->refs;
        bits_.a = copy;
    }
    objsys::DeferredRows::settle(bits_.a);
    return bits_.a;
}

} // namespace varnix
