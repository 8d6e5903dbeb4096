// Units, traps, contexts, arrays and the life of code.
#include "vmrt_support.hpp"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sys/prctl.h>
#include <sys/time.h>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

/// A function of two doubles, different for each number.
std::string small(int number) {
    return "(function f" + std::to_string(number) + " f64 (param $a f64) (param $b f64)" +
           " (block b0 (%1 f64 load $a) (%2 f64 load $b) (%3 f64 mul %1 %2)" + " (%4 f64 add %3 " +
           std::to_string(number) + ".5) (ret %4)))";
}

double call2(Executable& code, double a, double b) {
    std::uint64_t words[3] = {bitsOf(a), bitsOf(b), 0};
    ExecutionContext context;
    code.call(words, context);
    return asDouble(words[2]);
}

/// While one lives, the kernel makes no large pages for the process. In the background it puts them
/// in the place of a few small ones that are left of other tests' pools, and resident memory grows
/// by what was not there.
class NoLargePages {
public:
    NoLargePages() : before_(::prctl(PR_GET_THP_DISABLE, 0UL, 0UL, 0UL, 0UL)) { set(1); }
    NoLargePages(const NoLargePages&) = delete;
    NoLargePages& operator=(const NoLargePages&) = delete;
    ~NoLargePages() { set(before_ == 1 ? 1 : 0); }

private:
    static void set(unsigned long off) { ::prctl(PR_SET_THP_DISABLE, off, 0UL, 0UL, 0UL); }

    int before_;
};

std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * 4096;
}

std::size_t mappingsOfCode() {
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("quarn-code") != std::string::npos ? 1 : 0;
    }
    return count;
}

const char* const fib = R"((function fib f64 (param $n f64)
  (block b0 (%1 f64 load $n) (%2 logical lt %1 2.0) (br %2 b1 b2))
  (block b1 (ret %1))
  (block b2 (%3 f64 sub %1 1.0) (%4 f64 call &fib %3 @7) (%5 f64 sub %1 2.0)
            (%6 f64 call &fib %5 @7) (%7 f64 add %4 %6) (ret %7))))";

} // namespace

TEST(VmrtEngine, RunsAFunction) {
    const auto engine = VMRT::makeEngine();
    EXPECT_EQ(engine->name(), "llvm");
    const auto scope = parsed(small(3));
    const auto code = engine->prepare(*scope, *scope->find("f3"), "");
    EXPECT_EQ(call2(*code, 2, 5), 13.5);
    EXPECT_FALSE(code->needsScope());
}

TEST(VmrtEngine, CodeOutlivesItsScope) {
    const auto engine = VMRT::makeEngine();
    auto scope = parsed(small(1));
    const auto code = engine->prepare(*scope, *scope->find("f1"), "");
    scope.reset();
    EXPECT_EQ(call2(*code, 2, 2), 5.5);
}

TEST(VmrtEngine, RecursionEndsWhereTheContextSaysAndGivesItsDepthBack) {
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto scope = parsed(fib);
        Function& function = *scope->find("fib");
        const auto code = engine->prepare(*scope, function, "");
        EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(20)}).asDouble(), 6765);
        EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(4)}, 4).asDouble(), 3);
        try {
            callWith(*code, *Type::f64(), {Value::ofDouble(4)}, 3);
            ADD_FAILURE() << "too deep";
        } catch (const EvaluationError& error) {
            EXPECT_EQ(error.code(), TrapCode::StackOverflow);
            EXPECT_EQ(error.function(), "fib");
            EXPECT_EQ(error.line(), 7U);
        }
        // A limit beyond what the stack holds ends in the same way.
        ExecutionContext context;
        context.depthLeft = std::int64_t{1} << 40;
        const auto endless = parsed("(function f f64 (block b0 (%1 f64 call &f @3) "
                                    "(%2 f64 add %1 1.0) (ret %2)))");
        const auto deep = engine->prepare(*endless, *endless->find("f"), "");
        std::uint64_t word = 0;
        EXPECT_THROW(deep->call(&word, context), EvaluationError);
        EXPECT_EQ(context.depthLeft, std::int64_t{1} << 40);
        context.depthLeft = 0;
        EXPECT_THROW(deep->call(&word, context), EvaluationError);
    }
}

