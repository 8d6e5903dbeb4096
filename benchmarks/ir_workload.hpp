// The IR that the groups about the IR library work on.
//
// Why it exists: printing, verifying and the rest are measured on the same functions, and the peer
// gets IR of the same shape (peers/llvm.hpp). Everything is made from fixed seeds.
// To extend: another shape is another function here.
#pragma once

#include <qn/scope.hpp>

#include <cstddef>
#include <functional>
#include <memory>

namespace bench {

/// A scope with one function of about `nodes` nodes: statements over scalars and arrays, branches,
/// loops. Deterministic.
std::unique_ptr<QN::Scope> makeOneFunction(std::size_t nodes);

/// A scope of `functions` functions of about 40 nodes each, some of which call earlier ones.
std::unique_ptr<QN::Scope> makeManyFunctions(std::size_t functions);

/// A copy of a scope with all its functions.
std::unique_ptr<QN::Scope> copyOf(const QN::Scope& scope);

std::size_t nodesOf(const QN::Scope& scope);
std::size_t blocksOf(const QN::Scope& scope);

} // namespace bench
