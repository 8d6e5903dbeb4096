// Whole numbers beside doubles: indices, comparisons and truncations that are computed in integers
// give what the doubles give, also where the integers are more than doubles hold.
#include "vmrt_support.hpp"

using namespace QN;
using namespace QN::vmrt_test;

namespace {

struct Case {
    const char* name;
    const char* text;
};

// How often k, which begins at n, is above m, two integers as doubles that are indices elsewhere.
const char* const countersOfIntegers =
    R"((function f f64 (param $n i64) (param $m i64) (param $a f64[])
  (user $k f64) (user $c f64)
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (store $k %2) (%3 i64 load $m) (%4 f64 convert %3)
            (jump b1))
  (block b1 (%5 f64 load $k) (%6 logical gt %5 %4) (br %6 b2 b5))
  (block b2 (%7 f64 load $c) (%8 f64 add %7 1.0) (store $c %8) (%9 f64 sub %5 1.0) (store $k %9)
            (%10 logical gt %8 20.0) (br %10 b3 b1))
  (block b3 (%11 i64 toindex %9 @5) (%12 f64 ldelem $a %11 @6) (%13 i64 toindex %4 @7)
            (%14 f64 ldelem $a %13 @8) (%15 f64 add %12 %14) (ret %15))
  (block b5 (%16 f64 load $c) (ret %16))))";

// The same of the sums n + n + 1 and m + m, which are doubles from the beginning.
const char* const countersOfSums = R"((function f f64 (param $n i64) (param $m i64) (param $a f64[])
  (user $k f64) (user $c f64)
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (%17 f64 add %2 %2) (%18 f64 add %17 1.0)
            (store $k %18) (%3 i64 load $m) (%19 f64 convert %3) (%4 f64 add %19 %19) (jump b1))
  (block b1 (%5 f64 load $k) (%6 logical gt %5 %4) (br %6 b2 b5))
  (block b2 (%7 f64 load $c) (%8 f64 add %7 1.0) (store $c %8) (%9 f64 sub %5 1.0) (store $k %9)
            (%10 logical gt %8 20.0) (br %10 b3 b1))
  (block b3 (%11 i64 toindex %9 @5) (%12 f64 ldelem $a %11 @6) (%13 i64 toindex %4 @7)
            (%14 f64 ldelem $a %13 @8) (%15 f64 add %12 %14) (ret %15))
  (block b5 (%16 f64 load $c) (ret %16))))";

// An integer as a double, as an index.
const char* const oneIndex = R"((function f f64 (param $n i64) (param $m i64) (param $a f64[])
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (%3 i64 toindex %2 @5) (%4 f64 convert %3)
            (ret %4))))";

// A sum of two as an index.
const char* const indexOfSum = R"((function f f64 (param $n i64) (param $m i64) (param $a f64[])
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (%6 i64 load $m) (%7 f64 convert %6)
            (%8 f64 add %2 %7) (%9 f64 add %8 1.0) (%3 i64 toindex %9 @5) (%4 f64 convert %3)
            (ret %4))))";

// An integer as a double and back.
const char* const truncation = R"((function f i64 (param $n i64) (param $m i64) (param $a f64[])
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (%3 i64 convert:zero %2) (ret %3))))";

// The same of what two products leave of each other.
const char* const truncationOfProducts =
    R"((function f i64 (param $n i64) (param $m i64) (param $a f64[])
  (block b0 (%1 i64 load $n) (%2 f64 convert %1) (%6 i64 load $m) (%7 f64 convert %6)
            (%8 f64 mul %2 %7) (%9 f64 mul %2 %2) (%10 f64 sub %8 %9) (%11 f64 sub %10 3.0)
            (%3 i64 convert:zero %11) (ret %3))))";

// The last of at most eight indices, where the number of the turn is an argument.
const char* const turnsFromAnywhere =
    R"((function f f64 (param $n i64) (param $m i64) (param $a f64[])
  (user $c f64) (user $left i64)
  (block b0 (%9 i64 load $m) (store $left 8i64) (jump b1))
  (block b1 (%1 i64 load $n) (%2 logical lt %1 %9) (br %2 b2 b3))
  (block b2 (%3 f64 convert %1) (%4 f64 mul %3 4.0) (%5 f64 add 1.0 %4) (%6 i64 toindex %5 @5)
            (%7 f64 convert %6) (store $c %7) (%8 i64 add %1 1i64) (store $n %8)
            (%11 i64 load $left) (%12 i64 sub %11 1i64) (store $left %12)
            (%13 logical gt %12 0i64) (br %13 b1 b3))
  (block b3 (%10 f64 load $c) (ret %10))))";

/// Integers around the powers of two at which something changes.
std::vector<std::int64_t> numbers() {
    std::vector<std::int64_t> all = {0, 1, 2, 5};
    for (const int power : {24, 25, 26, 50, 51, 52, 53, 54, 62}) {
        for (std::int64_t near = -3; near <= 3; ++near) {
            all.push_back((std::int64_t{1} << power) + near);
            all.push_back(-all.back());
        }
    }
    return all;
}

class VmrtWholes : public ::testing::TestWithParam<Case> {};

void PrintTo(const Case& each, std::ostream* out) {
    *out << each.name;
}

} // namespace

TEST_P(VmrtWholes, GiveWhatTheEvaluatorGives) {
    const auto scope = parsed(GetParam().text);
    Function& function = *scope->find("f");
    const ArrayValue array(ScalarKind::Double, 1, 4);
    for (const auto level : allLevels) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        const auto code = engine->prepare(*scope, function, "");
        for (const std::int64_t n : numbers()) {
            for (const std::int64_t m : {n, n / 2, n / -2, std::int64_t{3}}) {
                for (std::int64_t near = -1; near <= 1; ++near) {
                    const std::vector<Value> arguments = {
                        Value::ofInt(Type::i64(), n), Value::ofInt(Type::i64(), m / 2 * 2 + near),
                        Value::ofArray(array)};
                    ASSERT_EQ(machineOutcome(*code, function, arguments),
                              evaluatedOutcome(*scope, function, arguments))
                        << "level " << level << ", n " << n << ", m " << m / 2 * 2 + near;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, VmrtWholes,
                         ::testing::Values(Case{"countersOfIntegers", countersOfIntegers},
                                           Case{"countersOfSums", countersOfSums},
                                           Case{"oneIndex", oneIndex},
                                           Case{"indexOfSum", indexOfSum},
                                           Case{"truncation", truncation},
                                           Case{"truncationOfProducts", truncationOfProducts},
                                           Case{"turnsFromAnywhere", turnsFromAnywhere}),
                         [](const auto& each) { return std::string(each.param.name); });
