// Branches that become selections, and branches that must not: what the function gives stays the
// same.
#include "vmrt_support.hpp"

#include <qn/ir.hpp>
#include <qn/transform.hpp>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

struct Case {
    const char* name;
    const char* text; // of the blocks from b0 on, or what comes in front of the branch on %3
    bool isConverted;
    const char* first = nullptr; // the sides of the branch, where there is only that
    const char* second = nullptr;
};

// x and y are two integers of 64 bits; v + 1000 w comes out.
std::string textOf(const Case& each) {
    const std::string head = R"((function f i64 (param $x i64) (param $y i64) (user $v i64)
      (user $w i64) )";
    const std::string blocks = each.first == nullptr
                                   ? std::string(each.text)
                                   : std::string("(block b0 (%1 i64 load $x) (%2 i64 load $y) ") +
                                         each.text + " (br %3 b1 b2)) (block b1 " + each.first +
                                         " (jump b3)) (block b2 " + each.second + " (jump b3))";
    return head + blocks + R"( (block b3 (%30 i64 load $v) (%31 i64 load $w)
      (%32 i64 mul:wrap %31 1000i64) (%33 i64 add:wrap %30 %32) (ret %33))))" +
           R"( (function g i64 (param $p i64*)
      (block b0 (%1 i64* load $p) (storep %1 77i64) (ret 0i64))))";
}

const Case cases[] = {
    {"oneValueEach", "(%3 logical lt %1 %2)", true, "(store $v %1)", "(store $v 5i64)"},
    {"halves", "(%5 i64 mod %1 4i64) (%3 logical eq %5 0i64)", true,
     "(%6 i64 div %1 4i64) (store $v %6)", "(%7 i64 mul %1 3i64) (store $v %7)"},
    {"halvesOnTheOtherSide", "(%5 i64 rem %1 4i64) (%3 logical ne 0i64 %5)", true,
     "(%7 i64 div %1 8i64) (store $v %7)", "(%6 i64 div %1 4i64) (store $v %6)"},
    {"whatIsLeftIsThree", "(%5 i64 mod %1 4i64) (%3 logical eq %5 3i64)", true,
     "(%6 i64 div %1 4i64) (store $v %6)", "(store $v %1)"},
    {"theOtherSide", "(%5 i64 mod %1 4i64) (%3 logical eq %5 0i64)", true, "(store $v %1)",
     "(%6 i64 div %1 4i64) (store $v %6)"},
    {"aQuotientIsNothing", "(%5 i64 div %1 4i64) (%3 logical eq %5 0i64)", true,
     "(%6 i64 div %1 4i64) (store $v %6)", "(store $v %1)"},
    {"anotherNumber", "(%5 i64 mod %1 4i64) (%3 logical eq %5 0i64)", true,
     "(%6 i64 div %2 4i64) (store $v %6)", "(store $v %1)"},
    {"anotherDivisor", "(%5 i64 mod %1 4i64) (%3 logical eq %5 0i64)", true,
     "(%6 i64 div %1 8i64) (store $v %6)", "(store $v %1)"},
    {"loadsAnother", "(%3 logical lt %1 %2)", true, "(%6 i64 load $x) (store $v %6)",
     "(%7 i64 load $w) (store $v %7)"},
    {"loadsWhatWasStored", "(%3 logical lt %1 %2) (store $v %2)", true,
     "(%6 i64 load $v) (%8 i64 add:wrap %6 1i64) (store $v %8)", "(store $v 5i64)"},
    {"twoVariablesOnOneSide", "(%3 logical lt %1 %2)", false, "(store $w 1i64) (store $v %1)",
     "(store $v %2)"},
    {"oneVariableEach", "(%3 logical lt %1 %2)", false, "(store $v %1)", "(store $w %2)"},
    {"behindAPointer", "(%3 logical lt %1 %2) (store $v 3i64) (%5 i64* addrof $v) (storep %5 9i64)",
     true, "(%6 i64 load $v) (%8 i64 add:wrap %6 1i64) (store $v %8)", "(store $v 5i64)"},
    {"behindACall", "(%3 logical lt %1 %2) (store $v 3i64) (%5 i64* addrof $v) (%9 i64 call &g %5)",
     true, "(%6 i64 load $v) (%8 i64 add:wrap %6 1i64) (store $v %8)", "(store $v 5i64)"},
    {"endsThere",
     R"((block b0 (%1 i64 load $x) (%2 i64 load $y) (%3 logical lt %1 %2) (br %3 b1 b2))
        (block b1 (store $v %1) (ret 7i64)) (block b2 (store $v %2) (jump b3)))",
     false},
    {"bothEndThere",
     R"((block b0 (%1 i64 load $x) (%2 i64 load $y) (%3 logical lt %1 %2) (br %3 b1 b2))
        (block b1 (store $v %1) (ret 7i64)) (block b2 (store $v %2) (ret 8i64)))",
     false},
    {"goOnElsewhere",
     R"((block b0 (%1 i64 load $x) (%2 i64 load $y) (%3 logical lt %1 %2) (br %3 b1 b2))
        (block b1 (store $v %1) (jump b4)) (block b4 (store $w 1i64) (jump b3))
        (block b2 (store $v %2) (jump b3)))",
     false},
    {"comeFromElsewhere",
     R"((block b0 (%1 i64 load $x) (%2 i64 load $y) (%4 logical lt %2 0i64) (br %4 b2 b4))
        (block b4 (%3 logical lt %1 %2) (br %3 b1 b2))
        (block b1 (store $v %1) (jump b3)) (block b2 (store $v %2) (jump b3)))",
     false},
    {"bothWaysAreOne",
     R"((block b0 (%1 i64 load $x) (%2 i64 load $y) (%3 logical lt %1 %2) (br %3 b1 b1))
        (block b1 (store $v %1) (jump b3)))",
     false},
};

class IfConversion : public ::testing::TestWithParam<Case> {};

void PrintTo(const Case& each, std::ostream* out) {
    *out << each.name;
}

std::vector<std::string> outcomes(const Scope& scope) {
    std::vector<std::string> all;
    for (std::int64_t x = -9; x <= 9; ++x) {
        for (const std::int64_t y : {-6, -1, 0, 2, 7}) {
            all.push_back(
                evaluatedOutcome(scope, *scope.find("f"),
                                 {Value::ofInt(Type::i64(), x), Value::ofInt(Type::i64(), y)}));
        }
    }
    return all;
}

} // namespace

TEST_P(IfConversion, KeepsWhatTheFunctionGives) {
    const auto scope = parsed(textOf(GetParam()));
    const std::vector<std::string> before = outcomes(*scope);
    EXPECT_EQ(runTransform(*transformNamed("if-conversion"), *scope->find("f")),
              GetParam().isConverted);
    EXPECT_EQ(outcomes(*scope), before);
}

INSTANTIATE_TEST_SUITE_P(Branches, IfConversion, ::testing::ValuesIn(cases),
                         [](const auto& each) { return std::string(each.param.name); });
