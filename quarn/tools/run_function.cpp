// See run_function.hpp.
#include "tools/run_function.hpp"

#include <qn/arithmetic.hpp>
#include <qn/evaluator.hpp>
#include <qn/scope.hpp>
#include <qn/vmrt/engine.hpp>

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace QN::tools {
namespace {

double numberOf(std::string_view text) {
    double value = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem != std::errc() || end != text.data() + text.size()) {
        throw std::runtime_error("'" + std::string(text) + "' is no number");
    }
    return value;
}

std::uint64_t scalarOf(const Type& type, std::string_view text) {
    if (text == "true" || text == "false") {
        return convertScalar(*Type::logical(), type, {}, text == "true" ? 1 : 0);
    }
    if (type.isInteger()) {
        std::int64_t whole = 0; // exact where a double is not
        const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), whole);
        if (problem == std::errc() && end == text.data() + text.size()) {
            return convertScalar(*Type::i64(), type, {}, static_cast<std::uint64_t>(whole));
        }
    }
    return convertScalar(*Type::f64(), type, {}, bitsOf(numberOf(text)));
}

Value argumentOf(const Type& type, std::string_view text) {
    Value value;
    value.type = &type;
    if (!type.isArray()) {
        value.bits = scalarOf(type, text);
        return value;
    }
    value.array = ArrayValue(type.scalarKind(), 0, 1);
    while (!text.empty()) {
        const std::size_t blank = std::min(text.find(';'), text.size());
        if (blank > 0) {
            value.array.resize(value.array.rows() + 1, 1);
            value.array.set(value.array.rows(), scalarOf(*type.element(), text.substr(0, blank)));
        }
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    return value;
}

void show(const Type& type, std::uint64_t bits, std::string& out) {
    if (type.isLogical()) {
        out += bits != 0 ? "true" : "false";
        return;
    }
    char text[32];
    const auto end =
        type.isDouble() ? std::to_chars(text, text + sizeof(text), asDouble(bits)).ptr
        : type.isSigned()
            ? std::to_chars(text, text + sizeof(text), static_cast<std::int64_t>(bits)).ptr
            : std::to_chars(text, text + sizeof(text), bits).ptr;
    out.append(text, end);
}

void show(const Value& value, std::string& out) {
    if (value.type->isScalar()) {
        show(*value.type, value.bits, out);
    } else if (value.type->isArray()) {
        out += std::to_string(value.array.rows()) + "x" + std::to_string(value.array.cols()) + ":";
        for (std::int64_t i = 1; i <= value.array.numel(); ++i) {
            out += " ";
            show(*value.type->element(), value.array.get(i), out);
        }
    }
}

Value runMachineCode(Scope& scope, Function& function, const RunOptions& options,
                     std::vector<Value>& arguments) {
    using VMRT::VMEngineConfig;
    VMEngineConfig config = VMEngineConfig::prototype();
    config.setJitOptimizationLevel(
        static_cast<VMEngineConfig::JitOptimizationLevel>(options.level));
    config.setJitEmitDebugInfo(options.debugInfo);
    if (options.preserveFrames) {
        config.setFramePointerPolicy(VMEngineConfig::FramePointerPreserve);
    }
    if (options.valgrindPrint) {
        config.setInstrumentIRDebugPrint(VMEngineConfig::DebugPrintValgrind);
    }
    const auto engine = VMRT::makeEngine(config);
    const auto code = engine->prepare(scope, function, options.sourceFile);
    std::vector<std::uint64_t> words;
    for (Value& argument : arguments) {
        words.push_back(argument.type->isArray() ? reinterpret_cast<std::uint64_t>(&argument.array)
                                                 : argument.bits);
    }
    Value result;
    result.type = function.resultType();
    words.push_back(reinterpret_cast<std::uint64_t>(&result.array));
    ExecutionContext context;
    code->call(words.data(), context);
    result.bits = words.back();
    return result;
}

} // namespace

bool runFunction(Scope& scope, const RunOptions& options, std::string& text) {
    Function* const function = scope.find(options.function);
    if (function == nullptr || !function->hasCfg()) {
        throw std::runtime_error("there is no function '" + options.function + "'");
    }
    const auto& types = function->paramTypes();
    if (types.size() != options.arguments.size()) {
        throw std::runtime_error("'" + options.function + "' takes " +
                                 std::to_string(types.size()) + " arguments");
    }
    std::vector<Value> arguments;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i]->isPointer()) {
            throw std::runtime_error("'" + options.function + "' takes a pointer");
        }
        arguments.push_back(argumentOf(*types[i], options.arguments[i]));
    }
    try {
        Value result;
        if (options.engine == "llvm") {
            result = runMachineCode(scope, *function, options, arguments);
        } else {
            Evaluator evaluator(scope);
            result = evaluator.call(*function, arguments);
        }
        show(result, text);
        text += "\n";
        return true;
    } catch (const EvaluationError& error) {
        text += "trap in " + error.function() + " at " + std::to_string(error.line()) + ": " +
                error.what() + "\n";
        return false;
    }
}

} // namespace QN::tools
