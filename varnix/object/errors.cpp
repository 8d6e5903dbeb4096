// The host's exception, and the errors that the factory framework raises in its name.

#include "value/errors.hpp"

#include <objsys/error.hpp>
#include <objsys/factory/errors.hpp>

namespace objsys {

COSError::~COSError() = default;

void raise(std::string_view identifier, std::string message) {
    throw COSError(std::string(identifier), std::move(message));
}

namespace factory {

void errorMustBeCellArray() {
    raise("varnix:mustBeCellArray", "the value must be a cell array of texts");
}

void errorMustBeString(std::size_t index) {
    varnix::fail("varnix:mustBeString", "cell {} must hold a text (a character array)", index + 1);
}

namespace impl {
void errorNullSelf() {
    raise(varnix::id::nullSelf, "the method was called without an object, or on an empty one");
}
} // namespace impl

} // namespace factory
} // namespace objsys
