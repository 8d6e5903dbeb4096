// How the host raises its errors, and the identifiers they bear.
#pragma once

#include <objsys/error.hpp>

#include <fmt/format.h>
#include <string_view>

namespace varnix {

/// Raises a host error with a formatted message.
template <class... Args>
[[noreturn]] void fail(std::string_view identifier, fmt::format_string<Args...> format,
                       Args&&... arguments) {
    objsys::raise(identifier, fmt::format(format, std::forward<Args>(arguments)...));
}

/// Identifiers that more than one file raises.
namespace id {
inline constexpr std::string_view wrongType = "varnix:wrongType";
inline constexpr std::string_view wrongSize = "varnix:wrongSize";
inline constexpr std::string_view badIndex = "varnix:badIndex";
inline constexpr std::string_view badArgument = "varnix:badArgument";
inline constexpr std::string_view undefined = "varnix:undefined";
inline constexpr std::string_view noSuchMember = "varnix:noSuchMember";
inline constexpr std::string_view readOnlyProperty = "varnix:readOnlyProperty";
inline constexpr std::string_view notConstructible = "varnix:notConstructible";
inline constexpr std::string_view invalidHandle = "varnix:invalidHandle";
inline constexpr std::string_view nullSelf = "varnix:nullSelf";
inline constexpr std::string_view tooManyInputs = "varnix:tooManyInputs";
inline constexpr std::string_view notEnoughInputs = "varnix:notEnoughInputs";
inline constexpr std::string_view tooManyOutputs = "varnix:tooManyOutputs";
inline constexpr std::string_view tooLarge = "varnix:tooLarge";
inline constexpr std::string_view tooDeep = "varnix:tooDeep";
inline constexpr std::string_view syntax = "varnix:syntax";
inline constexpr std::string_view interrupted = "varnix:interrupted";
inline constexpr std::string_view ioError = "varnix:ioError";
inline constexpr std::string_view outOfMemory = "varnix:outOfMemory";
inline constexpr std::string_view native = "varnix:native";
} // namespace id

} // namespace varnix
