// See loop_versions.hpp.
#include "vmrt/llvm/loop_versions.hpp"

#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/Analysis/ScalarEvolutionExpressions.h>
#include <llvm/IR/Dominators.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/MDBuilder.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/PatternMatch.h>
#include <llvm/IR/ProfDataUtils.h>
#include <llvm/Transforms/Utils/Cloning.h>
#include <llvm/Transforms/Utils/ScalarEvolutionExpander.h>
#include <optional>

namespace QN::VMRT {
namespace {

using llvm::BasicBlock;
using llvm::BranchInst;
using llvm::ICmpInst;
using llvm::Loop;
using llvm::SCEV;
using llvm::Value;

constexpr std::size_t mostClaims = 32;
constexpr std::size_t mostInstructions = 4000;
constexpr unsigned mostDepth = 12;
/// Sums of a few numbers of this size are far from the ends of 64 bits.
constexpr std::int64_t farthest = std::int64_t{1} << 56;
constexpr std::int64_t mostTurns = std::int64_t{1} << 48;
constexpr std::int64_t largestStep = 1024;
/// The same for a step that is only known when the loop begins.
constexpr std::int64_t largestUnknownStep = std::int64_t{1} << 20;
constexpr std::int64_t mostUnknownTurns = std::int64_t{1} << 40;
/// A loop inside a nest that goes back less often is over before its condition would pay.
constexpr std::int64_t fewestTurns = 15;
constexpr std::size_t mostClaimsInside = 16;

/// The side to which a branch goes nearly always; nothing if its weights do not say.
std::optional<unsigned> likelySide(const BranchInst& branch) {
    constexpr std::uint64_t ratio = 1000;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    if (!branch.isConditional() || !llvm::extractBranchWeights(branch, first, second)) {
        return std::nullopt;
    }
    if (first / ratio > second) {
        return 0;
    }
    return second / ratio > first ? std::optional(1U) : std::nullopt;
}

/// A comparison of numbers that stay the same in the nest, with signs.
struct Claim {
    ICmpInst::Predicate predicate;
    const SCEV* left;
    const SCEV* right;
    friend bool operator==(const Claim&, const Claim&) = default;
};

/// A part of a branch's condition that decides for the unlikely side unless it is `wanted`.
struct Part {
    Value* value;
    bool wanted;
};

struct Guard {
    BranchInst* branch;
    unsigned likely;
    std::vector<Part> open; // not decided yet
    bool isAssumed = false; // to go its way, for the time being
    bool isDecided() const { return open.empty() || isAssumed; }
};

/// Whether it asks memory in each turn anew, as looks for an interruption do.
bool isLook(const Guard& guard) {
    const auto* const compare = llvm::dyn_cast<llvm::CmpInst>(guard.branch->getCondition());
    const auto* const load =
        compare != nullptr ? llvm::dyn_cast<llvm::LoadInst>(compare->getOperand(0)) : nullptr;
    return load != nullptr && load->isVolatile();
}

/// A loop with all that is inside it.
class Nest {
public:
    Nest(Loop& top, llvm::ScalarEvolution& evolution, const llvm::DominatorTree& dominators,
         const llvm::LoopInfo& loops)
        : top_(top), evolution_(evolution), dominators_(dominators), loops_(loops) {
        if (top.isLoopSimplifyForm()) {
            findGuards();
        }
    }

    /// A loop inside the version of `outer` that its plan gives.
    Nest(const Nest& outer, Loop& inner)
        : top_(inner), evolution_(outer.evolution_), dominators_(outer.dominators_),
          loops_(outer.loops_), known_(outer.known_) {
        for (const Guard& guard : outer.guards_) {
            if (inner.contains(guard.branch->getParent())) {
                guards_.push_back(guard);
            }
        }
    }

    /// Finds out what can be decided in front of the nest. False: nothing that is worth a version.
    bool plan() {
        if (!top_.isLoopSimplifyForm() || isLarge()) {
            return false;
        }
        bool decidesAny = false;
        for (bool again = true; again;) {
            again = false;
            for (Guard& guard : guards_) {
                again |= decide(guard);
            }
            decidesAny |= again;
            if (again) {
                findKnown();
            }
        }
        return decidesAny && claims_.size() <= mostClaims;
    }

