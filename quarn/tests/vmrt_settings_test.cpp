// Each setting of the engine by its effect.
#include "vmrt_support.hpp"

#include <qn/console.hpp>
#include <qn/default_services.hpp>
#include <qn/pipeline.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/time.h>
#include <ucontext.h>

using namespace QN;
using namespace QN::vmrt_test;
namespace fs = std::filesystem;

namespace {

const char* const sums =
    R"((function sums f64 (param $n f64) (param $a f64[]) (user $s f64) (user $i f64)
  (block b0 (jump b1 @1))
  (block b1 (%1 f64 load $i @2) (%2 f64 load $n @2) (%3 logical lt %1 %2 @2) (br %3 b2 b3 @2))
  (block b2 (%4 f64 add %1 1.0 @3) (store $i %4 @3) (%5 i64 toindex %4 @3) (%6 f64 ldelem $a %5 @3)
            (%7 f64 load $s @3) (%8 f64 mul %6 %6 @3) (%9 f64 add %7 %8 @3) (store $s %9 @3)
            (jump b1 @3))
  (block b3 (%10 f64 load $s @4) (%11 f64 floor %10 @4) (ret %11 @4))))";

/// Console text and files of one test.
class VmrtSettings : public ::testing::Test {
protected:
    VmrtSettings() {
        folder_ = fs::temp_directory_path() /
                  ("vmrt-test-" + std::to_string(::getpid()) + "-" +
                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        DefaultServices::debugServices().debugLog().setLogDirectory(folder_.string());
        setConsoleSink(
            [](void* context, std::string_view text) {
                static_cast<std::string*>(context)->append(text);
            },
            &console_);
    }
    ~VmrtSettings() override {
        setConsoleSink(nullptr, nullptr);
        DefaultServices::debugServices().debugLog().setLogDirectory("");
        fs::remove_all(folder_);
    }

    std::unique_ptr<Executable> compile(const VMEngineConfig& config, const char* text,
                                        const char* name) {
        scope_ = parsed(text);
        engines_.push_back(VMRT::makeEngine(config));
        return engines_.back()->prepare(*scope_, *scope_->find(name), "/scripts/sums.vx");
    }
    /// The contents of the only file with that ending; the files go.
    std::string dumped(const std::string& ending) {
        std::string text;
        int count = 0;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            if (entry.path().extension() == "." + ending) {
                std::ifstream file(entry.path());
                text.assign(std::istreambuf_iterator<char>(file), {});
                last_ = entry.path();
                ++count;
            }
        }
        EXPECT_EQ(count, 1) << ending;
        return text;
    }
    void clear() {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    std::string assemblyOf(VMEngineConfig config, const char* text = sums,
                           const char* name = "sums") {
        clear();
        config.setDumpHostAssembly(true);
        static_cast<void>(compile(config, text, name));
        return dumped("s");
    }
    std::string irOf(VMEngineConfig config, const char* text = sums, const char* name = "sums") {
        clear();
        config.setDumpLlvmIR(true);
        static_cast<void>(compile(config, text, name));
        return dumped("ll");
    }

    fs::path folder_;
    fs::path last_;
    std::string console_;
    std::unique_ptr<Scope> scope_;
    std::vector<std::unique_ptr<VMRT::MachineCodeEngine>> engines_;
};

bool has(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

bool toolExists(const char* tool) {
    return std::system(("command -v " + std::string(tool) + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<Value> numbers(double n) {
    ArrayValue array(ScalarKind::Double, 4, 1);
    for (std::int64_t i = 1; i <= 4; ++i) {
        array.set(i, bitsOf(static_cast<double>(i) + 0.25));
    }
    return {Value::ofDouble(n), Value::ofArray(std::move(array))};
}

} // namespace

TEST_F(VmrtSettings, LevelsMakeOtherCode) {
    const std::string none = irOf(atLevel(VMEngineConfig::OptNone));
    EXPECT_TRUE(has(none, "alloca double")) << "nothing is transformed";
    for (const auto level : {VMEngineConfig::OptLess, VMEngineConfig::OptDefault,
                             VMEngineConfig::OptAggressive, VMEngineConfig::OptAccelerator}) {
        EXPECT_FALSE(has(irOf(atLevel(level)), "alloca double")) << level;
    }
    EXPECT_EQ(assemblyOf(atLevel(VMEngineConfig::OptUnspecified)),
              assemblyOf(atLevel(VMEngineConfig::OptDefault)));
    EXPECT_NE(assemblyOf(atLevel(VMEngineConfig::OptNone)),
              assemblyOf(atLevel(VMEngineConfig::OptLess)));
    // Two operations of one kind side by side become one from Aggressive on.
    const char* const pair = R"((function f f64[] (param $a f64[])
      (block b0 (%2 f64 ldelem:inb $a 1i64) (%3 f64 ldelem:inb $a 2i64)
                (%4 f64 mul %2 3.0) (%5 f64 mul %3 3.0)
                (stelem:inb $a 1i64 %4) (stelem:inb $a 2i64 %5) (%6 f64[] load $a) (ret %6))))";
    EXPECT_FALSE(has(irOf(atLevel(VMEngineConfig::OptDefault), pair, "f"), "<2 x double>"));
    EXPECT_TRUE(has(irOf(atLevel(VMEngineConfig::OptAggressive), pair, "f"), "<2 x double>"));
}

TEST_F(VmrtSettings, AggressiveGoesFurtherThanDefault) {
    // A call site that only the highest level splits by what is known of the argument.
    const char* const text = R"((function f f64 (param $x f64[]) (user $i i64) (user $s f64)
      (block b0 (jump b1))
      (block b1 (%1 i64 load $i) (%2 logical lt %1 12i64) (br %2 b2 b5))
      (block b2 (%3 f64 ldelem $x 1i64) (%4 logical gt %3 0.0) (br %4 b3 b4))
      (block b3 (%5 f64 load $s) (%6 f64 add %5 1.5) (store $s %6) (jump b4))
      (block b4 (%7 i64 add %1 1i64) (store $i %7) (jump b1))
      (block b5 (%8 f64 load $s) (ret %8))))";
    EXPECT_NE(irOf(atLevel(VMEngineConfig::OptDefault), text, "f"),
              irOf(atLevel(VMEngineConfig::OptAggressive), text, "f"));
}

