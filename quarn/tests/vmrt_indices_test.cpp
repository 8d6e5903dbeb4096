// Indices in loops that end by conditions of their own, where "is it an index" and "is it one of
// this array" are one comparison: what traps is what traps in the evaluator, and in its order.
#include "vmrt_support.hpp"

#include <limits>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

/// A loop that runs until $s is large. Its body computes %20 from two arrays, two doubles, and an
/// integer.
std::string loopOver(std::string_view body) {
    return std::string(R"((function f f64 (param $a f64[]) (param $b f64[]) (param $i f64)
      (param $j f64) (param $k i64) (user $s f64)
      (block b0 (%1 f64 load $i) (%2 f64 load $j) (%3 i64 load $k) (jump b1))
      (block b1 (%4 f64 load $s) (%5 logical lt %4 100.0) (br %5 b2 b3))
      (block b2 )")
        .append(body)
        .append(R"( (%21 f64 load $s) (%22 f64 add %21 %20) (store $s %22) (jump b1))
      (block b3 (%23 f64 load $s) (ret %23))))");
}

// Both wait for their bounds.
const char* const twoWait = R"(
    (%6 i64 toindex %1 @10) (%7 i64 toindex %2 @11) (%8 i64 numel $a) (chkbounds %6 %8 @12)
    (%9 i64 numel $b) (chkbounds %7 %9 @13)
    (%10 f64 ldelem:inb $a %6) (%11 f64 ldelem:inb $b %7) (%20 f64 add %10 %11))";

// The second one to be made is the first one whose bounds are looked at.
const char* const crossed = R"(
    (%6 i64 toindex %1 @10) (%7 i64 toindex %2 @11) (%8 i64 numel $b) (chkbounds %7 %8 @12)
    (%9 i64 numel $a) (chkbounds %6 %9 @13)
    (%10 f64 ldelem:inb $a %6) (%11 f64 ldelem:inb $b %7) (%20 f64 add %10 %11))";

// Something that acts stands between an index and its bounds.
const char* const behindAnAccess = R"(
    (%6 i64 toindex %1 @10) (%7 f64 ldelem $b %3 @11) (%8 i64 numel $a) (chkbounds %6 %8 @12)
    (%10 f64 ldelem:inb $a %6) (%20 f64 add %10 %7))";

// The second index has no bounds, so it does not wait.
const char* const besideOneWithout = R"(
    (%6 i64 toindex %1 @10) (%7 i64 toindex %2 @11) (%8 i64 numel $a) (chkbounds %6 %8 @12)
    (%10 f64 ldelem:inb $a %6) (%11 f64 convert %7) (%20 f64 add %10 %11))";

// Other bounds are looked at while an index waits.
const char* const besideOtherBounds = R"(
    (%6 i64 toindex %1 @10) (chkbounds %3 4i64 @11) (%8 i64 numel $a) (chkbounds %6 %8 @12)
    (%10 f64 ldelem:inb $a %6) (%20 f64 add %10 1.0))";

// Only whether it is beyond the end is asked.
const char* const beyond = R"(
    (%6 i64 toindex %1 @10) (%7 i64 numel $a) (%8 logical gt %6 %7)
    (%20 f64 select %8 50.0 7.0))";

// The same of what is no size, and of what is no index.
const char* const beyondAnything = R"(
    (%6 i64 toindex %1 @10) (%8 logical gt %6 %3)
    (%20 f64 select %8 50.0 7.0))";
const char* const anythingBeyond = R"(
    (%6 i64 toindex %1 @10) (%7 i64 numel $a) (%8 logical gt %3 %7)
    (%20 f64 select %8 50.0 7.0))";

// The bounds are no size, so they may be less than nothing.
const char* const insideAnything = R"(
    (%6 i64 toindex %1 @10) (%7 i64 sub %3 2i64) (chkbounds %6 %7 @12) (%20 f64 convert %6))";

const double manyNumbers[] = {1,
                              4,
                              5,
                              0,
                              -1,
                              0.5,
                              1.5,
                              4.5,
                              0x1p53,
                              0x1p53 + 2,
                              0x1p63,
                              -0x1p63,
                              1e300,
                              std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()};

ArrayValue fourNumbers() {
    ArrayValue array(ScalarKind::Double, 1, 4);
    for (std::int64_t i = 1; i <= 4; ++i) {
        array.set(i, bitsOf(static_cast<double>(10 * i)));
    }
    return array;
}

struct Body {
    const char* name;
    const char* text;
};

class VmrtIndices : public ::testing::TestWithParam<Body> {};

void PrintTo(const Body& body, std::ostream* out) {
    *out << body.name;
}

} // namespace

TEST_P(VmrtIndices, TrapAsTheEvaluatorDoes) {
    const auto scope = parsed(loopOver(GetParam().text));
    Function& function = *scope->find("f");
    const ArrayValue array = fourNumbers();
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto code = engine->prepare(*scope, function, "");
        for (const double i : manyNumbers) {
            for (const double j : manyNumbers) {
                for (const std::int64_t k : {1, 4, 5, 0, -1}) {
                    const std::vector<Value> arguments = {
                        Value::ofArray(array), Value::ofArray(array), Value::ofDouble(i),
                        Value::ofDouble(j), Value::ofInt(Type::i64(), k)};
                    ASSERT_EQ(machineOutcome(*code, function, arguments),
                              evaluatedOutcome(*scope, function, arguments))
                        << "level " << level << ", i " << i << ", j " << j << ", k " << k;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Bodies, VmrtIndices,
                         ::testing::Values(Body{"twoWait", twoWait}, Body{"crossed", crossed},
                                           Body{"behindAnAccess", behindAnAccess},
                                           Body{"besideOneWithout", besideOneWithout},
                                           Body{"besideOtherBounds", besideOtherBounds},
                                           Body{"beyond", beyond},
                                           Body{"beyondAnything", beyondAnything},
                                           Body{"anythingBeyond", anythingBeyond},
                                           Body{"insideAnything", insideAnything}),
                         [](const auto& body) { return std::string(body.param.name); });
