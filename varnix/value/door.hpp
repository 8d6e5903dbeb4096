// Conversions at the door: script values to the declared data types of properties and arguments,
// and back.
#pragma once

#include "value/value.hpp"

#include <objsys/name_id.hpp>
#include <objsys/value.hpp>

#include <cstdint>
#include <utility>

namespace varnix {

/// Where a value is going, for messages; cheap to make, spelled out only in an error.
struct DoorPlace {
    objsys::COSNameID owner;  ///< full class name
    objsys::COSNameID member; ///< property or method
    std::size_t argument = 0; ///< 0: a property; else the argument's number, from 1
    /// "property 'Enabled' of internal.quarn.Debug", "argument 1 of internal.quarn.Timer.probe".
    [[nodiscard]] std::string describe() const;
};

/// Converts a script value to a declared data type, by these rules:
///   "logical scalar"            a logical scalar, or a real numeric scalar that is not NaN
///   "intN scalar", "uintN ..."  a numeric or logical scalar, integral and inside the range
///   "double scalar"             a numeric or logical scalar
///   "char"                      a character row (1 by N) or an empty character array
///   "cell", "any"               anything
///   a class name                one object of that class or of one derived from it
///   "C vector"                  an object array of class C, or one such object
/// Anything else raises "varnix:wrongType" with a message that names the place. An array in the
/// result is borrowed from `value` or, where a scalar had to be boxed for "cell" or "any", owned by
/// `box`.
[[nodiscard]] objsys::COSValue toDoor(const Value& value, objsys::COSNameID declared,
                                      const DoorPlace& place, Value& box);

/// What most assignments to integer properties need, in a few instructions: the payload for an
/// integer type of a double that holds a value of that type. False: toDoor must decide.
[[nodiscard]] inline bool toIntegerPayload(double value, objsys::ValueKind declared,
                                           std::uint64_t& payload) {
    constexpr double exact = 9007199254740992.0; // below it every integral double is exact
    if (!(value > -exact && value < exact))
        return false;
    const auto whole = static_cast<std::int64_t>(value);
    if (static_cast<double>(whole) != value)
        return false;
    payload = static_cast<std::uint64_t>(whole);
    switch (declared) {
    case objsys::ValueKind::Int32:
        return std::in_range<std::int32_t>(whole);
    case objsys::ValueKind::UInt32:
        return std::in_range<std::uint32_t>(whole);
    case objsys::ValueKind::Int64:
        return true;
    case objsys::ValueKind::UInt64:
        return whole >= 0;
    default:
        return false;
    }
}

/// A typed value that came through the door, as a script value. Takes over the reference that an
/// array in it carries. "void" gives Unset.
[[nodiscard]] Value fromDoor(objsys::COSValue value);
/// The same for a value that stays its owner's.
[[nodiscard]] Value fromDoorBorrowed(objsys::COSValue value);

} // namespace varnix