    /// Finds out whether everything but looks can be decided in front of the loop. What is found
    /// may take for granted that all branches have gone their way in the turns before: then the
    /// first that would not is one for which the condition does not hold.
    bool planAll() {
        if (!top_.isLoopSimplifyForm() || isLarge()) {
            return false;
        }
        std::vector<Guard*> assumed;
        for (Guard& guard : guards_) {
            if (!guard.isDecided() && !isLook(guard)) {
                guard.isAssumed = true;
                assumed.push_back(&guard);
            }
        }
        const auto reached = findKnown();
        std::erase_if(assumed, [&](Guard* guard) {
            guard->isAssumed = false;
            return !reached.contains(guard->branch->getParent());
        });
        return !assumed.empty() && std::all_of(assumed.begin(), assumed.end(), [&](Guard* guard) {
            return decide(*guard) && guard->isDecided();
        }) && claims_.size() <= mostClaims;
    }

    /// Such a version of a loop that is inside another is only for many turns. False: there are
    /// few.
    bool planInside() {
        const BasicBlock* const latch = top_.getLoopLatch();
        if (!top_.isInnermost() || latch == nullptr || !top_.isLoopExiting(latch)) {
            return false;
        }
        const SCEV* const turns = evolution_.getExitCount(&top_, latch);
        if (llvm::isa<llvm::SCEVCouldNotCompute>(turns) || !turns->getType()->isIntegerTy(64) ||
            evolution_.getUnsignedRangeMax(turns).ult(fewestTurns) || !isKnownInFront(turns) ||
            !planAll() || claims_.size() > mostClaimsInside) {
            return false;
        }
        turns_ = turns;
        return true;
    }

    /// Finds out what stays the same in a loop inside whose number of turns nobody knows. Asking
    /// for that in front of it costs no more than asking in one turn.
    bool planUncounted() {
        at_ = top_.getHeader();
        if (!top_.isInnermost() || !top_.isLoopSimplifyForm() || isLarge() ||
            turnsUntil(top_).has_value()) {
            return false;
        }
        for (Guard& guard : guards_) {
            std::erase_if(guard.open, [&](const Part& part) {
                const bool stays = top_.isLoopInvariant(part.value);
                if (stays) {
                    unchanging_.push_back(part);
                }
                return stays;
            });
        }
        return !unchanging_.empty();
    }

    /// Computes the condition in front of the nest.
    void expandCondition() {
        llvm::Instruction* const end = top_.getLoopPreheader()->getTerminator();
        llvm::SCEVExpander expander(evolution_, end->getModule()->getDataLayout(), "bound");
        const auto expanded = [&](const SCEV* number) {
            return expander.expandCodeFor(number, number->getType(), end);
        };
        for (const Claim& claim : claims_) {
            Value* const right = expanded(claim.right);
            sides_.emplace_back(expanded(claim.left), right);
        }
        turnsBack_ = turns_ != nullptr ? expanded(turns_) : nullptr;
    }

    /// Makes the version with all checks and takes what is decided out of the other one.
    void split() {
        BasicBlock* const before = top_.getLoopPreheader();
        llvm::Function& function = *before->getParent();
        llvm::ValueToValueMapTy copies;
        llvm::SmallVector<BasicBlock*, 32> made;
        for (BasicBlock* const block : top_.blocks()) {
            BasicBlock* const copy = llvm::CloneBasicBlock(block, copies, ".checked", &function);
            copies[block] = copy;
            made.push_back(copy);
        }
        llvm::remapInstructionsInBlocks(made, copies);
        enterExits(copies);
        markSlow(copies);
        choose(*before, *llvm::cast<BasicBlock>(copies[top_.getHeader()]));
        for (const Guard& guard : guards_) {
            takeOut(guard);
        }
        for (const Part& part : unchanging_) {
            settle(*part.value, part.wanted);
        }
    }

private:
    bool isLarge() const {
        std::size_t instructions = 0;
        for (const BasicBlock* const block : top_.blocks()) {
            instructions += block->size();
        }
        return instructions > mostInstructions;
    }

