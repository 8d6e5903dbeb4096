// What the passes that compute whole doubles in integers share.
#pragma once

#include <cstdint>
#include <llvm/ADT/APFloat.h>
#include <llvm/IR/ConstantRange.h>
#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Whether it is a whole number up to 2^20 in size and not the negative zero, which no integer is.
inline bool isSmallWhole(const llvm::APFloat& number) {
    return number.isInteger() && !number.isNegZero() && llvm::abs(number) <= llvm::APFloat(0x1p20);
}

/// Whether all numbers of the range, as signed ones, are between `least` and `most`.
inline bool isBetween(const llvm::ConstantRange& range, std::int64_t least, std::int64_t most) {
    return range.getSignedMin().sge(least) && !range.getSignedMax().sgt(most);
}

/// What stays known of a function whose blocks and edges are as they were.
inline llvm::PreservedAnalyses keptWithBlocks(bool changed) {
    if (!changed) {
        return llvm::PreservedAnalyses::all();
    }
    llvm::PreservedAnalyses kept;
    kept.preserveSet<llvm::CFGAnalyses>();
    return kept;
}

} // namespace QN::VMRT
