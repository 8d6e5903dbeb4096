// Errors found in source text before it runs.
#include "lang/source.hpp"

#include "value/errors.hpp"

namespace varnix {

void raiseSyntax(const Source& source, Place place, std::string message) {
    raiseAt(id::syntax, source, place, std::move(message));
}

void raiseAt(std::string_view identifier, const Source& source, Place place, std::string message) {
    objsys::COSError error{std::string(identifier), std::move(message)};
    error.addFrame({.function = {},
                    .file = source.name,
                    .line = static_cast<int>(place.line),
                    .column = static_cast<int>(place.column)});
    throw error;
}

} // namespace varnix
