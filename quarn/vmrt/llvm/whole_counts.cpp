// See whole_counts.hpp.
#include "vmrt/llvm/whole_counts.hpp"

#include "vmrt/llvm/loop_versions.hpp"
#include "vmrt/llvm/whole_numbers.hpp"

#include <algorithm>
#include <cmath>
#include <llvm/ADT/SetVector.h>
#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/Analysis/ScalarEvolutionExpressions.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/PatternMatch.h>
#include <llvm/Transforms/Utils/LoopUtils.h>
#include <vector>

namespace QN::VMRT {
namespace {

using llvm::BasicBlock;
using llvm::Instruction;
using llvm::Loop;
using llvm::PHINode;
using llvm::SCEV;
using llvm::Value;

constexpr std::int64_t mostTurns = std::int64_t{1} << 44;
/// Numbers that come in are below the first, the sums of what is added to them below the second:
/// all are exact.
constexpr std::int64_t largestSource = std::int64_t{1} << 52;
constexpr double largestAdded = 0x1p52;
/// What keeps numbers that come in below it that begin below the first and grow by the second.
constexpr std::int64_t largestStart = std::int64_t{1} << 51;
constexpr std::int64_t largestStep = 64;
constexpr int mostGuards = 8;

/// A constant that is small and whole.
bool isSmallWholeConstant(const Value* value) {
    const auto* const constant = llvm::dyn_cast<llvm::ConstantFP>(value);
    return constant != nullptr && constant->getType()->isDoubleTy() &&
           isSmallWhole(constant->getValueAPF());
}

/// What is known of a loop's turns from the branches that lead to it.
class Turns {
public:
    Turns(const Loop& loop, llvm::ScalarEvolution& evolution) : evolution_(evolution) {
        const SCEV* const turns = evolution.getExitCount(&loop, loop.getLoopLatch());
        if (llvm::isa<llvm::SCEVCouldNotCompute>(turns) || !turns->getType()->isIntegerTy(64)) {
            return;
        }
        turns_ = turns;
        range_ = evolution.getSignedRange(turns);
        const BasicBlock* to = loop.getHeader();
        const BasicBlock* from = loop.getLoopPreheader();
        for (int i = 0; i < mostGuards && from != nullptr; ++i) {
            const auto* const branch = llvm::dyn_cast<llvm::BranchInst>(from->getTerminator());
            if (branch != nullptr && branch->isConditional() &&
                branch->getSuccessor(0) != branch->getSuccessor(1)) {
                learn(branch->getCondition(), branch->getSuccessor(0) == to);
            }
            to = from;
            from = from->getSinglePredecessor();
        }
    }

    /// Whether it goes back at most that often.
    [[nodiscard]] bool areAtMost(std::int64_t most) const {
        return turns_ != nullptr && VMRT::isBetween(range_, -1, most);
    }

private:
    void learn(const Value* condition, bool holds) {
        using namespace llvm::PatternMatch;
        const Value* a = nullptr;
        const Value* b = nullptr;
        if (match(condition, m_Freeze(m_Value(a)))) {
            learn(a, holds);
        } else if (match(condition, m_Not(m_Value(a)))) {
            learn(a, !holds);
        } else if (holds ? match(condition, m_LogicalAnd(m_Value(a), m_Value(b)))
                         : match(condition, m_LogicalOr(m_Value(a), m_Value(b)))) {
            learn(a, holds);
            learn(b, holds);
        } else if (const auto* const compare = llvm::dyn_cast<llvm::ICmpInst>(condition);
                   compare != nullptr && compare->getOperand(0)->getType()->isIntegerTy(64)) {
            const auto predicate = holds ? compare->getPredicate() : compare->getInversePredicate();
            const SCEV* const left = evolution_.getSCEV(compare->getOperand(0));
            const SCEV* const right = evolution_.getSCEV(compare->getOperand(1));
            compareTurns(predicate, left, right);
            compareTurns(llvm::ICmpInst::getSwappedPredicate(predicate), right, left);
        }
    }

