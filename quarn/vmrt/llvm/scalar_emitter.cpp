// See scalar_emitter.hpp. Integers saturate with LLVM's own intrinsics where there are any; the
// rest is computed in a wider type or by selection, without branches.
#include "vmrt/llvm/scalar_emitter.hpp"

#include <llvm/IR/Intrinsics.h>

namespace QN::VMRT {

using llvm::Value;
namespace Intrinsic = llvm::Intrinsic;

namespace {

llvm::APInt lowest(const Type& type) {
    const auto bits = static_cast<unsigned>(type.bits());
    return type.isSigned() ? llvm::APInt::getSignedMinValue(bits) : llvm::APInt::getMinValue(bits);
}

llvm::APInt highest(const Type& type) {
    const auto bits = static_cast<unsigned>(type.bits());
    return type.isInteger() && type.isSigned() ? llvm::APInt::getSignedMaxValue(bits)
                                               : llvm::APInt::getMaxValue(bits);
}

} // namespace

llvm::Constant* ScalarEmitter::smallest(const Type& type) {
    return llvm::ConstantInt::get(unit_.context(), lowest(type));
}
llvm::Constant* ScalarEmitter::largest(const Type& type) {
    return llvm::ConstantInt::get(unit_.context(), highest(type));
}

llvm::Constant* ScalarEmitter::constant(const Type& type, std::uint64_t bits) {
    if (type.isDouble()) {
        return llvm::ConstantFP::get(
            unit_.context(), llvm::APFloat(llvm::APFloat::IEEEdouble(), llvm::APInt(64, bits)));
    }
    const auto width = static_cast<unsigned>(type.bits());
    return llvm::ConstantInt::get(unit_.context(), llvm::APInt(64, bits).trunc(width));
}

Value* ScalarEmitter::toWord(const Type& type, Value* value) {
    if (type.isPointer()) {
        return ir_.CreatePtrToInt(value, ir_.getInt64Ty());
    }
    return type.isDouble() ? ir_.CreateBitCast(value, ir_.getInt64Ty())
                           : extend(type, value, ir_.getInt64Ty());
}

Value* ScalarEmitter::fromWord(const Type& type, Value* word) {
    if (type.isPointer()) {
        return ir_.CreateIntToPtr(word, ir_.getPtrTy());
    }
    return type.isDouble() ? ir_.CreateBitCast(word, ir_.getDoubleTy())
                           : ir_.CreateTrunc(word, unit_.typeOf(type));
}

Value* ScalarEmitter::extend(const Type& type, Value* value, llvm::Type* to) {
    return type.isInteger() && type.isSigned() ? ir_.CreateSExt(value, to)
                                               : ir_.CreateZExt(value, to);
}

Value* ScalarEmitter::call(const char* name, Value* a, Value* b) {
    std::vector<Value*> arguments = {a};
    if (b != nullptr) {
        arguments.push_back(b);
    }
    const std::vector<llvm::Type*> types(arguments.size(), ir_.getDoubleTy());
    llvm::CallInst* const made =
        ir_.CreateCall(unit_.host(name, ir_.getDoubleTy(), types, true), arguments);
    made->addFnAttr(llvm::Attribute::NoBuiltin);
    return made;
}

Value* ScalarEmitter::compute(Op op, Mode mode, const Type& type, Value* a, Value* b) {
    if (hasFlag(op, OpFlag::Compares)) {
        return compare(op, type, a, b);
    }
    if (type.isDouble()) {
        return computeDouble(op, a, b);
    }
    if (!type.isLogical()) {
        return computeInteger(op, mode, type, a, b);
    }
    switch (op) {
    case Op::And:
        return ir_.CreateAnd(a, b);
    case Op::Or:
        return ir_.CreateOr(a, b);
    case Op::Xor:
        return ir_.CreateXor(a, b);
    case Op::Not:
        return ir_.CreateNot(a);
    default:
        return nullptr;
    }
}

Value* ScalarEmitter::compare(Op op, const Type& type, Value* a, Value* b) {
    using P = llvm::CmpInst::Predicate;
    struct Row {
        P ofDoubles, ofSigned, ofUnsigned;
    };
    const auto row = [&]() -> Row {
        switch (op) {
        case Op::Eq:
            return {P::FCMP_OEQ, P::ICMP_EQ, P::ICMP_EQ};
        case Op::Ne:
            return {P::FCMP_UNE, P::ICMP_NE, P::ICMP_NE};
        case Op::Lt:
            return {P::FCMP_OLT, P::ICMP_SLT, P::ICMP_ULT};
        case Op::Le:
            return {P::FCMP_OLE, P::ICMP_SLE, P::ICMP_ULE};
        case Op::Gt:
            return {P::FCMP_OGT, P::ICMP_SGT, P::ICMP_UGT};
        default:
            return {P::FCMP_OGE, P::ICMP_SGE, P::ICMP_UGE};
        }
    }();
    if (type.isDouble()) {
        return ir_.CreateFCmp(row.ofDoubles, a, b);
    }
    const bool isSigned = type.isInteger() && type.isSigned();
    return ir_.CreateICmp(isSigned ? row.ofSigned : row.ofUnsigned, a, b);
}

Value* ScalarEmitter::computeDouble(Op op, Value* a, Value* b) {
    const auto unary = [&](Intrinsic::ID id) { return ir_.CreateUnaryIntrinsic(id, a); };
    switch (op) {
    case Op::Add:
        return ir_.CreateFAdd(a, b);
    case Op::Sub:
        return ir_.CreateFSub(a, b);
    case Op::Mul:
        return ir_.CreateFMul(a, b);
    case Op::Div:
        return ir_.CreateFDiv(a, b);
    case Op::Neg:
        return ir_.CreateFNeg(a);
    case Op::Abs:
        return unary(Intrinsic::fabs);
    case Op::Min: {
        Value* const isNan = ir_.CreateFCmpUNO(a, a);
        return ir_.CreateSelect(ir_.CreateOr(ir_.CreateFCmpOLT(b, a), isNan), b, a);
    }
    case Op::Max: {
        Value* const isNan = ir_.CreateFCmpUNO(a, a);
        return ir_.CreateSelect(ir_.CreateOr(ir_.CreateFCmpOGT(b, a), isNan), b, a);
    }
    case Op::Mod:
    case Op::Rem:
        return moduloOfDouble(op, a, b);
    case Op::Pow:
        return call("pow", a, b);
    case Op::Atan2:
        return call("atan2", a, b);
    case Op::Sqrt:
        return unary(Intrinsic::sqrt);
    case Op::Exp:
        return call("exp", a);
    case Op::Log:
        return call("log", a);
    case Op::Sin:
        return call("sin", a);
    case Op::Cos:
        return call("cos", a);
    case Op::Tan:
        return call("tan", a);
    case Op::Floor:
        return unary(Intrinsic::floor);
    case Op::Ceil:
        return unary(Intrinsic::ceil);
    case Op::Round:
        return unary(Intrinsic::round);
    case Op::Trunc:
        return unary(Intrinsic::trunc);
    default:
        return nullptr;
    }
}

/// A remainder by a small whole constant is one of integers where the other number is whole.
Value* ScalarEmitter::moduloOfDouble(Op op, Value* a, Value* b) {
    const char* const name = op == Op::Mod ? "qn_mod" : "qn_rem";
    const auto* const known = llvm::dyn_cast<llvm::ConstantFP>(b);
    if (known == nullptr || !known->getValueAPF().isInteger() ||
        !(known->getValueAPF().convertToDouble() >= 1 &&
          known->getValueAPF().convertToDouble() <= 0x1p31) ||
        unit_.config().jitOptimizationLevel() == VMEngineConfig::OptNone) {
        return call(name, a, b);
    }
    llvm::Function* const function = ir_.GetInsertBlock()->getParent();
    const auto block = [&](const char* text) {
        return llvm::BasicBlock::Create(unit_.context(), text, function);
    };
    llvm::BasicBlock* const whole = block("whole");
    llvm::BasicBlock* const other = block("other");
    llvm::BasicBlock* const on = block("");
    const auto [number, isSame] = toWhole(*Type::f64(), a);
    Value* const isExact = ir_.CreateFCmpOLE(ir_.CreateUnaryIntrinsic(Intrinsic::fabs, a),
                                             llvm::ConstantFP::get(ir_.getDoubleTy(), 0x1p53));
    ir_.CreateCondBr(ir_.CreateAnd(isExact, isSame), whole, other, unit_.likely());

    ir_.SetInsertPoint(whole);
    Value* const divisor =
        ir_.getInt64(static_cast<std::uint64_t>(known->getValueAPF().convertToDouble()));
    Value* const rest = ir_.CreateSRem(number, divisor);
    // A rest of zero has the sign of the number, which may be a negative zero itself.
    Value* found = binary(Intrinsic::copysign, ir_.CreateSIToFP(rest, ir_.getDoubleTy()), a);
    if (op == Op::Mod) {
        Value* const shifted = ir_.CreateSIToFP(ir_.CreateAdd(rest, divisor), ir_.getDoubleTy());
        found = ir_.CreateSelect(ir_.CreateICmpSLT(rest, ir_.getInt64(0)), shifted, found);
    }
    ir_.CreateBr(on);

    ir_.SetInsertPoint(other);
    Value* const asked = call(name, a, b);
    ir_.CreateBr(on);

    ir_.SetInsertPoint(on);
    llvm::PHINode* const result = ir_.CreatePHI(ir_.getDoubleTy(), 2);
    result->addIncoming(found, whole);
    result->addIncoming(asked, other);
    return result;
}

Value* ScalarEmitter::computeInteger(Op op, Mode mode, const Type& type, Value* a, Value* b) {
    const bool isSigned = type.isSigned();
    const bool wraps = mode.overflow() == Overflow::Wrap;
    Value* const zero = llvm::ConstantInt::get(a->getType(), 0);
    switch (op) {
    case Op::Add:
        return wraps ? ir_.CreateAdd(a, b)
                     : binary(isSigned ? Intrinsic::sadd_sat : Intrinsic::uadd_sat, a, b);
    case Op::Sub:
        return wraps ? ir_.CreateSub(a, b)
                     : binary(isSigned ? Intrinsic::ssub_sat : Intrinsic::usub_sat, a, b);
    case Op::Mul:
        return multiply(mode, type, a, b);
    case Op::Div:
        return divide(mode, type, a, b);
    case Op::Neg:
        return wraps ? ir_.CreateSub(zero, a)
                     : binary(isSigned ? Intrinsic::ssub_sat : Intrinsic::usub_sat, zero, a);
    case Op::Abs:
        if (!isSigned) {
            return a;
        }
        return wraps ? binary(Intrinsic::abs, a, ir_.getFalse())
                     : binary(Intrinsic::smax, a, binary(Intrinsic::ssub_sat, zero, a));
    case Op::Min:
        return binary(isSigned ? Intrinsic::smin : Intrinsic::umin, a, b);
    case Op::Max:
        return binary(isSigned ? Intrinsic::smax : Intrinsic::umax, a, b);
    case Op::Mod:
    case Op::Rem:
        return modulo(op, type, a, b);
    default:
        return nullptr;
    }
}

Value* ScalarEmitter::multiply(Mode mode, const Type& type, Value* a, Value* b) {
    if (mode.overflow() == Overflow::Wrap) {
        return ir_.CreateMul(a, b);
    }
    if (type.bits() < 64) {
        llvm::Type* const wide = ir_.getInt64Ty();
        Value* const factor = extend(type, b, wide);
        Value* const product = ir_.CreateMul(extend(type, a, wide), factor);
        const Type& wideType =
            *Type::scalar(type.isSigned() ? ScalarKind::Int64 : ScalarKind::Uint64);
        return integerToInteger(wideType, type, mode, product);
    }
    Value* const both = binary(
        type.isSigned() ? Intrinsic::smul_with_overflow : Intrinsic::umul_with_overflow, a, b);
    Value* limit = largest(type);
    if (type.isSigned()) {
        Value* const negative = ir_.CreateICmpSLT(ir_.CreateXor(a, b), ir_.getInt64(0));
        limit = ir_.CreateSelect(negative, smallest(type), limit);
    }
    Value* const product = ir_.CreateExtractValue(both, 0);
    return ir_.CreateSelect(ir_.CreateExtractValue(both, 1), limit, product);
}

/// Division by 2^`shift`; null where shifting is not what the rounding asks for.
Value* ScalarEmitter::divideByShift(Rounding rounding, const Type& type, Value* a, unsigned shift) {
    const auto shifted = [&](Value* value) {
        return type.isSigned() ? ir_.CreateAShr(value, shift) : ir_.CreateLShr(value, shift);
    };
    if (shift == 0) {
        return a;
    }
    if (rounding == Rounding::Down) {
        return shifted(a);
    }
    if (rounding != Rounding::NearestAway || type.bits() == 64) {
        return nullptr;
    }
    // Half the divisor more, and one less for what is negative, so that halves go away from zero.
    llvm::Type* const wide = ir_.getInt64Ty();
    Value* sum =
        ir_.CreateAdd(extend(type, a, wide), ir_.getInt64(std::uint64_t{1} << (shift - 1)));
    if (type.isSigned()) {
        Value* const negative = ir_.CreateICmpSLT(a, llvm::ConstantInt::get(a->getType(), 0));
        sum = ir_.CreateSub(sum, ir_.CreateZExt(negative, wide));
    }
    return ir_.CreateTrunc(shifted(sum), a->getType());
}

Value* ScalarEmitter::divide(Mode mode, const Type& type, Value* a, Value* b) {
    const bool isSigned = type.isSigned();
    if (const auto* const known = llvm::dyn_cast<llvm::ConstantInt>(b);
        known != nullptr && known->getValue().isPowerOf2() &&
        !(isSigned && known->getValue().isNegative())) {
        if (Value* const made =
                divideByShift(mode.rounding(), type, a, known->getValue().logBase2())) {
            return made;
        }
    }
    const bool narrow = type.bits() < 64;
    llvm::Type* const wide = ir_.getInt64Ty();
    Value* const numerator = narrow ? extend(type, a, wide) : a;
    Value* const divisor = narrow ? extend(type, b, wide) : b;
    Value* const zero = ir_.getInt64(0);
    Value* const one = ir_.getInt64(1);
    Value* const byZero = ir_.CreateICmpEQ(divisor, zero);
    // The one quotient that does not fit; only 64 bits wide, since narrower ones are widened.
    Value* overflows = nullptr;
    Value* safe = byZero;
    if (isSigned && !narrow) {
        Value* const negates = ir_.CreateICmpEQ(b, llvm::ConstantInt::getSigned(wide, -1));
        overflows = ir_.CreateAnd(ir_.CreateICmpEQ(a, smallest(type)), negates);
        safe = ir_.CreateOr(byZero, overflows);
    }
    safe = ir_.CreateSelect(safe, one, divisor);
    Value* const quotient =
        isSigned ? ir_.CreateSDiv(numerator, safe) : ir_.CreateUDiv(numerator, safe);
    Value* const remainder = ir_.CreateSub(numerator, ir_.CreateMul(quotient, safe));
    Value* const inexact = ir_.CreateICmpNE(remainder, zero);
    Value* const negative =
        isSigned ? ir_.CreateICmpSLT(ir_.CreateXor(numerator, safe), zero) : ir_.getFalse();
    Value* goesAway = ir_.getFalse();
    switch (mode.rounding()) {
    case Rounding::TowardZero:
        break;
    case Rounding::Down:
        goesAway = ir_.CreateAnd(inexact, negative);
        break;
    case Rounding::Up:
        goesAway = ir_.CreateAnd(inexact, ir_.CreateNot(negative));
        break;
    default: {
        const auto size = [&](Value* value) {
            return isSigned ? binary(Intrinsic::abs, value, ir_.getFalse()) : value;
        };
        Value* const rest = size(remainder);
        Value* const toNext = ir_.CreateSub(size(safe), rest);
        Value* const beyondHalf = ir_.CreateICmpUGT(rest, toNext);
        Value* tie = ir_.CreateICmpEQ(rest, toNext);
        if (mode.rounding() == Rounding::NearestEven) {
            tie = ir_.CreateAnd(tie, ir_.CreateTrunc(quotient, ir_.getInt1Ty()));
        }
        goesAway = ir_.CreateAnd(inexact, ir_.CreateOr(beyondHalf, tie));
    }
    }
    Value* const step = ir_.CreateSelect(negative, llvm::ConstantInt::getSigned(wide, -1), one);
    Value* rounded = ir_.CreateAdd(quotient, ir_.CreateSelect(goesAway, step, zero));
    if (overflows != nullptr && mode.overflow() == Overflow::Saturate) {
        rounded = ir_.CreateSelect(overflows, largest(type), rounded);
    }
    if (narrow) {
        rounded = integerToInteger(*Type::scalar(isSigned ? ScalarKind::Int64 : ScalarKind::Uint64),
                                   type, mode, rounded);
    }
    Value* const none = llvm::ConstantInt::get(a->getType(), 0);
    Value* limit = largest(type);
    if (isSigned) {
        limit = ir_.CreateSelect(ir_.CreateICmpSLT(a, none), smallest(type), limit);
    }
    limit = ir_.CreateSelect(ir_.CreateICmpEQ(a, none), none, limit);
    return ir_.CreateSelect(byZero, limit, rounded);
}

Value* ScalarEmitter::modulo(Op op, const Type& type, Value* a, Value* b) {
    llvm::Type* const own = a->getType();
    Value* const zero = llvm::ConstantInt::get(own, 0);
    Value* const one = llvm::ConstantInt::get(own, 1);
    Value* const byZero = ir_.CreateICmpEQ(b, zero);
    if (!type.isSigned()) {
        Value* const remainder = ir_.CreateURem(a, ir_.CreateSelect(byZero, one, b));
        return ir_.CreateSelect(byZero, a, remainder);
    }
    // By -1 the remainder is 0, as by 1, and the processor would trap for the smallest value.
    Value* const byMinusOne = ir_.CreateICmpEQ(b, llvm::ConstantInt::getSigned(own, -1));
    Value* const safe = ir_.CreateSelect(ir_.CreateOr(byZero, byMinusOne), one, b);
    Value* remainder = ir_.CreateSRem(a, safe);
    if (op == Op::Mod) {
        Value* const otherSign = ir_.CreateICmpSLT(ir_.CreateXor(remainder, b), zero);
        Value* const shifts = ir_.CreateAnd(otherSign, ir_.CreateICmpNE(remainder, zero));
        remainder = ir_.CreateSelect(shifts, ir_.CreateAdd(remainder, b), remainder);
    }
    return ir_.CreateSelect(byZero, a, remainder);
}

Value* ScalarEmitter::doubleToInteger(const Type& to, Mode mode, Value* value) {
    const auto rounded = [&]() -> Value* {
        switch (mode.rounding()) {
        case Rounding::NearestAway:
            return ir_.CreateUnaryIntrinsic(Intrinsic::round, value);
        case Rounding::NearestEven:
            return ir_.CreateUnaryIntrinsic(Intrinsic::nearbyint, value);
        case Rounding::Down:
            return ir_.CreateUnaryIntrinsic(Intrinsic::floor, value);
        case Rounding::Up:
            return ir_.CreateUnaryIntrinsic(Intrinsic::ceil, value);
        default: // what the conversion itself does; whole for the function that wraps
            return mode.overflow() == Overflow::Wrap
                       ? ir_.CreateUnaryIntrinsic(Intrinsic::trunc, value)
                       : value;
        }
    }();
    if (mode.overflow() == Overflow::Wrap) {
        Value* const bits = ir_.CreateCall(
            unit_.host("qn_low_bits", ir_.getInt64Ty(), {ir_.getDoubleTy()}, true), rounded);
        return ir_.CreateTrunc(bits, unit_.typeOf(to));
    }
    const Intrinsic::ID id = to.isSigned() ? Intrinsic::fptosi_sat : Intrinsic::fptoui_sat;
    return ir_.CreateIntrinsic(id, {unit_.typeOf(to), ir_.getDoubleTy()}, {rounded});
}

Value* ScalarEmitter::integerToInteger(const Type& from, const Type& to, Mode mode, Value* value) {
    const auto fromBits = static_cast<unsigned>(from.bits());
    if (mode.overflow() == Overflow::Saturate) {
        const bool fromSigned = from.isInteger() && from.isSigned();
        // Both ranges as 66-bit numbers.
        const auto wide = [](const llvm::APInt& number, bool isSigned) {
            return isSigned ? number.sext(66) : number.zext(66);
        };
        const bool toSigned = to.isSigned();
        const llvm::APInt low = wide(lowest(to), toSigned);
        const llvm::APInt high = wide(highest(to), toSigned);
        if (fromSigned && low.sgt(wide(llvm::APInt::getSignedMinValue(fromBits), true))) {
            value = binary(Intrinsic::smax, value,
                           llvm::ConstantInt::get(unit_.context(), low.trunc(fromBits)));
        }
        if (high.slt(wide(highest(from), fromSigned))) {
            value = binary(fromSigned ? Intrinsic::smin : Intrinsic::umin, value,
                           llvm::ConstantInt::get(unit_.context(), high.trunc(fromBits)));
        }
    }
    llvm::Type* const target = unit_.typeOf(to);
    return to.bits() <= from.bits() ? ir_.CreateTrunc(value, target) : extend(from, value, target);
}

Value* ScalarEmitter::convert(const Type& from, const Type& to, Mode mode, Value* value) {
    if (to.isLogical()) {
        return from.isDouble()
                   ? ir_.CreateFCmpUNE(value, llvm::ConstantFP::get(value->getType(), 0.0))
                   : ir_.CreateICmpNE(value, llvm::ConstantInt::get(value->getType(), 0));
    }
    if (to.isDouble()) {
        if (from.isDouble()) {
            return value;
        }
        return from.isInteger() && from.isSigned() ? ir_.CreateSIToFP(value, ir_.getDoubleTy())
                                                   : ir_.CreateUIToFP(value, ir_.getDoubleTy());
    }
    return from.isDouble() ? doubleToInteger(to, mode, value)
                           : integerToInteger(from, to, mode, value);
}

std::pair<Value*, Value*> ScalarEmitter::toWhole(const Type& from, Value* value) {
    if (!from.isDouble()) {
        return {extend(from, value, ir_.getInt64Ty()), nullptr};
    }
    // Out of range the conversion gives anything, and then the comparison or that of who asks does
    // not hold.
    Value* const whole = ir_.CreateFreeze(ir_.CreateFPToSI(value, ir_.getInt64Ty()));
    return {whole, ir_.CreateFCmpOEQ(ir_.CreateSIToFP(whole, ir_.getDoubleTy()), value)};
}

std::pair<Value*, Value*> ScalarEmitter::toIndex(const Type& from, Value* value) {
    const auto [index, isSame] = toWhole(from, value);
    Value* const inRange = ir_.CreateICmpULT(ir_.CreateSub(index, ir_.getInt64(1)),
                                             ir_.getInt64(std::uint64_t{1} << 53));
    return {index, isSame == nullptr ? inRange : ir_.CreateAnd(inRange, isSame)};
}

Value* ScalarEmitter::isSameNumber(Value* number, const Type& type, Value* integer) {
    Value* const back = convert(type, *Type::f64(), Mode(), integer);
    Value* same = ir_.CreateFCmpOEQ(back, number);
    if (type.bits() == 64) {
        // The conversion to double may have rounded: compare as integers, too, inside the range.
        const bool isSigned = type.isSigned();
        Value* const inRange = ir_.CreateFCmpOLT(
            number, llvm::ConstantFP::get(ir_.getDoubleTy(), isSigned ? 0x1p63 : 0x1p64));
        Value* const whole =
            ir_.CreateFreeze(isSigned ? ir_.CreateFPToSI(number, ir_.getInt64Ty())
                                      : ir_.CreateFPToUI(number, ir_.getInt64Ty()));
        same = ir_.CreateAnd(same, ir_.CreateAnd(inRange, ir_.CreateICmpEQ(whole, integer)));
    }
    return same;
}

Value* ScalarEmitter::isLossy(const Type& from, const Type& to, Value* value, Value* converted) {
    if (!to.isInteger()) {
        return nullptr;
    }
    if (from.isDouble()) {
        return ir_.CreateNot(isSameNumber(value, to, converted));
    }
    llvm::Type* const wide = ir_.getIntNTy(66);
    Value* const outcome = extend(to, converted, wide);
    return ir_.CreateICmpNE(extend(from, value, wide), outcome);
}

} // namespace QN::VMRT
