// The group `vmrt`: what compiling a function to machine code takes, and calling it.
//
// Both sides get the same function; the peer the LLVM IR that ours was turned into before LLVM's
// transforms, as text read beforehand, so that making LLVM IR counts on our side only.
#include "groups.hpp"
#include "lang/interpreter.hpp"
#include "peers/lljit.hpp"
#include "process.hpp"

#include <qn/cfg.hpp>
#include <qn/default_services.hpp>
#include <qn/engine.hpp>
#include <qn/scope.hpp>
#include <qn/text.hpp>
#include <qn/vmrt/engine.hpp>
#include <ts/debug_log.hpp>

#include <bit>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace bench {
namespace {

using QN::VMRT::VMEngineConfig;

/// The sum of the squares of an array's elements: a loop, a variable or two, a check of bounds.
const char* const squares = R"((function squares f64 (param $a f64[]) (user $s f64) (user $i i64)
  (block b0 (jump b1))
  (block b1 (%1 i64 load $i) (%2 i64 numel $a) (%3 logical lt %1 %2) (br %3 b2 b3))
  (block b2 (%4 i64 add %1 1i64) (store $i %4) (%6 f64 ldelem $a %4) (%7 f64 load $s)
            (%8 f64 mul %6 %6) (%9 f64 add %7 %8) (store $s %9) (jump b1))
  (block b3 (%10 f64 load $s) (ret %10))))";

const char* const product = R"((function product f64 (param $a f64) (param $b f64)
  (block b0 (%1 f64 load $a) (%2 f64 load $b) (%3 f64 mul %1 %2) (%4 f64 add %3 1.5) (ret %4))))";

std::shared_ptr<QN::Scope> scopeOf(const char* text) {
    QN::ParseError error;
    std::shared_ptr<QN::Scope> scope = QN::parseQnel(text, error);
    if (scope == nullptr) {
        throw std::runtime_error(error.format("function"));
    }
    return scope;
}

VMEngineConfig configAt(VMEngineConfig::JitOptimizationLevel level) {
    VMEngineConfig config;
    config.setJitOptimizationLevel(level);
    config.setDeleteCoreFcnCfgAfterConversion(false);
    return config;
}

/// The LLVM IR of a function before LLVM's transforms.
std::string irOf(const char* text) {
    namespace fs = std::filesystem;
    const fs::path folder =
        fs::temp_directory_path() / ("bench-vmrt-" + std::to_string(::getpid()));
    auto& log = QN::DefaultServices::debugServices().debugLog();
    log.setLogDirectory(folder.string());
    VMEngineConfig config = configAt(VMEngineConfig::OptNone);
    config.setDumpLlvmIR(true);
    const auto scope = scopeOf(text);
    static_cast<void>(
        QN::VMRT::makeEngine(config)->prepare(*scope, *scope->functions().front(), ""));
    std::string ir;
    for (const auto& entry : fs::directory_iterator(folder)) {
        std::ifstream file(entry.path());
        ir.assign(std::istreambuf_iterator<char>(file), {});
    }
    log.setLogDirectory("");
    fs::remove_all(folder);
    return ir;
}

LoopMaker compilesNext(const char* text, VMEngineConfig::JitOptimizationLevel level) {
    return [text, level] {
        const auto scope = scopeOf(text);
        std::shared_ptr<QN::Engine> engine = QN::VMRT::makeEngine(configAt(level));
        return repeat([scope, engine] {
            keep(engine->prepare(*scope, *scope->functions().front(), "").get());
        });
    };
}

LoopMaker compilesFirst(const char* text, VMEngineConfig::JitOptimizationLevel level) {
    return [text, level] {
        const auto scope = scopeOf(text);
        return repeat([scope, level] {
            const auto engine = QN::VMRT::makeEngine(configAt(level));
            keep(engine->prepare(*scope, *scope->functions().front(), "").get());
        });
    };
}

LoopMaker lljitNext(const char* text, const char* name, int level) {
    return [=] {
        const auto peer = std::make_shared<PlainLljit>(irOf(text), name, level);
        return repeat([peer] { peer->compileNext(); });
    };
}

LoopMaker lljitFirst(const char* text, const char* name, int level) {
    return [=] {
        const auto peer = std::make_shared<PlainLljit>(irOf(text), name, level);
        return repeat([peer] { peer->compileFirst(); });
    };
}

