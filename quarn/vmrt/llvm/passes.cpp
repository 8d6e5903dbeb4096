// See passes.hpp. The order is that of LLVM's default pipeline; what is left out was found by
// taking each pass away and comparing the machine code of the numeric examples.
#include "vmrt/llvm/passes.hpp"

#include "vmrt/llvm/loop_pieces.hpp"
#include "vmrt/llvm/loop_versions.hpp"
#include "vmrt/llvm/whole_counts.hpp"
#include "vmrt/llvm/whole_sums.hpp"

#include <llvm/Transforms/InstCombine/InstCombine.h>
#include <llvm/Transforms/Scalar/ADCE.h>
#include <llvm/Transforms/Scalar/BDCE.h>
#include <llvm/Transforms/Scalar/ConstraintElimination.h>
#include <llvm/Transforms/Scalar/CorrelatedValuePropagation.h>
#include <llvm/Transforms/Scalar/DeadStoreElimination.h>
#include <llvm/Transforms/Scalar/DivRemPairs.h>
#include <llvm/Transforms/Scalar/EarlyCSE.h>
#include <llvm/Transforms/Scalar/GVN.h>
#include <llvm/Transforms/Scalar/IndVarSimplify.h>
#include <llvm/Transforms/Scalar/InstSimplifyPass.h>
#include <llvm/Transforms/Scalar/JumpThreading.h>
#include <llvm/Transforms/Scalar/LICM.h>
#include <llvm/Transforms/Scalar/LoopDeletion.h>
#include <llvm/Transforms/Scalar/LoopIdiomRecognize.h>
#include <llvm/Transforms/Scalar/LoopInstSimplify.h>
#include <llvm/Transforms/Scalar/LoopLoadElimination.h>
#include <llvm/Transforms/Scalar/LoopPassManager.h>
#include <llvm/Transforms/Scalar/LoopRotation.h>
#include <llvm/Transforms/Scalar/LoopUnrollPass.h>
#include <llvm/Transforms/Scalar/MemCpyOptimizer.h>
#include <llvm/Transforms/Scalar/Reassociate.h>
#include <llvm/Transforms/Scalar/SCCP.h>
#include <llvm/Transforms/Scalar/SROA.h>
#include <llvm/Transforms/Scalar/SimpleLoopUnswitch.h>
#include <llvm/Transforms/Scalar/SimplifyCFG.h>
#include <llvm/Transforms/Utils/LCSSA.h>
#include <llvm/Transforms/Utils/LoopSimplify.h>
#include <llvm/Transforms/Vectorize/LoopVectorize.h>
#include <llvm/Transforms/Vectorize/VectorCombine.h>
#include <utility>

namespace QN::VMRT {
namespace {

using llvm::FunctionPassManager;
using llvm::LoopPassManager;

/// Runs passes, and others behind them if these have changed the function.
class WithCleanUp : public llvm::PassInfoMixin<WithCleanUp> {
public:
    WithCleanUp(FunctionPassManager passes, FunctionPassManager cleanUp)
        : passes_(std::move(passes)), cleanUp_(std::move(cleanUp)) {}

    llvm::PreservedAnalyses run(llvm::Function& function, llvm::FunctionAnalysisManager& analyses) {
        llvm::PreservedAnalyses kept = passes_.run(function, analyses);
        if (!kept.areAllPreserved()) {
            kept.intersect(cleanUp_.run(function, analyses));
        }
        return kept;
    }

private:
    FunctionPassManager passes_;
    FunctionPassManager cleanUp_;
};

void addLoopForm(FunctionPassManager& passes) {
    passes.addPass(llvm::LoopSimplifyPass());
    passes.addPass(llvm::LCSSAPass());
}

llvm::LICMPass hoists(bool speculates = true) {
    llvm::LICMOptions options;
    options.AllowSpeculation = speculates;
    return llvm::LICMPass(options);
}

FunctionPassManager loopForm() {
    FunctionPassManager passes;
    addLoopForm(passes);
    return passes;
}

/// What versions and pieces leave behind.
FunctionPassManager loopCleanUp() {
    FunctionPassManager passes;
    LoopPassManager loops;
    loops.addPass(hoists());
    loops.addPass(llvm::LoopRotatePass());
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(loops), /*UseMemorySSA=*/true));
    return passes;
}

FunctionPassManager versions() {
    FunctionPassManager passes;
    passes.addPass(WholeSumsPass());
    passes.addPass(LoopVersionsPass());
    FunctionPassManager cleanUp;
    cleanUp.addPass(llvm::SimplifyCFGPass());
    cleanUp.addPass(llvm::InstCombinePass());
    addLoopForm(cleanUp);
    FunctionPassManager both;
    both.addPass(WithCleanUp(std::move(passes), std::move(cleanUp)));
    return both;
}

