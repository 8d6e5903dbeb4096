// Errors of the class factory framework. Their texts are the host's.
#pragma once

#include <cstddef>

namespace objsys::factory {

/// Raises "varnix:mustBeCellArray".
[[noreturn]] void errorMustBeCellArray();
/// Raises "varnix:mustBeString" for the element with that index, which counts from 0.
[[noreturn]] void errorMustBeString(std::size_t index);

namespace impl {

/// Raises "varnix:nullSelf".
[[noreturn]] void errorNullSelf();

/// Returns the object a method was called with; raises "varnix:nullSelf" when there is none.
template <class T>
T* validateSelfPointer(T* self) {
    if (self == nullptr)
        errorNullSelf();
    return self;
}

} // namespace impl
} // namespace objsys::factory
