// See loop_pieces.hpp.
#include "vmrt/llvm/loop_pieces.hpp"

#include "vmrt/llvm/loop_versions.hpp"

#include <algorithm>
#include <llvm/Analysis/IVDescriptors.h>
#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/IR/Dominators.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Module.h>
#include <llvm/Transforms/Utils/LoopUtils.h>
#include <llvm/Transforms/Utils/ScalarEvolutionExpander.h>

namespace QN::VMRT {
namespace {

using llvm::BasicBlock;
using llvm::BranchInst;
using llvm::Loop;
using llvm::Value;

constexpr std::uint64_t turnsOfPiece = 1U << 16;

/// A look for an interruption: where it stands, and where it leads if there is one.
struct Look {
    BranchInst* branch = nullptr;
    llvm::ICmpInst* compare = nullptr;
    llvm::LoadInst* load = nullptr;
    unsigned on = 0; // the successor where there is none

    BasicBlock* aside() const { return branch->getSuccessor(1 - on); }
};

Look lookAt(const BasicBlock& block) {
    auto* const branch = const_cast<BranchInst*>(llvm::dyn_cast<BranchInst>(block.getTerminator()));
    if (branch == nullptr || !branch->isConditional()) {
        return {};
    }
    auto* const compare = llvm::dyn_cast<llvm::ICmpInst>(branch->getCondition());
    auto* const load = compare != nullptr && compare->hasOneUse() && compare->isEquality()
                           ? llvm::dyn_cast<llvm::LoadInst>(compare->getOperand(0))
                           : nullptr;
    if (load == nullptr || !load->isVolatile() || !load->hasOneUse()) {
        return {};
    }
    return {branch, compare, load, compare->getPredicate() == llvm::ICmpInst::ICMP_EQ ? 0U : 1U};
}

/// A loop that can be cut. The parts are null if it cannot.
struct Cut {
    Loop* loop = nullptr;
    Look look;
    Value* turns = nullptr; // how often it goes back; null if seldom enough
};

bool isMarkedSlow(const Loop& loop) {
    return llvm::findOptionMDForLoop(&loop, slowVersion) != nullptr;
}

/// What `phi`, to which the look leads, would get when the next turn begins; null if that is not
/// known at the end of a turn.
Value* valueOfNextTurn(const llvm::PHINode& phi, const Loop& loop) {
    Value* const value = phi.getIncomingValueForBlock(loop.getHeader());
    const auto* const instruction = llvm::dyn_cast<llvm::Instruction>(value);
    if (instruction == nullptr || !loop.contains(instruction)) {
        return value;
    }
    const auto* const carried = llvm::dyn_cast<llvm::PHINode>(instruction);
    return carried != nullptr && carried->getParent() == loop.getHeader()
               ? carried->getIncomingValueForBlock(loop.getLoopLatch())
               : nullptr;
}

/// Whether each turn goes on computing with a double that the one before has left. LLVM keeps the
/// order of such operations, so there is no vector code to be had.
bool waitsForDoubles(Loop& loop, llvm::DominatorTree& dominators) {
    const auto phis = loop.getHeader()->phis();
    return std::any_of(phis.begin(), phis.end(), [&](llvm::PHINode& phi) {
        return phi.getType()->isDoubleTy() &&
               !llvm::RecurrenceDescriptor::isFixedOrderRecurrence(&phi, &loop, &dominators);
    });
}

Cut cutOf(Loop& loop, llvm::ScalarEvolution& evolution, llvm::DominatorTree& dominators) {
    BasicBlock* const latch = loop.getLoopLatch();
    if (!loop.isLoopSimplifyForm() || isMarkedSlow(loop) || !loop.isLoopExiting(latch)) {
        return {};
    }
    Cut cut{&loop, {}, nullptr};
    for (const BasicBlock* const block : loop.blocks()) {
        const Look look = lookAt(*block);
        if (look.branch != nullptr && cut.look.branch != nullptr) {
            return {};
        }
        cut.look = look.branch != nullptr ? look : cut.look;
    }
    // It moves behind the end of the turn before, so nothing may happen in front of it.
    if (cut.look.branch == nullptr || cut.look.branch->getParent() != loop.getHeader() ||
        loop.contains(cut.look.aside())) {
        return {};
    }
    for (const llvm::Instruction& each : *loop.getHeader()) {
        if (&each != cut.look.load && each.mayHaveSideEffects()) {
            return {};
        }
    }
    for (const llvm::PHINode& phi : cut.look.aside()->phis()) {
        if (valueOfNextTurn(phi, loop) == nullptr) {
            return {};
        }
    }
    const llvm::SCEV* const turns = evolution.getExitCount(&loop, latch);
    if (llvm::isa<llvm::SCEVCouldNotCompute>(turns) || !turns->getType()->isIntegerTy() ||
        turns->getType()->getIntegerBitWidth() > 64) {
        return {};
    }
    if (evolution.getUnsignedRangeMax(turns).ult(turnsOfPiece)) {
        return cut;
    }
    // In the matrix product, whose sums run within two loops, looks take a sixth of the time.
    if (loop.isOutermost() && waitsForDoubles(loop, dominators)) {
        return {};
    }
    llvm::Instruction* const end = loop.getLoopPreheader()->getTerminator();
    llvm::SCEVExpander expander(evolution, end->getModule()->getDataLayout(), "turns");
    if (!expander.isSafeToExpandAt(turns, end)) {
        return {};
    }
    llvm::Type* const word = llvm::Type::getInt64Ty(end->getContext());
    cut.turns = expander.expandCodeFor(evolution.getNoopOrZeroExtend(turns, word), word, end);
    return cut;
}

void removeLook(const Look& look) {
    BasicBlock* const from = look.branch->getParent();
    look.aside()->removePredecessor(from, /*KeepOneInputPHIs=*/true);
    BranchInst::Create(look.branch->getSuccessor(look.on), look.branch->getIterator());
    look.branch->eraseFromParent();
    look.compare->eraseFromParent();
    look.load->eraseFromParent();
}

/// The loop becomes the inner one of two: the outer one goes through the pieces.
void cutIntoPieces(const Cut& cut) {
    Loop& loop = *cut.loop;
    BasicBlock* const before = loop.getLoopPreheader();
    BasicBlock* const header = loop.getHeader();
    BasicBlock* const latch = loop.getLoopLatch();
    auto* const back = llvm::cast<BranchInst>(latch->getTerminator());
    BasicBlock* const exit = back->getSuccessor(back->getSuccessor(0) == header ? 1 : 0);
    llvm::Function& function = *header->getParent();
    llvm::LLVMContext& context = function.getContext();
    const auto newBlock = [&](const char* name, BasicBlock* next) {
        return BasicBlock::Create(context, name, &function, next);
    };
    BasicBlock* const piece = newBlock("piece", header);
    BasicBlock* const over = newBlock("piece.over", exit);
    BasicBlock* const looks = newBlock("piece.look", exit);
    BasicBlock* const next = newBlock("piece.next", exit);

    llvm::IRBuilder<> ir(piece);
    llvm::PHINode* const left = ir.CreatePHI(ir.getInt64Ty(), 2, "turns.left");
    for (llvm::PHINode& phi : header->phis()) {
        llvm::PHINode* const carried = ir.CreatePHI(phi.getType(), 2);
        carried->addIncoming(phi.getIncomingValueForBlock(before), before);
        carried->addIncoming(phi.getIncomingValueForBlock(latch), next);
        phi.setIncomingValueForBlock(before, carried);
        phi.replaceIncomingBlockWith(before, piece);
    }
    Value* const most = ir.getInt64(turnsOfPiece - 1);
    Value* const turns = ir.CreateBinaryIntrinsic(llvm::Intrinsic::umin, left, most);
    ir.CreateBr(header);
    before->getTerminator()->replaceSuccessorWith(header, piece);

    ir.SetInsertPoint(header, header->begin());
    llvm::PHINode* const turn = ir.CreatePHI(ir.getInt64Ty(), 2, "turn");
    ir.SetInsertPoint(back);
    Value* const isLast = ir.CreateICmpEQ(turn, turns);
    turn->addIncoming(ir.getInt64(0), piece);
    turn->addIncoming(ir.CreateAdd(turn, ir.getInt64(1), "", true, true), latch);
    BranchInst* const end = ir.CreateCondBr(isLast, over, header);
    end->setMetadata(llvm::LLVMContext::MD_loop, back->getMetadata(llvm::LLVMContext::MD_loop));
    // What decided before may serve as a number of turns; if not, others clean it up.
    back->eraseFromParent();

    ir.SetInsertPoint(over);
    ir.CreateCondBr(ir.CreateICmpEQ(left, turns), exit, looks);
    exit->replacePhiUsesWith(latch, over);
    ir.SetInsertPoint(looks);
    llvm::Instruction* const load = cut.look.load->clone();
    llvm::Instruction* const compare = cut.look.compare->clone();
    llvm::Instruction* const branch = cut.look.branch->clone();
    ir.Insert(load);
    ir.Insert(compare);
    ir.Insert(branch);
    compare->setOperand(0, load);
    llvm::cast<BranchInst>(branch)->setCondition(compare);
    branch->setSuccessor(cut.look.on, next);
    for (llvm::PHINode& phi : cut.look.aside()->phis()) {
        phi.addIncoming(valueOfNextTurn(phi, loop), looks);
    }
    removeLook(cut.look);
    ir.SetInsertPoint(next);
    left->addIncoming(cut.turns, before);
    left->addIncoming(ir.CreateSub(ir.CreateSub(left, turns), ir.getInt64(1)), next);
    ir.CreateBr(piece);
}

} // namespace

llvm::PreservedAnalyses LoopPiecesPass::run(llvm::Function& function,
                                            llvm::FunctionAnalysisManager& analyses) const {
    llvm::LoopInfo& loops = analyses.getResult<llvm::LoopAnalysis>(function);
    if (loops.empty()) {
        return llvm::PreservedAnalyses::all();
    }
    auto& evolution = analyses.getResult<llvm::ScalarEvolutionAnalysis>(function);
    auto& dominators = analyses.getResult<llvm::DominatorTreeAnalysis>(function);
    std::vector<Cut> cuts;
    for (Loop* const loop : loops.getLoopsInPreorder()) {
        if (loop->isInnermost()) {
            const Cut cut = cutOf(*loop, evolution, dominators);
            if (cut.loop != nullptr) {
                cuts.push_back(cut);
            }
        }
    }
    for (const Cut& cut : cuts) {
        if (cut.turns != nullptr) {
            cutIntoPieces(cut);
        } else {
            removeLook(cut.look);
        }
    }
    return cuts.empty() ? llvm::PreservedAnalyses::all() : llvm::PreservedAnalyses::none();
}

} // namespace QN::VMRT
