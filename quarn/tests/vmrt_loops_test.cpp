// What the passes of the LLVM runtime make of loops: which ones get a version without checks, which
// ones are cut into pieces, which sums and counts become integers; and that all of them do what the
// evaluator does.
#include "vmrt_ir_support.hpp"

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <regex>
#include <utility>

using namespace QN;
using namespace QN::vmrt_test;

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

// Products of elements from both ends inwards, where the index of the last one is an element:
// nobody knows how many there are.
const char* const inwards = R"((function f f64 (param $a f64[]) (param $times i64)
  (user $r i64) (user $i f64) (user $j f64) (user $s f64)
  (block b0 (%1 i64 load $times) (jump b1))
  (block b1 (%2 i64 load $r) (%3 logical lt %2 %1) (br %3 b2 b5))
  (block b2 (%4 i64 add:wrap %2 1i64) (store $r %4) (store $i 1.0) (%5 f64 ldelem $a 1i64 @4)
            (store $j %5) (jump b3))
  (block b3 (%6 f64 load $i) (%7 f64 load $j) (%8 logical lt %6 %7) (br %8 b4 b1))
  (block b4 (%9 i64 toindex %6 @6) (%10 f64 ldelem $a %9 @6) (%11 i64 toindex %7 @7)
            (%12 f64 ldelem $a %11 @7) (%13 f64 mul %10 %12) (%14 f64 load $s)
            (%15 f64 add %14 %13) (store $s %15) (%16 f64 add %6 1.0) (store $i %16)
            (%17 f64 sub %7 1.0) (store $j %17) (jump b3))
  (block b5 (%18 f64 load $s) (ret %18))))";

// The sum of 1 / a[i] for all i, many times.
const char* const ofQuotients = R"((function f f64 (param $a f64[]) (param $times i64)
  (user $r i64) (user $k i64) (user $s f64)
  (block b0 (%1 i64 load $times) (%2 i64 numel $a) (jump b1))
  (block b1 (%3 i64 load $r) (%4 logical lt %3 %1) (br %4 b2 b5))
  (block b2 (%5 i64 add:wrap %3 1i64) (store $r %5) (store $k 0i64) (jump b3))
  (block b3 (%6 i64 load $k) (%7 logical lt %6 %2) (br %7 b4 b1))
  (block b4 (%8 i64 add:wrap %6 1i64) (store $k %8) (%9 f64 ldelem:inb $a %8) (%10 f64 div 1.0 %9)
            (%11 f64 load $s) (%12 f64 add %11 %10) (store $s %12) (jump b3))
  (block b5 (%13 f64 load $s) (ret %13))))";

// The sum of a[i + MORE] * a[j + LESS] for i and j that come closer by UP and DOWN.
const char* const untilTheyMeet = R"((function f f64 (param $a f64[]) (param $from i64)
  (param $to i64) (user $i i64) (user $j i64) (user $s f64)
  (block b0 (%1 i64 load $from) (store $i %1) (%2 i64 load $to) (store $j %2) (jump b1))
  (block b1 (%3 i64 load $i) (%4 i64 load $j) (%5 logical COMPARE) (br %5 b2 b3))
  (block b2 (%6 i64 add:wrap %3 MOREi64) (%7 f64 ldelem $a %6 @6) (%8 i64 add:wrap %4 LESSi64)
            (%9 f64 ldelem $a %8 @7) (%10 f64 mul %7 %9) (%11 f64 load $s) (%12 f64 add %11 %10)
            (store $s %12) (%13 i64 add:wrap %3 UPi64) (store $i %13)
            (%14 i64 add:wrap %4 DOWNi64) (store $j %14) (jump b1))
  (block b3 (%15 f64 load $s) (ret %15))))";

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

