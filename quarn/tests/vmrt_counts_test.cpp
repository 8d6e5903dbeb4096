// What the passes that compute whole doubles in integers find out before they do so: how many turns
// a loop can have, from the branches in front of it, and how large the integers can be that come
// in. Where that is not enough, the loop goes on in doubles.
#include "vmrt_ir_support.hpp"

using namespace QN;
using namespace QN::vmrt_test;

namespace {

// A loop that goes from 0 to n - 1 and counts. In front of it, GUARD computes %20, and %14 is n;
// %21 is a narrow integer, %22 and %23 are others.
struct Turns {
    const char* guard;
    bool entersIf; // what leads to the loop
    bool areFew;
};

const Turns guards[] = {
    {"lt %14 1000i64", true, true},
    {"lt %14 1000i64", false, false},
    {"gt %14 1000i64", true, false},
    {"gt %14 1000i64", false, true},
    {"le %14 17592186044416i64", true, true}, // 2^44
    {"le %14 17592186044417i64", true, false},
    {"lt %14 %21", true, true},
    {"lt %21 %14", true, false},
    {"gt %21 %14", true, true},
    {"lt %14 %22", true, false},
    {"and %24 %25", true, true},
    {"and %24 %25", false, false},
    {"or %24 %25", true, false},
    {"or %26 %25", false, true},
    {"or %26 %25", true, false},
    {"and %26 %25", false, false},
};

std::string loopBehind(const Turns& turns) {
    const std::string branch = turns.entersIf ? "(br %20 b1 b6))" : "(br %20 b6 b1))";
    return std::string(R"((function f f64 (param $a f64[]) (param $n i64) (param $short i32)
      (param $m i64) (user $t i64) (user $count f64)
      (block b0 (%14 i64 load $n) (%1 i32 load $short) (%21 i64 convert %1) (%22 i64 load $m)
                (%24 logical lt %14 1000i64) (%25 logical lt %22 5i64) (%26 logical gt %14 1000i64)
                (%20 logical )")
        .append(turns.guard)
        .append(") ")
        .append(branch)
        .append(R"((block b1 (%4 i64 load $t) (%5 logical lt %4 %14) (br %5 b2 b5))
      (block b2 (%30 i64 load $t) (%6 i64 add:wrap %30 1i64) (store $t %6)
                (%7 f64 ldelem:inb $a 1i64) (%11 logical lt 0.0 %7) (br %11 b3 b1))
      (block b3 (%10 f64 load $count) (%12 f64 add %10 1.0) (store $count %12) (jump b1))
      (block b5 (%16 f64 load $count) (ret %16)) (block b6 (ret -1.0))))");
}

// A loop over the elements of a, where BODY computes %20, an integer, from the number %5 of the
// turn and from %4, %30 and %2: n, n if that is not negative, and m. USE goes on with %11, MORE
// more than %20 as a double.
std::string sumIn(const std::string& body, const char* more, const char* use) {
    return std::string(R"((function f f64 (param $a f64[]) (param $n i64) (param $m i64)
      (user $t i64) (user $k i64) (user $last f64)
      (block b0 (%4 i64 load $n) (%2 i64 load $m) (%3 i64 numel $a) (%30 i64 max %4 0i64)
                (store $k %4) (jump b1))
      (block b1 (%5 i64 load $t) (%6 logical lt %5 %3) (br %6 b2 b5))
      (block b2 (%7 i64 add:wrap %5 1i64) (store $t %7) (%8 f64 ldelem $a %7 @6)
                (%18 i64 load $k) (%31 i64 add:wrap %18 1i64) (store $k %31) )")
        .append(body)
        .append(" (%10 f64 convert %20) (%11 f64 add %10 ")
        .append(more)
        .append(") ")
        .append(use)
        .append("(block b5 (%16 f64 load $last) (ret %16)))");
}

// Where an element is more than zero, the sum is kept.
const char* const keeps = "(%9 logical lt 0.0 %8) (br %9 b3 b1)) "
                          "(block b3 (store $last %11) (jump b1))";
// The sum, less what came out in the turn before.
const char* const alternates = "(%9 f64 load $last) (%12 f64 sub %11 %9) (store $last %12) "
                               "(jump b1))";

struct Body {
    const char* text;
    bool isWhole; // and known to be so
};

class VmrtCounts : public LlvmIr {
protected:
    /// For numbers at which doubles begin to leave some out.
    static void expectWhatTheEvaluatorGives(const std::string& text) {
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        const auto engine = VMRT::makeEngine(atLevel(byDefault));
        const auto code = engine->prepare(*scope, function, "");
        for (const std::int64_t size : {1, 2, 3, 8, 21}) {
            ArrayValue array(ScalarKind::Double, 1, size);
            for (std::int64_t i = 1; i <= size; ++i) {
                array.set(i, bitsOf(i % 5 == 4 ? -1.0 : 1.0));
            }
            for (const int power : {0, 7, 50, 51, 52, 53, 54, 62}) {
                for (std::int64_t near = -3; near <= 3; ++near) {
                    for (const std::int64_t sign : {1, -1}) {
                        const std::int64_t n = sign * ((std::int64_t{1} << power) + near);
                        const std::vector<Value> arguments = {Value::ofArray(array),
                                                              Value::ofInt(Type::i64(), n),
                                                              Value::ofInt(Type::i64(), near)};
                        EXPECT_EQ(machineOutcome(*code, function, arguments),
                                  evaluatedOutcome(*scope, function, arguments))
                            << text << " size " << size << ", n " << n;
                    }
                }
            }
        }
    }
};

} // namespace

TEST_F(VmrtCounts, AreIntegersWhereTheTurnsAreFew) {
    for (const Turns& turns : guards) {
        EXPECT_NE(has(irOf(loopBehind(turns), byDefault), "fadd"), turns.areFew)
            << turns.guard << (turns.entersIf ? "" : " is not so");
    }
}

TEST_F(VmrtCounts, OfIntegersThatAreTooLargeAreDoubles) {
    const Body bodies[] = {
        {"(%19 i64 max %18 0i64) (%20 i64 min %19 4503599627370496i64)", true}, // 2^52
        {"(%19 i64 max %18 0i64) (%20 i64 min %19 18014398509481984i64)", false},
        {"(%20 i64 max %18 -4503599627370496i64)", false},
        {"(%20 i64 min %18 4503599627370496i64)", false},
        // From up to 2^51 on by one, by 64, by more.
        {"(%19 i64 min %30 2251799813685248i64) (%20 i64 add:wrap %19 %5)", true},
        {"(%19 i64 min %30 2251799813685249i64) (%20 i64 add:wrap %19 %5)", false},
        {"(%19 i64 min %30 9007199254740992i64) (%20 i64 add:wrap %19 %5)", false},
        {"(%20 i64 mul:wrap %5 64i64)", true},
        {"(%20 i64 mul:wrap %5 65i64)", false},
        {"(%19 i64 mul:wrap %5 1125899906842624i64) (%20 i64 add:wrap %19 3i64)", false},
        {"(%20 i64 mul:wrap %5 -64i64)", true},
        {"(%20 i64 mul:wrap %5 -65i64)", false},
        // By more and more.
        {"(%17 i64 sub:wrap %5 1i64) (%19 i64 mul:wrap %5 %17)"
         "(%21 i64 mul:wrap %19 1125899906842624i64) (%20 i64 add:wrap %21 3i64)",
         false},
    };
    for (const Body& body : bodies) {
        const std::string text = sumIn(body.text, "1.0", keeps);
        EXPECT_NE(has(irOf(text, byDefault), "fadd"), body.isWhole) << body.text;
        expectWhatTheEvaluatorGives(text);
    }
}

TEST_F(VmrtCounts, SumsOfIntegersThatAreTooLargeAreDoubles) {
    const Body bodies[] = {
        {"(%19 i64 max %18 0i64) (%20 i64 min %19 4503599627370496i64)", true},
        {"(%19 i64 max %18 0i64) (%20 i64 min %19 18014398509481984i64)", false},
        {"(%20 i64 max %18 -4503599627370496i64)", false},
        {"(%20 i64 min %18 4503599627370496i64)", false},
        {"(%19 i64 min %30 2251799813685248i64) (%20 i64 add:wrap %19 %5)", true},
        {"(%19 i64 min %30 18014398509481984i64) (%20 i64 add:wrap %19 %5)", false},
        {"(%19 i64 min %4 2251799813685248i64) (%20 i64 add:wrap %19 %5)", false},
        {"(%20 i64 add:wrap %30 %5)", false},
        {"(%19 i64 mul:wrap %5 2251799813685248i64) (%20 i64 add:wrap %19 3i64)", false},
        // Without a sign, less than zero is more than a double holds.
        {"(%19 i8 convert:wrap %18) (%20 u64 convert:wrap %19)", false},
        {"(%19 i64 min %30 2251799813685248i64) (%21 i64 sub:wrap %5 %19)"
         "(%20 u64 convert:wrap %21)",
         false},
        {"(%19 u8 convert:wrap %18) (%20 u64 convert:wrap %19)", true},
    };
    for (const Body& body : bodies) {
        const std::string text = sumIn(body.text, "3.0", alternates);
        EXPECT_NE(has(irOf(text, byDefault), "fadd"), body.isWhole) << body.text;
        expectWhatTheEvaluatorGives(text);
    }
}

TEST_F(VmrtCounts, ThatTakeTurnsGiveWhatTheEvaluatorGives) {
    // Each turn the two change places, and where an element is more than zero, one grows.
    const char* const text = R"((function f f64 (param $a f64[]) (param $n i64) (param $m i64)
      (user $t i64) (user $x f64) (user $y f64)
      (block b0 (%3 i64 numel $a) (store $y 100.0) (jump b1))
      (block b1 (%5 i64 load $t) (%6 logical lt %5 %3) (br %6 b2 b5))
      (block b2 (%7 i64 add:wrap %5 1i64) (store $t %7) (%8 f64 ldelem $a %7 @6)
                (%10 f64 load $x) (%11 f64 load $y) (store $x %11) (store $y %10)
                (%9 logical lt 0.0 %8) (br %9 b3 b1))
      (block b3 (%12 f64 add %10 1.0) (store $y %12) (jump b1))
      (block b5 (%16 f64 load $x) (%17 f64 load $y) (%18 f64 mul %17 1000.0) (%19 f64 add %16 %18)
                (ret %19))))";
    EXPECT_FALSE(has(irOf(text, byDefault), "1.000000e+00"));
    expectWhatTheEvaluatorGives(text);
}

