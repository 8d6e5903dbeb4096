// Loops whose checks are decided in front of them, for numbers at which the sums and products of
// what is compared there leave 64 bits, wrap, or come to nothing: what traps, and where, is what
// the evaluator says.
#include "vmrt_ir_support.hpp"

#include <limits>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

struct Case {
    const char* name;
    const char* text;
    bool isMade = true;
};

// Sums of a[first + k * step] for k from 0 to n - 1, computed in integers that wrap.
// ----------------

const char* const byProducts = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6) (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

const char* const bySums = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $i i64) (user $s f64)
  (block b0 (%1 i64 load $first) (store $i %1) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%7 i64 load $i) (%6 i64 add:wrap %7 %2) (store $i %6) (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// By three, whatever the step.
const char* const byThree = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $i i64) (user $s f64)
  (block b0 (%1 i64 load $first) (store $i %1) (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%7 i64 load $i) (%6 i64 add:wrap %7 3i64) (store $i %6) (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// The same, going on behind the check.
const char* const byThreeBehindIt = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $i i64) (user $s f64)
  (block b0 (%1 i64 load $first) (store $i %1) (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%7 i64 load $i) (%8 f64 ldelem $a %7 @6) (%6 i64 add:wrap %7 3i64) (store $i %6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// Three times over.
const char* const inNest = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $r i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%13 i64 load $r) (%14 logical lt %13 3i64) (br %14 b4 b5))
  (block b4 (%15 i64 add:wrap %13 1i64) (store $r %15) (store $k 0i64) (jump b2))
  (block b2 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b3 b1))
  (block b3 (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6) (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b2))
  (block b5 (%12 f64 load $s) (ret %12))))";

// A loop within another that has one turn more each time, from none on.
const char* const inTriangle = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $r i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%13 i64 load $r) (%14 logical lt %13 %3) (br %14 b4 b5))
  (block b4 (%15 i64 add:wrap %13 1i64) (store $r %15) (store $k 0i64) (jump b2))
  (block b2 (%4 i64 load $k) (%5 logical lt %4 %13) (br %5 b3 b1))
  (block b3 (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6) (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b2))
  (block b5 (%12 f64 load $s) (ret %12))))";

// Until k is n, but once at least: it does not end, but for a trap, if n is none or less.
const char* const untilItIs = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b2))
  (block b2 (%4 i64 load $k) (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6)
            (%8 f64 ldelem $a %7 @6) (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10)
            (%11 i64 add:wrap %4 1i64) (store $k %11) (%5 logical ne %11 %3) (br %5 b2 b3))
  (block b3 (%12 f64 load $s) (ret %12))))";

// The same three times over.
const char* const untilItIsInNest = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $r i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%13 i64 load $r) (%14 logical lt %13 3i64) (br %14 b4 b5))
  (block b4 (%15 i64 add:wrap %13 1i64) (store $r %15) (store $k 0i64) (jump b2))
  (block b2 (%4 i64 load $k) (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6)
            (%8 f64 ldelem $a %7 @6) (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10)
            (%11 i64 add:wrap %4 1i64) (store $k %11) (%5 logical ne %11 %3) (br %5 b2 b1))
  (block b5 (%12 f64 load $s) (ret %12))))";

// And by one from 1 on, three times over.
const char* const alongUntilItIs = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $r i64) (user $k i64) (user $s f64)
  (block b0 (%3 i64 load $n) (jump b1))
  (block b1 (%13 i64 load $r) (%14 logical lt %13 3i64) (br %14 b4 b5))
  (block b4 (%15 i64 add:wrap %13 1i64) (store $r %15) (store $k 0i64) (jump b2))
  (block b2 (%4 i64 load $k) (%11 i64 add:wrap %4 1i64) (store $k %11)
            (%8 f64 ldelem $a %11 @6) (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10)
            (%5 logical ne %11 %3) (br %5 b2 b1))
  (block b5 (%12 f64 load $s) (ret %12))))";

// Not three times, but once.
const char* const aloneUntilItIs = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%3 i64 load $n) (jump b2))
  (block b2 (%4 i64 load $k) (%11 i64 add:wrap %4 1i64) (store $k %11)
            (%8 f64 ldelem $a %11 @6) (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10)
            (%5 logical ne %11 %3) (br %5 b2 b5))
  (block b5 (%12 f64 load $s) (ret %12))))";

