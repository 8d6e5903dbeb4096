#include "value/door.hpp"

#include "value/array.hpp"
#include "value/errors.hpp"
#include "value/format.hpp"

#include <objsys/class.hpp>

#include <cmath>
#include <limits>
#include <utility>

namespace varnix {

namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSNameID;
using objsys::COSValue;
using objsys::ValueKind;

std::string describeValue(const Value& value) {
    if (value.isUnset())
        return "nothing";
    if (value.isScalar())
        return fmt::format("a {} scalar", className(value));
    return fmt::format("a {} by {} {}", value.rows(), value.columns(), className(value));
}

/// Whether the type takes some numbers and refuses others, so that the number itself is the reason.
bool choosesAmongNumbers(COSNameID declared) {
    switch (declared.kind()) {
    case ValueKind::Logical:
    case ValueKind::Int32:
    case ValueKind::UInt32:
    case ValueKind::Int64:
    case ValueKind::UInt64:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void refuse(const Value& value, COSNameID declared, const DoorPlace& place) {
    const std::string& type = declared.str();
    const bool isNumber = value.tag() == Tag::Double || value.isInteger();
    fail(id::wrongType, "{} takes {} {}, not {}", place.describe(),
         type.find_first_of("aeio") == 0 ? "an" : "a", type,
         isNumber && choosesAmongNumbers(declared) ? formatScalar(value) : describeValue(value));
}

/// An integral scalar inside the range of T, or nothing.
template <class T>
bool integral(const Value& value, T& result) {
    using Limits = std::numeric_limits<T>;
    switch (value.tag()) {
    case Tag::Double: {
        const double d = value.asDouble();
        // The first double above the range: exact also where the largest T is not a double.
        constexpr double above =
            2.0 * static_cast<double>(std::uint64_t{1} << (Limits::digits - 1));
        if (!(d >= static_cast<double>(Limits::min()) && d < above))
            return false;
        result = static_cast<T>(d);
        return static_cast<double>(result) == d;
    }
    case Tag::Logical:
    case Tag::UInt8:
    case Tag::UInt16:
    case Tag::UInt32:
    case Tag::UInt64:
        if (!std::in_range<T>(value.asUnsigned()))
            return false;
        result = static_cast<T>(value.asUnsigned());
        return true;
    case Tag::Int8:
    case Tag::Int16:
    case Tag::Int32:
    case Tag::Int64:
        if (!std::in_range<T>(value.asSigned()))
            return false;
        result = static_cast<T>(value.asSigned());
        return true;
    default:
        return false;
    }
}

/// The single object in a value, or null.
COSInterface* singleObject(const Value& value) {
    return value.isHandle() ? COSInterface::ofHandle(value.array()) : nullptr;
}

bool isOfClass(const Value& value, const COSClass* cls) {
    COSClass* const own = value.array()->objectClass;
    return own && cls && own->isA(cls);
}

COSValue object(const Value& value, COSNameID declared, const DoorPlace& place) {
    COSInterface* const instance = singleObject(value);
    if (!instance || !isOfClass(value, COSClass::find(declared)))
        refuse(value, declared, place);
    if (!instance->isValid())
        objsys::detail::raiseInvalidHandle(instance);
    return COSValue::ofArray(value.array(), declared);
}

COSValue vector(const Value& value, COSNameID declared, const DoorPlace& place) {
    const COSClass* const cls = declared.entry()->element->registeredClass;
    if (!value.isObject() || !isOfClass(value, cls))
        refuse(value, declared, place);
    for (std::size_t i = 0; i < value.count(); ++i)
        if (COSInterface* const element = value.array()->objects()[i];
            element && !element->isValid())
            objsys::detail::raiseInvalidHandle(element);
    return COSValue::ofArray(value.array(), declared);
}

} // namespace

std::string DoorPlace::describe() const {
    if (argument != 0)
        return fmt::format("argument {} of {}.{}", argument, owner.str(), member.str());
    return fmt::format("property '{}' of {}", member.str(), owner.str());
}

COSValue toDoor(const Value& value, COSNameID declared, const DoorPlace& place, Value& box) {
    switch (declared.kind()) {
    case ValueKind::Logical:
        if (value.tag() == Tag::Logical)
            return COSValue::ofLogical(value.asLogical(), declared);
        if (value.tag() == Tag::Double && !std::isnan(value.asDouble()))
            return COSValue::ofLogical(value.asDouble() != 0.0, declared);
        if (value.isInteger())
            return COSValue::ofLogical(value.asUnsigned() != 0, declared);
        break;
    case ValueKind::Int32:
        if (std::int32_t v = 0; integral(value, v))
            return COSValue::ofInt32(v, declared);
        break;
    case ValueKind::UInt32:
        if (std::uint32_t v = 0; integral(value, v))
            return COSValue::ofUInt32(v, declared);
        break;
    case ValueKind::Int64:
        if (std::int64_t v = 0; integral(value, v))
            return COSValue::ofInt64(v, declared);
        break;
    case ValueKind::UInt64:
        if (std::uint64_t v = 0; integral(value, v))
            return COSValue::ofUInt64(v, declared);
        break;
    case ValueKind::Double:
        switch (value.tag()) {
        case Tag::Double:
            return COSValue::ofDouble(value.asDouble(), declared);
        case Tag::Int8:
        case Tag::Int16:
        case Tag::Int32:
        case Tag::Int64:
            return COSValue::ofDouble(static_cast<double>(value.asSigned()), declared);
        case Tag::Logical:
        case Tag::UInt8:
        case Tag::UInt16:
        case Tag::UInt32:
        case Tag::UInt64:
            return COSValue::ofDouble(static_cast<double>(value.asUnsigned()), declared);
        default:
            break;
        }
        break;
    case ValueKind::Char:
        if (value.isTextRow())
            return COSValue::ofArray(value.array(), declared);
        break;
    case ValueKind::Cell:
    case ValueKind::Any:
        if (value.isCounted() || value.isUnset())
            return COSValue::ofArray(value.isUnset() ? nullptr : value.array(), declared);
        // A scalar has no array of its own; the box keeps one for as long as the call lasts.
        box = Value::keeping(value.toArray());
        return COSValue::ofArray(box.array(), declared);
    case ValueKind::Object:
        return object(value, declared, place);
    case ValueKind::Vector:
        return vector(value, declared, place);
    case ValueKind::Void:
        break;
    }
    refuse(value, declared, place);
}

Value fromDoor(COSValue value) {
    switch (value.type().kind()) {
    case ValueKind::Void:
        return {};
    case ValueKind::Logical:
        return Value::ofLogical(value.asLogical());
    case ValueKind::Int32:
        return Value::ofInt32(value.asInt32());
    case ValueKind::UInt32:
        return Value::ofUInt32(value.asUInt32());
    case ValueKind::Int64:
        return Value::ofInt64(value.asInt64());
    case ValueKind::UInt64:
        return Value::ofUInt64(value.asUInt64());
    case ValueKind::Double:
        return Value::ofDouble(value.asDouble());
    default:
        return Value::fromArray(value.asArray());
    }
}

Value fromDoorBorrowed(COSValue value) {
    if (value.type().kind() >= ValueKind::Char)
        hvShareArray(value.asArray());
    return fromDoor(value);
}

} // namespace varnix
