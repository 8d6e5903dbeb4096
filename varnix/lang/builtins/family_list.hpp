// All families of built-in functions with their titles, for the catalogue and for lists.
#pragma once

#include "lang/builtins/families.hpp"

namespace varnix::builtins {

/// A family with the title under which lists of functions show it.
struct Family {
    const char* title;
    Table table;
};
/// All of them, in the order in which a reader meets them.
[[nodiscard]] std::span<const Family> allFamilies();

} // namespace varnix::builtins
