// See whole_sums.hpp.
#include "vmrt/llvm/whole_sums.hpp"

#include "vmrt/llvm/whole_numbers.hpp"

#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/Analysis/ScalarEvolutionExpressions.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/PatternMatch.h>

namespace QN::VMRT {
namespace {

using llvm::Value;

constexpr std::int64_t largestExact = std::int64_t{1} << 52;

/// Whether a number stays between `lowest` and largestExact.
bool staysExact(const llvm::SCEV* number, std::int64_t lowest, llvm::ScalarEvolution& evolution) {
    if (isBetween(evolution.getSignedRange(number), lowest, largestExact)) {
        return true;
    }
    // As many turns as an array has elements, say.
    const auto* const steps = llvm::dyn_cast<llvm::SCEVAddRecExpr>(number);
    const llvm::Loop* const loop = steps != nullptr ? steps->getLoop() : nullptr;
    const llvm::BasicBlock* const latch = loop != nullptr ? loop->getLoopLatch() : nullptr;
    if (latch == nullptr || !loop->isLoopExiting(latch) || !steps->isAffine() ||
        !steps->getOperand(1)->isOne()) {
        return false;
    }
    const llvm::SCEV* const back = evolution.getExitCount(loop, latch);
    if (llvm::isa<llvm::SCEVCouldNotCompute>(back)) {
        return false;
    }
    // None would mean all of 64 bits, for which nobody can wait.
    const llvm::SCEV* const turns = evolution.getAddExpr(back, evolution.getOne(back->getType()));
    return evolution.getUnsignedRangeMax(turns).ule(largestExact / 2) &&
           isBetween(evolution.getSignedRange(steps->getStart()), lowest, largestExact / 2);
}

/// The integer of 64 bits from which a double was made, if it is exact; null otherwise.
Value* exactSource(Value* number, llvm::ScalarEvolution& evolution) {
    using namespace llvm::PatternMatch;
    Value* integer = nullptr;
    if (!match(number, m_SIToFP(m_Value(integer))) && !match(number, m_UIToFP(m_Value(integer)))) {
        return nullptr;
    }
    const std::int64_t lowest = llvm::isa<llvm::SIToFPInst>(number) ? -largestExact : 0;
    return integer->getType()->isIntegerTy(64) &&
                   staysExact(evolution.getSCEV(integer), lowest, evolution)
               ? integer
               : nullptr;
}

/// The same sum, computed in integers; null if it is no such sum.
Value* inIntegers(llvm::Instruction& sum, llvm::ScalarEvolution& evolution) {
    using namespace llvm::PatternMatch;
    Value* number = nullptr;
    const llvm::APFloat* constant = nullptr;
    // LLVM has made additions of differences with constants.
    if (!sum.getType()->isDoubleTy() ||
        !match(&sum, m_c_FAdd(m_Value(number), m_APFloat(constant))) || !isSmallWhole(*constant)) {
        return nullptr;
    }
    Value* const integer = exactSource(number, evolution);
    if (integer == nullptr) {
        return nullptr;
    }
    llvm::IRBuilder<> ir(&sum);
    const auto added = static_cast<std::int64_t>(constant->convertToDouble());
    Value* const whole =
        ir.CreateNSWAdd(integer, llvm::ConstantInt::getSigned(ir.getInt64Ty(), added));
    return ir.CreateSIToFP(whole, ir.getDoubleTy());
}

} // namespace

llvm::PreservedAnalyses WholeSumsPass::run(llvm::Function& function,
                                           llvm::FunctionAnalysisManager& analyses) const {
    const llvm::LoopInfo& loops = analyses.getResult<llvm::LoopAnalysis>(function);
    if (loops.empty()) {
        return llvm::PreservedAnalyses::all();
    }
    auto& evolution = analyses.getResult<llvm::ScalarEvolutionAnalysis>(function);
    bool changed = false;
    for (llvm::BasicBlock& block : function) {
        if (loops.getLoopFor(&block) == nullptr) {
            continue;
        }
        for (llvm::Instruction& each : llvm::make_early_inc_range(block)) {
            if (Value* const same = inIntegers(each, evolution); same != nullptr) {
                each.replaceAllUsesWith(same);
                each.eraseFromParent();
                changed = true;
            }
        }
    }
    return keptWithBlocks(changed);
}

} // namespace QN::VMRT