    /// What the comparison of some number with another one says of the turns, if they differ from
    /// the first one by a constant.
    void compareTurns(llvm::ICmpInst::Predicate predicate, const SCEV* number, const SCEV* limit) {
        const auto* const less =
            llvm::dyn_cast<llvm::SCEVConstant>(evolution_.getMinusSCEV(turns_, number));
        if (less == nullptr) {
            return;
        }
        const auto allowed = llvm::ConstantRange::makeAllowedICmpRegion(
            predicate, llvm::ICmpInst::isSigned(predicate) ? evolution_.getSignedRange(limit)
                                                           : evolution_.getUnsignedRange(limit));
        range_ = range_.intersectWith(allowed.add(llvm::ConstantRange(less->getAPInt())),
                                      llvm::ConstantRange::Signed);
    }

    llvm::ScalarEvolution& evolution_;
    const SCEV* turns_ = nullptr;
    llvm::ConstantRange range_ = llvm::ConstantRange::getFull(64);
};

/// Doubles that become integers together.
class Web {
public:
    Web(PHINode& first, const Loop& loop, llvm::ScalarEvolution& evolution)
        : loop_(loop), evolution_(evolution) {
        members_.insert(&first);
    }

    /// Follows what the members are made of. False: of something else, too.
    bool gather() {
        for (unsigned i = 0; i < members_.size(); ++i) {
            if (members_.size() > mostMembers || !addSources(*members_[i])) {
                return false;
            }
        }
        return std::all_of(members_.begin(), members_.end(),
                           [&](const Instruction* member) { return staysAmongThem(*member); });
    }

    [[nodiscard]] bool contains(const PHINode& phi) const {
        return members_.contains(const_cast<PHINode*>(&phi));
    }

    /// Whether the numbers stay exact in so many turns.
    [[nodiscard]] bool staysExact(const Turns& turns) const {
        return (added_ == 0 && !hasSteps_) ||
               (added_ * static_cast<double>(mostTurns) <= largestAdded &&
                turns.areAtMost(mostTurns - 1));
    }

    void replace() {
        for (Instruction* const member : members_) {
            if (auto* const phi = llvm::dyn_cast<PHINode>(member)) {
                whole_[phi] = PHINode::Create(word(), phi->getNumIncomingValues(), "count",
                                              phi->getIterator());
            }
        }
        for (Instruction* const member : members_) {
            wholeOf(member);
        }
        for (Instruction* const member : members_) {
            if (auto* const phi = llvm::dyn_cast<PHINode>(member)) {
                for (unsigned i = 0; i < phi->getNumIncomingValues(); ++i) {
                    llvm::cast<PHINode>(whole_[phi])
                        ->addIncoming(wholeOf(phi->getIncomingValue(i)), phi->getIncomingBlock(i));
                }
            }
        }
        replaceBehind();
        for (Instruction* const member : members_) {
            member->replaceAllUsesWith(llvm::PoisonValue::get(member->getType()));
        }
        for (Instruction* const member : members_) {
            member->eraseFromParent();
        }
    }

private:
    static constexpr unsigned mostMembers = 16;

    [[nodiscard]] llvm::Type* word() const {
        return llvm::Type::getInt64Ty(loop_.getHeader()->getContext());
    }

    bool addSources(Instruction& member) {
        using namespace llvm::PatternMatch;
        if (const auto* const phi = llvm::dyn_cast<PHINode>(&member)) {
            return std::all_of(phi->op_begin(), phi->op_end(),
                               [&](Value* value) { return addSource(value); });
        }
        if (auto* const select = llvm::dyn_cast<llvm::SelectInst>(&member)) {
            return addSource(select->getTrueValue()) && addSource(select->getFalseValue());
        }
        Value* number = nullptr;
        Value* constant = nullptr;
        if (match(&member, m_c_FAdd(m_Value(number), m_Value(constant)))) {
            if (!isAddend(constant)) {
                std::swap(number, constant);
            }
            if (isAddend(constant) && addSource(number)) {
                added_ += std::abs(addendOf(constant));
                return true;
            }
        }
        return false;
    }