namespace {
volatile std::sig_atomic_t asked = 0;
}

TEST(VmrtEngine, LoopsEndWhenSomebodyAsks) {
    for (const char* const text :
         {"(function f void (block b0 (jump b1)) (block b1 (jump b1)))",
          "(function f i64 (user $i i64) (block b0 (jump b1)) (block b1 (%1 i64 load $i) "
          "(%2 i64 add %1 1i64) (store $i %2) (%3 logical lt %2 9223372036854775807i64) "
          "(br %3 b1 b2)) (block b2 (%4 i64 load $i) (ret %4)))",
          "(function f i64 (user $i i64) (block b0 (store $i 9223372036854775800i64) (jump b1)) "
          "(block b1 (%1 i64 load $i) (%3 logical le %1 9223372036854775807i64) (br %3 b3 b2)) "
          "(block b3 (%2 i64 add %1 1i64) (store $i %2) (jump b1)) "
          "(block b2 (%4 i64 load $i) (ret %4)))",
          "(function f f64 (user $i i64) (user $s f64) (block b0 (jump b1)) "
          "(block b1 (%1 i64 load $i) (%3 logical lt %1 9223372036854775807i64) (br %3 b3 b2)) "
          "(block b3 (%2 i64 add %1 1i64) (store $i %2) (%5 f64 load $s) (%6 f64 convert %1) "
          "(%7 f64 add %5 %6) (store $s %7) (jump b1)) "
          "(block b2 (%4 f64 load $s) (ret %4)))"}) {
        for (const auto level : allLevels) {
            const auto engine = VMRT::makeEngine(atLevel(level));
            const auto scope = parsed(text);
            const auto code = engine->prepare(*scope, *scope->find("f"), "");
            asked = 0;
            std::signal(SIGALRM, [](int) { asked = 1; });
            const itimerval soon{{0, 0}, {0, 20'000}};
            setitimer(ITIMER_REAL, &soon, nullptr);
            ExecutionContext context;
            context.interruptRequested = &asked;
            std::uint64_t word = 0;
            try {
                code->call(&word, context);
                ADD_FAILURE() << "it came to an end: " << text;
            } catch (const EvaluationError& error) {
                EXPECT_EQ(error.code(), TrapCode::Interrupted);
            }
        }
    }
    std::signal(SIGALRM, SIG_DFL);
}

TEST(VmrtEngine, ArgumentsThatWereLentAreCopiedBeforeTheFirstWriteOnly) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed(R"((function f f64[] (param $a f64[]) (param $write logical)
      (block b0 (%1 logical load $write) (br %1 b1 b2))
      (block b1 (stelem $a 2i64 9.0) (jump b2))
      (block b2 (%2 f64[] load $a) (ret %2))))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    const double lent[3] = {1, 2, 3};
    static bool released = false;
    ArrayBuffer buffer{1, 0, [](ArrayBuffer&) noexcept { released = true; }};
    {
        const Value argument = Value::ofArray(ArrayValue(ScalarKind::Double, 3, 1, lent, buffer));
        const Value same =
            callWith(*code, *Type::array(ScalarKind::Double), {argument, Value::ofLogical(false)});
        EXPECT_EQ(same.array.data(), lent);
        const Value written =
            callWith(*code, *Type::array(ScalarKind::Double), {argument, Value::ofLogical(true)});
        EXPECT_EQ(shown(written), shown(Value::ofArray([] {
                      ArrayValue array(ScalarKind::Double, 3, 1);
                      array.set(1, bitsOf(1.0));
                      array.set(2, bitsOf(9.0));
                      array.set(3, bitsOf(3.0));
                      return array;
                  }())));
        EXPECT_EQ(lent[1], 2);
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(released);
}

TEST(VmrtEngine, TrapsReleaseWhatTheProgramHeld) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed(R"((function g f64[] (param $a f64[]) (user $b f64[])
      (block b0 (%1 f64[] load $a) (store $b %1) (stelem $b 9i64 1.0 @5) (%2 f64[] load $b)
                (ret %2)))
     (function f f64[] (param $a f64[])
      (block b0 (%1 f64[] load $a) (%2 f64[] newarray 4i64 4i64) (%3 f64[] call &g %1)
                (stelem $a 1i64 2.0) (ret %3))))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    const double lent[1] = {1};
    static bool released = false;
    ArrayBuffer buffer{1, 0, [](ArrayBuffer&) noexcept { released = true; }};
    {
        const Value argument = Value::ofArray(ArrayValue(ScalarKind::Double, 1, 1, lent, buffer));
        try {
            callWith(*code, *Type::array(ScalarKind::Double), {argument});
            ADD_FAILURE();
        } catch (const EvaluationError& error) {
            EXPECT_EQ(error.code(), TrapCode::IndexOutOfBounds);
            EXPECT_EQ(error.function(), "g");
            EXPECT_EQ(error.line(), 5U);
        }
        EXPECT_EQ(buffer.references, 1U);
    }
    EXPECT_TRUE(released);
}

