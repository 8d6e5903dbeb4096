// The head in front of the serialized bytes: what kind of file, which version, how many bytes, and
// their checksum. All numbers are little-endian.
#pragma once

#include <string>
#include <string_view>

namespace QN::serial {

/// Puts the head in front of `payload`.
[[nodiscard]] std::string frame(std::string_view payload);

/// The payload of a file; empty if it is refused, and `error` then says why.
[[nodiscard]] std::string_view unframe(std::string_view file, std::string& error);

/// Whether `file` begins with the head's magic bytes.
[[nodiscard]] bool hasFrame(std::string_view file) noexcept;

} // namespace QN::serial