    static double addendOf(const Value* constant) {
        return llvm::cast<llvm::ConstantFP>(constant)->getValueAPF().convertToDouble();
    }

    /// A constant that may also be less than zero, since no sum is the negative zero.
    static bool isAddend(const Value* value) {
        const auto* const constant = llvm::dyn_cast<llvm::ConstantFP>(value);
        return constant != nullptr && constant->getValueAPF().isInteger();
    }

    /// A whole number that comes in, or one more member.
    bool addSource(Value* value) {
        if (isSmallWholeConstant(value) || sourceOf(value) != nullptr) {
            return true;
        }
        auto* const instruction = llvm::dyn_cast<Instruction>(value);
        if (instruction == nullptr || !loop_.contains(instruction)) {
            return false;
        }
        members_.insert(instruction); // whose turn to be looked at comes
        return true;
    }

    /// The integer of 64 bits from which a double was made, if it is exact; null otherwise.
    Value* sourceOf(Value* number) {
        using namespace llvm::PatternMatch;
        Value* integer = nullptr;
        const bool isSigned = match(number, m_SIToFP(m_Value(integer)));
        if ((!isSigned && !match(number, m_UIToFP(m_Value(integer)))) ||
            !number->getType()->isDoubleTy() || !integer->getType()->isIntegerTy(64)) {
            return nullptr;
        }
        const SCEV* const evolved = evolution_.getSCEV(integer);
        const std::int64_t sign = isSigned ? -1 : 0; // of the lowest number
        if (isBetween(evolved, sign * largestSource, largestSource)) {
            return integer;
        }
        // One that grows with the turns, of which there are not too many then.
        const auto* const steps = llvm::dyn_cast<llvm::SCEVAddRecExpr>(evolved);
        if (steps == nullptr || steps->getLoop() != &loop_ || !steps->isAffine() ||
            !isBetween(steps->getStart(), sign * largestStart, largestStart) ||
            !isBetween(steps->getOperand(1), sign * largestStep, largestStep)) {
            return nullptr;
        }
        hasSteps_ = true;
        return integer;
    }

    bool isBetween(const SCEV* number, std::int64_t least, std::int64_t most) {
        return VMRT::isBetween(evolution_.getSignedRange(number), least, most);
    }

    /// Whether only members use it inside the loop, and behind it only phis of nothing else.
    [[nodiscard]] bool staysAmongThem(const Instruction& member) const {
        return std::all_of(member.user_begin(), member.user_end(), [&](const llvm::User* each) {
            auto* const user = llvm::cast<Instruction>(const_cast<llvm::User*>(each));
            if (loop_.contains(user)) {
                return members_.contains(user);
            }
            const auto* const phi = llvm::dyn_cast<PHINode>(user);
            return phi != nullptr && std::all_of(phi->op_begin(), phi->op_end(), [&](Value* value) {
                       auto* const from = llvm::dyn_cast<Instruction>(value);
                       return from != nullptr && members_.contains(from);
                   });
        });
    }

    Value* wholeOf(Value* value) {
        if (const auto found = whole_.find(value); found != whole_.end()) {
            return found->second;
        }
        if (const auto* const constant = llvm::dyn_cast<llvm::ConstantFP>(value)) {
            return integer(addendOf(constant));
        }
        if (auto* const source = sourceOf(value); source != nullptr) {
            return source;
        }
        Value* made = nullptr;
        auto* const member = llvm::cast<Instruction>(value);
        llvm::IRBuilder<> ir(member);
        if (auto* const select = llvm::dyn_cast<llvm::SelectInst>(member)) {
            Value* const otherwise = wholeOf(select->getFalseValue());
            made =
                ir.CreateSelect(select->getCondition(), wholeOf(select->getTrueValue()), otherwise);
        } else {
            Value* const addend = wholeOf(member->getOperand(1));
            made = ir.CreateNSWAdd(wholeOf(member->getOperand(0)), addend);
        }
        whole_[value] = made;
        return made;
    }