TEST_F(VmrtCounts, OfLoopsWithoutAKnownEndAreDoubles) {
    // What grows in one half of a turn falls in the other, unless an element says otherwise.
    const char* const backAndForth =
        R"((function f f64 (param $a f64[]) (param $n i64) (user $t i64)
      (user $count f64)
      (block b0 (%3 i64 load $n) (jump b1))
      (block b1 (%5 i64 load $t) (%6 logical lt %5 %3) (br %6 b2 b5))
      (block b2 (%7 i64 add:wrap %5 1i64) (store $t %7) (%8 f64 ldelem:inb $a 1i64)
                (%10 f64 load $count) (%12 f64 add %10 2.0) (store $count %12)
                (%9 logical lt 0.0 %8) (br %9 b3 b1))
      (block b3 (%11 f64 add %12 -2.0) (store $count %11) (jump b1))
      (block b5 (%16 f64 load $count) (ret %16))))";
    EXPECT_TRUE(has(irOf(backAndForth, byDefault), "fadd"));
    // The number of the turn plus three, less what came out before.
    const char* const sums = R"((function f f64 (param $a f64[]) (param $n i64) (user $t i64)
      (user $s f64)
      (block b0 (%3 i64 load $n) (jump b1))
      (block b1 (%5 i64 load $t) (%6 logical lt %5 %3) (br %6 b2 b5))
      (block b2 (%7 i64 add:wrap %5 1i64) (store $t %7) (%10 f64 convert %5) (%11 f64 add %10 3.0)
                (%12 f64 load $s) (%13 f64 sub %11 %12) (store $s %13) (jump b1))
      (block b5 (%16 f64 load $s) (ret %16))))";
    EXPECT_TRUE(has(irOf(sums, byDefault), "3.000000e+00"));
}
