// Built-in functions that are compiled: each as the IR that does what the built-in does.
//
// To add one: a row in the table of intrinsics.cpp.
#pragma once

#include "codegen/operations.hpp"
#include "lang/builtin.hpp"

#include <span>
#include <vector>

namespace varnix::codegen {

/// Calls a built-in: its results, at least as many as are `requested` (0 counts as 1). Throws
/// Outside for a built-in that is not compiled, or not with such arguments.
[[nodiscard]] std::vector<Operand> callIntrinsic(Operations& operations, const Builtin& builtin,
                                                 std::span<const Operand> arguments,
                                                 std::size_t requested);

} // namespace varnix::codegen
