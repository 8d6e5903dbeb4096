// Which of LLVM's transforms functions go through, and where ours stand among them.
#pragma once

#include <llvm/IR/PassManager.h>

namespace QN::VMRT {

/// Takes what LLVM's vectorizer does not understand out of loops: checks, by making versions
/// without them if `makesVersions`, and looks for an interruption, but for one now and then. For
/// the place in front of the vectorizer.
void addLoopPasses(llvm::FunctionPassManager& passes, bool makesVersions);

/// Level Default for a function into which nothing is inlined: what LLVM's default pipeline does,
/// without the passes that find nothing in functions of ours, which have no aggregates, exceptions
/// or globals, and without cleaning up behind passes that changed nothing.
void addDefaultPasses(llvm::FunctionPassManager& passes);

/// The second half of the same, from the vectorizer on, for functions that are simplified already.
void addDefaultVectorPasses(llvm::FunctionPassManager& passes);

} // namespace QN::VMRT
