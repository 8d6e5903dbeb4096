// The functions of all examples, scrambled at every setting: the results stay the same to the bit,
// and a seed decides the IR.
//
// The host compiles each program once, which gives its IR as the front end writes it. Everything
// else happens to copies of that, so that nothing falls back on the interpreter: a trap that was
// not there before is another result. The evaluator runs all of them, the LLVM runtime some.
//
// All seeds together are a thousand; with QUARN_TEST_FULL in the environment, each setting of
// each example gets as many.
#include "lang/interpreter.hpp"

#include <qn/default_services.hpp>
#include <qn/engine.hpp>
#include <qn/evaluator.hpp>
#include <qn/pipeline.hpp>
#include <qn/scope.hpp>
#include <qn/scramble_service.hpp>
#include <qn/text.hpp>
#include <qn/transform_run.hpp>
#include <qn/verify.hpp>
#include <qn/vmrt/engine.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>

namespace {

using QN::VMRT::VMEngineConfig;

/// An example and a function that uses all that it computes with, for a small size.
struct Program {
    const char* example;
    const char* whole;
    double size;
};

constexpr Program programs[] = {
    {"coins",
     "function whole(n)\n"
     "  a, b = rows(n)\n"
     "  most, common = longestCommon(a, b)\n"
     "  return [ways(20, [1, 2, 5]), manyWays(1), most, common]\n"
     "end\n",
     6},
    {"collatz",
     "function whole(n)\n"
     "  start, most = longest(n)\n"
     "  if n < 0\n"
     "    start, most = rounds(n)\n" // from 100001 on
     "  end\n"
     "  return [start, most]\n"
     "end\n",
     40},
    {"lu_solve",
     "function whole(n)\n"
     "  h = hilbert(n)\n"
     "  sign, s = logarithm(matrix(n))\n"
     "  return [solve(h, h[:, 1]); determinant(h); sign; s]\n"
     "end\n",
     5},
    {"mandel", "function whole(n)\n  return mandel(n)\nend\n", 8},
    {"mandelbrot",
     "function whole(n)\n"
     "  inside, found = area(n, n, 40)\n"
     "  return [inside, found]\n"
     "end\n",
     8},
    {"matrix_product",
     "function whole(n)\n"
     "  return product(filled(n, 1), power(filled(n, 2), 3))\n"
     "end\n",
     2},
    {"nbody",
     "function whole(n)\n"
     "  p, v, m = bodies()\n"
     "  e = energy(p, v, m)\n"
     "  p, v = advance(p, v, m, n)\n"
     "  return [p, v]\n"
     "end\n",
     4},
    {"pancakes",
     "function whole(n)\n"
     "  checksum, most = pancakes(n)\n"
     "  return [checksum, most]\n"
     "end\n",
     4},
    {"primes", "function whole(n)\n  return primes(n)\nend\n", 200},
    {"runge_kutta",
     "function whole(n)\n"
     "  y, v = swing(n)\n"
     "  return [y, v]\n"
     "end\n",
     40},
    {"sieve",
     "function whole(n)\n"
     "  count, greatest = primesBelow(n)\n"
     "  return [count, greatest]\n"
     "end\n",
     200},
    {"spectral_norm", "function whole(n)\n  return spectralNorm(n)\nend\n", 5},
    {"tour", "function whole(n)\n  return distance(n, n + 1)\nend\n", 3},
};

/// Functions of examples that work with texts or files, which the compiler leaves alone.
const std::set<std::string> interpreted{"linesof", "show", "solve", "solveAll", "title", "typed"};

bool inFull() {
    return std::getenv("QUARN_TEST_FULL") != nullptr;
}

unsigned seedsOfEachOf(std::size_t settings) {
    constexpr std::size_t all =
#if defined(__SANITIZE_ADDRESS__)
        300; // everything takes ten times as long
#else
        1000;
#endif
    return inFull() ? 1000 : static_cast<unsigned>(all / (settings * std::size(programs)) + 1);
}

std::filesystem::path examplesFolder() {
    return std::filesystem::path(EXAMPLES);
}

/// The functions of a script without the rest of it: they begin and end in the first column.
std::map<std::string, std::string> functionsOf(const std::filesystem::path& script) {
    std::map<std::string, std::string> functions;
    std::string name;
    std::ifstream in(script);
    for (std::string line; std::getline(in, line);) {
        if (const std::string head = "function "; line.starts_with(head)) {
            name = line.substr(head.size(), line.find('(') - head.size());
        }
        if (!name.empty()) {
            functions[name] += line + '\n';
        }
        if (line == "end") {
            name.clear();
        }
    }
    return functions;
}

/// Keeps the IR of a unit as it is before the first transform.
class FirstIr final : public QN::Service {
public:
    FirstIr() { QN::DefaultServices::debugServices().addService(this); }
    void prepass(QN::TransformRun& run) override {
        if (seen_.insert(run.scope().serial()).second) {
            QN::printQnel(run.scope(), units_[std::string(run.scope().name())]);
        }
    }
    /// By the name of the function that was called.
    [[nodiscard]] const std::string& of(const std::string& unit) { return units_[unit]; }

private:
    std::set<std::uint64_t> seen_;
    std::map<std::string, std::string> units_;
};

/// A program as the front end writes it.
std::string compiled(const Program& program) {
    FirstIr first;
    varnix::InterpreterOptions options;
    options.compiler.engine = varnix::EngineChoice::Evaluator;
    varnix::Interpreter interpreter(options);
    std::string code = program.whole;
    for (const auto& [name, text] :
         functionsOf(examplesFolder() / (std::string(program.example) + ".vx"))) {
        code += text;
    }
    code += "result = whole(" + std::to_string(program.size) + ");\n";
    interpreter.runCode(code, program.example);
    return first.of("whole");
}

std::unique_ptr<QN::Scope> scopeOf(const std::string& text) {
    QN::ParseError error;
    auto scope = QN::parseQnel(text, error);
    EXPECT_NE(scope, nullptr) << error.format("text");
    return scope;
}

std::string qnelOf(const QN::Scope& scope) {
    std::string text;
    QN::printQnel(scope, text);
    return text;
}

std::string shown(const QN::Value& value) {
    if (!value.type->isArray()) {
        return std::to_string(value.bits);
    }
    std::string text =
        std::to_string(value.array.rows()) + " by " + std::to_string(value.array.cols()) + ":";
    for (std::int64_t i = 1; i <= value.array.numel(); ++i) {
        text += ' ' + std::to_string(value.array.get(i));
    }
    return text;
}

constexpr const char* trap = "trap: ";

std::string evaluated(const QN::Scope& scope, double size) {
    QN::Evaluator evaluator(scope);
    evaluator.setStepLimit(1'000'000);
    try {
        const QN::Value argument = QN::Value::ofDouble(size);
        return shown(evaluator.call(*scope.find("whole"), {&argument, 1}));
    } catch (const QN::EvaluationError& error) {
        return trap + std::string(error.what());
    }
}

std::string runAsMachineCode(QN::Engine& engine, QN::Scope& scope, double size) {
    QN::Function& whole = *scope.find("whole");
    const auto code = engine.prepare(scope, whole, "example");
    QN::Value result;
    result.type = whole.resultType();
    std::array<std::uint64_t, 2> slots{
        QN::Value::ofDouble(size).bits,
        result.type->isArray() ? reinterpret_cast<std::uint64_t>(&result.array) : 0};
    QN::ExecutionContext context;
    try {
        code->call(slots.data(), context);
    } catch (const QN::EvaluationError& error) {
        return trap + std::string(error.what());
    }
    result.bits = slots[1];
    return shown(result);
}

/// What is switched on.
struct Setting {
    unsigned changes; // bits: nodes, locals, pointers
    unsigned sides;   // bits: before, after
};

std::vector<Setting> allSettings() {
    std::vector<Setting> settings;
    for (unsigned changes = 1; changes < 8; ++changes) {
        for (unsigned sides = 1; sides < 4; ++sides) {
            settings.push_back({changes, sides});
        }
    }
    return settings;
}

/// The parameter is the place of a program in the list.
class ScrambledExample : public ::testing::TestWithParam<std::size_t> {
protected:
    /// The IR after a pipeline with scrambles. The seed decides all that has more than two choices:
    /// percentages, now and then a limit, now and then a filter.
    std::unique_ptr<QN::Scope> scrambled(const Setting& setting, unsigned seed) {
        service.setSeed(seed);
        service.setScrambleNodeList((setting.changes & 1) != 0);
        service.setScrambleLocalVars((setting.changes & 2) != 0);
        service.setIntroducePointers((setting.changes & 4) != 0);
        service.setScalarVarPointerizationThresh(static_cast<int>(seed * 37 % 101));
        service.setAggregateVarPointerizationThresh(static_cast<int>(seed * 59 % 101));
        service.setFilter(seed % 5 == 1 ? "numbering|^inlining" : "");
        service.setLimit(seed % 5 == 2 ? seed % 40 : SIZE_MAX);
        service.resetCount();
        service.setRequestedBefore((setting.sides & 1) != 0);
        service.setRequestedAfter((setting.sides & 2) != 0);
        auto scope = scopeOf(text);
        QN::runPipeline(*scope);
        service.setRequestedBefore(false);
        service.setRequestedAfter(false);
        return scope;
    }

