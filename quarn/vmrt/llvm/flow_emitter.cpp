// Blocks, calls, traps, and everything about scalars that is not arithmetic.
#include "vmrt/llvm/function_emitter.hpp"
#include "vmrt/llvm/runtime.hpp"

#include <qn/engine.hpp>

namespace QN::VMRT {

using llvm::Value;

// Memory ------------------------------------------------------------------------------------------

Value* FunctionEmitter::load(llvm::Type* type, Value* from, Memory memory) {
    llvm::LoadInst* const made = ir_.CreateLoad(type, from);
    if (!llvm::isa<llvm::AllocaInst>(from)) {
        made->setMetadata(llvm::LLVMContext::MD_tbaa, unit_.tag(memory));
    }
    return made;
}

void FunctionEmitter::store(Value* what, Value* to, Memory memory) {
    llvm::StoreInst* const made = ir_.CreateStore(what, to);
    if (!llvm::isa<llvm::AllocaInst>(to)) {
        made->setMetadata(llvm::LLVMContext::MD_tbaa, unit_.tag(memory));
    }
}

// Traps -------------------------------------------------------------------------------------------

void FunctionEmitter::leaveIf(Value* condition, Value* status) {
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(condition, traps_, on, unit_.unlikely());
    trapStatus_->addIncoming(status, ir_.GetInsertBlock());
    ir_.SetInsertPoint(on);
}

void FunctionEmitter::trapIf(Value* condition, TrapCode code, std::uint32_t line,
                             std::string detail) {
    if (const auto* const known = llvm::dyn_cast<llvm::ConstantInt>(condition);
        known != nullptr && known->isZero()) {
        return;
    }
    const std::int32_t site = unit_.addSite({code, function_.index, line, std::move(detail)});
    leaveIf(condition, ir_.getInt32(static_cast<std::uint32_t>(site)));
}

void FunctionEmitter::trapUnless(Value* condition, TrapCode code, std::uint32_t line) {
    trapIf(ir_.CreateNot(condition), code, line);
}

void FunctionEmitter::trap(TrapCode code, std::uint32_t line, std::string detail) {
    const std::int32_t site = unit_.addSite({code, function_.index, line, std::move(detail)});
    trapStatus_->addIncoming(ir_.getInt32(static_cast<std::uint32_t>(site)), ir_.GetInsertBlock());
    ir_.CreateBr(traps_);
}

void FunctionEmitter::endUnlessFine(Value* outcome, std::uint32_t line) {
    const std::int32_t site = unit_.addSite({TrapCode::BadSize, function_.index, line, {}});
    Value* const status = ir_.CreateSelect(ir_.CreateICmpEQ(outcome, ir_.getInt32(OutOfMemory)),
                                           ir_.getInt32(static_cast<std::uint32_t>(outOfMemory)),
                                           ir_.getInt32(static_cast<std::uint32_t>(site)));
    leaveIf(ir_.CreateICmpNE(outcome, ir_.getInt32(Fine)), status);
}

// Operands ----------------------------------------------------------------------------------------

const Type& FunctionEmitter::operandType(const Node& node, std::size_t operand) const {
    const Entity* const entity = operand < node.numOperands() ? node.operand(operand) : nullptr;
    const Type* const type = entity != nullptr ? QN::typeOf(entity) : nullptr;
    if (type == nullptr || type->isVoid()) {
        refuse(node, "an operand without a type");
    }
    return *type;
}

Value* FunctionEmitter::value(const Node& node, std::size_t operand) {
    Entity* const entity = operand < node.numOperands() ? node.operand(operand) : nullptr;
    if (const Const* const constant = asConst(entity); constant != nullptr) {
        return scalars_.constant(*constant->type(), constant->bits());
    }
    const Node* const from = asNode(entity);
    if (from == nullptr || values_[from->id()] == nullptr) {
        refuse(node, "an operand that has no value");
    }
    return values_[from->id()];
}

Value* FunctionEmitter::pointer(const Node& node) {
    if (!operandType(node, 0).isPointer()) {
        refuse(node, "no pointer");
    }
    Value* const to = value(node, 0);
    trapIf(ir_.CreateIsNull(to), TrapCode::InvalidIr, node.line(), "a null pointer");
    return to;
}

// Blocks ------------------------------------------------------------------------------------------

/// Marks the blocks that lead nowhere but to a trap or to an array that grows.
void FunctionEmitter::findRareBlocks() {
    const std::span<Block* const> order = order_.order();
    for (auto at = order.rbegin(); at != order.rend(); ++at) {
        const Block& block = **at;
        const Node* const end = block.terminator();
        bool rare = end != nullptr && (end->op() == Op::Trap || block.numSuccessors() > 0);
        for (std::size_t i = 0; i < block.numSuccessors(); ++i) {
            rare = rare && block.successor(i) != nullptr && isRare_[block.successor(i)->id()];
        }
        for (const Node& node : block.nodes()) {
            rare = rare || node.op() == Op::Resize;
        }
        isRare_[block.id()] = rare;
    }
}

llvm::MDNode* FunctionEmitter::weightsOf(const Node& branch) const {
    const Block& yes = *asBlock(branch.operand(1));
    const Block& no = *asBlock(branch.operand(2));
    if (isRare_[yes.id()] != isRare_[no.id()]) {
        return isRare_[yes.id()] ? unit_.unlikely() : unit_.likely();
    }
    // A second limit of a loop's turns is the one of the last turn.
    const Node* const test = asNode(branch.operand(0));
    const bool isSecond = test != nullptr && test->op() == Op::Lt && test->operand(1) != nullptr &&
                          turnTest(test->operand(0), *branch.block()) != nullptr &&
                          staysIn(loops_.innermost(*branch.block()), test->operand(1));
    return isSecond ? unit_.likely() : nullptr;
}

void FunctionEmitter::emitBlock(const Block& block) {
    const std::uint32_t loop = loops_.innermost(block);
    if (loop != Loop::none && loops_.all()[loop].header == &block) {
        emitPreheader(loops_.all()[loop]);
    }
    ir_.SetInsertPoint(blocks_[block.id()]);
    if (block.terminator() == nullptr) {
        throw CompilationRefused(std::string(function_.source->name()),
                                 "a block without a terminator");
    }
    for (const Node& node : block.nodes()) {
        if (subprogram_ != nullptr) {
            ir_.SetCurrentDebugLocation(
                llvm::DILocation::get(unit_.context(), node.line(), 0, subprogram_));
        }
        if (node.isTerminator()) {
            if (node.next() != nullptr) {
                refuse(node, "it is not the last node of its block");
            }
            printNode(node);
            emitTerminator(node);
            return;
        }
        printNode(node);
        emitNode(node);
        emitWhole(node);
        dropDeadValues(node);
    }
}

void FunctionEmitter::emitNode(const Node& node) {
    switch (node.op()) {
    case Op::Load:
    case Op::Store:
    case Op::AddrOf:
    case Op::LoadP:
    case Op::StoreP:
        return emitVariable(node);
    case Op::NewArray:
    case Op::Rows:
    case Op::Cols:
    case Op::Numel:
    case Op::Resize:
        return emitArray(node);
    case Op::LdElem:
    case Op::LdElem2:
    case Op::StElem:
    case Op::StElem2:
        return emitElement(node);
    case Op::ToIndex:
    case Op::ChkBounds:
    case Op::ChkZero:
    case Op::ChkLossy:
        return emitCheck(node);
    case Op::Call:
        return emitCall(node);
    case Op::Count:
        return emitCount(node);
    default:
        return emitScalar(node);
    }
}

/// Whether the loop of that header looks for an interruption when a turn begins. It does if the
/// header decides whether there is one; the test at the end of a turn, which LLVM makes of it, then
/// stays the last thing in it.
bool FunctionEmitter::looksInside(const Block& header) const {
    const std::uint32_t loop = loops_.innermost(header);
    if (loop == Loop::none || loops_.all()[loop].header != &header ||
        header.last()->op() != Op::Br) {
        return false;
    }
    const auto isIn = [&](std::size_t side) {
        const Block& to = *asBlock(header.last()->operand(side));
        return &to != &header && loops_.isInside(loops_.innermost(to), loop);
    };
    return isIn(1) != isIn(2);
}

llvm::BasicBlock* FunctionEmitter::edge(const Block& from, const Block& to) {
    if (order_.indexOf(to) <= order_.indexOf(from)) {
        return looksInside(to) ? wayBack(to) : poll(to, blocks_[to.id()]);
    }
    llvm::BasicBlock* const preheader = preheaders_[to.id()];
    llvm::BasicBlock* const target = preheader != nullptr ? preheader : blocks_[to.id()];
    const bool begins =
        looksInside(from) && loops_.isInside(loops_.innermost(to), loops_.innermost(from));
    return begins ? poll(from, target) : target;
}

/// Where the turns of the loop of that header meet at their end. A header to which several blocks
/// lead back is the header of several loops for LLVM, of which only the innermost is counted.
llvm::BasicBlock* FunctionEmitter::wayBack(const Block& header) {
    llvm::BasicBlock*& made = waysBack_[header.id()];
    if (made == nullptr) {
        const llvm::IRBuilder<>::InsertPointGuard guard(ir_);
        made = newBlock("back");
        ir_.SetInsertPoint(made);
        ir_.CreateBr(blocks_[header.id()]);
    }
    return made;
}

/// The status with which all polls leave. Their block is not the one of other traps, and does
/// something: otherwise LLVM makes one condition of a poll and a check behind it.
llvm::PHINode& FunctionEmitter::interrupted() {
    if (interruptStatus_ == nullptr) {
        const llvm::IRBuilder<>::InsertPointGuard guard(ir_);
        llvm::BasicBlock* const block = newBlock("interrupted");
        ir_.SetInsertPoint(block);
        interruptStatus_ = ir_.CreatePHI(ir_.getInt32Ty(), 4, "interrupt.status");
        ir_.CreateLoad(ir_.getInt32Ty(), interrupt_, true);
        ir_.CreateBr(traps_);
        trapStatus_->addIncoming(interruptStatus_, block);
    }
    return *interruptStatus_;
}

/// What each turn of the loop of that header passes on its way to `target`: it looks whether
/// somebody asks for an end.
llvm::BasicBlock* FunctionEmitter::poll(const Block& header, llvm::BasicBlock* target) {
    llvm::BasicBlock*& made = polls_[header.id()];
    if (made == nullptr) {
        llvm::BasicBlock* const here = ir_.GetInsertBlock();
        made = newBlock("again" + llvm::Twine(header.id()));
        ir_.SetInsertPoint(made);
        const std::uint32_t line = header.first() != nullptr ? header.first()->line() : 0;
        const std::int32_t site = unit_.addSite({TrapCode::Interrupted, function_.index, line, {}});
        Value* const asked = ir_.CreateLoad(ir_.getInt32Ty(), interrupt_, true);
        llvm::PHINode& status = interrupted();
        status.addIncoming(ir_.getInt32(static_cast<std::uint32_t>(site)), made);
        ir_.CreateCondBr(ir_.CreateIsNotNull(asked), status.getParent(), target, unit_.unlikely());
        ir_.SetInsertPoint(here);
    }
    return made;
}

void FunctionEmitter::emitTerminator(const Node& node) {
    const Block& from = *node.block();
    switch (node.op()) {
    case Op::Jump: {
        const Block* const to = asBlock(node.operand(0));
        if (to == nullptr) {
            refuse(node, "a block is missing");
        }
        ir_.CreateBr(edge(from, *to));
        break;
    }
    case Op::Br: {
        const Block* const yes = asBlock(node.operand(1));
        const Block* const no = asBlock(node.operand(2));
        if (yes == nullptr || no == nullptr || !operandType(node, 0).isLogical()) {
            refuse(node, "no condition and two blocks");
        }
        if (emitWholeBranch(node)) {
            break;
        }
        Value* const condition = value(node, 0);
        llvm::BasicBlock* const toYes = edge(from, *yes);
        llvm::BasicBlock* const toNo = edge(from, *no);
        ir_.CreateCondBr(condition, toYes, toNo,
                         testsTruncation(node.operand(0)) ? unit_.likely() : weightsOf(node));
        break;
    }
    case Op::Ret:
        emitReturn(node);
        break;
    default: {
        const Const* const code = asConst(node.operand(0));
        if (code == nullptr) {
            refuse(node, "no code");
        }
        trap(static_cast<TrapCode>(code->asInt()), node.line());
    }
    }
}

void FunctionEmitter::emitReturn(const Node& node) {
    const Type& result = *function_.source->resultType();
    if (result.isVoid() != (node.numOperands() == 0) ||
        (!result.isVoid() && &operandType(node, 0) != &result)) {
        refuse(node, "types differ");
    }
    if (result.isArray()) {
        bool moves = false;
        const ArrayPlace& array = arrayValue(node, 0, moves);
        retain(array); // and everything that this function holds goes below
        if (function_.isEntry) {
            Value* const given = inMemory(array);
            ir_.CreateCall(unit_.host("qn_array_take", ir_.getVoidTy(),
                                      {ir_.getPtrTy(), ir_.getPtrTy()}, false),
                           {arrayResult_, given});
        } else {
            writeHeader(array, arrayResult_);
        }
        releaseAll();
        ir_.CreateRet(ir_.getInt32(0));
        return;
    }
    Value* const given = result.isVoid() ? nullptr : value(node, 0);
    releaseAll();
    if (given == nullptr) {
        ir_.CreateRet(ir_.getInt32(0));
    } else if (function_.isEntry) {
        Value* const word = ir_.CreateConstInBoundsGEP1_64(ir_.getInt64Ty(), words_,
                                                           function_.source->paramTypes().size());
        const bool asIs = result.isDouble() || result.isPointer();
        store(asIs ? given : scalars_.toWord(result, given), word, Memory::State);
        ir_.CreateRet(ir_.getInt32(0));
    } else {
        Value* both = llvm::PoisonValue::get(code_->getReturnType());
        both = ir_.CreateInsertValue(both, given, 0);
        ir_.CreateRet(ir_.CreateInsertValue(both, ir_.getInt32(0), 1));
    }
}

// Calls -------------------------------------------------------------------------------------------

/// What may go wrong before a call: too many inside each other, or somebody asks for an end.
void FunctionEmitter::guardCall(const Node& node, const UnitFunction& callee) {
    trapIf(ir_.CreateICmpSLE(depthLeft_, ir_.getInt64(0)), TrapCode::StackOverflow, node.line());
    if (!callee.recurs) {
        return; // it ends, and needs as much stack as the functions of the unit have
    }
    Value* const asked = ir_.CreateLoad(ir_.getInt32Ty(), interrupt_, true);
    trapIf(ir_.CreateIsNotNull(asked), TrapCode::Interrupted, node.line());
    llvm::LLVMContext& context = unit_.context();
    Value* const name = llvm::MetadataAsValue::get(
        context, llvm::MDNode::get(context, llvm::MDString::get(context, "rsp")));
    Value* const stack =
        ir_.CreateIntrinsic(llvm::Intrinsic::read_register, {ir_.getInt64Ty()}, {name});
    llvm::LoadInst* const limit =
        ir_.CreateLoad(ir_.getInt64Ty(), at(state_, offsetof(RunState, stackLimit)));
    limit->setMetadata(llvm::LLVMContext::MD_invariant_load, llvm::MDNode::get(context, {}));
    trapIf(ir_.CreateICmpULT(stack, limit), TrapCode::StackOverflow, node.line());
}

void FunctionEmitter::emitCall(const Node& node) {
    const Callee* const name = asCallee(node.operand(0));
    if (name == nullptr) {
        refuse(node, "no callee");
    }
    // What follows a trap that always happens is emitted as usual and never reached.
    const auto alwaysTrap = [&](TrapCode code, std::string detail) {
        trapIf(ir_.getTrue(), code, node.line(), std::move(detail));
        if (node.type()->isScalar() || node.type()->isPointer()) {
            values_[node.id()] = llvm::PoisonValue::get(unit_.typeOf(*node.type()));
        }
    };
    UnitFunction* const callee = unit_.functionNamed(name->name());
    if (callee == nullptr) {
        return alwaysTrap(TrapCode::UnknownFunction, std::string(name->name()));
    }
    guardCall(node, *callee);
    const std::vector<const Type*>& types = callee->source->paramTypes();
    bool fits = types.size() == node.numOperands() - 1 &&
                (!node.hasValue() || callee->source->resultType() == node.type());
    for (std::size_t i = 0; fits && i < types.size(); ++i) {
        fits = types[i] == &operandType(node, i + 1);
    }
    if (!fits) {
        return alwaysTrap(TrapCode::InvalidIr,
                          "'" + std::string(name->name()) + "' is called with the wrong types");
    }
    const Type& result = *callee->source->resultType();
    bool mayBeKept = result.isArray();
    std::vector<Value*> arguments;
    std::vector<ArrayPlace*> lent;
    std::size_t used = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i]->isArray()) {
            ArrayPlace& array = placeOf(node, i + 1);
            Value* const header = scratch(used++);
            writeHeader(array, header);
            arguments.push_back(header);
            lent.push_back(&array);
        } else {
            mayBeKept |= types[i]->isPointer();
            arguments.push_back(value(node, i + 1));
        }
    }
    Value* made = nullptr;
    if (result.isArray()) {
        made = scratch(used++);
        arguments.push_back(made);
    }
    arguments.push_back(state_);
    arguments.push_back(ir_.CreateSub(depthLeft_, ir_.getInt64(1)));
    llvm::CallInst* const call = ir_.CreateCall(callee->code, arguments);
    call->setCallingConv(callee->code->getCallingConv());
    const bool isPair = !result.isArray() && !result.isVoid();
    Value* const status = isPair ? ir_.CreateExtractValue(call, 1) : call;
    leaveIf(ir_.CreateIsNotNull(status), status);
    for (const ArrayPlace* const array : lent) {
        if (mayBeKept && array->writable != nullptr) {
            ir_.CreateStore(ir_.getInt8(0), array->writable);
        }
    }
    if (isPair) {
        values_[node.id()] = ir_.CreateExtractValue(call, 0);
    } else if (result.isArray()) {
        if (node.hasValue()) {
            const ArrayPlace& place = *arrayNodes_[node.id()];
            release(place);
            readHeader(made, place, false);
        } else { // nobody wants it
            ArrayPlace unwanted;
            unwanted.memory = made;
            release(unwanted);
        }
    }
}