    /// Whether all that the version takes for granted holds.
    Value* condition(llvm::IRBuilder<>& ir) const {
        // What is compared may be computed from what is only fit for use inside.
        Value* all = ir.getTrue();
        for (const Part& part : unchanging_) {
            all = ir.CreateAnd(
                all, ir.CreateFreeze(part.wanted ? part.value : ir.CreateNot(part.value)));
        }
        for (std::size_t i = 0; i < claims_.size(); ++i) {
            all = ir.CreateAnd(all, ir.CreateFreeze(ir.CreateICmp(
                                        claims_[i].predicate, sides_[i].first, sides_[i].second)));
        }
        return all;
    }

    /// Enters one of the versions.
    void choose(BasicBlock& before, BasicBlock& slow) {
        llvm::LLVMContext& context = before.getContext();
        llvm::MDNode* const likely = llvm::MDBuilder(context).createBranchWeights(1U << 20, 1);
        BasicBlock* const header = top_.getHeader();
        llvm::Instruction* const end = before.getTerminator();
        llvm::IRBuilder<> ir(end);
        if (turnsBack_ == nullptr) {
            ir.CreateCondBr(condition(ir), header, &slow, likely);
            end->eraseFromParent();
            return;
        }
        // What the condition compares is only used behind the first question, and sinks there.
        BasicBlock* const asks =
            BasicBlock::Create(context, "version", header->getParent(), header);
        BasicBlock* const other = BasicBlock::Create(context, "few", header->getParent(), &slow);
        ir.CreateCondBr(ir.CreateFreeze(ir.CreateICmpUGE(turnsBack_, ir.getInt64(fewestTurns))),
                        asks, other);
        end->eraseFromParent();
        ir.SetInsertPoint(asks);
        ir.CreateCondBr(condition(ir), header, other, likely);
        ir.SetInsertPoint(other);
        ir.CreateBr(&slow);
        header->replacePhiUsesWith(&before, asks);
        slow.replacePhiUsesWith(&before, other);
    }

    // What branches there are ---------------------------------------------------------------------

    static void addParts(Value* condition, bool wanted, std::vector<Part>& parts) {
        using namespace llvm::PatternMatch;
        Value* a = nullptr;
        Value* b = nullptr;
        if (match(condition, m_Not(m_Value(a)))) {
            addParts(a, !wanted, parts);
        } else if (wanted ? match(condition, m_LogicalAnd(m_Value(a), m_Value(b)))
                          : match(condition, m_LogicalOr(m_Value(a), m_Value(b)))) {
            addParts(a, wanted, parts);
            addParts(b, wanted, parts);
        } else {
            parts.push_back({condition, wanted});
        }
    }

    void findGuards() {
        for (BasicBlock* const block : top_.blocks()) {
            auto* const branch = llvm::dyn_cast<BranchInst>(block->getTerminator());
            const auto likely = branch != nullptr ? likelySide(*branch) : std::optional<unsigned>();
            if (!likely.has_value()) {
                continue;
            }
            Guard guard{branch, *likely, {}};
            addParts(branch->getCondition(), *likely == 0, guard.open);
            guards_.push_back(std::move(guard));
        }
    }

    /// True: something of it was decided.
    bool decide(Guard& guard) {
        const std::size_t before = guard.open.size();
        std::erase_if(guard.open, [&](const Part& part) {
            if (top_.isLoopInvariant(part.value)) {
                unchanging_.push_back(part);
                return true;
            }
            pending_.clear();
            const auto* const compare = llvm::dyn_cast<ICmpInst>(part.value);
            if (compare == nullptr || !claimAlways(*compare, part.wanted, *guard.branch)) {
                return false;
            }
            for (const Claim& claim : pending_) {
                if (std::find(claims_.begin(), claims_.end(), claim) == claims_.end()) {
                    claims_.push_back(claim);
                }
            }
            return true;
        });
        return guard.open.size() < before;
    }

    using Blocks = llvm::SmallPtrSet<const BasicBlock*, 32>;

    /// The block goes on to another one as far as decided branches let it.
    bool goesOn(const BasicBlock& from, const BasicBlock& to) const {
        for (const Guard& guard : guards_) {
            if (guard.branch->getParent() == &from && guard.isDecided()) {
                return guard.branch->getSuccessor(guard.likely) == &to;
            }
        }
        return true;
    }