TEST(VmrtEngine, VariablesBehindPointersAreReadAndChanged) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed(R"((function f void (param $x f64*) (param $n i32*) (param $a f64[]*)
      (block b0 (%1 f64* load $x) (%2 f64 loadp %1) (%3 f64 add %2 1.0) (storep %1 %3)
                (%4 i32* load $n) (%5 i32 loadp %4) (%6 i32 sub %5 10i32) (storep %4 %6)
                (%7 f64[]* load $a) (resize %7 2i64 2i64) (stelem %7 3i64 %3) (ret))))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    std::uint64_t x = bitsOf(2.5);
    std::uint64_t n = 3;
    ArrayValue array(ScalarKind::Double, 1, 1);
    const ArrayValue shared = array;
    std::uint64_t words[3] = {reinterpret_cast<std::uint64_t>(&x),
                              reinterpret_cast<std::uint64_t>(&n),
                              reinterpret_cast<std::uint64_t>(&array)};
    ExecutionContext context;
    code->call(words, context);
    EXPECT_EQ(asDouble(x), 3.5);
    EXPECT_EQ(static_cast<std::int64_t>(n), -7);
    EXPECT_EQ(array.numel(), 4);
    EXPECT_EQ(asDouble(array.get(3)), 3.5);
    EXPECT_EQ(shared.numel(), 1);
}

TEST(VmrtEngine, SaysWhichCalleeNobodyKnows) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed("(function f f64 (block b0 (%1 f64 call &nobody @4) (ret %1)))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    try {
        callWith(*code, *Type::f64(), {});
        ADD_FAILURE();
    } catch (const EvaluationError& error) {
        EXPECT_STREQ(error.what(), "unknown function: nobody");
        EXPECT_EQ(error.line(), 4U);
    }
}

TEST(VmrtEngine, CountsWhatItIsToCount) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed(R"((function g void (block b0 (count 1i64) (ret)))
      (function f void (block b0 (count 0i64) (call &g) (call &g) (count 2i64) (ret))))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    callWith(*code, *Type::voidType(), {});
    callWith(*code, *Type::voidType(), {});
    std::string text;
    for (const CounterValue& value : code->counters()) {
        text +=
            value.function + std::to_string(value.number) + "=" + std::to_string(value.count) + " ";
    }
    EXPECT_EQ(text, "g0=0 g1=4 f0=2 f1=0 f2=2 ");
}