TEST_F(VmrtSettings, AcceleratorIsForThisProcessor) {
    std::ifstream info("/proc/cpuinfo");
    const std::string text{std::istreambuf_iterator<char>(info), {}};
    if (!has(text, " avx ")) {
        GTEST_SKIP() << "this processor has nothing that all others do not have";
    }
    EXPECT_TRUE(has(assemblyOf(atLevel(VMEngineConfig::OptAccelerator)), "vmulsd"));
    EXPECT_FALSE(has(assemblyOf(atLevel(VMEngineConfig::OptAggressive)), "vmulsd"));
}

TEST_F(VmrtSettings, FastISelChoosesTheSelectorAtLevelNone) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptNone);
    config.setEnableFastISel(true);
    const std::string fast = assemblyOf(config);
    config.setEnableFastISel(false);
    const std::string slow = assemblyOf(config);
    EXPECT_NE(fast, slow);
    config.setEnableFastISel(true);
    EXPECT_EQ(assemblyOf(config), fast) << "the switch of the process is put back";
}

TEST_F(VmrtSettings, DumpsAreWhatLlvmsToolsRead) {
    if (!toolExists("llvm-as-19") || !toolExists("opt-19") || !toolExists("llvm-mc-19")) {
        GTEST_SKIP() << "llvm-as-19, opt-19 and llvm-mc-19 are needed (package llvm-19)";
    }
    for (const auto level : allLevels) {
        for (std::uint32_t seed = 1; seed <= 3; ++seed) {
            VMEngineConfig config = atLevel(level);
            config.setDumpLlvmIR(true);
            config.setDumpHostAssembly(true);
            config.setJitEmitDebugInfo(seed == 2);
            clear();
            const auto scope = tools::generate({seed});
            const auto engine = VMRT::makeEngine(config);
            static_cast<void>(engine->prepare(*scope, *scope->find("f2"), "generated.vx"));
            dumped("ll");
            EXPECT_TRUE(last_.filename().string().starts_with("f2"));
            EXPECT_EQ(std::system(("llvm-as-19 -o - " + last_.string() +
                                   " | opt-19 -passes=verify -disable-output")
                                      .c_str()),
                      0);
            dumped("s");
            EXPECT_EQ(std::system(("llvm-mc-19 -filetype=obj -triple=x86_64-linux-gnu "
                                   "-o /dev/null " +
                                   last_.string())
                                      .c_str()),
                      0);
        }
    }
    EXPECT_EQ(console_, "");
}

TEST_F(VmrtSettings, NothingIsDumpedUnlessAskedFor) {
    static_cast<void>(compile(atLevel(VMEngineConfig::OptDefault), sums, "sums"));
    EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(VmrtSettings, FramePointersAreKeptOrNot) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    config.setFramePointerPolicy(VMEngineConfig::FramePointerPreserve);
    EXPECT_TRUE(has(assemblyOf(config), "movq\t%rsp, %rbp"));
    config.setFramePointerPolicy(VMEngineConfig::FramePointerEliminate);
    const std::string without = assemblyOf(config);
    EXPECT_FALSE(has(without, "movq\t%rsp, %rbp"));
    config.setFramePointerPolicy(VMEngineConfig::FramePointerUnspecified);
    EXPECT_EQ(assemblyOf(config), without);
}