    /// What the nest goes through if all decided branches go their way; finds which values follow.
    Blocks findKnown() {
        Blocks reached = {top_.getHeader()};
        std::vector<const BasicBlock*> open = {top_.getHeader()};
        while (!open.empty()) {
            const BasicBlock* const block = open.back();
            open.pop_back();
            for (const BasicBlock* const next : llvm::successors(block)) {
                if (top_.contains(next) && goesOn(*block, *next) && reached.insert(next).second) {
                    open.push_back(next);
                }
            }
        }
        findCopies(reached);
        return reached;
    }

    /// Follows the phis of which only one value is left. Those of loops begin as the value in front
    /// of the loop, and are no copy if another one turns out to come back.
    void findCopies(const Blocks& reached) {
        llvm::DenseMap<const Value*, Value*> same; // what is not there may be anything yet
        const auto stands = [&](Value* value) -> Value* {
            const auto* const phi = llvm::dyn_cast<llvm::PHINode>(value);
            if (phi == nullptr || !reached.contains(phi->getParent())) {
                return value;
            }
            const auto found = same.find(phi);
            return found != same.end() ? found->second : nullptr;
        };
        const auto valueOf = [&](llvm::PHINode& phi) -> Value* {
            Value* only = nullptr;
            for (unsigned i = 0; i < phi.getNumIncomingValues(); ++i) {
                const BasicBlock* const from = phi.getIncomingBlock(i);
                if (top_.contains(from) &&
                    (!reached.contains(from) || !goesOn(*from, *phi.getParent()))) {
                    continue;
                }
                Value* const each = stands(phi.getIncomingValue(i));
                if (each != nullptr && each != &phi && only != nullptr && each != only) {
                    return &phi;
                }
                only = each != nullptr && each != &phi ? each : only;
            }
            return only;
        };
        constexpr int mostRounds = 16;
        bool again = true;
        for (int round = 0; again && round < mostRounds; ++round) {
            again = false;
            for (BasicBlock* const block : top_.blocks()) {
                for (auto phi = block->phis().begin();
                     reached.contains(block) && phi != block->phis().end(); ++phi) {
                    Value* const value = stands(&*phi) != &*phi ? valueOf(*phi) : &*phi;
                    if (value != nullptr && value != stands(&*phi)) {
                        same[&*phi] = value;
                        again = true;
                    }
                }
            }
        }
        for (const auto& [phi, value] : same) {
            if (!again && value != phi && evolution_.isSCEVable(phi->getType())) {
                known_[phi] = simplified(evolution_.getSCEV(value));
            }
        }
    }

    const SCEV* simplified(const SCEV* number) {
        return known_.empty() ? number
                              : llvm::SCEVParameterRewriter::rewrite(number, evolution_, known_);
    }

    // Bounds --------------------------------------------------------------------------------------

    /// Claims what makes the comparison come out as wanted whenever `at` is reached.
    bool claimAlways(const ICmpInst& compare, bool wanted, const BranchInst& at) {
        using P = ICmpInst;
        if (!compare.getOperand(0)->getType()->isIntegerTy(64)) {
            return false;
        }
        const P::Predicate predicate =
            wanted ? compare.getPredicate() : compare.getInversePredicate();
        const SCEV* const a = evolution_.getSCEV(compare.getOperand(0));
        const SCEV* const b = evolution_.getSCEV(compare.getOperand(1));
        at_ = at.getParent();
        if (const auto* const limit = llvm::dyn_cast<llvm::SCEVConstant>(b);
            limit != nullptr && claimInside(predicate, a, limit->getAPInt())) {
            return true;
        }
        pending_.clear();
        if (predicate == P::ICMP_NE) { // as LLVM writes it for what has not come to a limit yet
            return claimLess(P::ICMP_SLT, a, b) || (pending_.clear(), claimLess(P::ICMP_SLT, b, a));
        }
        if (P::isGT(predicate) || P::isGE(predicate)) {
            return claimLess(P::getSwappedPredicate(predicate), b, a);
        }
        return (P::isLT(predicate) || P::isLE(predicate)) && claimLess(predicate, a, b);
    }

