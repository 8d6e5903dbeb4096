// Whole numbers that loops carry from turn to turn as doubles.
#pragma once

#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Carries whole numbers as integers through innermost loops that only count with them or keep
/// them, and makes doubles of them behind the loop:
///
///   if x[k] > limit          count: whole constants, and what a small whole constant is added to
///     count = count + 1      last: what was an integer of the loop before it became a double
///     last = k
///   end
///
/// LLVM can then choose without a branch, add in vectors, and loops need not wait for a sum of
/// doubles. Taken up are loops that are known to have so few turns that no sum leaves the 53 bits
/// of a double, where nothing else in the loop asks for the numbers.
///
/// Requires: simplified loops in LCSSA form. Keeps: results to the last bit, blocks and edges.
/// Invalidates: scalar evolution.
struct WholeCountsPass : llvm::PassInfoMixin<WholeCountsPass> {
    llvm::PreservedAnalyses run(llvm::Function& function,
                                llvm::FunctionAnalysisManager& analyses) const;
};

} // namespace QN::VMRT