#if defined(__x86_64__)
namespace {

/// What a sampling profiler does at its timer's signal: where the program is, and who called whom,
/// found by nothing but frame pointers.
struct Sampler {
    static constexpr int mostFrames = 200;
    static inline std::uintptr_t codeBegin = 0;
    static inline std::uintptr_t codeEnd = 0;
    static inline std::uintptr_t stackTop = 0;
    static inline volatile std::sig_atomic_t done = 0;
    static inline int framesInCode = 0;

    static bool isCode(std::uintptr_t address) { return address >= codeBegin && address < codeEnd; }

    static void sample(int, siginfo_t*, void* context) {
        const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
        if (!isCode(static_cast<std::uintptr_t>(registers[REG_RIP]))) {
            return; // the next tick
        }
        framesInCode = 1;
        auto frame = static_cast<std::uintptr_t>(registers[REG_RBP]);
        auto lowest = static_cast<std::uintptr_t>(registers[REG_RSP]);
        for (int i = 0; i < mostFrames && frame >= lowest && frame < stackTop && frame % 8 == 0;
             ++i) {
            const auto* const saved = reinterpret_cast<const std::uintptr_t*>(frame);
            if (!isCode(saved[1])) {
                break;
            }
            ++framesInCode;
            lowest = frame + 1;
            frame = saved[0];
        }
        done = 1; // which ends the program that is looked at
    }

    /// Finds the code of the only engine.
    static void findCode() {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            if (has(line, "quarn-code") && has(line, "r-x")) {
                std::size_t end = 0;
                codeBegin = std::stoull(line, &end, 16);
                codeEnd = std::stoull(line.substr(end + 1), nullptr, 16);
            }
        }
    }
};

} // namespace

TEST_F(VmrtSettings, SampledStacksShowTheFunctionsThatKeepTheirFramePointers) {
    // Calls itself n times, then goes round until somebody asks it to stop.
    const char* const dive = R"((function dive f64 (param $n f64)
      (block b0 (%1 f64 load $n) (%2 logical lt %1 1.0) (br %2 b1 b2))
      (block b1 (jump b1))
      (block b2 (%3 f64 sub %1 1.0) (%4 f64 call &dive %3) (%5 f64 mul %4 1.5) (%6 f64 add %5 %1)
                (ret %6))))";
    constexpr int depth = 20;
    const auto framesSeen = [&](VMEngineConfig::JitFramePointerPolicy policy) {
        VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
        config.setFramePointerPolicy(policy);
        engines_.clear(); // one mapping of code at a time
        const auto code = compile(config, dive, "dive");
        Sampler::findCode();
        Sampler::stackTop = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        Sampler::done = 0;
        Sampler::framesInCode = 0;
        struct sigaction action = {};
        action.sa_sigaction = Sampler::sample;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGALRM, &action, nullptr);
        const itimerval every{{0, 2'000}, {0, 2'000}};
        setitimer(ITIMER_REAL, &every, nullptr);
        ExecutionContext context;
        context.interruptRequested = &Sampler::done;
        std::uint64_t words[2] = {bitsOf(static_cast<double>(depth)), 0};
        EXPECT_THROW(code->call(words, context), EvaluationError);
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        std::signal(SIGALRM, SIG_DFL);
        return Sampler::framesInCode;
    };
    EXPECT_GT(framesSeen(VMEngineConfig::FramePointerPreserve), depth);
    const int without = framesSeen(VMEngineConfig::FramePointerEliminate);
    EXPECT_GE(without, 1);
    EXPECT_LT(without, depth);
}
#endif

TEST_F(VmrtSettings, SoftFloatUsesNoFloatingPointInstruction) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    EXPECT_TRUE(has(assemblyOf(config), "mulsd"));
    config.setUseSoftFloat(true);
    const std::string soft = assemblyOf(config);
    EXPECT_FALSE(has(soft, "xmm"));
    EXPECT_TRUE(has(soft, "__muldf3"));
    const auto code = compile(config, sums, "sums");
    EXPECT_EQ(shown(callWith(*code, *Type::f64(), numbers(4))),
              evaluatedOutcome(*scope_, *scope_->find("sums"), numbers(4)));
}