// Checks and counters -----------------------------------------------------------------------------

void FunctionEmitter::emitCheck(const Node& node) {
    switch (node.op()) {
    case Op::ToIndex:
        return emitIndex(node);
    case Op::ChkBounds:
        return emitBounds(node);
    case Op::ChkZero: {
        Value* const x = value(node, 0);
        trapIf(operandType(node, 0).isDouble()
                   ? ir_.CreateFCmpOEQ(x, llvm::ConstantFP::get(x->getType(), 0.0))
                   : ir_.CreateIsNull(x),
               TrapCode::DivisionByZero, node.line());
        break;
    }
    default:
        if (!operandType(node, 0).isDouble() || !operandType(node, 1).isInteger()) {
            refuse(node, "types differ");
        }
        trapUnless(scalars_.isSameNumber(value(node, 0), operandType(node, 1), value(node, 1)),
                   TrapCode::LossyConversion, node.line());
    }
}

void FunctionEmitter::emitCount(const Node& node) {
    const Const* const number = asConst(node.operand(0));
    if (number == nullptr || number->asInt() < 0 || number->asInt() >= (1 << 24)) {
        refuse(node, "no number of a counter");
    }
    UnitFacts& facts = unit_.facts();
    if (facts.counters.empty() || facts.counters.back().function != function_.index) {
        function_.firstCounter = facts.counterCount;
        facts.counters.push_back({function_.index, facts.counterCount, 0});
    }
    CounterRange& range = facts.counters.back();
    range.count = std::max(range.count, static_cast<std::uint32_t>(number->asInt()) + 1);
    facts.counterCount = range.first + range.count;
    Value* const counters =
        load(ir_.getPtrTy(), at(state_, offsetof(RunState, counters)), Memory::State);
    Value* const counter = ir_.CreateConstInBoundsGEP1_64(
        ir_.getInt64Ty(), counters, range.first + static_cast<std::uint64_t>(number->asInt()));
    store(ir_.CreateAdd(load(ir_.getInt64Ty(), counter, Memory::Counter), ir_.getInt64(1)), counter,
          Memory::Counter);
}

