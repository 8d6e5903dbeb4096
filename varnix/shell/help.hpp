// Help texts: `help`, `help NAME` for built-ins, script functions, packages and classes.
#pragma once

#include <string>
#include <string_view>

namespace varnix {

class Interpreter;

/// What `help NAME` prints. For a class: one line `FULLNAME: DESCRIPTION`, its superclass, its
/// properties (name, declared type, read-only or not) and its methods with their signatures, all
/// from what the class declared. For a package: its classes and sub-packages. For "" an overview.
/// Raises "varnix:undefined" for an unknown name, with the nearest known names.
[[nodiscard]] std::string helpText(const Interpreter& interpreter, std::string_view name);

} // namespace varnix
