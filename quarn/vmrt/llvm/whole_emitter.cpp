// Whole numbers beside doubles.
//
// Programs count in doubles and use them as indices. Where a double becomes an index, it is
// followed back to where it comes from, through sums, products and variables, and the same
// computation is done in 64-bit integers beside it, which LLVM understands: an index that grows by
// one from turn to turn is what all its loop transforms are about. Beside the integer goes whether
// it is the same number as the double. Where that is not known, the double itself is asked.
//
// An integer that stays between -2^53 and 2^53 is exact as long as every step is. So integers of 64
// bits, sums and products of two unknowns look whether what they begin with is far enough from
// there; steps by a small constant do not, since it would take them hours to get there.
#include "vmrt/llvm/function_emitter.hpp"

#include <cmath>

namespace QN::VMRT {

using llvm::Value;

namespace {

bool isSmallWhole(const Const& constant) {
    const double value = constant.asDouble();
    return constant.type()->isDouble() && std::fabs(value) <= 1024 && std::trunc(value) == value;
}

bool isOne(const Entity* operand) {
    const Const* const constant = asConst(const_cast<Entity*>(operand));
    return constant != nullptr && constant->type()->isDouble() && constant->asDouble() == 1;
}

/// A converted integer, which may be multiplied by one.
bool isConverted(Entity* operand) {
    const Node* node = asNode(operand);
    if (node != nullptr && node->op() == Op::Mul) {
        node = isOne(node->operand(1))   ? asNode(node->operand(0))
               : isOne(node->operand(0)) ? asNode(node->operand(1))
                                         : nullptr;
    }
    return node != nullptr && node->op() == Op::Convert;
}

bool isFollowed(const Node& node) {
    return node.type()->isDouble() &&
           (node.op() == Op::Add || node.op() == Op::Sub || node.op() == Op::Mul);
}

/// A double without its fraction, in 64 bits.
bool isTruncation(const Node& node) {
    return node.op() == Op::Convert && node.type() == Type::i64() &&
           node.mode() == Mode(Rounding::TowardZero, Overflow::Saturate) &&
           typeOf(node.operand(0))->isDouble();
}

/// The truncation that the node compares with what was truncated; null if it does something else.
const Node* testedTruncation(const Node& node) {
    const Node* const back = node.op() == Op::Eq ? asNode(node.operand(0)) : nullptr;
    const Node* const whole =
        back != nullptr && back->op() == Op::Convert && back->type()->isDouble()
            ? asNode(back->operand(0))
            : nullptr;
    return whole != nullptr && isTruncation(*whole) && whole->operand(0) == node.operand(1)
               ? whole
               : nullptr;
}

/// Whether the variable only ever counts up by one from a small number that is not negative.
bool countsUp(const Var& var) {
    constexpr std::int64_t highestStart = std::int64_t{1} << 32;
    if (var.varKind() == VarKind::Param) {
        return false; // it starts as what the caller gives
    }
    for (const Operand& use : var.uses()) {
        if (use.user()->op() == Op::Load) {
            continue;
        }
        const Entity* const stored = use.user()->op() == Op::Store ? use.user()->operand(1) : &var;
        const Const* const first = asConst(const_cast<Entity*>(stored));
        const Node* const sum = asNode(const_cast<Entity*>(stored));
        const Node* const before =
            sum != nullptr && sum->op() == Op::Add ? asNode(sum->operand(0)) : nullptr;
        const Const* const step = before != nullptr ? asConst(sum->operand(1)) : nullptr;
        const bool counts = before != nullptr && before->op() == Op::Load &&
                            before->operand(0) == &var && step != nullptr && step->asInt() == 1;
        if (!counts && (first == nullptr || first->asInt() < 0 || first->asInt() > highestStart)) {
            return false;
        }
    }
    return true;
}

/// Whether a double holds the integer, and a few more, for as long as anybody waits: it is of a
/// narrow type, a size, or counts up by one.
bool staysSmall(const Entity* operand) {
    const Node* const node = asNode(const_cast<Entity*>(operand));
    if (typeOf(operand)->bits() < 64 || node == nullptr) {
        return typeOf(operand)->bits() < 64;
    }
    const Var* const var = node->op() == Op::Load ? asVar(node->operand(0)) : nullptr;
    return node->op() == Op::Rows || node->op() == Op::Cols || node->op() == Op::Numel ||
           (var != nullptr && countsUp(*var));
}

} // namespace

/// Whether a condition asks for doubles that are whole numbers, which they nearly always are.
bool testsTruncation(const Entity* condition) {
    const Node* const node = asNode(const_cast<Entity*>(condition));
    if (node == nullptr || node->op() != Op::And) {
        return node != nullptr && testedTruncation(*node) != nullptr;
    }
    return testsTruncation(node->operand(0)) || testsTruncation(node->operand(1));
}

/// Marks the values and variables that indices and whole limits come from.
void FunctionEmitter::findWholes() {
    std::vector<const Node*> open;
    std::vector<bool> wantsVar(cfg_.varIdLimit());
    const auto want = [&](const Entity* operand) {
        const Node* const node = asNode(const_cast<Entity*>(operand));
        if (node != nullptr && node->type()->isDouble() && !wantsWhole_[node->id()]) {
            wantsWhole_[node->id()] = true;
            open.push_back(node);
        }
    };
    for (const Block* const block : order_.order()) {
        for (const Node& node : block->nodes()) {
            const Node* const from = node.op() == Op::ToIndex ? asNode(node.operand(0)) : nullptr;
            if (isTruncation(node)) {
                want(node.operand(0));
            } else if (from != nullptr &&
                       (isFollowed(*from) || from->op() == Op::Load || from->op() == Op::Convert)) {
                want(from);
            }
        }
    }
    while (!open.empty()) {
        const Node& node = *open.back();
        open.pop_back();
        if (isFollowed(node)) {
            want(node.operand(0));
            want(node.operand(1));
        } else if (const Var* const var = asVar(node.operand(0));
                   node.op() == Op::Load && var != nullptr && !arrayUses_.hasAddress(*var) &&
                   !wantsVar[var->id()]) {
            wantsVar[var->id()] = true;
            for (const Operand& use : var->uses()) {
                if (use.user()->op() == Op::Store && use.user()->operand(0) == var) {
                    want(use.user()->operand(1));
                }
            }
        }
    }
    for (const Var& var : cfg_.vars()) {
        if (wantsVar[var.id()]) {
            wholeVars_[var.id()] = {slot(ir_.getInt64Ty(), "whole"), slot(ir_.getInt8Ty(), "same")};
            storeWhole(var, ofDouble(llvm::ConstantFP::get(ir_.getDoubleTy(), 0.0)));
        }
    }
}

Whole FunctionEmitter::ofDouble(Value* number) {
    Value* const whole = ir_.CreateFreeze(ir_.CreateFPToSI(number, ir_.getInt64Ty()));
    Value* const equal = ir_.CreateFCmpOEQ(ir_.CreateSIToFP(whole, ir_.getDoubleTy()), number);
    return {whole, ir_.CreateAnd(equal, isExact(whole))};
}

Value* FunctionEmitter::isExact(Value* whole, unsigned bits) {
    const std::uint64_t limit = std::uint64_t{1} << bits;
    return ir_.CreateICmpULE(ir_.CreateAdd(whole, ir_.getInt64(limit)), ir_.getInt64(2 * limit));
}

void FunctionEmitter::storeWhole(const Var& var, const Whole& whole) {
    ir_.CreateStore(whole.number, wholeVars_[var.id()].number);
    ir_.CreateStore(ir_.CreateZExt(whole.isSame, ir_.getInt8Ty()), wholeVars_[var.id()].isSame);
}

Whole FunctionEmitter::wholeOf(const Node& user, std::size_t operand) {
    Entity* const entity = user.operand(operand);
    if (const Const* const constant = asConst(entity);
        constant != nullptr && isSmallWhole(*constant)) {
        return {llvm::ConstantInt::getSigned(ir_.getInt64Ty(),
                                             static_cast<std::int64_t>(constant->asDouble())),
                ir_.getTrue()};
    }
    if (const Node* const node = asNode(entity);
        node != nullptr && wholes_[node->id()].number != nullptr) {
        return wholes_[node->id()];
    }
    return ofDouble(value(user, operand));
}

/// The value does not change while the loop runs.
bool FunctionEmitter::staysIn(std::uint32_t loop, const Entity* operand) const {
    const Node* const node = asNode(const_cast<Entity*>(operand));
    if (node == nullptr || !loops_.isInside(loops_.innermost(*node->block()), loop)) {
        return true;
    }
    const Var* const var = node->op() == Op::Load ? asVar(node->operand(0)) : nullptr;
    if (var == nullptr || var->isAggregate() || arrayUses_.hasAddress(*var)) {
        return false;
    }
    for (const Operand& use : var->uses()) {
        if (use.user()->op() == Op::Store &&
            loops_.isInside(loops_.innermost(*use.user()->block()), loop)) {
            return false;
        }
    }
    return true;
}

/// The number of turns that are left or done, if the head of the innermost loop compares `turn`
/// with it, and `turn` only ever counts up by one from 0 or more; null otherwise.
const Node* FunctionEmitter::turnTest(const Entity* turn, const Block& at) const {
    const Node* const load = asNode(const_cast<Entity*>(turn));
    const std::uint32_t loop = loops_.innermost(at);
    const Node* const end = loop != Loop::none ? loops_.all()[loop].header->last() : nullptr;
    const Node* const test =
        end != nullptr && end->op() == Op::Br ? asNode(end->operand(0)) : nullptr;
    if (load == nullptr || load->op() != Op::Load || load->type() != Type::i64() ||
        test == nullptr || test->op() != Op::Lt || test->operand(0) != load ||
        !loops_.isInside(loops_.innermost(*asBlock(end->operand(1))), loop) ||
        !staysIn(loop, test->operand(1)) || asBlock(end->operand(1)) == end->block() ||
        !order_.dominates(*asBlock(end->operand(1)), at)) {
        return nullptr;
    }
    return countsUp(*asVar(load->operand(0))) ? test : nullptr;
}

/// The whole number of first + turn * step, where the turn of a loop is below its limit, is the
/// same or not for the whole loop. Nothing if the node is no such sum.
std::optional<Whole> FunctionEmitter::wholeOfTurn(const Node& sum) {
    const Node* const product = sum.op() == Op::Add ? asNode(sum.operand(1)) : nullptr;
    const Node* const turn =
        product != nullptr && product->op() == Op::Mul ? asNode(product->operand(0)) : nullptr;
    if (turn == nullptr || turn->op() != Op::Convert || isOne(product->operand(1))) {
        return std::nullopt;
    }
    const Node* const test = turnTest(turn->operand(0), *sum.block());
    const std::uint32_t loop = loops_.innermost(*sum.block());
    if (test == nullptr || !staysIn(loop, sum.operand(0)) || !staysIn(loop, product->operand(1))) {
        return std::nullopt;
    }
    // Up to 2^31 turns by steps of up to 2^20 from up to 2^51: all numbers stay below 2^53.
    const Whole first = wholeOf(sum, 0);
    const Whole step = wholeOf(*product, 1);
    Value* const fewTurns =
        ir_.CreateICmpULE(value(*test, 1), ir_.getInt64(std::uint64_t{1} << 31));
    Value* const stepIsExact = isExact(step.number, 20);
    Value* const exact = ir_.CreateAnd(isExact(first.number, 51), stepIsExact);
    Value* const number = ir_.CreateAdd(first.number, ir_.CreateMul(value(*turn, 0), step.number));
    Value* const fits = ir_.CreateAnd(fewTurns, exact);
    return Whole{number, ir_.CreateAnd(ir_.CreateAnd(first.isSame, step.isSame), fits)};
}

/// Computes the whole number of a node's value, if an index comes from it.
void FunctionEmitter::emitWhole(const Node& node) {
    if (node.op() == Op::Store) {
        const Var* const var = asVar(node.operand(0));
        if (var != nullptr && wholeVars_[var->id()].number != nullptr) {
            storeWhole(*var, wholeOf(node, 1));
        }
        return;
    }
    if (!wantsWhole_[node.id()]) {
        return;
    }
    Whole& made = wholes_[node.id()];
    if (node.op() == Op::Load) {
        const Var* const var = asVar(node.operand(0));
        if (var != nullptr && wholeVars_[var->id()].number != nullptr) {
            const Whole& kept = wholeVars_[var->id()];
            made = {ir_.CreateLoad(ir_.getInt64Ty(), kept.number),
                    ir_.CreateTrunc(ir_.CreateLoad(ir_.getInt8Ty(), kept.isSame), ir_.getInt1Ty())};
            return;
        }
    }
    if (node.op() == Op::Convert && operandType(node, 0).isInteger() &&
        (operandType(node, 0).isSigned() || operandType(node, 0).bits() < 64)) {
        const bool isSigned = operandType(node, 0).isSigned();
        made.number = ir_.CreateIntCast(value(node, 0), ir_.getInt64Ty(), isSigned);
        made.isSame = staysSmall(node.operand(0)) ? ir_.getTrue() : isExact(made.number);
        return;
    }
    if (!isFollowed(node)) {
        made = ofDouble(values_[node.id()]);
        return;
    }
    if (node.op() == Op::Mul && (isOne(node.operand(0)) || isOne(node.operand(1)))) {
        made = wholeOf(node, isOne(node.operand(0)) ? 1 : 0);
        return;
    }
    if (const std::optional<Whole> ofTurn = wholeOfTurn(node); ofTurn.has_value()) {
        made = *ofTurn;
        return;
    }
    const Whole a = wholeOf(node, 0);
    const Whole b = wholeOf(node, 1);
    made.number = node.op() == Op::Mul   ? ir_.CreateMul(a.number, b.number)
                  : node.op() == Op::Add ? ir_.CreateAdd(a.number, b.number)
                                         : ir_.CreateSub(a.number, b.number);
    made.isSame = ir_.CreateAnd(a.isSame, b.isSame);
    const bool steps = node.op() != Op::Mul && (llvm::isa<llvm::ConstantInt>(a.number) ||
                                                llvm::isa<llvm::ConstantInt>(b.number));
    if (steps) {
        return;
    }
    const unsigned bits = node.op() == Op::Mul ? 25 : 51;
    for (std::size_t i = 0; i < 2; ++i) {
        // A converted integer was looked at already: up to 2^52 and up to 2^51 are below 2^53.
        const bool skips =
            isConverted(node.operand(i)) && (i == 1 || !isConverted(node.operand(1)));
        if (node.op() == Op::Mul || !skips) {
            made.isSame = ir_.CreateAnd(made.isSame, isExact(i == 0 ? a.number : b.number, bits));
        }
    }
}

/// What a double is without its fraction is its whole number, if that is the same.
bool FunctionEmitter::emitTruncation(const Node& node) {
    if (const Node* const truncation = testedTruncation(node); truncation != nullptr) {
        const Node* const from = asNode(truncation->operand(0));
        if (from == nullptr || wholes_[from->id()].number == nullptr) {
            return false;
        }
        Value* const same = wholes_[from->id()].isSame;
        values_[node.id()] = ir_.CreateSelect(same, ir_.getTrue(),
                                              ir_.CreateFCmpOEQ(value(node, 0), value(node, 1)));
        return true;
    }
    if (!isTruncation(node)) {
        return false;
    }
    const Node* const from = asNode(node.operand(0));
    if (from == nullptr || wholes_[from->id()].number == nullptr) {
        return false;
    }
    const Whole& whole = wholes_[from->id()];
    Value* const truncated =
        scalars_.convert(*Type::f64(), *Type::i64(), node.mode(), value(node, 0));
    values_[node.id()] = ir_.CreateSelect(whole.isSame, whole.number, truncated);
    return true;
}

/// Whether the number is a whole one is the same for all turns of the loop: it stays, or only goes
/// on by small whole steps.
bool FunctionEmitter::countsIn(std::uint32_t loop, const Entity* operand) const {
    const Const* const constant = asConst(const_cast<Entity*>(operand));
    if (constant != nullptr) {
        return isSmallWhole(*constant);
    }
    const Node* const node = asNode(const_cast<Entity*>(operand));
    if (wholes_[node->id()].number == nullptr) {
        return false;
    }
    const Var* const var = node->op() == Op::Load ? asVar(node->operand(0)) : nullptr;
    if (var == nullptr || wholeVars_[var->id()].number == nullptr) {
        return staysIn(loop, operand);
    }
    for (const Operand& use : var->uses()) {
        const Node& user = *use.user();
        if (user.op() != Op::Store || !loops_.isInside(loops_.innermost(*user.block()), loop)) {
            continue;
        }
        const Node* const sum = asNode(user.operand(1));
        const Node* const before = sum != nullptr && (sum->op() == Op::Add || sum->op() == Op::Sub)
                                       ? asNode(sum->operand(0))
                                       : nullptr;
        const Const* const step = before != nullptr ? asConst(sum->operand(1)) : nullptr;
        if (step == nullptr || !isSmallWhole(*step) || before->op() != Op::Load ||
            before->operand(0) != var) {
            return false;
        }
    }
    return true;
}

/// Compares counters as the integers that they are, if they are. The question is the same in all
/// turns, so that a version of the loop without doubles can be made. False: nothing was emitted.
bool FunctionEmitter::emitWholeBranch(const Node& branch) {
    const Node* const test = asNode(branch.operand(0));
    const std::uint32_t loop = loops_.innermost(*branch.block());
    if (test == nullptr || !test->has(OpFlag::Compares) || loop == Loop::none ||
        !operandType(*test, 0).isDouble() || test->block() != branch.block() ||
        (asConst(test->operand(0)) != nullptr && asConst(test->operand(1)) != nullptr) ||
        !countsIn(loop, test->operand(0)) || !countsIn(loop, test->operand(1))) {
        return false;
    }
    const Block& from = *branch.block();
    const Whole a = wholeOf(*test, 0);
    const Whole b = wholeOf(*test, 1);
    llvm::BasicBlock* const yes = edge(from, *asBlock(branch.operand(1)));
    llvm::BasicBlock* const no = edge(from, *asBlock(branch.operand(2)));
    llvm::MDNode* const weights = weightsOf(branch);
    llvm::BasicBlock* const whole = newBlock("whole");
    llvm::BasicBlock* const other = newBlock("double");
    ir_.CreateCondBr(ir_.CreateAnd(a.isSame, b.isSame), whole, other, unit_.likely());
    ir_.SetInsertPoint(whole);
    ir_.CreateCondBr(scalars_.compute(test->op(), Mode(), *Type::i64(), a.number, b.number), yes,
                     no, weights);
    ir_.SetInsertPoint(other);
    ir_.CreateCondBr(value(branch, 0), yes, no, weights);
    return true;
}

} // namespace QN::VMRT
