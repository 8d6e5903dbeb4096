// Saturating arithmetic with constants that hardly ever saturates.
//
// 3 * n + 1 stays inside its type for all n of an interval. One look at n, and the sum is computed
// without limits; only where n is outside are limits looked at, step by step, in a place of its
// own. LLVM's intrinsics look after each step and keep the processor waiting for it. They stay
// where loops are counted, since LLVM computes several turns of those at a time.
#include "vmrt/llvm/function_emitter.hpp"

#include <algorithm>

namespace QN::VMRT {

using llvm::Value;

namespace {

__extension__ using Wide = __int128;

struct Interval {
    Wide low;
    Wide high;
};

/// One operation with a constant: value + constant, or value * constant.
struct Step {
    const Node* node;
    std::size_t from; // the operand that is no constant
};

Wide wideOf(const Const& constant) {
    const Type& type = *constant.type();
    return type.isSigned() ? Wide{constant.asInt()} : Wide{constant.bits()};
}

const Const& constantOf(const Step& step) {
    return *asConst(step.node->operand(1 - step.from));
}

Interval rangeOf(const Type& type) {
    const Wide size = Wide{1} << type.bits();
    return type.isSigned() ? Interval{-size / 2, size / 2 - 1} : Interval{0, size - 1};
}

std::optional<Step> stepOf(const Node& node) {
    if (!node.type()->isInteger() || node.mode().overflow() != Overflow::Saturate) {
        return std::nullopt;
    }
    const bool commutes = node.op() == Op::Add || node.op() == Op::Mul;
    if (!commutes && node.op() != Op::Sub) {
        return std::nullopt;
    }
    for (const std::size_t from : {0U, 1U}) {
        const Const* const constant = asConst(node.operand(1 - from));
        if (constant != nullptr && asNode(node.operand(from)) != nullptr &&
            (commutes || from == 0) && (node.op() != Op::Mul || constant->bits() != 0)) {
            return Step{&node, from};
        }
    }
    return std::nullopt;
}

Wide floorOfQuotient(Wide a, Wide b) {
    const Wide quotient = a / b;
    return a % b != 0 && (a < 0) != (b < 0) ? quotient - 1 : quotient;
}

/// The numbers that the step takes into `to` before anything saturates.
Interval before(const Step& step, Interval to) {
    const Wide constant = wideOf(constantOf(step));
    if (step.node->op() == Op::Add) {
        return {to.low - constant, to.high - constant};
    }
    if (step.node->op() == Op::Sub) {
        return {to.low + constant, to.high + constant};
    }
    if (constant < 0) {
        std::swap(to.low, to.high);
    }
    return {-floorOfQuotient(-to.low, constant), floorOfQuotient(to.high, constant)};
}

} // namespace

/// In a loop whose number of turns LLVM hardly finds out: nothing in its head compares counters.
bool FunctionEmitter::runsInUncountedLoop(const Node& node) const {
    const std::uint32_t loop = loops_.innermost(*node.block());
    if (loop == Loop::none) {
        return false;
    }
    const Node& end = *loops_.all()[loop].header->last();
    const Node* const compare = end.op() == Op::Br ? asNode(end.operand(0)) : nullptr;
    return compare == nullptr || !compare->has(OpFlag::Compares) ||
           typeOf(compare->operand(0)) != Type::i64();
}

/// The value of a saturating operation with a constant, and of those in front of it; null where
/// there is nothing to gain.
Value* FunctionEmitter::emitUnsaturated(const Node& node) {
    constexpr std::size_t mostSteps = 3;
    std::vector<Step> steps; // the last one first
    for (const Node* at = &node; at != nullptr && steps.size() < mostSteps;) {
        const std::optional<Step> step = stepOf(*at);
        if (!step.has_value()) {
            break;
        }
        steps.push_back(*step);
        const Node* const earlier = asNode(at->operand(step->from));
        at = earlier->hasOneUse() && earlier->block() == node.block() ? earlier : nullptr;
    }
    if (steps.empty() || unit_.config().jitOptimizationLevel() == VMEngineConfig::OptNone ||
        !runsInUncountedLoop(node)) {
        return nullptr;
    }
    const Type& type = *node.type();
    const Interval all = rangeOf(type);
    Interval fits = all;
    for (const Step& step : steps) {
        const Interval next = before(step, fits);
        fits = {std::max(next.low, all.low), std::min(next.high, all.high)};
    }
    if (fits.low > fits.high) {
        return nullptr;
    }
    std::reverse(steps.begin(), steps.end());
    Value* const start = value(*steps.front().node, steps.front().from);
    const auto number = [&](Wide wide) {
        return scalars_.constant(type, static_cast<std::uint64_t>(wide));
    };
    llvm::BasicBlock* const inside = newBlock("inside");
    llvm::BasicBlock* const outside = newBlock("outside");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(
        ir_.CreateICmpULE(ir_.CreateSub(start, number(fits.low)), number(fits.high - fits.low)),
        inside, outside, unit_.likely());
    Value* results[2] = {start, start};
    ir_.SetInsertPoint(inside);
    for (const Step& step : steps) {
        Value* const constant = number(wideOf(constantOf(step)));
        const bool isSigned = type.isSigned();
        Value*& x = results[0];
        x = step.node->op() == Op::Mul   ? ir_.CreateMul(x, constant, "", !isSigned, isSigned)
            : step.node->op() == Op::Add ? ir_.CreateAdd(x, constant, "", !isSigned, isSigned)
                                         : ir_.CreateSub(x, constant, "", !isSigned, isSigned);
    }
    ir_.CreateBr(on);
    ir_.SetInsertPoint(outside);
    for (const Step& step : steps) {
        results[1] = scalars_.compute(step.node->op(), step.node->mode(), type, results[1],
                                      number(wideOf(constantOf(step))));
    }
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
    llvm::PHINode* const result = ir_.CreatePHI(start->getType(), 2);
    result->addIncoming(results[0], inside);
    result->addIncoming(results[1], outside);
    return result;
}

} // namespace QN::VMRT