// No array: first + k * step + 5 is to be an index up to 20.
const char* const insideConstants = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%3 i64 load $n) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 i64 mul:wrap %4 %2) (%13 i64 add:wrap %1 %6) (%7 i64 add:wrap %13 5i64)
            (chkbounds %7 20i64 @6) (%8 f64 convert %7)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// first + max(-k, step) + 5 between constants.
const char* const maximumInsideConstants = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%20 i64 load $n)
            (%3 i64 min %20 100i64) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%14 i64 sub:wrap 0i64 %4) (%6 i64 max %14 %2) (%13 i64 add:wrap %1 %6)
            (%7 i64 add:wrap %13 5i64) (chkbounds %7 20i64 @6) (%8 f64 convert %7)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

/// Sums of a[INDEX] for k from 0 to n - 1, where INDEX is computed as %7 from k in %4, `first` in
/// %1 and `step` in %2.
#define INDEXED_BY(index)                                                                          \
    "(function f f64 (param $a f64[]) (param $first i64) (param $step i64) (param $n i64)"         \
    "  (user $k i64) (user $s f64)"                                                                \
    "  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%20 i64 load $n)"                       \
    "            (%3 i64 min %20 100i64) (jump b1))"                                               \
    "  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))"                            \
    "  (block b2 " index " (%8 f64 ldelem $a %7 @6) (%9 f64 load $s) (%10 f64 add %9 %8)"          \
    "            (store $s %10) (%11 i64 add:wrap %4 1i64) (store $k %11) (jump b1))"              \
    "  (block b3 (%12 f64 load $s) (ret %12)))"

// What is compared is no even step: a[first + min(k, step)].
const char* const byMinimum = INDEXED_BY("(%6 i64 min %4 %2) (%7 i64 add:wrap %1 %6)");

// a[first - 2 * min(k, step)].
const char* const byMultiples =
    INDEXED_BY("(%6 i64 min %4 %2) (%15 i64 mul:wrap %6 -2i64) (%7 i64 add:wrap %1 %15)");

// a[first + k * k], which is no step.
const char* const bySquares = INDEXED_BY("(%6 i64 mul:wrap %4 %4) (%7 i64 add:wrap %1 %6)");

// a[3 * min(k, step) * first].
const char* const byProductOfThree =
    INDEXED_BY("(%6 i64 min %4 %2) (%15 i64 mul:wrap %6 3i64) (%7 i64 mul:wrap %15 %1)");

#undef INDEXED_BY

// By 2^61, which is nothing after eight turns.
const char* const byEighths = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $i i64) (user $s f64)
  (block b0 (%1 i64 load $first) (store $i %1) (%2 i64 load $step) (%20 i64 load $n)
            (%3 i64 min %20 100i64) (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%7 i64 load $i) (%6 i64 add:wrap %7 2305843009213693952i64) (store $i %6)
            (%8 f64 ldelem $a %7 @6)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// Until an element is negative, which none is: only the check of the index ends it.
const char* const untilNegative = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (jump b2))
  (block b2 (%4 i64 load $k) (%7 i64 add:wrap %1 %4) (%8 f64 ldelem $a %7 @6) (%9 f64 load $s)
            (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64) (store $k %11)
            (%5 logical lt 0.0 %8) (br %5 b2 b3))
  (block b3 (%12 f64 load $s) (ret %12))))";

// first + k * step is to be anything but zero.
const char* const notZero = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%20 i64 load $n) (%3 i64 min %20 50i64)
            (jump b1))
  (block b1 (%4 i64 load $k) (%5 logical lt %4 %3) (br %5 b2 b3))
  (block b2 (%6 i64 mul:wrap %4 %2) (%7 i64 add:wrap %1 %6) (chkzero %7 @6) (%8 f64 convert %7)
            (%9 f64 load $s) (%10 f64 add %9 %8) (store $s %10) (%11 i64 add:wrap %4 1i64)
            (store $k %11) (jump b1))
  (block b3 (%12 f64 load $s) (ret %12))))";