// Until r reaches 2, by steps that nobody knows: a[first + k * step] = k + 1 for each k below n,
// where a grows to the right. What comes out is the sum of k * a[k].
const char* const byUnknownSteps =
    R"((function f f64 (param $a f64[]) (param $first f64) (param $step f64) (param $n i64)
  (user $r f64) (user $k i64) (user $s f64)
  (block b0 (jump b1))
  (block b1 (%1 f64 load $r) (%2 logical lt %1 2.0) (br %2 b2 b7))
  (block b2 (%3 f64 add %1 0.75) (store $r %3) (store $k 0i64) (%4 f64 load $first)
            (%5 f64 load $step) (%6 i64 load $n) (jump b3))
  (block b3 (%7 i64 load $k) (%8 logical lt %7 %6) (br %8 b4 b1))
  (block b4 (%9 f64 convert %7) (%10 f64 mul %9 %5) (%11 f64 add %4 %10) (%12 i64 toindex %11 @5)
            (%13 i64 add:wrap %7 1i64) (store $k %13) (%14 i64 numel $a) (%15 logical gt %12 %14)
            (%16 f64 convert %13) (br %15 b5 b6))
  (block b5 (%17 logical gt %12 100000i64) (br %17 b10 b11))
  (block b10 (trap 3i64 @7))
  (block b11 (resize $a 1i64 %12 @6) (jump b6))
  (block b6 (stelem:inb $a %12 %16 @8) (jump b3))
  (block b7 (store $k 0i64) (%20 i64 numel $a) (jump b8))
  (block b8 (%21 i64 load $k) (%22 logical lt %21 %20) (br %22 b9 b12))
  (block b9 (%23 i64 add:wrap %21 1i64) (store $k %23) (%24 f64 ldelem $a %23) (%25 f64 convert %23)
            (%26 f64 mul %24 %25) (%27 f64 load $s) (%28 f64 add %27 %26) (store $s %28) (jump b8))
  (block b12 (%29 f64 load $s) (ret %29))))";

// The same without a loop around it, and another array stands in the place of a from the turn on
// that `other` gives.
const char* const changesArrays =
    R"((function f f64 (param $a f64[]) (param $first f64) (param $step f64) (param $n i64)
  (param $b f64[]) (param $other i64) (user $k i64) (user $s f64)
  (block b0 (%4 f64 load $first) (%5 f64 load $step) (%6 i64 load $n) (%3 i64 load $other) (jump b3))
  (block b3 (%7 i64 load $k) (%8 logical lt %7 %6) (br %8 b4 b7))
  (block b4 (%1 logical eq %7 %3) (br %1 b5 b6))
  (block b5 (%2 f64[] load $b) (store $a %2) (jump b6))
  (block b6 (%9 f64 convert %7) (%10 f64 mul %9 %5) (%11 f64 add %4 %10) (%12 i64 toindex %11 @5)
            (%13 i64 add:wrap %7 1i64) (store $k %13) (%14 f64 ldelem $a %12 @6) (%15 f64 load $s)
            (%16 f64 add %14 %15) (store $s %16) (jump b3))
  (block b7 (%29 f64 load $s) (ret %29))))";

// k + 1.0 less what came before, for m integers from n on, which a double may not hold.
const char* const fromFarAway = R"((function f f64 (param $n TYPE) (param $m i64) (user $k TYPE)
  (user $t i64) (user $s f64)
  (block b0 (%3 TYPE load $n) (store $k %3) (%14 i64 load $m) (jump b1))
  (block b1 (%4 i64 load $t) (%5 logical lt %4 %14) (br %5 b2 b3))
  (block b2 (%6 TYPE load $k) (%7 f64 convert %6) (%8 f64 add %7 1.0) (%11 f64 load $s)
            (%12 f64 sub %8 %11) (store $s %12) (%9 TYPE add:wrap %6 1TYPE) (store $k %9)
            (%10 i64 add:wrap %4 1i64) (store $t %10) (jump b1))
  (block b3 (%13 f64 load $s) (ret %13))))";