TEST(VmrtEngine, NamesOfTheCLibraryAreNamesLikeOthers) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed(R"((function sin f64 (param $x f64)
        (block b0 (%1 f64 load $x) (%2 f64 sin %1) (%3 f64 call &memcpy %2) (ret %3)))
      (function memcpy f64 (param $x f64) (block b0 (%1 f64 load $x) (%2 f64 neg %1) (ret %2))))");
    const auto code = engine->prepare(*scope, *scope->find("sin"), "");
    EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(1)}).asDouble(), -std::sin(1.0));
}

TEST(VmrtEngine, RefusesWhatItDoesNotUnderstandByName) {
    const auto engine = VMRT::makeEngine();
    const auto scope = parsed("(function odd f64 (param $x logical) (block b0 (%1 logical load $x) "
                              "(%2 logical add %1 %1) (ret 1.0)))");
    try {
        static_cast<void>(engine->prepare(*scope, *scope->find("odd"), ""));
        ADD_FAILURE();
    } catch (const CompilationRefused& refused) {
        EXPECT_EQ(refused.function(), "odd");
        EXPECT_STREQ(refused.what(), "odd: add: no such operation on the type");
    }
    // It goes on.
    const auto fine = parsed(small(1));
    EXPECT_EQ(call2(*engine->prepare(*fine, *fine->find("f1"), ""), 1, 1), 2.5);
}

// Long loops are cut into pieces, and get versions without checks for the turns that need none.
TEST(VmrtEngine, LongLoopsGiveWhatTheEvaluatorGives) {
    // b[i] = a[i + shift] * 2 for each i from 1 to n by way of a double, and a sum on the side.
    const auto scope = parsed(R"((function f f64
      (param $a f64[]) (param $n i64) (param $shift f64)
      (user $b f64[]) (user $k i64) (user $i f64) (user $s f64)
      (block b0 (%1 i64 numel $a) (%2 f64[] newarray 1i64 %1) (store $b %2) (%3 i64 load $n)
                (jump b1))
      (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
      (block b2 (%6 f64 convert %4) (%7 f64 add 1.0 %6) (store $i %7) (%8 i64 add:wrap %4 1i64)
                (store $k %8) (%9 f64 load $i) (%10 f64 load $shift) (%11 f64 add %9 %10)
                (%12 i64 toindex %11 @5) (%13 f64 ldelem $a %12 @6) (%14 f64 mul %13 2.0)
                (%15 i64 toindex %9 @7) (stelem $b %15 %14 @8) (%16 f64 load $s)
                (%17 f64 add %16 %14) (store $s %17) (jump b1))
      (block b3 (%18 f64 load $s) (%19 i64 numel $b) (%20 f64 ldelem $b %19 @9)
                (%21 f64 add %18 %20) (ret %21))))");
    Function& function = *scope->find("f");
    constexpr std::int64_t size = 140'000;
    ArrayValue array(ScalarKind::Double, 1, size);
    for (std::int64_t i = 1; i <= size; ++i) {
        array.set(i, bitsOf(static_cast<double>(i % 1000) / 8));
    }
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto code = engine->prepare(*scope, function, "");
        for (const std::int64_t n :
             {0, 1, 2, 3, 65535, 65536, 65537, 131072, 139'999, 140'000, 140'001, 200'000}) {
            for (const double shift : {0.0, 1.0, -1.0, 0.5, 1e17}) {
                const std::vector<Value> arguments = {
                    Value::ofArray(array), Value::ofInt(Type::i64(), n), Value::ofDouble(shift)};
                EXPECT_EQ(machineOutcome(*code, function, arguments),
                          evaluatedOutcome(*scope, function, arguments))
                    << "level " << level << ", n " << n << ", shift " << shift;
            }
        }
    }
}

// Memory ------------------------------------------------------------------------------------------

