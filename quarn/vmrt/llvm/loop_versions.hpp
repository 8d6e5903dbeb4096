// Versions of loop nests without checks.
#pragma once

#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Makes a second version of each outermost loop for which one condition in front of it tells that
/// branches inside always go one way: checks of indices above all. The conditions are sums and
/// comparisons of what is known there, such as the first and the last value of an index, and are
/// computed once; the version in which the branches are gone runs where they hold, the other one
/// where they do not.
///
/// A branch is taken up if its weights say that one side is unlikely. It counts as decided if what
/// it compares stays the same in the nest, or has bounds there: a value that grows or falls evenly
/// with the turns of loops whose numbers of turns are known, directly or because a branch that is
/// decided skips the code that makes it unknown.
///
/// An innermost loop in which branches stay undecided gets a version of its own if all of them can
/// be decided in front of it, where it goes back at least fifteen times. There it is taken for
/// granted that the unlikely side was never taken in the turns before, so that arrays which could
/// grow keep their sizes. Such a loop that is outermost, too, gets only that version.
///
/// An innermost loop inside others whose number of turns nobody knows gets a version without the
/// parts of branches that stay the same in it: asking for them costs no more than one of its turns.
///
/// Requires: simplified loops in LCSSA form, rotated for the best result. Keeps: what the function
/// does. Invalidates: everything.
struct LoopVersionsPass : llvm::PassInfoMixin<LoopVersionsPass> {
    llvm::PreservedAnalyses run(llvm::Function& function,
                                llvm::FunctionAnalysisManager& analyses) const;
};

/// The name in the identity of a loop that is the slower version of another: nothing is to be done
/// to make it faster.
inline constexpr const char* slowVersion = "quarn.slow";

} // namespace QN::VMRT
