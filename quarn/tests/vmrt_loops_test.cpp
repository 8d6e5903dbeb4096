// What the passes of the LLVM runtime make of loops: which ones get a version without checks, which
// ones are cut into pieces, and which sums become integers; and that all of them do what the
// evaluator does.
#include "vmrt_support.hpp"

#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace QN;
using namespace QN::vmrt_test;
namespace fs = std::filesystem;

namespace {

// The sum of a[i] for i from 1 to n, which may be more than a has, in steps of one.
const char* const bySteps = R"((function f f64 (param $a f64[]) (param $n i64)
  (user $k i64) (user $i f64) (user $s f64)
  (block b0 (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 f64 convert %4) (%7 f64 add 1.0 %6) (store $i %7) (%8 i64 add:wrap %4 1i64)
            (store $k %8) (%9 i64 toindex %7 @5) (%10 f64 ldelem $a %9 @6) (%11 f64 load $s)
            (%12 f64 add %11 %10) (store $s %12) (jump b1))
  (block b3 (%13 f64 load $s) (ret %13))))";

// What 3 s + i becomes for the same i, with a[i] checked and not used.
const char* const ofWholes = R"((function f f64 (param $a f64[]) (param $n i64)
  (user $k i64) (user $i f64) (user $s i64)
  (block b0 (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 f64 convert %4) (%7 f64 add 1.0 %6) (store $i %7) (%8 i64 add:wrap %4 1i64)
            (store $k %8) (%9 i64 toindex %7 @5) (%10 f64 ldelem $a %9 @6) (%11 i64 load $s)
            (%12 i64 mul:wrap %11 3i64) (%14 i64 add:wrap %12 %9) (store $s %14) (jump b1))
  (block b3 (%13 i64 load $s) (%15 f64 convert %13) (ret %15))))";

// The last of a[a[i]] for i from 1 to 4.
const char* const byElements = R"((function f f64 (param $a f64[]) (param $n i64)
  (user $k i64) (user $s f64)
  (block b0 (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 4i64) (br %5 b2 b3))
  (block b2 (%8 i64 add:wrap %4 1i64) (store $k %8) (%6 f64 ldelem:inb $a %8)
            (%9 i64 toindex %6 @5) (%10 f64 ldelem $a %9 @6) (store $s %10) (jump b1))
  (block b3 (%13 f64 load $s) (ret %13))))";

// Counts to the number of elements and does nothing else.
const char* const onlyCounts = R"((function f f64 (param $a f64[]) (param $n i64) (user $k i64)
  (block b0 (%3 i64 numel $a) (%2 i64 add:wrap %3 -1i64) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %2) (br %5 b2 b3))
  (block b2 (%8 i64 add:wrap %4 1i64) (store $k %8) (jump b1))
  (block b3 (%13 i64 load $k) (%14 f64 convert %13) (ret %14))))";

// The sum of ((i + 1) - 1) ^ 0.5 for all i from 0 to the number of elements.
const char* const backAndForth = R"((function f f64 (param $a f64[]) (param $n i64)
  (user $k i64) (user $s f64)
  (block b0 (%3 i64 numel $a) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 f64 convert %4) (%7 f64 add 1.0 %6) (%9 f64 sub %7 1.0) (%10 f64 sqrt %9)
            (%8 i64 add:wrap %4 1i64) (store $k %8) (%11 f64 load $s) (%12 f64 add %11 %10)
            (store $s %12) (jump b1))
  (block b3 (%13 f64 load $s) (ret %13))))";

class VmrtLoops : public ::testing::Test {
protected:
    VmrtLoops()
        : folder_(fs::temp_directory_path() / ("vmrt-loops-" + std::to_string(::getpid()))) {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        DefaultServices::debugServices().debugLog().setLogDirectory(folder_.string());
    }
    ~VmrtLoops() override {
        DefaultServices::debugServices().debugLog().setLogDirectory("");
        fs::remove_all(folder_);
    }

    /// LLVM's IR as it goes to the code generator.
    std::string irOf(const char* text, VMEngineConfig::JitOptimizationLevel level) {
        VMEngineConfig config = atLevel(level);
        config.setDumpLlvmIR(true);
        const auto engine = VMRT::makeEngine(config);
        const auto scope = parsed(text);
        static_cast<void>(engine->prepare(*scope, *scope->find("f"), ""));
        std::string ir;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            std::ifstream file(entry.path());
            ir.append(std::istreambuf_iterator<char>(file), {});
            fs::remove(entry.path());
        }
        EXPECT_FALSE(ir.empty());
        return ir;
    }

    fs::path folder_;
};

bool has(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

constexpr auto byDefault = VMEngineConfig::OptDefault;

} // namespace

TEST_F(VmrtLoops, WhatIsDecidedInFrontOfANestGivesItAVersion) {
    EXPECT_TRUE(has(irOf(bySteps, byDefault), ".checked"));
    EXPECT_FALSE(has(irOf(byElements, byDefault), ".checked")) << "an index may be anything";
    EXPECT_FALSE(has(irOf(onlyCounts, byDefault), ".checked")) << "there is nothing to check";
    EXPECT_FALSE(has(irOf(bySteps, VMEngineConfig::OptLess), ".checked"));
}

TEST_F(VmrtLoops, LoopsThatMayBeLongAreCutIntoPieces) {
    EXPECT_TRUE(has(irOf(ofWholes, byDefault), "piece.look"));
    EXPECT_TRUE(has(irOf(ofWholes, VMEngineConfig::OptLess), "piece.look"));
    EXPECT_FALSE(has(irOf(byElements, byDefault), "piece.look")) << "it has four turns";
    EXPECT_FALSE(has(irOf(bySteps, byDefault), "piece.look")) << "each turn waits for a sum";
    EXPECT_FALSE(has(irOf(ofWholes, VMEngineConfig::OptNone), "piece.look"));
}

TEST_F(VmrtLoops, WholeConstantsAreAddedToIntegers) {
    EXPECT_FALSE(has(irOf(backAndForth, byDefault), "1.000000e+00"));
    EXPECT_TRUE(has(irOf(backAndForth, VMEngineConfig::OptLess), "1.000000e+00"));
}

TEST_F(VmrtLoops, AllVersionsGiveWhatTheEvaluatorGives) {
    for (const char* const text : {bySteps, ofWholes, byElements, onlyCounts, backAndForth}) {
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        for (const auto level : allLevels) {
            const auto engine = VMRT::makeEngine(atLevel(level));
            const auto code = engine->prepare(*scope, function, "");
            for (const std::int64_t size : {4, 5, 70'000}) {
                ArrayValue array(ScalarKind::Double, 1, size);
                for (std::int64_t i = 1; i <= size; ++i) {
                    array.set(i, bitsOf(static_cast<double>(i)));
                }
                for (const double odd : {1.0, 2.5, 1e10}) { // a bad index in the third turn
                    array.set(3, bitsOf(odd));
                    for (const std::int64_t n : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{1},
                                                 size - 1, size, size + 1, std::int64_t{1} << 62}) {
                        const std::vector<Value> arguments = {Value::ofArray(array),
                                                              Value::ofInt(Type::i64(), n)};
                        EXPECT_EQ(machineOutcome(*code, function, arguments),
                                  evaluatedOutcome(*scope, function, arguments))
                            << text << " at level " << level << ", size " << size << ", n " << n;
                    }
                }
            }
        }
    }
}
