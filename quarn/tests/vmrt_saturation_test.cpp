// Saturating arithmetic with constants in loops that end by conditions of their own, where one look
// at the first operand decides for several steps: every result is the evaluator's.
#include "vmrt_support.hpp"

#include <limits>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

/// One step: an operation with a constant, to the left of which the number stands or not.
struct Step {
    const char* op;
    int constant;
    bool isLeft = true;
};

const std::vector<std::vector<Step>> chains = {
    {{"add", 5}},
    {{"add", -5}},
    {{"add", 7, false}},
    {{"sub", 5}},
    {{"sub", -5}},
    {{"sub", 5, false}},
    {{"mul", 3}},
    {{"mul", -3}},
    {{"mul", 0}},
    {{"mul", -1}},
    {{"mul", 127}},
    {{"mul", 3}, {"add", 1}},
    {{"mul", -2, false}, {"sub", 5}},
    {{"sub", 100}, {"mul", 2}},
    {{"add", 100}, {"mul", -1}},
    {{"mul", 2}, {"sub", 5, false}},
    {{"sub", 5, false}, {"mul", 7}},
    {{"mul", 3}, {"add", 1}, {"sub", 2}},
    {{"add", 100}, {"sub", 100}, {"mul", 2}},
    {{"add", 100}, {"add", 100}, {"add", 100}}, // which saturates always in 8 bits
    {{"sub", 127}, {"sub", 127}, {"sub", 127}},
    {{"mul", 5}, {"sub", 9}, {"mul", -2}, {"add", 3}},
};

/// A function of one number, whose only turn of a loop computes the chain; empty if the type has
/// not all of the constants.
std::string functionOf(const std::vector<Step>& chain, std::string_view type) {
    const std::string t(type);
    std::string body;
    int last = 4;
    for (const Step& step : chain) {
        if (type.front() == 'u' && step.constant < 0) {
            return "";
        }
        const std::string number = " %" + std::to_string(last++);
        const std::string constant = " " + std::to_string(step.constant) + t;
        body.append("(%" + std::to_string(last) + " " + t + " " + step.op);
        body.append(step.isLeft ? number + constant : constant + number).append(") ");
    }
    return "(function f " + t + " (param $x " + t + ") (user $y " + t + R"() (user $s f64)
      (block b0 (jump b1))
      (block b1 (%1 f64 load $s) (%2 logical lt %1 1.0) (br %2 b2 b3))
      (block b2 (%3 f64 add %1 1.0) (store $s %3) (%4 )" +
           t + " load $x) " + body + "(store $y %" + std::to_string(last) + R"() (jump b1))
      (block b3 (%20 )" +
           t + " load $y) (ret %20)))";
}

/// All numbers of a narrow type; of a wide one those near its ends, their parts, and zero.
std::vector<std::int64_t> numbersOf(const Type& type) {
    std::vector<std::int64_t> numbers;
    if (type.bits() == 8) {
        for (std::int64_t i = 0; i < 256; ++i) {
            numbers.push_back(type.isSigned() ? i - 128 : i);
        }
        return numbers;
    }
    const std::int64_t low =
        type.isSigned() ? std::numeric_limits<std::int64_t>::min() >> (64 - type.bits()) : 0;
    // As bits, since the largest number of 64 bits without sign is too large for the result.
    const std::uint64_t high =
        std::numeric_limits<std::uint64_t>::max() >> (64 - type.bits() + (type.isSigned() ? 1 : 0));
    for (const std::int64_t part : {1, 2, 3, 5, 7, 10, 127}) {
        const std::uint64_t highPart = high / static_cast<std::uint64_t>(part);
        for (std::int64_t near = 0; near < 12; ++near) {
            const auto offset = static_cast<std::uint64_t>(near);
            numbers.push_back(low / part + near);
            numbers.push_back(static_cast<std::int64_t>(highPart - offset));
            if (part > 1) {
                numbers.push_back(low / part - (type.isSigned() ? near : 0));
                numbers.push_back(static_cast<std::int64_t>(highPart + offset));
            }
        }
    }
    return numbers;
}

class VmrtSaturation : public ::testing::TestWithParam<const char*> {};

} // namespace

TEST_P(VmrtSaturation, OfChainsWithConstantsIsTheEvaluators) {
    for (const auto& chain : chains) {
        const std::string text = functionOf(chain, GetParam());
        if (text.empty()) {
            continue;
        }
        const auto scope = parsed(text);
        Function& function = *scope->find("f");
        const Type& type = *function.paramTypes().front();
        for (const auto level : {VMEngineConfig::OptNone, VMEngineConfig::OptDefault}) {
            const auto engine = VMRT::makeEngine(atLevel(level));
            const auto code = engine->prepare(*scope, function, "");
            for (const std::int64_t number : numbersOf(type)) {
                const std::vector<Value> arguments = {Value::ofInt(&type, number)};
                ASSERT_EQ(machineOutcome(*code, function, arguments),
                          evaluatedOutcome(*scope, function, arguments))
                    << text << " of " << number << " at level " << level;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Types, VmrtSaturation,
                         ::testing::Values("i8", "u8", "i16", "u16", "i32", "u32", "i64", "u64"),
                         [](const auto& type) { return std::string(type.param); });
