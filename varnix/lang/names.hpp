// Name resolution: what a name means where it is not a variable.
//
// A function of the same source comes first, then those typed at the prompt, then files NAME.vx
// (beside the source, in the current folder, on the path, in that order), then built-ins. Packages
// and classes come last; they are looked up by the path that the script writes.
#pragma once

#include "lang/bytecode.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varnix {

class NameResolver {
public:
    /// A function: one of the two, or neither.
    struct Found {
        const Code* script = nullptr;
        const Builtin* builtin = nullptr;
        explicit operator bool() const { return script != nullptr || builtin != nullptr; }
    };

    /// Rises whenever a name could have got another meaning; what was found stays good until then.
    [[nodiscard]] std::uint64_t epoch() const { return epoch_; }
    void newEpoch() { ++epoch_; }
    /// Frees the code of functions that were replaced; only while no script runs.
    void dropReplaced() { replaced_.clear(); }

    /// The function that a name means in the code of `unit` (null: outside any). Compiles the file
    /// that holds it if need be, raising what that raises.
    [[nodiscard]] Found find(objsys::COSNameID name, const Unit* unit);

    /// Makes the functions of a source visible everywhere, as the prompt does.
    void addSession(const std::shared_ptr<Unit>& unit);
    void addPath(const std::string& folder);

    /// Names of script functions visible in `unit`, sorted.
    [[nodiscard]] std::vector<std::string> scriptFunctions(const Unit* unit) const;
    /// Functions, built-ins and packages whose names may have been meant, for suggestions.
    [[nodiscard]] std::vector<std::string> candidates(const Unit* unit) const;

private:
    struct File {
        std::int64_t modified = 0; // nanoseconds
        std::int64_t size = 0;
        std::shared_ptr<Unit> unit;
        const Code* code = nullptr;
    };

    [[nodiscard]] const Code* findFile(const std::string& folder, const std::string& name);
    [[nodiscard]] std::vector<std::string> folders(const Unit* unit) const;

    std::uint64_t epoch_ = 1;
    std::unordered_map<objsys::COSNameID, const Code*> session_;
    std::vector<std::shared_ptr<Unit>> sessionUnits_;
    std::vector<std::string> path_;
    std::unordered_map<std::string, File> files_;
    std::vector<std::shared_ptr<Unit>> replaced_;
};

/// Reads a source file. Raises "varnix:ioError".
[[nodiscard]] Source readSource(const std::string& path);

/// "; did you mean 'x'?" for the candidate nearest to a name, or "" when none is near.
[[nodiscard]] std::string suggestion(std::string_view name,
                                     const std::vector<std::string>& candidates);

} // namespace varnix