    /// A comparison with a constant asks for an interval, also where the ends of 64 bits are used
    /// to ask for both of its sides at once.
    bool claimInside(ICmpInst::Predicate predicate, const SCEV* number, const llvm::APInt& limit) {
        llvm::ConstantRange wanted = llvm::ConstantRange::makeExactICmpRegion(predicate, limit);
        if (const auto* const sum = llvm::dyn_cast<llvm::SCEVAddExpr>(number)) {
            if (const auto* const added = llvm::dyn_cast<llvm::SCEVConstant>(sum->getOperand(0))) {
                number = evolution_.getMinusSCEV(number, added);
                wanted = wanted.subtract(added->getAPInt());
            }
        }
        if (wanted.isEmptySet() || wanted.isFullSet() || wanted.isSignWrappedSet()) {
            return false;
        }
        const llvm::APInt low = wanted.getSignedMin();
        const llvm::APInt high = wanted.getSignedMax();
        if (!low.isMinSignedValue()) {
            const SCEV* const least = bound(number, false);
            if (least == nullptr ||
                !claim(ICmpInst::ICMP_SGE, least, evolution_.getConstant(low))) {
                return false;
            }
        }
        const SCEV* const most = !high.isMaxSignedValue() ? bound(number, true) : nullptr;
        return high.isMaxSignedValue() ||
               (most != nullptr && claim(ICmpInst::ICMP_SLE, most, evolution_.getConstant(high)));
    }

    bool claimBetweenKnown(std::int64_t low, const SCEV* least, const SCEV* most,
                           std::int64_t high) {
        return claim(ICmpInst::ICMP_SGE, least, constant(low)) &&
               claim(ICmpInst::ICMP_SLE, most, constant(high));
    }

    bool claimLess(ICmpInst::Predicate predicate, const SCEV* a, const SCEV* b) {
        const SCEV* const most = bound(a, true);
        const SCEV* const least = most != nullptr ? bound(b, false) : nullptr;
        if (least == nullptr) {
            return false;
        }
        if (ICmpInst::isUnsigned(predicate)) {
            const SCEV* const lowest = bound(a, false);
            if (lowest == nullptr || !claim(ICmpInst::ICMP_SGE, lowest, constant(0))) {
                return false;
            }
        }
        return claim(ICmpInst::getSignedPredicate(predicate), most, least);
    }

    const SCEV* constant(std::int64_t number) {
        return evolution_.getConstant(
            llvm::APInt(64, static_cast<std::uint64_t>(number), /*isSigned=*/true));
    }

    bool claim(ICmpInst::Predicate predicate, const SCEV* left, const SCEV* right) {
        if (evolution_.isKnownPredicate(predicate, left, right) ||
            evolution_.isLoopEntryGuardedByCond(&top_, predicate, left, right)) {
            return true;
        }
        if (evolution_.isKnownPredicate(ICmpInst::getInversePredicate(predicate), left, right)) {
            return false;
        }
        pending_.push_back({predicate, left, right});
        return true;
    }

    bool claimBetween(std::int64_t low, const SCEV* number, std::int64_t high) {
        return claim(ICmpInst::ICMP_SGE, number, constant(low)) &&
               claim(ICmpInst::ICMP_SLE, number, constant(high));
    }

    bool isKnownInFront(const SCEV* number) {
        llvm::Instruction* const end = top_.getLoopPreheader()->getTerminator();
        llvm::SCEVExpander expander(evolution_, end->getModule()->getDataLayout(), "bound");
        return evolution_.isLoopInvariant(number, &top_) && expander.isSafeToExpandAt(number, end);
    }