LoopMaker callsProduct() {
    return [] {
        const auto scope = scopeOf(product);
        std::shared_ptr<QN::Engine> engine =
            QN::VMRT::makeEngine(configAt(VMEngineConfig::OptDefault));
        std::shared_ptr<QN::Executable> code =
            engine->prepare(*scope, *scope->functions().front(), "");
        return repeat([engine, code] {
            std::uint64_t words[3] = {std::bit_cast<std::uint64_t>(2.0),
                                      std::bit_cast<std::uint64_t>(3.0), 0};
            QN::ExecutionContext context;
            code->call(words, context);
            keep(words[2]);
        });
    };
}

/// A loop that the script's machine runs, since it stands in no function, around a call of one that
/// is compiled.
LoopMaker callsFromScript() {
    return [] {
        auto interpreter = std::make_shared<varnix::Interpreter>();
        interpreter->runCode("function f(x, y)\n  return x * y + 1.5\nend\nf(1, 2);\n",
                             "bench"); // compiled now
        return Loop([interpreter](std::size_t count) {
            interpreter->runCode("for i = 1:" + std::to_string(count) + "\n  s = f(i, 2);\nend\n",
                                 "bench");
        });
    };
}

/// Removed with the last loop that uses it.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text)
        : path_(std::filesystem::temp_directory_path() /
                ("bench-vmrt-" + std::to_string(::getpid()) + ".ll")) {
        std::ofstream(path_) << text;
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { std::filesystem::remove(path_); }
    [[nodiscard]] std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

const char* const ours = "machine-code";
const char* const peers = "lljit";

LoopMaker firstOfProcess(const char* subject, const char* level) {
    return [=] {
        const auto file = std::make_shared<TemporaryFile>(irOf(squares));
        return repeat([=] {
            reportTime(std::stod(
                outputOfThisProgram({"--first-compilation", subject, level, file->path()})));
        });
    };
}

} // namespace

double firstCompilation(const std::vector<std::string>& arguments) {
    const int level = std::stoi(arguments[1]);
    if (arguments[0] == peers) {
        std::ifstream file(arguments[2]);
        const std::string ir{std::istreambuf_iterator<char>(file), {}};
        return PlainLljit::compileFirstOfProcess(ir, "squares", level);
    }
    const auto scope = scopeOf(squares);
    const VMEngineConfig config =
        configAt(level == 0 ? VMEngineConfig::OptNone : VMEngineConfig::OptDefault);
    std::unique_ptr<QN::Engine> engine;
    std::unique_ptr<QN::Executable> code;
    return processorTimeOf([&] {
        engine = QN::VMRT::makeEngine(config);
        code = engine->prepare(*scope, *scope->functions().front(), "");
    });
}

Group buildVmrtFirst() {
    Group group;
    group.clock = Clock::reported;
    group.subjects = {"machine code", "plain LLJIT"};
    group.rows = {{.operation = "compile a loop, None",
                   .makers = {firstOfProcess(ours, "0"), firstOfProcess(peers, "0")}},
                  {.operation = "compile a loop, Default",
                   .makers = {firstOfProcess(ours, "2"), firstOfProcess(peers, "2")}}};
    return group;
}

Group buildVmrt() {
    Group group;
    group.subjects = {"machine code", "plain LLJIT"};
    group.rows = {
        {.operation = "compile a small function, None",
         .makers = {compilesNext(product, VMEngineConfig::OptNone),
                    lljitNext(product, "product", 0)}},
        {.operation = "compile a loop, None",
         .makers = {compilesNext(squares, VMEngineConfig::OptNone),
                    lljitNext(squares, "squares", 0)}},
        {.operation = "compile a small function, Default",
         .makers = {compilesNext(product, VMEngineConfig::OptDefault),
                    lljitNext(product, "product", 2)}},
        {.operation = "compile a loop, Default",
         .makers = {compilesNext(squares, VMEngineConfig::OptDefault),
                    lljitNext(squares, "squares", 2)}},
        {.operation = "make a compiler, compile a loop, None",
         .makers = {compilesFirst(squares, VMEngineConfig::OptNone),
                    lljitFirst(squares, "squares", 0)}},
        {.operation = "make a compiler, compile a loop, Default",
         .makers = {compilesFirst(squares, VMEngineConfig::OptDefault),
                    lljitFirst(squares, "squares", 2)}},
        {.operation = "call of a function of two numbers", .makers = {callsProduct(), LoopMaker()}},
        {.operation = "the same from a script's loop, the turn included",
         .makers = {callsFromScript(), LoopMaker()}},
    };
    return group;
}

} // namespace bench