    [[nodiscard]] Value* integer(double whole) const {
        return llvm::ConstantInt::getSigned(word(), static_cast<std::int64_t>(whole));
    }

    void replaceBehind() {
        llvm::SmallSetVector<PHINode*, 8> behind;
        for (const Instruction* const member : members_) {
            for (const llvm::User* const user : member->users()) {
                if (auto* const instruction = llvm::cast<Instruction>(user);
                    !loop_.contains(instruction)) {
                    behind.insert(llvm::cast<PHINode>(const_cast<Instruction*>(instruction)));
                }
            }
        }
        for (PHINode* const phi : behind) {
            PHINode* const whole =
                PHINode::Create(word(), phi->getNumIncomingValues(), "count", phi->getIterator());
            for (unsigned i = 0; i < phi->getNumIncomingValues(); ++i) {
                whole->addIncoming(wholeOf(phi->getIncomingValue(i)), phi->getIncomingBlock(i));
            }
            llvm::IRBuilder<> ir(phi->getParent(), phi->getParent()->getFirstInsertionPt());
            phi->replaceAllUsesWith(ir.CreateSIToFP(whole, phi->getType()));
            phi->eraseFromParent();
        }
    }

    const Loop& loop_;
    llvm::ScalarEvolution& evolution_;
    llvm::SmallSetVector<Instruction*, 16> members_;
    llvm::DenseMap<Value*, Value*> whole_;
    double added_ = 0;      // in each turn, at most
    bool hasSteps_ = false; // there are numbers that grow with the turns
};

/// Whether the phi may begin a web: it begins as a whole number.
bool mayBegin(const PHINode& phi, const Loop& loop) {
    if (!phi.getType()->isDoubleTy()) {
        return false;
    }
    const Value* const start = phi.getIncomingValueForBlock(loop.getLoopPreheader());
    return isSmallWholeConstant(start) || llvm::isa<llvm::SIToFPInst, llvm::UIToFPInst>(start);
}

bool countInIntegers(const Loop& loop, llvm::ScalarEvolution& evolution) {
    const BasicBlock* const latch = loop.getLoopLatch();
    if (!loop.isLoopSimplifyForm() || !loop.isInnermost() || !loop.isLoopExiting(latch) ||
        llvm::findOptionMDForLoop(&loop, slowVersion) != nullptr) {
        return false;
    }
    std::vector<Web> webs;
    for (PHINode& phi : loop.getHeader()->phis()) {
        const bool isTaken = std::any_of(webs.begin(), webs.end(),
                                         [&](const Web& web) { return web.contains(phi); });
        if (isTaken || !mayBegin(phi, loop)) {
            continue;
        }
        if (Web web(phi, loop, evolution); web.gather()) {
            webs.push_back(std::move(web));
        }
    }
    if (webs.empty()) {
        return false;
    }
    const Turns turns(loop, evolution);
    bool changed = false;
    for (Web& web : webs) {
        if (web.staysExact(turns)) {
            web.replace();
            changed = true;
        }
    }
    return changed;
}

} // namespace

llvm::PreservedAnalyses WholeCountsPass::run(llvm::Function& function,
                                             llvm::FunctionAnalysisManager& analyses) const {
    llvm::LoopInfo& loops = analyses.getResult<llvm::LoopAnalysis>(function);
    if (loops.empty()) {
        return llvm::PreservedAnalyses::all();
    }
    auto& evolution = analyses.getResult<llvm::ScalarEvolutionAnalysis>(function);
    bool changed = false;
    for (Loop* const loop : loops.getLoopsInPreorder()) {
        if (countInIntegers(*loop, evolution)) {
            evolution.forgetLoop(loop);
            changed = true;
        }
    }
    return keptWithBlocks(changed);
}

} // namespace QN::VMRT