    /// The largest or smallest value that the number has whenever at_ is reached, as a signed one:
    /// something that is known in front of the nest; null if nothing is found.
    const SCEV* bound(const SCEV* number, bool largest, unsigned depth = 0) {
        number = simplified(number);
        if (depth > mostDepth || !number->getType()->isIntegerTy(64)) {
            return nullptr;
        }
        if (evolution_.isLoopInvariant(number, &top_)) {
            return isKnownInFront(number) ? number : nullptr;
        }
        switch (number->getSCEVType()) {
        case llvm::scAddRecExpr:
            return boundOfSteps(*llvm::cast<llvm::SCEVAddRecExpr>(number), largest, depth);
        case llvm::scAddExpr: {
            llvm::SmallVector<const SCEV*, 4> bounds;
            for (const SCEV* const part : llvm::cast<llvm::SCEVAddExpr>(number)->operands()) {
                const SCEV* const found = bound(part, largest, depth + 1);
                if (found == nullptr || !claimBetween(-farthest, found, farthest)) {
                    return nullptr;
                }
                bounds.push_back(found);
            }
            return bounds.size() <= 8 ? evolution_.getAddExpr(bounds) : nullptr;
        }
        case llvm::scMulExpr: {
            const auto* const product = llvm::cast<llvm::SCEVMulExpr>(number);
            const auto* const factor = llvm::dyn_cast<llvm::SCEVConstant>(product->getOperand(0));
            if (factor == nullptr || product->getNumOperands() != 2 ||
                factor->getAPInt().abs().ugt(largestStep)) {
                return nullptr;
            }
            const bool same = factor->getAPInt().isStrictlyPositive();
            const SCEV* const found = bound(product->getOperand(1), largest == same, depth + 1);
            return found != nullptr && claimBetween(-mostTurns, found, mostTurns)
                       ? evolution_.getMulExpr(factor, found)
                       : nullptr;
        }
        case llvm::scSMaxExpr:
        case llvm::scSMinExpr: {
            llvm::SmallVector<const SCEV*, 4> bounds;
            for (const SCEV* const part : llvm::cast<llvm::SCEVNAryExpr>(number)->operands()) {
                const SCEV* const found = bound(part, largest, depth + 1);
                if (found == nullptr) {
                    return nullptr;
                }
                bounds.push_back(found);
            }
            return evolution_.getMinMaxExpr(number->getSCEVType(), bounds);
        }
        default:
            return nullptr;
        }
    }

    /// Of a number that grows or falls by the same step in each turn of a loop.
    const SCEV* boundOfSteps(const llvm::SCEVAddRecExpr& steps, bool largest, unsigned depth) {
        if (!steps.isAffine()) {
            return nullptr;
        }
        const auto* const step = llvm::dyn_cast<llvm::SCEVConstant>(steps.getOperand(1));
        if (step == nullptr) {
            return boundOfUnknownSteps(steps, largest, depth);
        }
        if (step->getAPInt().abs().ugt(largestStep)) {
            return nullptr;
        }
        const bool grows = step->getAPInt().isStrictlyPositive();
        const SCEV* const first = grows != largest || !steps.hasNoSignedWrap()
                                      ? bound(steps.getStart(), !grows, depth + 1)
                                      : nullptr;
        if (grows != largest && steps.hasNoSignedWrap()) {
            return first;
        }
        const std::optional<Turns> turns = turnsUntil(*steps.getLoop());
        if (!turns.has_value()) {
            return nullptr;
        }
        if (steps.hasNoSignedWrap()) {
            if (!turns->isGuarded && !claimSigned(*turns, depth)) {
                return nullptr;
            }
        } else {
            const SCEV* const last = bound(steps.getStart(), grows, depth + 1);
            if (first == nullptr || last == nullptr ||
                mostOf(*turns, mostTurns, depth) == nullptr ||
                !claimBetween(-farthest, first, farthest) ||
                !claimBetween(-farthest, last, farthest)) {
                return nullptr;
            }
        }
        if (grows != largest) {
            return first;
        }
        return bound(
            evolution_.getAddExpr(steps.getStart(), evolution_.getMulExpr(step, turns->number)),
            largest, depth + 1);
    }

    /// The same if only bounds of the step are known, which may be negative or zero.
    const SCEV* boundOfUnknownSteps(const llvm::SCEVAddRecExpr& steps, bool largest,
                                    unsigned depth) {
        const std::optional<Turns> turns = turnsUntil(*steps.getLoop());
        if (!turns.has_value()) {
            return nullptr;
        }
        const auto ends = [&](const SCEV* number) {
            return std::pair(bound(number, false, depth + 1), bound(number, true, depth + 1));
        };
        const auto [lowest, highest] = ends(steps.getStart());
        const auto [least, greatest] = ends(steps.getOperand(1));
        const SCEV* const most = mostOf(*turns, mostUnknownTurns, depth);
        if (lowest == nullptr || highest == nullptr || least == nullptr || greatest == nullptr ||
            most == nullptr || !claimBetweenKnown(-farthest, lowest, highest, farthest) ||
            !claimBetweenKnown(-largestUnknownStep, least, greatest, largestUnknownStep)) {
            return nullptr;
        }
        const SCEV* const way = largest ? evolution_.getSMaxExpr(greatest, constant(0))
                                        : evolution_.getSMinExpr(least, constant(0));
        return evolution_.getAddExpr(largest ? highest : lowest, evolution_.getMulExpr(way, most));
    }

