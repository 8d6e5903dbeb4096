// Sums of whole numbers that were computed as doubles.
#pragma once

#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Adds a whole constant to an integer before it becomes a double, not after, where both are exact:
/// what loops add to their counters and scripts take off again then vanishes.
///
///   sitofp(x) + 3   sitofp(x + 3)       sitofp(x) - 3   sitofp(x - 3)
///
/// Only in loops, where the range of x is known and far inside the 53 bits of a double. Requires:
/// nothing. Keeps: results to the last bit, blocks and edges. Invalidates: scalar evolution.
struct WholeSumsPass : llvm::PassInfoMixin<WholeSumsPass> {
    llvm::PreservedAnalyses run(llvm::Function& function,
                                llvm::FunctionAnalysisManager& analyses) const;
};

} // namespace QN::VMRT