// Where elements of a are more than zero: how often ADDED was added to START, and the last integer
// from n on as a double with MORE added to it, for as many turns as TURNS says. RESULT is what of
// both comes out.
const char* const countsElements =
    R"((function f f64 (param $a f64[]) (param $n TYPE) (user $k TYPE)
  (user $t i64) (user $count f64) (user $last f64)
  (block b0 (%3 TYPE load $n) (store $k %3) (store $count START) (store $last START)
            (%14 i64 TURNS) (jump b1))
  (block b1 (%4 i64 load $t) (%5 logical lt %4 %14) (br %5 b2 b5))
  (block b2 (%6 i64 add:wrap %4 1i64) (store $t %6) (%7 f64 ldelem $a %6 @6)
            (%8 TYPE load $k) (%9 TYPE add:wrap %8 1TYPE) (store $k %9) (%10 f64 load $count)
            (%11 logical lt LEAST %7) (br %11 b3 b1))
  (block b3 (%12 f64 add %10 ADDED) (store $count %12) (%13 f64 convert %8) (%15 f64 add %13 MORE)
            (store $last %15) (jump b1))
  (block b5 (%16 f64 load RESULT) (ret %16))))";

/// The text with each word of the pairs replaced.
std::string with(std::string text,
                 std::initializer_list<std::pair<const char*, const char*>> words) {
    for (const auto& [word, value] : words) {
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos;) {
            text.replace(at, std::strlen(word), value);
        }
    }
    return text;
}

/// A form of countsElements.
std::string counts(const char* start, const char* added, const char* more, const char* result,
                   const char* type = "i64", const char* least = "0.0",
                   const char* turns = "numel $a") {
    return with(countsElements, {{"START", start},
                                 {"ADDED", added},
                                 {"MORE", more},
                                 {"RESULT", result},
                                 {"LEAST", least},
                                 {"TURNS", turns},
                                 {"TYPE", type}});
}

class VmrtLoops : public LlvmIr {};

} // namespace

// Besides the copy that belongs to the slow version of the nest.
TEST_F(VmrtLoops, WhatStaysTheSameIsDecidedInFrontOfALoopWithoutAKnownEnd) {
    const std::string ir = irOf(inwards, byDefault);
    EXPECT_TRUE(has(ir, "\nb3.checked:"));
    EXPECT_TRUE(std::regex_search(ir, std::regex("\nb3\\.checked[0-9]+:")));
}

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

TEST_F(VmrtLoops, NumbersThatMeetGiveWhatTheEvaluatorGives) {
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t far = std::int64_t{1} << 56;
    const auto elements = [](std::int64_t size) {
        ArrayValue array(ScalarKind::Double, 1, size);
        for (std::int64_t i = 1; i <= size; ++i) {
            array.set(i, bitsOf(static_cast<double>(i % 1000) + 0.5));
        }
        return array;
    };
    const ArrayValue few = elements(6);
    for (const char* const compare : {"lt %3 %4", "le %3 %4", "gt %4 %3", "ge %4 %3"}) {
        for (const auto& [up, down] :
             {std::pair("1", "-1"), std::pair("3", "-2"), std::pair("1", "-1000")}) {
            for (const auto& [more, less] :
                 {std::pair("0", "0"), std::pair("1", "-1"), std::pair("-2", "1")}) {
                const std::string text = with(untilTheyMeet, {{"COMPARE", compare},
                                                              {"MORE", more},
                                                              {"LESS", less},
                                                              {"UP", up},
                                                              {"DOWN", down}});
                const auto scope = parsed(text);
                Function& function = *scope->find("f");
                for (const auto level : allLevels) {
                    const auto engine = VMRT::makeEngine(atLevel(level));
                    const auto code = engine->prepare(*scope, function, "");
                    const auto compared = [&](const ArrayValue& array, std::int64_t from,
                                              std::int64_t to) {
                        const std::vector<Value> arguments = {Value::ofArray(array),
                                                              Value::ofInt(Type::i64(), from),
                                                              Value::ofInt(Type::i64(), to)};
                        EXPECT_EQ(machineOutcome(*code, function, arguments),
                                  evaluatedOutcome(*scope, function, arguments))
                            << text << " from " << from << " to " << to;
                    };
                    for (const std::int64_t from :
                         {lowest, -far - 1, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1},
                          std::int64_t{2}, std::int64_t{3}, std::int64_t{7}, far + 1, highest}) {
                        for (const std::int64_t to :
                             {lowest, lowest + 1, std::int64_t{-1}, std::int64_t{0},
                              std::int64_t{1}, std::int64_t{3}, std::int64_t{5}, std::int64_t{6},
                              std::int64_t{7}, std::int64_t{8}, far, highest - 1, highest}) {
                            compared(few, from, to);
                        }
                    }
                }
            }
        }
    }
}

