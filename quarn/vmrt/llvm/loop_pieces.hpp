// Loops that look for an interruption now and then, not in each turn.
#pragma once

#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Cuts innermost loops into pieces of 65,536 turns, with a look for an interruption between two of
/// them, where the emitter put one into each turn: a look in each turn keeps LLVM from vectorizing.
/// A loop that is known to have fewer turns needs none. One within no other in which each turn goes
/// on computing with a double of the turn before has no vector code and keeps its looks.
///
/// A look is a volatile load and a branch on whether it gave zero. Taken up are loops that look at
/// the beginning of a turn, whose number of turns is known when they begin, and that leave, but for
/// branches aside, at the end of a turn.
///
/// Requires: simplified loops in LCSSA form. Keeps: what the function does, but for when it looks.
/// Invalidates: everything.
struct LoopPiecesPass : llvm::PassInfoMixin<LoopPiecesPass> {
    llvm::PreservedAnalyses run(llvm::Function& function,
                                llvm::FunctionAnalysisManager& analyses) const;
};

} // namespace QN::VMRT