// Scalars and variables ---------------------------------------------------------------------------

void FunctionEmitter::emitScalar(const Node& node) {
    const VMEngineConfig& config = unit_.config();
    if (node.op() == Op::Select) {
        if (node.type()->isArray()) {
            return emitArraySelect(node);
        }
        if (!operandType(node, 0).isLogical() || &operandType(node, 1) != node.type() ||
            &operandType(node, 2) != node.type()) {
            refuse(node, "types differ");
        }
        Value* const condition = value(node, 0);
        Value* const a = value(node, 1);
        values_[node.id()] = ir_.CreateSelect(condition, a, value(node, 2));
        return;
    }
    const Type& type = operandType(node, 0);
    if (!type.isScalar() || !node.type()->isScalar()) {
        refuse(node, "no scalars");
    }
    if (emitTruncation(node)) {
        return;
    }
    Value* const a = value(node, 0);
    if (node.op() == Op::Convert) {
        Value* const made = scalars_.convert(type, *node.type(), node.mode(), a);
        // Who cuts off fractions on purpose wants to.
        if (config.insertRuntimeChecks() && node.mode().rounding() != Rounding::TowardZero) {
            if (Value* const lossy = scalars_.isLossy(type, *node.type(), a, made);
                lossy != nullptr) {
                trapIf(lossy, TrapCode::LossyConversion, node.line());
            }
        }
        values_[node.id()] = made;
        return;
    }
    if (node.numOperands() > 1 && &operandType(node, 1) != &type) {
        refuse(node, "types differ");
    }
    Value* known = emitUnsaturated(node);
    known = known != nullptr ? known : beyondSize(node);
    if (known != nullptr) {
        values_[node.id()] = known;
        return;
    }
    Value* const b = node.numOperands() > 1 ? value(node, 1) : nullptr;
    if (node.op() == Op::Div && config.insertRuntimeChecks()) {
        trapIf(type.isDouble() ? ir_.CreateFCmpOEQ(b, llvm::ConstantFP::get(b->getType(), 0.0))
                               : ir_.CreateIsNull(b),
               TrapCode::DivisionByZero, node.line());
    }
    Value* const made = scalars_.compute(node.op(), node.mode(), type, a, b);
    const bool compares = node.has(OpFlag::Compares);
    if (made == nullptr || (compares ? !node.type()->isLogical() : node.type() != &type)) {
        refuse(node, "no such operation on the type");
    }
    values_[node.id()] = made;
}

