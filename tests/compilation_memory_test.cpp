// What compiling script functions leaves behind in the pools of the IR: nothing, once the functions
// are freed; and what is told of the moment at which the pools were fullest.
#include "lang/interpreter.hpp"

#include <qn/pool.hpp>
#include <qn/pool_memory_tracking_service.hpp>

#include <gtest/gtest.h>
#include <string>

namespace {

using varnix::EngineChoice;
using varnix::Interpreter;

std::string largeFunction(const std::string& name) {
    std::string code = "function " + name + "(x)\n  y = x\n";
    for (int i = 0; i < 400; ++i) {
        code += "  y = y * x + sin(y + " + std::to_string(i) + ")\n";
    }
    return code + "  return y\nend\n";
}

const std::string smallFunctions = "function small(x)\n  return x + 1\nend\n"
                                   "function other(x)\n  return x * 2\nend\n";

class CompilationMemory : public ::testing::TestWithParam<EngineChoice> {
protected:
    static varnix::InterpreterOptions options() {
        varnix::InterpreterOptions made;
        made.compiler.engine = GetParam();
        return made;
    }
};

} // namespace

TEST_P(CompilationMemory, NoByteIsAliveAfterTheFunctionsAreFreed) {
    const std::string functions = smallFunctions + largeFunction("large");
    const auto useThem = [&](Interpreter& interpreter) {
        interpreter.runCode(functions + "a = small(1) + other(2) + large(3)\n"
                                        "b = small([1, 2]) + other(2)",
                            "<test>");
    };
    { // Types of the IR live as long as the process; here they are made.
        Interpreter first(options());
        useThem(first);
    }
    const std::size_t before = QN::Pool::totalReserved();
    QN::Pool::resetPeak();
    {
        Interpreter interpreter(options());
        useThem(interpreter);
        EXPECT_GT(QN::Pool::peakReserved(), before + 10'000) << "nothing was compiled";
    }
    EXPECT_EQ(QN::Pool::totalReserved(), before);
}

// A function goes when another has taken its name and what called it is no longer what ran last.
TEST_P(CompilationMemory, NoByteIsAliveAfterAFunctionIsReplaced) {
    Interpreter interpreter(options());
    const auto replace = [&] {
        interpreter.runCode("function large(x)\n  return x\nend\n", "<test>");
        interpreter.runCode("b = 1", "<test>");
    };
    interpreter.runCode(largeFunction("large") + "a = large(3)", "<test>");
    replace();
    const std::size_t before = QN::Pool::totalReserved();
    for (int i = 0; i < 5; ++i) {
        QN::Pool::resetPeak();
        interpreter.runCode(largeFunction("large") + "a = large(3)", "<test>");
        EXPECT_GT(QN::Pool::peakReserved(), before + 10'000) << "nothing was compiled";
        if (GetParam() == EngineChoice::Evaluator) { // which runs the IR itself
            EXPECT_GT(QN::Pool::totalReserved(), before + 10'000);
        }
        replace();
        EXPECT_EQ(QN::Pool::totalReserved(), before);
    }
}

TEST_P(CompilationMemory, HighWaterMarkNamesTheFunctionThatNeededTheMost) {
    QN::PoolMemoryTrackingService service(true, true);
    service.resetPoolHighWaterMark();
    Interpreter interpreter(options());
    interpreter.runCode(smallFunctions + largeFunction("large") +
                            "a = small(1); b = large(2); c = other(3)",
                        "<test>");
    const QN::PoolHighWaterMark& mark = service.poolHighWaterMark();
    EXPECT_EQ(mark.functionName(), "large");
    EXPECT_EQ(mark.scopeFlavor(), "unit");
    EXPECT_NE(mark.transformName(), "");
    EXPECT_NE(mark.when().find(" run "), std::string::npos) << mark.when();
    EXPECT_GE(QN::Pool::peakReserved(), mark.poolMaxAllocated());
    EXPECT_GT(mark.poolMaxAllocated(), 10'000U);
}

INSTANTIATE_TEST_SUITE_P(Engines, CompilationMemory,
                         ::testing::Values(EngineChoice::Llvm, EngineChoice::Evaluator),
                         [](const auto& test) {
                             return test.param == EngineChoice::Llvm ? "Llvm" : "Evaluator";
                         });
