// Indices and the checks of their bounds.
//
// `toindex` traps for what is no index, and `chkbounds` for an index that an array does not have.
// Where one follows the other in a loop that goes on by conditions of its own, both are one
// comparison: what lies inside the bounds of an array is an index. Only what does not is looked at
// again, in the order of the nodes, to find out which of them traps. In counted loops the two stay
// apart, since LLVM knows how to take each of them out of such a loop.
#include "vmrt/llvm/function_emitter.hpp"

#include <algorithm>

namespace QN::VMRT {

using llvm::Value;

namespace {

/// The size of an array, which is never negative and below all that is no index.
bool isSize(const Entity* operand) {
    const Node* const node = asNode(const_cast<Entity*>(operand));
    return node != nullptr &&
           (node->op() == Op::Rows || node->op() == Op::Cols || node->op() == Op::Numel);
}

} // namespace

/// The check of the index's bounds comes before all else that acts.
bool FunctionEmitter::mayWait(const Node& index) const {
    if (unit_.config().insertRuntimeChecks() ||
        unit_.config().jitOptimizationLevel() == VMEngineConfig::OptNone ||
        !runsInUncountedLoop(index)) {
        return false;
    }
    for (const Node* node = index.next(); node != nullptr; node = node->next()) {
        if (node->op() == Op::ChkBounds && node->operand(0) == &index) {
            return isSize(node->operand(1));
        }
        if (node->op() != Op::ChkBounds && node->op() != Op::ToIndex &&
            (node->hasEffect() || node->has(OpFlag::Calls))) {
            return false;
        }
    }
    return false;
}

/// The integer of an index and whether it is the same number.
WaitingIndex FunctionEmitter::numberOf(const Node& node) {
    const Node* const from = asNode(node.operand(0));
    if (from == nullptr || wholes_[from->id()].number == nullptr) {
        const auto [number, isSame] = scalars_.toWhole(operandType(node, 0), value(node, 0));
        return {&node, number, isSame};
    }
    const Whole whole = wholeOf(node, 0);
    if (whole.isSame == ir_.getTrue()) {
        return {&node, whole.number, nullptr};
    }
    llvm::BasicBlock* const here = ir_.GetInsertBlock();
    llvm::BasicBlock* const other = newBlock("double");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(whole.isSame, on, other, unit_.likely());
    ir_.SetInsertPoint(other);
    const auto [number, isSame] = scalars_.toWhole(*Type::f64(), value(node, 0));
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
    llvm::PHINode* const numbers = ir_.CreatePHI(ir_.getInt64Ty(), 2, "index");
    numbers->addIncoming(whole.number, here);
    numbers->addIncoming(number, other);
    llvm::PHINode* const same = ir_.CreatePHI(ir_.getInt1Ty(), 2, "same");
    same->addIncoming(ir_.getTrue(), here);
    same->addIncoming(isSame, other);
    return {&node, numbers, same};
}

Value* FunctionEmitter::isIndex(const WaitingIndex& index, Value* limit) {
    Value* const inside = ir_.CreateICmpULT(ir_.CreateSub(index.number, ir_.getInt64(1)), limit);
    return index.isSame == nullptr ? inside : ir_.CreateAnd(inside, index.isSame);
}

/// Looks at all indices that wait, in their order.
void FunctionEmitter::checkWaiting() {
    for (const WaitingIndex& index : waiting_) {
        trapUnless(isIndex(index, ir_.getInt64(std::uint64_t{1} << 53)), TrapCode::BadIndex,
                   index.node->line());
    }
}

void FunctionEmitter::emitIndex(const Node& node) {
    const Type& type = operandType(node, 0);
    if (!type.isDouble() && !type.isInteger()) {
        refuse(node, "no index");
    }
    if (mayWait(node)) {
        waiting_.push_back(numberOf(node));
        values_[node.id()] = waiting_.back().number;
        return;
    }
    checkWaiting();
    waiting_.clear();
    if (const Node* const from = asNode(node.operand(0));
        from != nullptr && wholes_[from->id()].number != nullptr) {
        values_[node.id()] = indexOf(node);
        return;
    }
    const auto [index, holds] = scalars_.toIndex(type, value(node, 0));
    trapUnless(holds, TrapCode::BadIndex, node.line());
    values_[node.id()] = index;
}

/// An index from a double: its whole number if that is the same, else what the double says.
Value* FunctionEmitter::indexOf(const Node& node) {
    const Whole whole = wholeOf(node, 0);
    llvm::BasicBlock* const same = newBlock("whole");
    llvm::BasicBlock* const other = newBlock("double");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(whole.isSame, same, other, unit_.likely());
    ir_.SetInsertPoint(other);
    const auto [index, holds] = scalars_.toIndex(*Type::f64(), value(node, 0));
    trapUnless(holds, TrapCode::BadIndex, node.line());
    llvm::BasicBlock* const otherEnd = ir_.GetInsertBlock();
    ir_.CreateBr(on);
    ir_.SetInsertPoint(same);
    trapUnless(ir_.CreateICmpULT(ir_.CreateSub(whole.number, ir_.getInt64(1)),
                                 ir_.getInt64(std::uint64_t{1} << 53)),
               TrapCode::BadIndex, node.line());
    llvm::BasicBlock* const sameEnd = ir_.GetInsertBlock();
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
    llvm::PHINode* const result = ir_.CreatePHI(ir_.getInt64Ty(), 2, "index");
    result->addIncoming(whole.number, sameEnd);
    result->addIncoming(index, otherEnd);
    return result;
}

/// Whether an index lies beyond the size of an array, asked as its bounds are: then LLVM knows the
/// answer behind them. Null if the node asks something else.
Value* FunctionEmitter::beyondSize(const Node& node) {
    const Node* const index = node.op() == Op::Gt ? asNode(node.operand(0)) : nullptr;
    if (index == nullptr || index->op() != Op::ToIndex || !isSize(node.operand(1)) ||
        !runsInUncountedLoop(node)) {
        return nullptr;
    }
    return ir_.CreateNot(isIndex({index, value(node, 0), nullptr}, value(node, 1)));
}

void FunctionEmitter::emitBounds(const Node& node) {
    const auto found =
        std::find_if(waiting_.begin(), waiting_.end(),
                     [&](const WaitingIndex& index) { return index.node == node.operand(0); });
    if (found == waiting_.end() || !isSize(node.operand(1))) {
        checkWaiting();
        waiting_.clear();
        Value* const index = value(node, 0);
        Value* const above = ir_.CreateICmpSGT(index, value(node, 1));
        Value* const outside = ir_.CreateOr(ir_.CreateICmpSLT(index, ir_.getInt64(1)), above);
        trapIf(outside, TrapCode::IndexOutOfBounds, node.line());
        return;
    }
    llvm::BasicBlock* const inside = newBlock("inside");
    llvm::BasicBlock* const outside = newBlock("outside");
    ir_.CreateCondBr(isIndex(*found, value(node, 1)), inside, outside, unit_.likely());
    ir_.SetInsertPoint(outside);
    checkWaiting();
    trap(TrapCode::IndexOutOfBounds, node.line());
    ir_.SetInsertPoint(inside);
    waiting_.erase(found);
}

} // namespace QN::VMRT
