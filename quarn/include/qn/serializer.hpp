// IR as a binary file and back. A file holds a scope; what comes back is equal to what went in:
// names, ids of nodes and blocks, constants used or not, lines and modes, order. (Ids of variables
// count anew, as their places.)
//
// The bytes are FlatBuffers (quarn/services/serial/ir.fbs) behind a head with version and checksum.
// A file that was cut short, altered, or written by a later version is refused with a message,
// never misread.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace QN {

class Function;
class Scope;

/// The file for a scope with all that is in it, or for one function in a scope of the name and
/// flavor of its own. `title` is kept in the file and says what it is.
[[nodiscard]] std::string serialize(const Scope& scope, std::string_view title = {});
[[nodiscard]] std::string serialize(const Function& function, std::string_view title = {});

/// Whether `bytes` begin like such a file.
[[nodiscard]] bool isSerializedIr(std::string_view bytes) noexcept;

/// The scope in a file, as a root; null if the file is refused, and `error` then says why. What
/// comes back has operands of the right sorts; whether it is valid IR is the verifier's business.
[[nodiscard]] std::unique_ptr<Scope> deserialize(std::string_view bytes, std::string& error);

} // namespace QN