// Within a nest, a loop of which nobody knows the end, in which what is compared stays the same; if
// it has no turn, nothing is compared.
const char* const sameInEachTurn = R"((function f f64 (param $a f64[]) (param $first i64)
  (param $step i64) (param $n i64) (user $r i64) (user $x f64) (user $s f64)
  (block b0 (%1 i64 load $first) (%2 i64 load $step) (%20 i64 load $n) (%21 i64 min %20 50i64)
            (%3 f64 convert %21) (jump b1))
  (block b1 (%13 i64 load $r) (%14 logical lt %13 3i64) (br %14 b4 b5))
  (block b4 (%15 i64 add:wrap %13 1i64) (store $r %15) (store $x 0.0) (jump b2))
  (block b2 (%4 f64 load $x) (%5 logical lt %4 %3) (br %5 b3 b1))
  (block b3 (chkbounds %1 %2 @6) (%8 f64 ldelem $a %1 @7) (%9 f64 load $s) (%10 f64 add %9 %8)
            (store $s %10) (%11 f64 add %4 1.5) (store $x %11) (jump b2))
  (block b5 (%12 f64 load $s) (ret %12))))";

constexpr std::int64_t power(int exponent) {
    return std::int64_t{1} << exponent;
}
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
// Three times it is 2, and 2^64.
constexpr std::int64_t thirdOfAll = 0x5555555555555556 + 1;
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

const std::int64_t firsts[] = {1,  2,   20,        40,        0,    -1,       -4,
                               15, -20, power(56), power(62), most, most - 1, least};
const std::int64_t steps[] = {1,         -1,        2,         0,          power(20), power(20) + 1,
                              power(60), power(61), power(62), -power(62), most,      least};
const std::int64_t turns[] = {
    0, 1, 4, 9, 16, 17, 40, 41, -1, -2, least, power(44), power(44) + 1, thirdOfAll, most};

class VmrtVersions : public LlvmIr, public ::testing::WithParamInterface<Case> {};

void PrintTo(const Case& each, std::ostream* out) {
    *out << each.name;
}

} // namespace

TEST_P(VmrtVersions, TrapAsTheEvaluatorDoes) {
    const auto scope = parsed(GetParam().text);
    Function& function = *scope->find("f");
    ArrayValue array(ScalarKind::Double, 1, 40);
    for (std::int64_t i = 1; i <= array.numel(); ++i) {
        array.set(i, bitsOf(static_cast<double>(i * i)));
    }
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto code = engine->prepare(*scope, function, "");
        for (const std::int64_t first : firsts) {
            for (const std::int64_t step : steps) {
                for (const std::int64_t n : turns) {
                    if (step == 0 && (n > 100 || n <= 0)) {
                        continue; // nothing would ever trap
                    }
                    const std::vector<Value> arguments = {
                        Value::ofArray(array), Value::ofInt(Type::i64(), first),
                        Value::ofInt(Type::i64(), step), Value::ofInt(Type::i64(), n)};
                    ASSERT_EQ(machineOutcome(*code, function, arguments),
                              evaluatedOutcome(*scope, function, arguments))
                        << "level " << level << ", from " << first << " by " << step << ", n " << n;
                }
            }
        }
    }
}

TEST_P(VmrtVersions, AreMade) {
    EXPECT_EQ(has(irOf(GetParam().text, byDefault), ".checked"), GetParam().isMade);
}

INSTANTIATE_TEST_SUITE_P(
    Loops, VmrtVersions,
    ::testing::Values(
        Case{"byProducts", byProducts}, Case{"bySums", bySums}, Case{"byThree", byThree},
        Case{"byThreeBehindIt", byThreeBehindIt}, Case{"inNest", inNest},
        Case{"inTriangle", inTriangle}, Case{"untilItIs", untilItIs},
        Case{"untilItIsInNest", untilItIsInNest}, Case{"alongUntilItIs", alongUntilItIs},
        Case{"aloneUntilItIs", aloneUntilItIs}, Case{"insideConstants", insideConstants},
        Case{"byMinimum", byMinimum}, Case{"maximumInsideConstants", maximumInsideConstants},
        Case{"byMultiples", byMultiples}, Case{"bySquares", bySquares, false},
        Case{"byProductOfThree", byProductOfThree, false}, Case{"byEighths", byEighths, false},
        Case{"untilNegative", untilNegative, false}, Case{"notZero", notZero},
        Case{"sameInEachTurn", sameInEachTurn}),
    [](const auto& each) { return std::string(each.param.name); });