llvm::SimplifyCFGOptions plainBranches() {
    return llvm::SimplifyCFGOptions().convertSwitchRangeToICmp(true);
}

/// To single assignment, with what is known of values and branches.
void addValuePasses(FunctionPassManager& passes) {
    passes.addPass(llvm::SimplifyCFGPass());
    passes.addPass(llvm::SROAPass(llvm::SROAOptions::ModifyCFG));
    passes.addPass(llvm::EarlyCSEPass());
    passes.addPass(llvm::SCCPPass());
    passes.addPass(llvm::EarlyCSEPass(/*UseMemorySSA=*/true));
    passes.addPass(llvm::JumpThreadingPass());
    passes.addPass(llvm::CorrelatedValuePropagationPass());
    passes.addPass(llvm::SimplifyCFGPass(plainBranches()));
    passes.addPass(llvm::InstCombinePass());
    passes.addPass(llvm::ReassociatePass());
    passes.addPass(llvm::ConstraintEliminationPass());
}

void addEarlyLoopPasses(FunctionPassManager& passes) {
    LoopPassManager first;
    first.addPass(llvm::LoopInstSimplifyPass());
    first.addPass(hoists(/*speculates=*/false));
    first.addPass(llvm::LoopRotatePass());
    first.addPass(hoists());
    first.addPass(llvm::SimpleLoopUnswitchPass());
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(first), /*UseMemorySSA=*/true));
    passes.addPass(llvm::SimplifyCFGPass(plainBranches()));
    passes.addPass(llvm::InstCombinePass());
    LoopPassManager second;
    second.addPass(llvm::LoopIdiomRecognizePass());
    second.addPass(llvm::IndVarSimplifyPass());
    second.addPass(llvm::LoopDeletionPass());
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(std::move(second)));
}

/// What loops have in common with the code around them, and what is left without a use.
void addRedundancyPasses(FunctionPassManager& passes) {
    passes.addPass(llvm::GVNPass());
    passes.addPass(llvm::SCCPPass());
    passes.addPass(llvm::BDCEPass());
    passes.addPass(llvm::InstCombinePass());
    passes.addPass(llvm::JumpThreadingPass());
    passes.addPass(llvm::CorrelatedValuePropagationPass());
    passes.addPass(llvm::ADCEPass());
    passes.addPass(llvm::MemCpyOptPass());
    passes.addPass(llvm::DSEPass());
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(hoists(), /*UseMemorySSA=*/true));
    passes.addPass(
        llvm::SimplifyCFGPass(plainBranches().hoistCommonInsts(true).sinkCommonInsts(true)));
}

FunctionPassManager vectorizer() {
    FunctionPassManager passes;
    passes.addPass(llvm::LoopVectorizePass());
    return passes;
}

FunctionPassManager vectorCleanUp() {
    FunctionPassManager passes;
    passes.addPass(llvm::LoopLoadEliminationPass());
    passes.addPass(llvm::VectorCombinePass());
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(hoists(), /*UseMemorySSA=*/true));
    return passes;
}

} // namespace

void addLoopPasses(FunctionPassManager& passes, bool makesVersions) {
    addLoopForm(passes);
    FunctionPassManager pieces;
    pieces.addPass(LoopPiecesPass());
    if (!makesVersions) {
        passes.addPass(WithCleanUp(std::move(pieces), loopForm()));
        return;
    }
    FunctionPassManager both = versions();
    both.addPass(WholeCountsPass());
    both.addPass(WithCleanUp(std::move(pieces), loopForm()));
    passes.addPass(WithCleanUp(std::move(both), loopCleanUp()));
}

void addDefaultPasses(FunctionPassManager& passes) {
    addValuePasses(passes);
    addEarlyLoopPasses(passes);
    addRedundancyPasses(passes);
    addDefaultVectorPasses(passes);
}

void addDefaultVectorPasses(FunctionPassManager& passes) {
    addLoopPasses(passes, /*makesVersions=*/true);
    passes.addPass(llvm::createFunctionToLoopPassAdaptor(llvm::LoopFullUnrollPass(/*OptLevel=*/2)));
    passes.addPass(WithCleanUp(vectorizer(), vectorCleanUp()));
    passes.addPass(llvm::InstCombinePass());
    passes.addPass(llvm::SimplifyCFGPass(plainBranches()
                                             .forwardSwitchCondToPhi(true)
                                             .convertSwitchToLookupTable(true)
                                             .needCanonicalLoops(false)
                                             .hoistCommonInsts(true)
                                             .sinkCommonInsts(true)));
    passes.addPass(llvm::InstSimplifyPass());
    passes.addPass(llvm::DivRemPairsPass());
    passes.addPass(llvm::SimplifyCFGPass(plainBranches()));
}

} // namespace QN::VMRT
