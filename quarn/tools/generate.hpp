// Makes valid IR at random, for tests that compare a program with what a transform or an engine
// made of it. The same seed gives the same IR everywhere.
#pragma once

#include <qn/evaluator.hpp>
#include <qn/scope.hpp>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace QN::tools {

struct GenerateOptions {
    std::uint32_t seed = 1;
    /// Functions in the scope; each may call the ones before it.
    int functions = 3;
    /// Roughly the statements of each function.
    int statements = 12;
};

/// A unit scope "generated" with functions f0, f1, ... Every loop ends. Few accesses go out of
/// bounds.
[[nodiscard]] std::unique_ptr<Scope> generate(GenerateOptions options);

/// Arguments for a function whose parameters are scalars and arrays; the same for the same seed.
[[nodiscard]] std::vector<Value> generateArguments(const Function& function, std::uint32_t seed);

/// What came out of a call, in a form that can be compared and shown: the result to the last bit
/// (all NaN alike), or the trap with its line.
[[nodiscard]] std::string outcomeOf(const Scope& scope, const Function& function,
                                    const std::vector<Value>& arguments);

} // namespace QN::tools