TEST(VmrtMemory, SlabsHaveTheSizeThatIsSetAndHoldManyFunctions) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptNone);
    config.setDefaultCodeSlabSize(64 * 1024);
    const std::size_t before = mappingsOfCode();
    const auto engine = VMRT::makeEngine(config);
    std::vector<std::unique_ptr<Executable>> codes;
    for (int i = 0; i < 200; ++i) {
        const auto scope = parsed(small(i));
        codes.push_back(engine->prepare(*scope, *scope->functions().front(), ""));
    }
    const VMRT::CodeMemory use = engine->codeMemory();
    EXPECT_EQ(use.reservedBytes, use.slabs * 64 * 1024);
    EXPECT_LE(use.usedBytes, use.reservedBytes);
    EXPECT_LE(use.usedBytes, 200U * 1024);
    EXPECT_GT(use.usedBytes, 200U * 16);
    EXPECT_EQ(mappingsOfCode() - before, 2 * use.slabs);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(call2(*codes[static_cast<std::size_t>(i)], 3, 4), 12.5 + i);
    }
    codes.clear();
    EXPECT_EQ(engine->codeMemory().usedBytes, 0U);
    EXPECT_LE(engine->codeMemory().slabs, 1U);
}

TEST(VmrtMemory, AFunctionLargerThanASlabWorks) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptNone);
    config.setDefaultCodeSlabSize(4096);
    const auto engine = VMRT::makeEngine(config);
    std::string text = "(function f f64 (param $a f64) (block b0 (%1 f64 load $a)";
    for (int i = 2; i < 1000; ++i) {
        text += " (%" + std::to_string(i) + " f64 add %" + std::to_string(i - 1) + " 1.0)";
    }
    const auto scope = parsed(text + " (ret %999)))");
    const auto code = engine->prepare(*scope, *scope->find("f"), "");
    EXPECT_GT(engine->codeMemory().usedBytes, 4096U);
    EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(1)}).asDouble(), 999);
}

// With QUARN_TEST_FULL in the environment a million.
TEST(VmrtMemory, FunctionsThatComeAndGoLeaveNothing) {
    const int cycles = std::getenv("QUARN_TEST_FULL") != nullptr ? 1'000'000 : 3'000;
    const auto engine = VMRT::makeEngine(atLevel(VMEngineConfig::OptNone));
    const auto scope = parsed(small(1));
    Function& function = *scope->find("f1");
    const auto run = [&](int times) {
        for (int i = 0; i < times; ++i) {
            const auto code = engine->prepare(*scope, function, "");
            ASSERT_EQ(call2(*code, i, 2), 2 * i + 1.5);
        }
    };
    const NoLargePages noLargePages;
    run(1'500); // three contexts
    const std::size_t before = residentBytes();
    run(cycles);
#if !defined(__SANITIZE_ADDRESS__) // which keeps what was freed for a while
    EXPECT_LT(residentBytes(), before + (std::size_t{8} << 20));
#else
    static_cast<void>(before);
#endif
    EXPECT_EQ(engine->codeMemory().usedBytes, 0U);
}

// With QUARN_TEST_FULL in the environment a hundred thousand.
TEST(VmrtMemory, ManyFunctionsLiveAtOnce) {
    const int count = std::getenv("QUARN_TEST_FULL") != nullptr ? 100'000 : 2'000;
    const auto engine = VMRT::makeEngine(atLevel(VMEngineConfig::OptNone));
    std::vector<std::unique_ptr<Executable>> codes;
    for (int i = 0; i < count; ++i) {
        const auto scope = parsed(small(i));
        codes.push_back(engine->prepare(*scope, *scope->functions().front(), ""));
    }
    EXPECT_LE(engine->codeMemory().usedBytes, static_cast<std::uint64_t>(count) * 1024);
    EXPECT_LT(mappingsOfCode(), 1'000U);
    for (int i = 0; i < count; i += 97) {
        EXPECT_EQ(call2(*codes[static_cast<std::size_t>(i)], 3, 4), 12.5 + i);
    }
}
