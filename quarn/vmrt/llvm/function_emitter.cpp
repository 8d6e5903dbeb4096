// The frame of a function: slots, parameters, the common way out, and the door of a unit.
#include "vmrt/llvm/function_emitter.hpp"

#include "vmrt/llvm/runtime.hpp"

#include <qn/engine.hpp>

namespace QN::VMRT {

using llvm::Value;

FunctionEmitter::FunctionEmitter(UnitEmitter& unit, UnitFunction& function)
    : unit_(unit), function_(function), cfg_(function.source->cfg()), code_(function.code),
      ir_(unit.context()), scalars_(unit, ir_), arrayUses_(cfg_), order_(cfg_.dominators()),
      loops_(cfg_) {
    blocks_.resize(cfg_.blockIdLimit());
    polls_.resize(cfg_.blockIdLimit());
    waysBack_.resize(cfg_.blockIdLimit());
    preheaders_.resize(cfg_.blockIdLimit());
    isRare_.resize(cfg_.blockIdLimit());
    values_.resize(cfg_.nodeIdLimit());
    vars_.resize(cfg_.varIdLimit());
    arrayVars_.resize(cfg_.varIdLimit());
    arrayNodes_.resize(cfg_.nodeIdLimit());
    isWritable_.resize(cfg_.nodeIdLimit());
    wantsWhole_.resize(cfg_.nodeIdLimit());
    wholes_.resize(cfg_.nodeIdLimit());
    wholeVars_.resize(cfg_.varIdLimit());
}

void FunctionEmitter::refuse(const Node& node, const char* what) const {
    throw CompilationRefused(std::string(function_.source->name()),
                             std::string(infoOf(node.op()).text) + ": " + what);
}

void FunctionEmitter::run() {
    if (cfg_.entry() == nullptr) {
        throw CompilationRefused(std::string(function_.source->name()), "it has no blocks");
    }
    code_->setDoesNotThrow();
    if (unit_.config().framePointerPolicy() == VMEngineConfig::FramePointerPreserve) {
        code_->addFnAttr("frame-pointer", "all");
    } else if (unit_.config().framePointerPolicy() == VMEngineConfig::FramePointerEliminate) {
        code_->addFnAttr("frame-pointer", "none");
    }
    if (unit_.config().useSoftFloat()) {
        code_->addFnAttr("use-soft-float", "true");
    }
    beginDebugInfo();
    frame_ = newBlock("frame");
    traps_ = newBlock("traps");
    ir_.SetInsertPoint(traps_);
    trapStatus_ = ir_.CreatePHI(ir_.getInt32Ty(), 4, "status");
    for (const Block* const block : order_.order()) {
        blocks_[block->id()] = newBlock("b" + llvm::Twine(block->id()));
    }
    ir_.SetInsertPoint(frame_);
    makeSlots();
    if (unit_.config().jitOptimizationLevel() != VMEngineConfig::OptNone) {
        findWholes(); // more to do for who does not optimize
    }
    makeParameters();
    llvm::BasicBlock* const start = ir_.GetInsertBlock();
    findRareBlocks();
    findHoists();
    for (const Block* const block : order_.order()) {
        emitBlock(*block);
    }
    ir_.SetInsertPoint(start);
    ir_.SetCurrentDebugLocation({});
    // The entry may be the head of a loop.
    Block& first = *order_.order().front();
    llvm::BasicBlock* const preheader = preheaders_[first.id()];
    ir_.CreateBr(preheader != nullptr ? preheader : blocks_[first.id()]);
    finishTraps();
    if (unit_.config().instrumentIRDebugPrint() != VMEngineConfig::DebugPrintNone &&
        unit_.config().instrumentIRVerbosityLLVMIR()) {
        printInstructions();
    }
}

void FunctionEmitter::beginDebugInfo() {
    if (unit_.debugInfo() != nullptr) {
        subprogram_ = unit_.subprogram(function_);
        code_->setSubprogram(subprogram_);
        code_->setUWTableKind(llvm::UWTableKind::Async); // debuggers walk the stack with it
    }
}

llvm::BasicBlock* FunctionEmitter::newBlock(const llvm::Twine& name) {
    return llvm::BasicBlock::Create(unit_.context(), name, code_);
}

llvm::AllocaInst* FunctionEmitter::slot(llvm::Type* type, const llvm::Twine& name) {
    llvm::IRBuilder<> at(frame_, frame_->begin());
    return at.CreateAlloca(type, nullptr, name);
}

void FunctionEmitter::makeSlots() {
    for (const Var& var : cfg_.vars()) {
        const llvm::StringRef name(var.name());
        const Type& type = *var.type();
        if (var.isAggregate()) {
            if (arrayUses_.hasAddress(var)) {
                ArrayPlace place;
                place.kind = type.scalarKind();
                place.memory =
                    slot(llvm::ArrayType::get(ir_.getInt64Ty(), ArrayLayout::bytes / 8), name);
                arrayVars_[var.id()] = place;
            } else {
                arrayVars_[var.id()] = makePlace(type.scalarKind(), name);
            }
        } else if (arrayUses_.hasAddress(var)) {
            vars_[var.id()] = slot(ir_.getInt64Ty(), name);
        } else {
            vars_[var.id()] = slot(type.isLogical() ? ir_.getInt8Ty() : unit_.typeOf(type), name);
        }
    }
    for (const Block* const block : order_.order()) {
        for (const Node& node : block->nodes()) {
            if (node.type()->isArray() && arrayUses_.aliasOf(node) == nullptr) {
                arrayNodes_[node.id()] = makePlace(node.type()->scalarKind(), "array");
                setEmpty(*arrayNodes_[node.id()]);
            }
        }
    }
}

void FunctionEmitter::zero(const Var& var) {
    if (var.isAggregate()) {
        setEmpty(*arrayVars_[var.id()]);
    } else {
        auto* const memory = llvm::cast<llvm::AllocaInst>(vars_[var.id()]);
        ir_.CreateStore(llvm::Constant::getNullValue(memory->getAllocatedType()), memory);
    }
}

void FunctionEmitter::makeParameters() {
    for (const Var& var : cfg_.vars()) {
        if (var.varKind() != VarKind::Param || var.isAggregate()) {
            zero(var);
        }
    }
    const auto count = static_cast<unsigned>(code_->arg_size());
    state_ = code_->getArg(count - 2);
    depthLeft_ = code_->getArg(count - 1);
    state_->setName("state");
    depthLeft_->setName("depth");
    code_->addParamAttr(count - 2, llvm::Attribute::NoCapture);
    code_->addParamAttr(count - 2, llvm::Attribute::NoAlias);
    llvm::LoadInst* const interrupt = ir_.CreateLoad(ir_.getPtrTy(), state_, "interrupt");
    interrupt->setMetadata(llvm::LLVMContext::MD_invariant_load,
                           llvm::MDNode::get(unit_.context(), {}));
    interrupt_ = interrupt;

    bool hasPointerToArray = false;
    for (const Type* const type : function_.source->paramTypes()) {
        hasPointerToArray |= type->isPointer() && type->element()->isArray();
    }
    unsigned number = 0;
    if (function_.isEntry) {
        words_ = code_->getArg(0);
        words_->setName("words");
    }
    for (const Var& var : cfg_.vars()) {
        if (var.varKind() != VarKind::Param) {
            break; // parameters come first
        }
        const Type& type = *var.type();
        Value* given;
        if (function_.isEntry) {
            Value* const word = ir_.CreateConstInBoundsGEP1_64(ir_.getInt64Ty(), words_, number);
            llvm::Type* const read = type.isArray()    ? ir_.getPtrTy()
                                     : type.isScalar() ? unit_.typeOf(type)
                                                       : ir_.getPtrTy();
            if (type.isScalar() && !type.isDouble()) {
                given = scalars_.fromWord(type, load(ir_.getInt64Ty(), word, Memory::State));
            } else {
                given = load(read, word, Memory::State);
            }
        } else {
            given = code_->getArg(number);
        }
        given->setName(llvm::StringRef(var.name()));
        takeParameter(var, given, hasPointerToArray);
        ++number;
    }
    if (function_.source->resultType()->isArray()) {
        arrayResult_ = function_.isEntry
                           ? load(ir_.getPtrTy(),
                                  ir_.CreateConstInBoundsGEP1_64(ir_.getInt64Ty(), words_, number),
                                  Memory::State)
                           : code_->getArg(number);
    }
}

void FunctionEmitter::takeParameter(const Var& var, Value* given, bool hasPointerToArray) {
    if (!var.isAggregate()) {
        store(arrayUses_.hasAddress(var)
                  ? scalars_.toWord(*var.type(), given)
                  : (var.type()->isLogical() ? ir_.CreateZExt(given, ir_.getInt8Ty()) : given),
              vars_[var.id()], Memory::Variable);
        if (wholeVars_[var.id()].number != nullptr) {
            storeWhole(var, ofDouble(given));
        }
        return;
    }
    ArrayPlace& place = *arrayVars_[var.id()];
    if (place.memory != nullptr) {
        ir_.CreateCall(
            unit_.host("qn_array_assign", ir_.getVoidTy(), {ir_.getPtrTy(), ir_.getPtrTy()}, false),
            {place.memory, given});
        return;
    }
    readHeader(given, place, false);
    // The caller keeps what it gives alive, unless it can be changed through a pointer.
    place.owned = arrayUses_.isChanged(var) || hasPointerToArray;
    if (place.owned) {
        retain(place);
    }
}

void FunctionEmitter::returnStatus(Value* status) {
    if (code_->getReturnType()->isIntegerTy()) {
        ir_.CreateRet(status);
        return;
    }
    Value* const none = llvm::PoisonValue::get(code_->getReturnType());
    ir_.CreateRet(ir_.CreateInsertValue(none, status, 1));
}

void FunctionEmitter::releaseAll() {
    for (auto* const places : {&arrayVars_, &arrayNodes_}) {
        for (const std::optional<ArrayPlace>& place : *places) {
            if (place.has_value() && place->owned) {
                release(*place);
            }
        }
    }
}

void FunctionEmitter::finishTraps() {
    if (trapStatus_->getNumIncomingValues() == 0) {
        traps_->eraseFromParent();
        return;
    }
    traps_->moveAfter(&code_->back());
    ir_.SetInsertPoint(traps_);
    if (subprogram_ != nullptr) {
        ir_.SetCurrentDebugLocation(llvm::DILocation::get(unit_.context(), 0, 0, subprogram_));
    }
    releaseAll();
    returnStatus(trapStatus_);
}

llvm::Function* emitDoor(UnitEmitter& unit, UnitFunction& function) {
    llvm::LLVMContext& context = unit.context();
    llvm::IRBuilder<> ir(context);
    ScalarEmitter scalars(unit, ir);
    const Function& source = *function.source;
    llvm::Type* const word = ir.getInt64Ty();
    llvm::Function* const door = llvm::Function::Create(
        llvm::FunctionType::get(ir.getInt32Ty(), {ir.getPtrTy(), ir.getPtrTy(), word}, false),
        llvm::Function::ExternalLinkage, "enter." + function.code->getName(), unit.module());
    door->setDoesNotThrow();
    if (unit.config().useSoftFloat()) {
        door->addFnAttr("use-soft-float", "true");
    }
    ir.SetInsertPoint(llvm::BasicBlock::Create(context, "frame", door));
    std::vector<Value*> arguments;
    unsigned number = 0;
    const auto at = [&] { return ir.CreateConstInBoundsGEP1_64(word, door->getArg(0), number); };
    for (const Type* const type : source.paramTypes()) {
        if (type->isScalar()) {
            arguments.push_back(scalars.fromWord(*type, ir.CreateLoad(word, at())));
        } else {
            arguments.push_back(ir.CreateLoad(ir.getPtrTy(), at()));
        }
        ++number;
    }
    // The callee leaves an array in raw memory.
    Value* made = nullptr;
    const Type& result = *source.resultType();
    if (result.isArray()) {
        made = ir.CreateAlloca(llvm::ArrayType::get(word, ArrayLayout::bytes / 8));
        arguments.push_back(made);
    }
    arguments.push_back(door->getArg(1));
    arguments.push_back(door->getArg(2));
    llvm::CallInst* const call = ir.CreateCall(function.code, arguments);
    call->setCallingConv(llvm::CallingConv::Fast);
    if (result.isVoid()) {
        ir.CreateRet(call);
        return door;
    }
    Value* const status = result.isArray() ? call : ir.CreateExtractValue(call, 1);
    llvm::BasicBlock* const fine = llvm::BasicBlock::Create(context, "fine", door);
    llvm::BasicBlock* const failed = llvm::BasicBlock::Create(context, "failed", door);
    ir.CreateCondBr(ir.CreateIsNull(status), fine, failed);
    ir.SetInsertPoint(failed);
    ir.CreateRet(status);
    ir.SetInsertPoint(fine);
    if (result.isArray()) {
        Value* const place = ir.CreateLoad(ir.getPtrTy(), at());
        ir.CreateCall(
            unit.host("qn_array_take", ir.getVoidTy(), {ir.getPtrTy(), ir.getPtrTy()}, false),
            {place, made});
    } else {
        Value* const place = at();
        ir.CreateStore(scalars.toWord(result, ir.CreateExtractValue(call, 0)), place);
    }
    ir.CreateRet(ir.getInt32(0));
    return door;
}

} // namespace QN::VMRT