    QN::ScrambleService service{false, false};
    const Program& program = programs[GetParam()];
    std::string text = compiled(program);
};

} // namespace

TEST_P(ScrambledExample, GivesTheSameResultsAndASeedDecides) {
    ASSERT_NE(text, "") << "the compiler did not take it";
    const double size = program.size;
    const std::string expected = evaluated(*scopeOf(text), size);
    ASSERT_FALSE(expected.starts_with(trap)) << expected;
    const auto plain = scopeOf(text);
    QN::runPipeline(*plain);
    ASSERT_EQ(evaluated(*plain, size), expected);
    const std::string optimized = qnelOf(*plain);

    const std::vector<Setting> settings = allSettings();
    const unsigned seeds = seedsOfEachOf(settings.size());
    const unsigned seedsOfEachProgram = seeds * static_cast<unsigned>(settings.size());
    unsigned seed = seedsOfEachProgram * static_cast<unsigned>(GetParam());
    const unsigned machineCodeEvery = inFull() ? 97 : 16;
    const auto engine = QN::VMRT::makeEngine(VMEngineConfig());
    std::size_t changed = 0;
    for (const Setting& setting : settings) {
        for (unsigned turn = 0; turn < seeds; ++turn) {
            ++seed; // no two programs or settings have one in common
            SCOPED_TRACE("changes " + std::to_string(setting.changes) + ", sides " +
                         std::to_string(setting.sides) + ", seed " + std::to_string(seed));
            const auto scope = scrambled(setting, seed);
            const std::string ir = qnelOf(*scope);
            const std::size_t count = service.getCount();
            ASSERT_EQ(qnelOf(*scrambled(setting, seed)), ir);
            ASSERT_EQ(service.getCount(), count);
            changed += ir != optimized ? 1 : 0;
            const QN::Verification verified = QN::verify(*scope);
            ASSERT_TRUE(verified.ok()) << toString(verified.failures()[0]);
            ASSERT_EQ(evaluated(*scope, size), expected) << ir;
            if (seed % machineCodeEvery == 0) {
                ASSERT_EQ(runAsMachineCode(*engine, *scope, size), expected) << ir;
            }
        }
    }
    EXPECT_GT(changed, seedsOfEachProgram / 2) << "it seldom did anything";
}

INSTANTIATE_TEST_SUITE_P(Programs, ScrambledExample,
                         ::testing::Range<std::size_t>(0, std::size(programs)),
                         [](const auto& test) {
                             return std::string(programs[test.param].example);
                         });

TEST(ScrambledExamples, AreAllExamplesThatTheCompilerTakes) {
    std::map<std::string, const Program*> known;
    for (const Program& program : programs) {
        known.emplace(program.example, &program);
    }
    for (const auto& file : std::filesystem::directory_iterator(examplesFolder())) {
        if (file.path().extension() != ".vx") {
            continue;
        }
        const auto program = known.find(file.path().stem());
        const std::string ir = program == known.end() ? "" : compiled(*program->second);
        for (const auto& [name, text] : functionsOf(file.path())) {
            EXPECT_TRUE(interpreted.contains(name) ||
                        ir.find("(function " + name) != std::string::npos)
                << name << " of " << file.path() << " is in no program of this test";
        }
    }
}
