// Arrays: their places, elements, copies and references.
#include "vmrt/llvm/function_emitter.hpp"
#include "vmrt/llvm/runtime.hpp"

namespace QN::VMRT {

using llvm::Value;

// Places ------------------------------------------------------------------------------------------

ArrayPlace FunctionEmitter::makePlace(ScalarKind kind, const llvm::Twine& name) {
    ArrayPlace place;
    place.kind = kind;
    place.data = slot(ir_.getPtrTy(), name + ".data");
    place.rows = slot(ir_.getInt64Ty(), name + ".rows");
    place.cols = slot(ir_.getInt64Ty(), name + ".cols");
    place.buffer = slot(ir_.getPtrTy(), name + ".buffer");
    place.writable = slot(ir_.getInt8Ty(), name + ".writable");
    return place;
}

Value* FunctionEmitter::at(Value* base, std::size_t offset) {
    return offset == 0 ? base : ir_.CreateConstInBoundsGEP1_64(ir_.getInt8Ty(), base, offset);
}

Value* FunctionEmitter::sizeField(const ArrayPlace& array, llvm::AllocaInst* own,
                                  std::size_t offset) {
    if (array.memory == nullptr) {
        return ir_.CreateLoad(ir_.getInt64Ty(), own);
    }
    auto* const size = llvm::cast<llvm::LoadInst>(
        load(ir_.getInt64Ty(), at(array.memory, offset), Memory::ArrayHeader));
    size->setMetadata(llvm::LLVMContext::MD_range, unit_.extents());
    return size;
}

Value* FunctionEmitter::rowsOf(const ArrayPlace& array) {
    return sizeField(array, array.rows, ArrayLayout::rows);
}
Value* FunctionEmitter::colsOf(const ArrayPlace& array) {
    return sizeField(array, array.cols, ArrayLayout::cols);
}
Value* FunctionEmitter::dataOf(const ArrayPlace& array) {
    return array.memory == nullptr
               ? ir_.CreateLoad(ir_.getPtrTy(), array.data)
               : load(ir_.getPtrTy(), at(array.memory, ArrayLayout::data), Memory::ArrayHeader);
}
Value* FunctionEmitter::bufferOf(const ArrayPlace& array) {
    return array.memory == nullptr
               ? ir_.CreateLoad(ir_.getPtrTy(), array.buffer)
               : load(ir_.getPtrTy(), at(array.memory, ArrayLayout::buffer), Memory::ArrayHeader);
}
Value* FunctionEmitter::numelOf(const ArrayPlace& array) {
    Value* const rows = rowsOf(array);
    Value* const product = ir_.CreateMul(rows, colsOf(array), "", true, true);
    // It is at most that, which LLVM would not know.
    return ir_.CreateBinaryIntrinsic(llvm::Intrinsic::umin, product,
                                     ir_.getInt64(ArrayValue::maxElements));
}

void FunctionEmitter::setEmpty(const ArrayPlace& array) {
    Value* const null = llvm::ConstantPointerNull::get(ir_.getPtrTy());
    Value* const zero = ir_.getInt64(0);
    if (array.memory != nullptr) {
        store(null, at(array.memory, ArrayLayout::data), Memory::ArrayHeader);
        store(zero, at(array.memory, ArrayLayout::rows), Memory::ArrayHeader);
        store(zero, at(array.memory, ArrayLayout::cols), Memory::ArrayHeader);
        store(null, at(array.memory, ArrayLayout::buffer), Memory::ArrayHeader);
        store(ir_.getInt8(static_cast<std::uint8_t>(array.kind)),
              at(array.memory, ArrayLayout::kind), Memory::ArrayHeader);
        return;
    }
    ir_.CreateStore(null, array.data);
    ir_.CreateStore(zero, array.rows);
    ir_.CreateStore(zero, array.cols);
    ir_.CreateStore(null, array.buffer);
    ir_.CreateStore(ir_.getInt8(0), array.writable);
}

void FunctionEmitter::copyPlace(const ArrayPlace& from, const ArrayPlace& to) {
    ir_.CreateStore(dataOf(from), to.data);
    ir_.CreateStore(rowsOf(from), to.rows);
    ir_.CreateStore(colsOf(from), to.cols);
    ir_.CreateStore(bufferOf(from), to.buffer);
}

void FunctionEmitter::writeHeader(const ArrayPlace& array, Value* to) {
    const auto write = [&](Value* part, std::size_t offset) {
        store(part, at(to, offset), Memory::ArrayHeader);
    };
    write(dataOf(array), ArrayLayout::data);
    write(rowsOf(array), ArrayLayout::rows);
    write(colsOf(array), ArrayLayout::cols);
    write(bufferOf(array), ArrayLayout::buffer);
    write(ir_.getInt8(static_cast<std::uint8_t>(array.kind)), ArrayLayout::kind);
}

void FunctionEmitter::readHeader(Value* from, const ArrayPlace& to, bool writable) {
    ArrayPlace source;
    source.memory = from;
    copyPlace(source, to);
    ir_.CreateStore(ir_.getInt8(writable ? 1 : 0), to.writable);
}

Value* FunctionEmitter::scratch(std::size_t index) {
    while (scratches_.size() <= index) {
        scratches_.push_back(
            slot(llvm::ArrayType::get(ir_.getInt64Ty(), ArrayLayout::bytes / 8), "header"));
    }
    return scratches_[index];
}

Value* FunctionEmitter::inMemory(const ArrayPlace& array) {
    if (array.memory != nullptr) {
        return array.memory;
    }
    Value* const header = scratch(0);
    writeHeader(array, header);
    return header;
}

// References --------------------------------------------------------------------------------------

void FunctionEmitter::retain(const ArrayPlace& array) {
    Value* const buffer = bufferOf(array);
    llvm::BasicBlock* const shared = newBlock("retain");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(ir_.CreateIsNull(buffer), on, shared);
    ir_.SetInsertPoint(shared);
    static_assert(offsetof(ArrayBuffer, references) == 0);
    store(ir_.CreateAdd(load(ir_.getInt64Ty(), buffer, Memory::BufferHeader), ir_.getInt64(1)),
          buffer, Memory::BufferHeader);
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
}

void FunctionEmitter::release(const ArrayPlace& array) {
    Value* const buffer = bufferOf(array);
    llvm::BasicBlock* const held = newBlock("release");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(ir_.CreateIsNull(buffer), on, held);
    ir_.SetInsertPoint(held);
    ir_.CreateCall(unit_.host("qn_buffer_release", ir_.getVoidTy(), {ir_.getPtrTy()}, false),
                   {buffer});
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
}

void FunctionEmitter::assign(const ArrayPlace& to, const ArrayPlace& from, bool moves) {
    if (to.memory != nullptr) {
        Value* const source = inMemory(from);
        ir_.CreateCall(
            unit_.host("qn_array_assign", ir_.getVoidTy(), {ir_.getPtrTy(), ir_.getPtrTy()}, false),
            {to.memory, source});
        if (from.writable != nullptr) {
            ir_.CreateStore(ir_.getInt8(0), from.writable);
        }
        return;
    }
    if (!moves) {
        retain(from);
    }
    release(to);
    copyPlace(from, to);
    if (moves) {
        ir_.CreateStore(ir_.CreateLoad(ir_.getInt8Ty(), from.writable), to.writable);
        setEmpty(from);
    } else {
        ir_.CreateStore(ir_.getInt8(0), to.writable);
        if (from.writable != nullptr) {
            ir_.CreateStore(ir_.getInt8(0), from.writable);
        }
    }
}

// Array values ------------------------------------------------------------------------------------

ArrayPlace& FunctionEmitter::placeOf(const Node& node, std::size_t operand) {
    const Node* const from = asNode(node.operand(operand));
    if (from == nullptr || !from->type()->isArray()) {
        refuse(node, "no array");
    }
    const Var* const alias = arrayUses_.aliasOf(*from);
    return alias != nullptr ? *arrayVars_[alias->id()] : *arrayNodes_[from->id()];
}

ArrayPlace& FunctionEmitter::arrayValue(const Node& user, std::size_t operand, bool& moves) {
    ArrayPlace& place = placeOf(user, operand);
    const Node& from = *asNode(user.operand(operand));
    moves = arrayUses_.aliasOf(from) == nullptr && arrayUses_.lastUse(from) == &user;
    return place;
}

void FunctionEmitter::dropDeadValues(const Node& user) {
    const auto drop = [&](const Node& node) {
        if (node.type()->isArray() && arrayUses_.aliasOf(node) == nullptr &&
            arrayUses_.lastUse(node) == &user) {
            const ArrayPlace& place = *arrayNodes_[node.id()];
            release(place);
            setEmpty(place);
        }
    };
    for (const Operand& operand : user.operands()) {
        if (const Node* const node = asNode(operand.value()); node != nullptr) {
            drop(*node);
        }
    }
    drop(user); // a value that nobody uses
}

void FunctionEmitter::emitArrayLoad(const Node& node) {
    if (arrayUses_.aliasOf(node) != nullptr) {
        return; // the variable is used in its place
    }
    ArrayPlace from;
    if (node.op() == Op::LoadP) {
        from.kind = node.type()->scalarKind();
        from.memory = pointer(node);
    } else {
        from = *arrayVars_[asVar(node.operand(0))->id()];
    }
    assign(*arrayNodes_[node.id()], from, false);
}

void FunctionEmitter::emitArrayStore(const Node& node) {
    bool moves = false;
    ArrayPlace to;
    if (node.op() == Op::StoreP) {
        to.kind = operandType(node, 1).scalarKind();
        to.memory = pointer(node);
    } else {
        to = *arrayVars_[asVar(node.operand(0))->id()];
    }
    const ArrayPlace& from = arrayValue(node, 1, moves);
    assign(to, from, moves && to.memory == nullptr);
}

void FunctionEmitter::emitArraySelect(const Node& node) {
    if (!operandType(node, 0).isLogical() || &operandType(node, 1) != node.type() ||
        &operandType(node, 2) != node.type()) {
        refuse(node, "types differ");
    }
    Value* const condition = value(node, 0);
    const ArrayPlace& result = *arrayNodes_[node.id()];
    llvm::BasicBlock* const yes = newBlock("first");
    llvm::BasicBlock* const no = newBlock("second");
    llvm::BasicBlock* const on = newBlock("");
    ir_.CreateCondBr(condition, yes, no);
    ir_.SetInsertPoint(yes);
    assign(result, placeOf(node, 1), false);
    ir_.CreateBr(on);
    ir_.SetInsertPoint(no);
    assign(result, placeOf(node, 2), false);
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
}

ArrayPlace FunctionEmitter::aggregate(const Node& node) {
    const Type& type = operandType(node, 0);
    ArrayPlace place;
    if (const Var* const var = asVar(node.operand(0)); var != nullptr && type.isArray()) {
        return *arrayVars_[var->id()];
    }
    if (!type.isPointer() || !type.element()->isArray()) {
        refuse(node, "no array");
    }
    place.kind = type.element()->scalarKind();
    place.memory = pointer(node);
    return place;
}

void FunctionEmitter::emitArray(const Node& node) {
    switch (node.op()) {
    case Op::NewArray: {
        const ArrayPlace& result = *arrayNodes_[node.id()];
        Value* const rows = value(node, 0);
        Value* const cols = value(node, 1);
        llvm::Type* const word = ir_.getInt64Ty();
        Value* const made = scratch(0);
        Value* const outcome = ir_.CreateCall(
            unit_.host("qn_array_new", ir_.getInt32Ty(), {ir_.getPtrTy(), word, word, word}, false),
            {made, ir_.getInt64(static_cast<std::uint64_t>(result.kind)), rows, cols});
        endUnlessFine(outcome, node.line());
        release(result);
        readHeader(made, result, true);
        break;
    }
    case Op::Resize: {
        const ArrayPlace array = aggregate(node);
        Value* const rows = value(node, 1);
        Value* const cols = value(node, 2);
        Value* const header = inMemory(array);
        llvm::Type* const word = ir_.getInt64Ty();
        Value* const outcome = ir_.CreateCall(
            unit_.host("qn_array_resize", ir_.getInt32Ty(), {ir_.getPtrTy(), word, word}, false),
            {header, rows, cols});
        endUnlessFine(outcome, node.line());
        if (array.memory == nullptr) {
            Value* const writable = ir_.CreateLoad(ir_.getInt8Ty(), array.writable);
            readHeader(header, array, false);
            ir_.CreateStore(writable, array.writable); // what it was it stays
        }
        break;
    }
    case Op::Rows:
        values_[node.id()] = rowsOf(aggregate(node));
        break;
    case Op::Cols:
        values_[node.id()] = colsOf(aggregate(node));
        break;
    default:
        values_[node.id()] = numelOf(aggregate(node));
    }
}

// Elements ----------------------------------------------------------------------------------------

/// The place of an element from 0 on, after its check.
Value* FunctionEmitter::elementIndex(const Node& node, const ArrayPlace& array) {
    const bool two = node.op() == Op::LdElem2 || node.op() == Op::StElem2;
    const bool checks = !node.mode().inBounds() || unit_.config().insertRuntimeChecks();
    Value* const one = ir_.getInt64(1);
    Value* const first = ir_.CreateSub(value(node, 1), one);
    if (!two) {
        if (checks) {
            trapUnless(ir_.CreateICmpULT(first, numelOf(array)), TrapCode::IndexOutOfBounds,
                       node.line());
        }
        return first;
    }
    Value* const second = ir_.CreateSub(value(node, 2), one);
    Value* const rows = rowsOf(array);
    if (checks) {
        Value* const inColumns = ir_.CreateICmpULT(second, colsOf(array));
        Value* const inside = ir_.CreateAnd(ir_.CreateICmpULT(first, rows), inColumns);
        trapUnless(inside, TrapCode::IndexOutOfBounds, node.line());
    }
    return ir_.CreateAdd(first, ir_.CreateMul(second, rows, "", true, true), "", true, true);
}

void FunctionEmitter::makeWritable(const ArrayPlace& array, std::uint32_t line) {
    llvm::BasicBlock* const shared = newBlock("shared");
    llvm::BasicBlock* const on = newBlock("");
    if (array.memory == nullptr) {
        Value* const known = ir_.CreateLoad(ir_.getInt8Ty(), array.writable);
        ir_.CreateCondBr(ir_.CreateIsNotNull(known), on, shared);
    } else {
        Value* const buffer = bufferOf(array); // there is one where there is an element
        Value* const references = load(ir_.getInt64Ty(), buffer, Memory::BufferHeader);
        Value* const capacity = load(ir_.getInt64Ty(), at(buffer, offsetof(ArrayBuffer, capacity)),
                                     Memory::BufferHeader);
        Value* const hasRoom = ir_.CreateIsNotNull(capacity);
        Value* const isAlone = ir_.CreateICmpEQ(references, ir_.getInt64(1));
        ir_.CreateCondBr(ir_.CreateAnd(isAlone, hasRoom), on, shared);
    }
    ir_.SetInsertPoint(shared);
    Value* const header = inMemory(array);
    Value* const outcome = ir_.CreateCall(
        unit_.host("qn_array_make_writable", ir_.getInt32Ty(), {ir_.getPtrTy()}, false), {header});
    endUnlessFine(outcome, line);
    if (array.memory == nullptr) { // its size is what it was
        ArrayPlace made;
        made.memory = header;
        ir_.CreateStore(dataOf(made), array.data);
        ir_.CreateStore(bufferOf(made), array.buffer);
        ir_.CreateStore(ir_.getInt8(1), array.writable);
    }
    ir_.CreateBr(on);
    ir_.SetInsertPoint(on);
}

void FunctionEmitter::emitElement(const Node& node) {
    const bool stores = node.has(OpFlag::Writes);
    const ArrayPlace array = aggregate(node);
    const Type& element = *Type::scalar(array.kind);
    const std::size_t valueAt = node.op() == Op::StElem2 ? 3 : 2;
    if (stores ? &operandType(node, valueAt) != &element : node.type() != &element) {
        refuse(node, "types differ");
    }
    Value* const index = elementIndex(node, array);
    if (stores && !isWritable_[node.id()]) {
        makeWritable(array, node.line());
    }
    llvm::Type* const type = unit_.elementType(array.kind);
    Value* const place = ir_.CreateInBoundsGEP(type, dataOf(array), index);
    llvm::Instruction* access;
    if (stores) {
        Value* const stored = value(node, valueAt);
        access =
            ir_.CreateStore(element.isLogical() ? ir_.CreateZExt(stored, type) : stored, place);
    } else {
        access = ir_.CreateLoad(type, place);
        values_[node.id()] = access;
        if (element.isLogical()) {
            values_[node.id()] = ir_.CreateIsNotNull(access);
        }
    }
    access->setMetadata(llvm::LLVMContext::MD_tbaa, unit_.elementTag(array.kind));
}

} // namespace QN::VMRT