    /// How often a loop has gone back when at_ is reached for the last time.
    struct Turns {
        const SCEV* number;
        std::int64_t least; // what it may not be less than, as a signed number
        bool isGuarded;     // it is not negative where the loop is entered
    };

    /// Numbers of turns have no sign: one that looks negative is so large that a check ends the
    /// loop, unless the loop is known to be passed by then, which looks like one turn less than
    /// none. So does it where only at_ is not reached.
    bool claimSigned(const Turns& turns, unsigned depth) {
        const SCEV* const fewest = bound(turns.number, false, depth + 1);
        return fewest != nullptr && claim(ICmpInst::ICMP_SGE, fewest, constant(turns.least));
    }

    /// That there are at most so many of them; the number that there are at most, null if nothing
    /// is found.
    const SCEV* mostOf(const Turns& turns, std::int64_t highest, unsigned depth) {
        const SCEV* const most = bound(turns.number, true, depth + 1);
        return most != nullptr && claimSigned(turns, depth) &&
                       claim(ICmpInst::ICMP_SLE, most, constant(highest))
                   ? most
                   : nullptr;
    }

    std::optional<Turns> turnsUntil(const Loop& loop) {
        llvm::SmallVector<BasicBlock*, 8> exiting;
        loop.getExitingBlocks(exiting);
        for (const BasicBlock* const block : exiting) {
            const auto* const branch = llvm::dyn_cast<BranchInst>(block->getTerminator());
            const auto likely = branch != nullptr ? likelySide(*branch) : std::nullopt;
            if (branch == nullptr ||
                (likely.has_value() && loop.contains(branch->getSuccessor(*likely)))) {
                continue;
            }
            // Not known of an exit that some turns do not come to.
            const SCEV* const count = evolution_.getExitCount(&loop, block);
            if (llvm::isa<llvm::SCEVCouldNotCompute>(count) || !count->getType()->isIntegerTy(64)) {
                continue;
            }
            const bool leavesBefore = block != at_ && dominators_.dominates(block, at_);
            const SCEV* const number =
                leavesBefore ? evolution_.getAddExpr(count, constant(-1)) : count;
            const bool isGuarded =
                evolution_.isLoopEntryGuardedByCond(&loop, ICmpInst::ICMP_SGE, count, constant(0));
            return Turns{number, leavesBefore || isGuarded ? -1 : 0, isGuarded};
        }
        return std::nullopt;
    }

    // Versions ------------------------------------------------------------------------------------

    void enterExits(llvm::ValueToValueMapTy& copies) {
        llvm::SmallVector<BasicBlock*, 8> exits;
        top_.getUniqueExitBlocks(exits);
        for (BasicBlock* const exit : exits) {
            for (llvm::PHINode& phi : exit->phis()) {
                const unsigned count = phi.getNumIncomingValues();
                for (unsigned i = 0; i < count; ++i) {
                    BasicBlock* const from = phi.getIncomingBlock(i);
                    if (!top_.contains(from)) {
                        continue;
                    }
                    const auto copy = copies.find(phi.getIncomingValue(i));
                    phi.addIncoming(copy != copies.end() ? static_cast<Value*>(copy->second)
                                                         : phi.getIncomingValue(i),
                                    llvm::cast<BasicBlock>(copies[from]));
                }
            }
        }
    }

    void markSlow(llvm::ValueToValueMapTy& copies) {
        llvm::LLVMContext& context = top_.getHeader()->getContext();
        const auto note = [&](const char* name) {
            return llvm::MDNode::get(context, llvm::MDString::get(context, name));
        };
        llvm::Metadata* const off =
            llvm::ConstantAsMetadata::get(llvm::ConstantInt::getFalse(context));
        llvm::MDNode* const noVectors = llvm::MDNode::get(
            context, {llvm::MDString::get(context, "llvm.loop.vectorize.enable"), off});
        for (const Loop* const loop : top_.getLoopsInPreorder()) {
            if (BasicBlock* const latch = loop->getLoopLatch(); latch != nullptr) {
                llvm::MDNode* const identity = llvm::MDNode::getDistinct(
                    context, {nullptr, noVectors, note("llvm.loop.unroll.disable"),
                              note("llvm.loop.licm_versioning.disable"), note(slowVersion)});
                identity->replaceOperandWith(0, identity);
                llvm::cast<BasicBlock>(copies[latch])
                    ->getTerminator()
                    ->setMetadata(llvm::LLVMContext::MD_loop, identity);
            }
        }
    }