void FunctionEmitter::emitVariable(const Node& node) {
    const Type& type = operandType(node, 0);
    const Var* const var = asVar(node.operand(0));
    switch (node.op()) {
    case Op::Load:
        if (var == nullptr || &type != node.type()) {
            refuse(node, "types differ");
        }
        if (type.isArray()) {
            return emitArrayLoad(node);
        }
        if (arrayUses_.hasAddress(*var)) {
            values_[node.id()] =
                type.isDouble() || type.isPointer()
                    ? load(unit_.typeOf(type), vars_[var->id()], Memory::Variable)
                    : scalars_.fromWord(type,
                                        load(ir_.getInt64Ty(), vars_[var->id()], Memory::Variable));
        } else if (type.isLogical()) {
            values_[node.id()] = ir_.CreateTrunc(
                load(ir_.getInt8Ty(), vars_[var->id()], Memory::Variable), ir_.getInt1Ty());
        } else {
            values_[node.id()] = load(unit_.typeOf(type), vars_[var->id()], Memory::Variable);
        }
        break;
    case Op::Store: {
        if (var == nullptr || &type != &operandType(node, 1)) {
            refuse(node, "types differ");
        }
        if (type.isArray()) {
            return emitArrayStore(node);
        }
        Value* stored = value(node, 1);
        if (arrayUses_.hasAddress(*var)) {
            stored = type.isDouble() || type.isPointer() ? stored : scalars_.toWord(type, stored);
        } else if (type.isLogical()) {
            stored = ir_.CreateZExt(stored, ir_.getInt8Ty());
        }
        store(stored, vars_[var->id()], Memory::Variable);
        break;
    }
    case Op::AddrOf:
        if (var == nullptr || !node.type()->isPointer() || node.type()->element() != &type) {
            refuse(node, "types differ");
        }
        values_[node.id()] = type.isArray() ? arrayVars_[var->id()]->memory : vars_[var->id()];
        break;
    case Op::LoadP:
        if (!type.isPointer() || type.element() != node.type()) {
            refuse(node, "types differ");
        }
        if (node.type()->isArray()) {
            return emitArrayLoad(node);
        } else {
            const Type& own = *node.type();
            Value* const from = pointer(node);
            values_[node.id()] =
                own.isDouble() || own.isPointer()
                    ? load(unit_.typeOf(own), from, Memory::Variable)
                    : scalars_.fromWord(own, load(ir_.getInt64Ty(), from, Memory::Variable));
        }
        break;
    default: {
        if (!type.isPointer() || type.element() != &operandType(node, 1)) {
            refuse(node, "types differ");
        }
        if (type.element()->isArray()) {
            return emitArrayStore(node);
        }
        const Type& own = *type.element();
        Value* const to = pointer(node);
        Value* const stored = value(node, 1);
        store(own.isDouble() || own.isPointer() ? stored : scalars_.toWord(own, stored), to,
              Memory::Variable);
    }
    }
}

} // namespace QN::VMRT