// With and without looks for an interruption, and one element too far.
TEST_F(VmrtLoops, ManyTurnsUntilNumbersMeetGiveWhatTheEvaluatorGives) {
    ArrayValue array(ScalarKind::Double, 1, 140'000);
    for (std::int64_t i = 1; i <= array.numel(); ++i) {
        array.set(i, bitsOf(static_cast<double>(i % 1000) + 0.5));
    }
    const std::string text =
        with(untilTheyMeet,
             {{"COMPARE", "lt %3 %4"}, {"MORE", "0"}, {"LESS", "0"}, {"UP", "1"}, {"DOWN", "-1"}});
    const auto scope = parsed(text);
    Function& function = *scope->find("f");
    const auto engine = VMRT::makeEngine(atLevel(byDefault));
    const auto code = engine->prepare(*scope, function, "");
    for (const std::int64_t to : {65'535, 65'536, 65'537, 140'000, 140'001}) {
        const std::vector<Value> arguments = {Value::ofArray(array), Value::ofInt(Type::i64(), 1),
                                              Value::ofInt(Type::i64(), to)};
        EXPECT_EQ(machineOutcome(*code, function, arguments),
                  evaluatedOutcome(*scope, function, arguments))
            << to;
    }
}

TEST_F(VmrtLoops, QuotientsAreComputedInVectorsAndAddedInTheirOrder) {
    const std::string ir = irOf(ofQuotients, byDefault);
    EXPECT_TRUE(has(ir, "fdiv <"));
    EXPECT_FALSE(has(ir, "fadd <")) << "partial sums round otherwise";
    const auto scope = parsed(ofQuotients);
    Function& function = *scope->find("f");
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto code = engine->prepare(*scope, function, "");
        for (std::int64_t size = 0; size < 40; ++size) {
            ArrayValue array(ScalarKind::Double, 1, size);
            for (std::int64_t i = 1; i <= size; ++i) {
                array.set(i, bitsOf(static_cast<double>(i * i) * (i % 3 == 0 ? -1e-7 : 0.1)));
            }
            const std::vector<Value> arguments = {Value::ofArray(array),
                                                  Value::ofInt(Type::i64(), 3)};
            EXPECT_EQ(machineOutcome(*code, function, arguments),
                      evaluatedOutcome(*scope, function, arguments))
                << "level " << level << ", size " << size;
        }
    }
}

TEST_F(VmrtLoops, LoopsOfAFewTurnsBecomeStraightLines) {
    EXPECT_FALSE(has(irOf(byElements, byDefault), " = phi i64"));
    EXPECT_TRUE(has(irOf(with(byElements, {{"4i64", "4000i64"}}), byDefault), " = phi i64"));
}

TEST_F(VmrtLoops, LoopsInsideOthersGetVersionsForManyTurns) {
    const std::string ir = irOf(byUnknownSteps, byDefault);
    EXPECT_TRUE(has(ir, "\nversion")) << "the condition is asked where the loop begins";
    EXPECT_FALSE(has(irOf(changesArrays, byDefault), "\nversion"));
    EXPECT_FALSE(has(irOf(byUnknownSteps, VMEngineConfig::OptLess), "\nversion"));
}

TEST_F(VmrtLoops, StepsThatNobodyKnowsGiveWhatTheEvaluatorGives) {
    constexpr double huge = 0x1p52;
    const std::pair<double, double> ways[] = {
        {1, 1},
        {1, 3},
        {40, 1},
        {40, -1},
        {40, -2},
        {20, -1},
        {7, 0},
        {0, 1},
        {-3, 1},
        {1, 0.5},
        {0.5, 1},
        {0.5, 0.5},
        {1, 2097152},
        {1, 1048577},
        {1048576, 1048576},
        {-huge, huge / 16},
        {huge * 2, -1},
        {huge * 2 - 39, 1},
        {huge, huge},
        {huge * 4096, -huge * 128},
        {1, huge * 4},
        {1, -huge * 4},
        {1, 0x1p60},
        {0x1p62, 0x1p62},
        {-0x1p63, 0x1p60},
        {1, NAN},
        {INFINITY, 1},
        {1, INFINITY},
        {-0.0, 1},
        {1, -0.0},
    };
    for (const char* const text : {byUnknownSteps, changesArrays}) {
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        for (const auto level : allLevels) {
            const auto engine = VMRT::makeEngine(atLevel(level));
            const auto code = engine->prepare(*scope, function, "");
            for (const std::int64_t size : {0, 1, 40, 120}) {
                ArrayValue array(ScalarKind::Double, 1, size);
                for (std::int64_t i = 1; i <= size; ++i) {
                    array.set(i, bitsOf(static_cast<double>(100 * i)));
                }
                for (const auto& [first, step] : ways) {
                    for (const std::int64_t n : {-1, 0, 1, 15, 16, 17, 40, 41, 100}) {
                        std::vector<Value> arguments = {
                            Value::ofArray(array), Value::ofDouble(first), Value::ofDouble(step),
                            Value::ofInt(Type::i64(), n)};
                        if (text == changesArrays) {
                            arguments.push_back(
                                Value::ofArray(ArrayValue(ScalarKind::Double, 1, 30)));
                            arguments.push_back(Value::ofInt(Type::i64(), size / 2));
                        }
                        EXPECT_EQ(machineOutcome(*code, function, arguments),
                                  evaluatedOutcome(*scope, function, arguments))
                            << text << " at level " << level << ", size " << size << ", from "
                            << first << " by " << step << ", n " << n;
                    }
                }
            }
        }
    }
}

TEST_F(VmrtLoops, IntegersThatDoublesDoNotHoldAreAddedAsDoubles) {
    for (const Type* const type : {Type::i64(), Type::scalar(ScalarKind::Uint64)}) {
        std::string text = fromFarAway;
        for (std::size_t at = 0; (at = text.find("TYPE")) != std::string::npos;) {
            text.replace(at, 4, type->name());
        }
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        for (const auto level : allLevels) {
            const auto engine = VMRT::makeEngine(atLevel(level));
            const auto code = engine->prepare(*scope, function, "");
            for (const int power : {0, 20, 51, 52, 53, 54, 55, 60, 62}) {
                for (std::int64_t near = -5; near <= 5; ++near) {
                    for (const std::int64_t sign : {1, -1}) {
                        const std::int64_t n = sign * ((std::int64_t{1} << power) + near);
                        const std::vector<Value> arguments = {Value::ofInt(type, n),
                                                              Value::ofInt(Type::i64(), 3)};
                        EXPECT_EQ(machineOutcome(*code, function, arguments),
                                  evaluatedOutcome(*scope, function, arguments))
                            << type->name() << " from " << n << " at level " << level;
                    }
                }
            }
        }
    }
}

TEST_F(VmrtLoops, LoopsThatCountDoSoInIntegers) {
    const auto addsDoubles = [&](const std::string& text) {
        return has(irOf(text, byDefault), "fadd");
    };
    EXPECT_FALSE(addsDoubles(counts("0.0", "1.0", "0.0", "$count")));
    EXPECT_FALSE(addsDoubles(counts("-7.0", "-3.0", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("0.0", "0.5", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("0.5", "1.0", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("-0.0", "1.0", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("1e15", "1.0", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("0.0", "1e15", "0.0", "$count")));
    EXPECT_TRUE(addsDoubles(counts("0.0", "257.0", "0.0", "$count"))) << "for very large arrays";
    EXPECT_TRUE(addsDoubles(counts("0.0", "1.0", "0.0", "$count", "i64", "%10")))
        << "the loop asks for it";
    const std::string endless = with(counts("0.0", "1.0", "0.0", "$count", "i64", "0.0", "load $n"),
                                     {{"ldelem $a %6 @6", "ldelem:inb $a 1i64"}});
    EXPECT_TRUE(addsDoubles(endless)) << "sums may leave the integers of a double";
    EXPECT_TRUE(has(irOf(counts("0.0", "1.0", "0.0", "$count"), byDefault), "<2 x i64>"));
}

TEST_F(VmrtLoops, CountsAndLastNumbersAreWhatTheEvaluatorGives) {
    std::vector<std::pair<const Type*, std::string>> texts;
    for (const char* const start : {"0.0", "-0.0", "-7.0", "0.5", "1048577.0", "9007199254740992.0",
                                    "-9007199254740990.0", "1e300"}) {
        for (const char* const added : {"1.0", "-1.0", "-0.0", "0.5", "1048576.0", "1e300"}) {
            texts.emplace_back(Type::i64(), counts(start, added, "0.0", "$count"));
            texts.emplace_back(Type::i64(), counts(start, added, "0.0", "$count", "i64", "%10"));
        }
        for (const char* const more : {"0.0", "-0.0", "1.0", "-1.0", "3.0"}) {
            texts.emplace_back(Type::i64(), counts(start, "1.0", more, "$last"));
            texts.emplace_back(Type::scalar(ScalarKind::Uint64),
                               counts(start, "1.0", more, "$last", "u64"));
            texts.emplace_back(Type::scalar(ScalarKind::Uint64),
                               with(counts(start, "1.0", more, "$last", "u64"),
                                    {{"store $k %3", "store $k 18446744073709551610u64"}}));
            texts.emplace_back(Type::scalar(ScalarKind::Int32),
                               counts(start, "1.0", more, "$last", "i32"));
        }
    }
    for (const auto& [type, text] : texts) {
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        const auto engine = VMRT::makeEngine(atLevel(byDefault));
        const auto code = engine->prepare(*scope, function, "");
        for (const std::int64_t size : {0, 1, 2, 21}) {
            ArrayValue array(ScalarKind::Double, 1, size);
            for (std::int64_t i = 1; i <= size; ++i) {
                array.set(i, bitsOf(i % 5 == 1 ? -1 : i % 7 == 6 ? NAN : static_cast<double>(i)));
            }
            for (const std::int64_t n :
                 {std::int64_t{0}, std::int64_t{-3}, (std::int64_t{1} << 53) - 9,
                  (std::int64_t{1} << 53) + 2, -(std::int64_t{1} << 53) - 5,
                  std::numeric_limits<std::int64_t>::max() - 4}) {
                const bool isShort = type == Type::scalar(ScalarKind::Int32);
                const std::vector<Value> arguments = {
                    Value::ofArray(array),
                    Value::ofInt(type, isShort ? static_cast<std::int32_t>(n) : n)};
                EXPECT_EQ(machineOutcome(*code, function, arguments),
                          evaluatedOutcome(*scope, function, arguments))
                    << text << " size " << size << ", n " << n;
            }
        }
    }
}