    /// What else is chosen inside by a value that stays the same.
    void settle(Value& value, bool is) const {
        value.replaceUsesWithIf(
            llvm::ConstantInt::getBool(value.getType(), is), [&](const llvm::Use& use) {
                const auto* const user = llvm::dyn_cast<llvm::Instruction>(use.getUser());
                return user != nullptr && top_.contains(user);
            });
    }

    /// Leaves of the condition what is not decided.
    void takeOut(const Guard& guard) const {
        llvm::IRBuilder<> ir(guard.branch);
        const bool likely = guard.likely == 0; // the value of the condition
        Value* left = nullptr;
        for (const Part& part : guard.open) {
            Value* const each = part.wanted == likely ? part.value : ir.CreateNot(part.value);
            left = left == nullptr ? each
                   : likely        ? ir.CreateLogicalAnd(left, each)
                                   : ir.CreateLogicalOr(left, each);
        }
        Value* const before = guard.branch->getCondition();
        guard.branch->setCondition(left != nullptr ? left : ir.getInt1(likely));
        if (left == nullptr && !llvm::isa<llvm::Constant>(before) && top_.isLoopInvariant(before)) {
            settle(*before, likely);
        }
    }

    Loop& top_;
    llvm::ScalarEvolution& evolution_;
    const llvm::DominatorTree& dominators_;
    const llvm::LoopInfo& loops_;
    std::vector<Guard> guards_;
    std::vector<Part> unchanging_; // parts of conditions that stay the same
    std::vector<Claim> claims_;
    std::vector<Claim> pending_; // of the part that is looked at
    const BasicBlock* at_ = nullptr;
    llvm::ValueToSCEVMapTy known_; // values that decided branches leave only one way to get
    const SCEV* turns_ = nullptr;  // how often it goes back, if that has to be asked
    // What stands in front of the nest:
    std::vector<std::pair<Value*, Value*>> sides_; // of the claims
    Value* turnsBack_ = nullptr;                   // null if all numbers of turns will do
};

/// The outermost loop's version, if there is one, and those of loops inside it, in this order.
void planNest(const Nest& fresh, Loop& top, std::vector<Nest>& nests) {
    if (top.isInnermost()) {
        Nest all = fresh;
        if (all.planAll()) {
            nests.push_back(std::move(all));
            return;
        }
    }
    Nest outer = fresh;
    const bool isVersion = outer.plan();
    std::vector<Nest> inside;
    for (Loop* const loop : top.getLoopsInPreorder()) {
        if (loop == &top) {
            continue;
        }
        const Nest& around = isVersion ? outer : fresh;
        Nest decided(around, *loop);
        Nest unchanging(around, *loop);
        if (decided.planInside()) {
            inside.push_back(std::move(decided));
        } else if (unchanging.planUncounted()) {
            inside.push_back(std::move(unchanging));
        }
    }
    if (isVersion) {
        nests.push_back(std::move(outer));
    }
    std::move(inside.begin(), inside.end(), std::back_inserter(nests));
}

} // namespace

llvm::PreservedAnalyses LoopVersionsPass::run(llvm::Function& function,
                                              llvm::FunctionAnalysisManager& analyses) const {
    const llvm::LoopInfo& loops = analyses.getResult<llvm::LoopAnalysis>(function);
    if (loops.empty()) {
        return llvm::PreservedAnalyses::all();
    }
    auto& evolution = analyses.getResult<llvm::ScalarEvolutionAnalysis>(function);
    const auto& dominators = analyses.getResult<llvm::DominatorTreeAnalysis>(function);
    std::vector<Nest> nests;
    for (Loop* const top : loops) {
        planNest(Nest(*top, evolution, dominators, loops), *top, nests);
    }
    for (Nest& nest : nests) {
        nest.expandCondition();
    }
    for (Nest& nest : nests) {
        nest.split();
    }
    return nests.empty() ? llvm::PreservedAnalyses::all() : llvm::PreservedAnalyses::none();
}

} // namespace QN::VMRT
