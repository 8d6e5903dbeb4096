// Members of objects from the script's side: the same calls as in <objsys/class.hpp>, with script
// values in and out. Conversions happen here and nowhere else.
#pragma once

#include "value/value.hpp"

#include <objsys/class.hpp>

#include <span>

namespace varnix {

/// Reads a property. Raises "varnix:invalidHandle" or what the getter raises.
[[nodiscard]] Value getProperty(const objsys::COSProperty& property,
                                objsys::COSInterface* instance);
/// Converts and assigns. Raises "varnix:readOnlyProperty", "varnix:wrongType",
/// "varnix:invalidHandle", or what the setter raises; nothing is changed before the conversion
/// has succeeded.
void setProperty(const objsys::COSProperty& property, objsys::COSInterface* instance,
                 const Value& value);
/// Converts the arguments and calls a method on `self`, an object array (unset for a static
/// method). Unset when the method gives nothing. Raises "varnix:tooManyInputs",
/// "varnix:notEnoughInputs", "varnix:wrongType", "varnix:invalidHandle", or what the method raises.
[[nodiscard]] Value callMethod(const objsys::COSMethod& method, const Value& self,
                               std::span<const Value> arguments);
/// Makes an instance. Raises as COSClass::construct does.
[[nodiscard]] Value construct(objsys::COSClass& cls, std::span<const Value> arguments);

} // namespace varnix
