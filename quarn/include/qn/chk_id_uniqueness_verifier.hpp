// Reads the catalogue of check ids that is installed beside the library, and sees to it that no id
// stands in it twice.
//
// The catalogue is the file `cataloguePath` under the root of the installation: one check to a
// line, its id, blanks, and what must hold; empty lines and lines that begin with '#' say nothing.
// It is made from the list in <qn/verify.hpp> when the library is configured.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace QN {

/// The catalogue cannot be read, or a line of it is not what it should be. The message names the
/// file and the line; for a doubled id, both lines.
class CatalogueError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ChkIdUniquenessVerifier {
public:
    /// The catalogue's place under the root of the installation.
    static constexpr const char* cataloguePath = "share/varnix/quarn/checks.catalogue";

    /// All ids in the order of the file. `root` is the folder above bin/ and share/, with or
    /// without a slash at its end. The file is read anew on each call. Throws CatalogueError.
    [[nodiscard]] static std::vector<std::string> allCheckIds(const std::string& root);
};

} // namespace QN