TEST_F(VmrtSettings, TheGraphGoesOnceItIsConvertedIfThatIsSet) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    config.setDeleteCoreFcnCfgAfterConversion(true);
    static_cast<void>(compile(config, sums, "sums"));
    EXPECT_FALSE(scope_->find("sums")->hasCfg());
    config.setDeleteCoreFcnCfgAfterConversion(false);
    static_cast<void>(compile(config, sums, "sums"));
    EXPECT_TRUE(scope_->find("sums")->hasCfg());
}

TEST_F(VmrtSettings, ChecksOfDivisionAndConversionTrapOnlyWhenTheyAreOn) {
    const char* const text = R"((function f i32 (param $x f64) (param $y i32)
      (block b0 (%1 f64 load $x) (%2 i32 convert %1 @3) (%3 i32 load $y) (%4 i32 div %2 %3 @4)
                (ret %4))))";
    struct Row {
        double x;
        std::int64_t y;
        TrapCode code;
        std::uint32_t line;
    };
    const Row rows[] = {{6, 3, TrapCode{}, 0},
                        {6, 0, TrapCode::DivisionByZero, 4},
                        {6.5, 3, TrapCode::LossyConversion, 3},
                        {1e10, 3, TrapCode::LossyConversion, 3},
                        {std::nan(""), 3, TrapCode::LossyConversion, 3}};
    for (const bool on : {false, true}) {
        VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
        config.setInsertRuntimeChecks(on);
        const auto code = compile(config, text, "f");
        for (const Row& row : rows) {
            const std::vector<Value> arguments = {Value::ofDouble(row.x),
                                                  Value::ofInt(Type::i32(), row.y)};
            try {
                const Value value = callWith(*code, *Type::i32(), arguments);
                EXPECT_TRUE(!on || row.line == 0);
                EXPECT_EQ(shown(value), evaluatedOutcome(*scope_, *scope_->find("f"), arguments));
            } catch (const EvaluationError& error) {
                EXPECT_TRUE(on);
                EXPECT_EQ(error.code(), row.code);
                EXPECT_EQ(error.line(), row.line);
            }
        }
    }
    EXPECT_EQ(console_, "") << "nobody asked for reports";
}

TEST_F(VmrtSettings, ChecksThatAreOffLeaveNoTrace) {
    const std::string plain = irOf(atLevel(VMEngineConfig::OptDefault));
    VMEngineConfig reporting = atLevel(VMEngineConfig::OptDefault);
    reporting.setUseDebugReporter(true);
    EXPECT_EQ(irOf(reporting), plain) << "a report costs nothing before it is made";
    VMEngineConfig checking = reporting;
    checking.setInsertRuntimeChecks(true);
    const char* const divides = "(function f f64 (param $x f64) (block b0 (%1 f64 load $x) "
                                "(%2 f64 div 1.0 %1) (ret %2)))";
    EXPECT_FALSE(has(irOf(reporting, divides, "f"), "fcmp"));
    EXPECT_TRUE(has(irOf(checking, divides, "f"), "fcmp"));
}

TEST_F(VmrtSettings, ChecksLookAtAccessesThatAreSaidToBeInBounds) {
    const char* const lie = "(function f f64 (param $a f64[]) (block b0 "
                            "(%1 f64 ldelem:inb $a 5i64 @8) (ret %1)))";
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    config.setInsertRuntimeChecks(true);
    const auto code = compile(config, lie, "f");
    EXPECT_THROW(callWith(*code, *Type::f64(), {numbers(1)[1]}), EvaluationError);
}

TEST_F(VmrtSettings, TheReporterSaysWhereOnTheConsole) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    config.setUseDebugReporter(true);
    const auto code = compile(config, sums, "sums");
    EXPECT_EQ(machineOutcome(*code, *scope_->find("sums"), numbers(5)),
              "trap in sums at 3: index out of bounds");
    EXPECT_EQ(console_, "sums: line 3: index out of bounds\n");
}

using VmrtSettingsDeathTest = VmrtSettings;

TEST_F(VmrtSettingsDeathTest, AbortOnErrorEndsTheProcessWithTheReport) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto fails = [&] {
        setConsoleSink(
            [](void*, std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); },
            nullptr);
        VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
        config.setInsertRuntimeChecks(true);
        config.setUseDebugReporter(true);
        config.setAbortOnError(true);
        const auto code = compile(config, sums, "sums");
        callWith(*code, *Type::f64(), numbers(5));
    };
    EXPECT_EXIT(fails(), ::testing::KilledBySignal(SIGABRT), "sums: line 3: index out of bounds");
}

