// The operations on scalars, as qn/arithmetic.hpp means them, in LLVM's IR.
#pragma once

#include "vmrt/llvm/unit_emitter.hpp"

namespace QN::VMRT {

class ScalarEmitter {
public:
    ScalarEmitter(UnitEmitter& unit, llvm::IRBuilder<>& builder) : unit_(unit), ir_(builder) {}

    /// A pure operation that cannot trap, on one or two operands of `type`; null if there is none
    /// on that type.
    [[nodiscard]] llvm::Value* compute(Op op, Mode mode, const Type& type, llvm::Value* a,
                                       llvm::Value* b);
    [[nodiscard]] llvm::Value* convert(const Type& from, const Type& to, Mode mode,
                                       llvm::Value* value);
    /// An integer or double in 64 bits, and whether that is the same number; null if it surely is.
    [[nodiscard]] std::pair<llvm::Value*, llvm::Value*> toWhole(const Type& from,
                                                                llvm::Value* value);
    /// An index and whether it is one.
    [[nodiscard]] std::pair<llvm::Value*, llvm::Value*> toIndex(const Type& from,
                                                                llvm::Value* value);
    /// Whether a double and an integer are the same number.
    [[nodiscard]] llvm::Value* isSameNumber(llvm::Value* number, const Type& type,
                                            llvm::Value* integer);
    /// Whether converting loses anything; null if it cannot.
    [[nodiscard]] llvm::Value* isLossy(const Type& from, const Type& to, llvm::Value* value,
                                       llvm::Value* converted);

    /// Between a value and the 64 bits in which variables and words hold it.
    [[nodiscard]] llvm::Value* toWord(const Type& type, llvm::Value* value);
    [[nodiscard]] llvm::Value* fromWord(const Type& type, llvm::Value* word);
    [[nodiscard]] llvm::Constant* constant(const Type& type, std::uint64_t bits);

private:
    llvm::Value* computeDouble(Op op, llvm::Value* a, llvm::Value* b);
    llvm::Value* moduloOfDouble(Op op, llvm::Value* a, llvm::Value* b);
    llvm::Value* computeInteger(Op op, Mode mode, const Type& type, llvm::Value* a, llvm::Value* b);
    llvm::Value* compare(Op op, const Type& type, llvm::Value* a, llvm::Value* b);
    llvm::Value* multiply(Mode mode, const Type& type, llvm::Value* a, llvm::Value* b);
    llvm::Value* divide(Mode mode, const Type& type, llvm::Value* a, llvm::Value* b);
    llvm::Value* divideByShift(Rounding rounding, const Type& type, llvm::Value* a, unsigned shift);
    llvm::Value* modulo(Op op, const Type& type, llvm::Value* a, llvm::Value* b);
    llvm::Value* doubleToInteger(const Type& to, Mode mode, llvm::Value* value);
    llvm::Value* integerToInteger(const Type& from, const Type& to, Mode mode, llvm::Value* value);
    llvm::Value* call(const char* name, llvm::Value* a, llvm::Value* b = nullptr);
    llvm::Value* extend(const Type& type, llvm::Value* value, llvm::Type* to);
    llvm::Constant* smallest(const Type& type);
    llvm::Constant* largest(const Type& type);
    llvm::Value* binary(llvm::Intrinsic::ID id, llvm::Value* a, llvm::Value* b) {
        return ir_.CreateBinaryIntrinsic(id, a, b);
    }

    UnitEmitter& unit_;
    llvm::IRBuilder<>& ir_;
};

} // namespace QN::VMRT
