// What tests of the LLVM runtime share: calling an executable with values, and saying what came
// out.
#pragma once

#include "tools/generate.hpp"

#include <qn/arithmetic.hpp>
#include <qn/engine.hpp>
#include <qn/evaluator.hpp>
#include <qn/scope.hpp>
#include <qn/text.hpp>
#include <qn/vmrt/engine.hpp>

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace QN::vmrt_test {

using VMRT::VMEngineConfig;

inline VMEngineConfig atLevel(VMEngineConfig::JitOptimizationLevel level) {
    VMEngineConfig config;
    config.setJitOptimizationLevel(level);
    config.setDeleteCoreFcnCfgAfterConversion(false);
    return config;
}

inline const VMEngineConfig::JitOptimizationLevel allLevels[] = {
    VMEngineConfig::OptNone, VMEngineConfig::OptLess, VMEngineConfig::OptDefault,
    VMEngineConfig::OptAggressive, VMEngineConfig::OptAccelerator};

/// Calls with values of the parameters' types; the result has type `result`.
inline Value callWith(Executable& code, const Type& result, const std::vector<Value>& arguments,
                      std::int64_t depth = 2000) {
    std::vector<std::uint64_t> words;
    for (const Value& argument : arguments) {
        words.push_back(argument.type->isArray() ? reinterpret_cast<std::uint64_t>(&argument.array)
                                                 : argument.bits);
    }
    Value value;
    value.type = &result;
    words.push_back(result.isArray() ? reinterpret_cast<std::uint64_t>(&value.array) : 0);
    ExecutionContext context;
    context.depthLeft = depth;
    code.call(words.data(), context);
    if (result.isScalar()) {
        value.bits = words.back();
    }
    return value;
}

inline std::string shown(const Type& type, std::uint64_t bits) {
    return type.isDouble() && std::isnan(asDouble(bits)) ? "nan" : std::to_string(bits);
}

inline std::string shown(const Value& value) {
    if (!value.type->isArray()) {
        return shown(*value.type, value.bits);
    }
    std::string text =
        std::to_string(value.array.rows()) + "x" + std::to_string(value.array.cols());
    for (std::int64_t i = 1; i <= value.array.numel(); ++i) {
        text += " " + shown(*value.type->element(), value.array.get(i));
    }
    return text;
}

inline std::string shown(const EvaluationError& error) {
    return "trap in " + error.function() + " at " + std::to_string(error.line()) + ": " +
           error.what();
}

/// What the machine code gives, in words.
inline std::string machineOutcome(Executable& code, const Function& function,
                                  const std::vector<Value>& arguments) {
    try {
        return shown(callWith(code, *function.resultType(), arguments));
    } catch (const EvaluationError& error) {
        return shown(error);
    }
}

/// What the evaluator gives, in words.
inline std::string evaluatedOutcome(const Scope& scope, const Function& function,
                                    const std::vector<Value>& arguments) {
    Evaluator evaluator(scope);
    evaluator.setDepthLimit(2000);
    try {
        return shown(evaluator.call(function, arguments));
    } catch (const EvaluationError& error) {
        return shown(error);
    }
}

/// The scope that a text describes.
inline std::unique_ptr<Scope> parsed(std::string_view text) {
    ParseError error;
    std::unique_ptr<Scope> scope = parseQnel(text, error);
    if (scope == nullptr) {
        throw std::runtime_error(error.format("text"));
    }
    return scope;
}

} // namespace QN::vmrt_test