TEST_F(VmrtSettings, PrintsWhatItExecutes) {
    const char* const text = R"((function f f64 (param $x f64) (block b0 (%1 f64 load $x @2)
      (%2 f64 add %1 1.0 @3) (ret %2 @4))))";
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    const auto run = [&] {
        console_.clear();
        const auto code = compile(config, text, "f");
        EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(1)}).asDouble(), 2);
        return console_;
    };
    EXPECT_EQ(run(), "");
    config.setInstrumentIRDebugPrint(VMEngineConfig::DebugPrintPrintf);
    const std::string operations = run();
    EXPECT_EQ(std::count(operations.begin(), operations.end(), '\n'), 3) << operations;
    EXPECT_TRUE(has(operations, "f:3: ")) << operations;
    EXPECT_TRUE(has(operations, "add")) << operations;
    config.setInstrumentIRVerbosityLLVMIR(true);
    EXPECT_TRUE(has(run(), "f: llvm:  %"));
    EXPECT_TRUE(has(console_, "fadd double")) << console_;
    EXPECT_TRUE(has(console_, "f:3: "));
    config.setInstrumentIRVerbosityQUARN(false);
    EXPECT_FALSE(has(run(), "f:3: "));
    EXPECT_TRUE(has(console_, "fadd double"));
    config.setInstrumentIRDebugPrint(VMEngineConfig::DebugPrintValgrind);
    EXPECT_EQ(run(), "") << "silent outside valgrind";
    EXPECT_TRUE(has(irOf(config, text, "f"), "qn_print_valgrind"));
}

/// The text that a command prints.
std::string outputOf(const std::string& command) {
    std::string text;
    FILE* const pipe = popen((command + " 2>&1 </dev/null").c_str(), "r");
    for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) {
        text.push_back(static_cast<char>(c));
    }
    if (pipe != nullptr) {
        pclose(pipe);
    }
    return text;
}

std::string quarnOpt() {
    return fs::canonical("/proc/self/exe").parent_path().parent_path() / "bin" / "quarn-opt";
}

TEST_F(VmrtSettings, DebuggersStopInCompiledFunctionsAndShowTheirLines) {
    if (!toolExists("gdb")) {
        GTEST_SKIP() << "gdb is needed";
    }
    const fs::path file = folder_ / "sums.qnel";
    std::ofstream(file) << R"((function counted f64 @1 (param $n f64) (user $s f64)
  (block b0 (%1 f64 load $n @2)
            (%2 f64 add %1 1.0 @3)
            (store $s %2 @3)
            (%3 f64 load $s @6)
            (ret %3 @6))))";
    const auto debugged = [&](const std::string& options) {
        return outputOf("gdb -nx -batch -ex 'set breakpoint pending on' "
                        "-ex 'set debuginfod enabled off' -ex 'break counted' -ex run -ex bt "
                        "-ex next --args " +
                        quarnOpt() + " " + file.string() +
                        " --run counted --engine llvm --level 0 --args 10 " + options);
    };
    const std::string text = debugged("--debug-info");
    EXPECT_TRUE(has(text, ", counted () at ")) << text;
    EXPECT_TRUE(has(text, "sums.qnel:3")) << text;
    EXPECT_TRUE(has(text, "\n6\t")) << "the next line: " << text;
    EXPECT_TRUE(has(text, "main ()")) << "down to the program: " << text;
    const std::string without = debugged("");
    EXPECT_FALSE(has(without, "counted () at")) << without;
    EXPECT_TRUE(has(without, "11")) << without;
}

TEST_F(VmrtSettings, ValgrindsLogShowsWhatIsExecuted) {
    if (!toolExists("valgrind")) {
        GTEST_SKIP() << "valgrind is needed";
    }
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "valgrind does not run sanitized programs";
#endif
    const fs::path file = folder_ / "f.qnel";
    std::ofstream(file) << "(function f f64 (block b0 (%1 f64 add 1.0 2.0 @7) (ret %1 @8)))";
    const std::string command =
        quarnOpt() + " " + file.string() + " --run f --engine llvm --level 0 --valgrind-print";
    EXPECT_EQ(outputOf(command), "3\n");
    const std::string text = outputOf("valgrind --tool=none " + command);
    EXPECT_TRUE(has(text, "f:7: ")) << text;
    EXPECT_TRUE(has(text, "add")) << text;
}

TEST_F(VmrtSettings, DwarfIsInTheCodeIfThatIsSet) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptDefault);
    EXPECT_FALSE(has(assemblyOf(config), ".debug_info"));
    config.setEmitDWARF(true);
    const std::string text = assemblyOf(config);
    EXPECT_TRUE(has(text, ".debug_info"));
    EXPECT_TRUE(has(text, "sums.vx"));
}
