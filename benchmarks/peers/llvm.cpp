// LLVM IR of the shape of ours, printed, verified and counted by LLVM; see llvm.hpp.
#include "llvm.hpp"

#include <qn/ir.hpp>

#include <array>
#include <llvm/Analysis/BlockFrequencyInfo.h>
#include <llvm/Analysis/BranchProbabilityInfo.h>
#include <llvm/Analysis/CFGPrinter.h>
#include <llvm/Analysis/HeatUtils.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/Dominators.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/Verifier.h>
#include <llvm/Support/GraphWriter.h>
#include <llvm/Support/raw_ostream.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

struct LlvmModule::State {
    llvm::LLVMContext context;
    llvm::Module module{"shape", context};
};

namespace {

/// Builds one function.
class Shape {
public:
    Shape(llvm::Module& module, llvm::Function& function, const QN::Cfg& cfg, bool named)
        : module_(module), context_(module.getContext()), function_(function), cfg_(cfg),
          named_(named), values_(cfg.nodeIdLimit()), blocks_(cfg.blockIdLimit()),
          vars_(cfg.varIdLimit()) {}

    static llvm::Type* typeOf(llvm::LLVMContext& context, const QN::Type& type) {
        if (type.isVoid()) {
            return llvm::Type::getVoidTy(context);
        }
        if (!type.isScalar()) {
            return llvm::PointerType::getUnqual(context);
        }
        return type.isDouble() ? llvm::Type::getDoubleTy(context)
                               : llvm::Type::getIntNTy(context, static_cast<unsigned>(type.bits()));
    }

    void build() {
        // LLVM wants an entry that nothing leads to: that is where variables are.
        llvm::BasicBlock* const entry = addBlock("entry");
        std::size_t param = 0;
        for (const QN::Var& var : cfg_.vars()) {
            llvm::Type* const type = llvmType(*var.type());
            auto* const place = new llvm::AllocaInst(type, 0, nullptr, name("v", var.id()), entry);
            vars_[var.id()] = place;
            if (var.varKind() == QN::VarKind::Param) {
                new llvm::StoreInst(function_.getArg(static_cast<unsigned>(param++)), place, entry);
            }
        }
        for (const QN::Block& block : cfg_.blocks()) {
            blocks_[block.id()] = addBlock("b" + std::to_string(block.id()));
        }
        llvm::BranchInst::Create(blocks_[cfg_.entry()->id()], entry);
        for (const QN::Block& block : cfg_.blocks()) {
            at_ = blocks_[block.id()];
            for (const QN::Node& node : block.nodes()) {
                llvm::Instruction* const made = instructionFor(node);
                if (named_ && !made->getType()->isVoidTy()) {
                    made->setName(name("n", node.id()));
                }
                values_[node.id()] = made;
            }
        }
    }

private:
    llvm::Type* llvmType(const QN::Type& type) { return typeOf(context_, type); }
    std::string name(const char* letter, std::uint32_t id) const {
        return named_ ? letter + std::to_string(id) : std::string();
    }
    llvm::BasicBlock* addBlock(const std::string& blockName) {
        return llvm::BasicBlock::Create(context_, named_ ? blockName : std::string(), &function_);
    }

    llvm::Value* operand(const QN::Node& node, std::size_t index) {
        QN::Entity* const value = node.operand(index);
        switch (value->kind()) {
        case QN::EntityKind::Node:
            return values_[static_cast<const QN::Node*>(value)->id()];
        case QN::EntityKind::Var:
            return vars_[static_cast<const QN::Var*>(value)->id()];
        case QN::EntityKind::Block:
            return blocks_[static_cast<const QN::Block*>(value)->id()];
        case QN::EntityKind::Const: {
            const auto& constant = *static_cast<const QN::Const*>(value);
            llvm::Type* const type = llvmType(*constant.type());
            return type->isDoubleTy()
                       ? llvm::ConstantFP::get(type, constant.asDouble())
                       : llvm::ConstantInt::get(
                             type, llvm::APInt(type->getIntegerBitWidth(), constant.bits()));
        }
        default:
            throw std::logic_error("an operand without a counterpart");
        }
    }

    /// A call of `callee`, which is declared if need be, with all operands from `first` on.
    llvm::Instruction* call(const std::string& callee, const QN::Node& node, std::size_t first) {
        std::vector<llvm::Value*> arguments;
        std::vector<llvm::Type*> types;
        std::string full = callee;
        for (std::size_t i = first; i < node.numOperands(); ++i) {
            arguments.push_back(operand(node, i));
            types.push_back(arguments.back()->getType());
            if (first == 0) {
                full += '.';
                full += QN::typeOf(node.operand(i))->name();
            }
        }
        auto* const type = llvm::FunctionType::get(llvmType(*node.type()), types, false);
        return llvm::CallInst::Create(module_.getOrInsertFunction(full, type), arguments, "", at_);
    }

    llvm::Instruction* binary(llvm::Instruction::BinaryOps forDouble,
                              llvm::Instruction::BinaryOps forInteger, const QN::Node& node) {
        llvm::Value* const x = operand(node, 0);
        return llvm::BinaryOperator::Create(x->getType()->isDoubleTy() ? forDouble : forInteger, x,
                                            operand(node, 1), "", at_);
    }

    llvm::Instruction* compare(llvm::CmpInst::Predicate forDouble,
                               llvm::CmpInst::Predicate forInteger, const QN::Node& node) {
        llvm::Value* const x = operand(node, 0);
        const bool isDouble = x->getType()->isDoubleTy();
        return llvm::CmpInst::Create(isDouble ? llvm::Instruction::FCmp : llvm::Instruction::ICmp,
                                     isDouble ? forDouble : forInteger, x, operand(node, 1), "",
                                     at_);
    }

    llvm::Instruction* instructionFor(const QN::Node& node) {
        using llvm::CmpInst;
        using llvm::Instruction;
        using QN::Op;
        const auto at = [&](std::size_t index) { return operand(node, index); };
        const auto block = [&](std::size_t index) {
            return llvm::cast<llvm::BasicBlock>(operand(node, index));
        };
        switch (node.op()) {
        case Op::Load:
        case Op::LoadP:
            return new llvm::LoadInst(llvmType(*node.type()), at(0), "", at_);
        case Op::Store:
        case Op::StoreP:
            return new llvm::StoreInst(at(1), at(0), at_);
        case Op::AddrOf:
            return llvm::GetElementPtrInst::Create(
                llvm::Type::getInt8Ty(context_), at(0),
                {llvm::ConstantInt::get(llvm::Type::getInt64Ty(context_), 0)}, "", at_);
        case Op::Add:
            return binary(Instruction::FAdd, Instruction::Add, node);
        case Op::Sub:
            return binary(Instruction::FSub, Instruction::Sub, node);
        case Op::Mul:
            return binary(Instruction::FMul, Instruction::Mul, node);
        case Op::Div:
            return binary(Instruction::FDiv, Instruction::SDiv, node);
        case Op::Rem:
            return binary(Instruction::FRem, Instruction::SRem, node);
        case Op::And:
            return binary(Instruction::FAdd, Instruction::And, node);
        case Op::Or:
            return binary(Instruction::FAdd, Instruction::Or, node);
        case Op::Xor:
            return binary(Instruction::FAdd, Instruction::Xor, node);
        case Op::Eq:
            return compare(CmpInst::FCMP_OEQ, CmpInst::ICMP_EQ, node);
        case Op::Ne:
            return compare(CmpInst::FCMP_UNE, CmpInst::ICMP_NE, node);
        case Op::Lt:
            return compare(CmpInst::FCMP_OLT, CmpInst::ICMP_SLT, node);
        case Op::Le:
            return compare(CmpInst::FCMP_OLE, CmpInst::ICMP_SLE, node);
        case Op::Gt:
            return compare(CmpInst::FCMP_OGT, CmpInst::ICMP_SGT, node);
        case Op::Ge:
            return compare(CmpInst::FCMP_OGE, CmpInst::ICMP_SGE, node);
        case Op::Select:
            return llvm::SelectInst::Create(at(0), at(1), at(2), "", at_);
        case Op::Convert: {
            llvm::Value* const from = at(0);
            llvm::Type* const to = llvmType(*node.type());
            return llvm::CastInst::Create(
                llvm::CastInst::getCastOpcode(from, true, to, node.type()->isSigned()), from, to,
                "", at_);
        }
        case Op::Call:
            return call(std::string(static_cast<const QN::Callee*>(node.operand(0))->name()), node,
                        1);
        case Op::Jump:
            return llvm::BranchInst::Create(block(0), at_);
        case Op::Br:
            return llvm::BranchInst::Create(block(1), block(2), at(0), at_);
        case Op::Ret:
            return llvm::ReturnInst::Create(context_, node.numOperands() == 0 ? nullptr : at(0),
                                            at_);
        case Op::Trap:
            return new llvm::UnreachableInst(context_, at_);
        default:
            return call("op." + std::string(infoOf(node.op()).text), node, 0);
        }
    }

    llvm::Module& module_;
    llvm::LLVMContext& context_;
    llvm::Function& function_;
    const QN::Cfg& cfg_;
    bool named_;
    std::vector<llvm::Value*> values_;      // by node id
    std::vector<llvm::BasicBlock*> blocks_; // by block id
    std::vector<llvm::AllocaInst*> vars_;   // by variable id
    llvm::BasicBlock* at_ = nullptr;
};

} // namespace

LlvmModule::LlvmModule(const QN::Scope& scope, bool named) : state_(std::make_unique<State>()) {
    llvm::Module& module = state_->module;
    std::vector<llvm::Function*> functions;
    for (const auto& function : scope.functions()) {
        std::vector<llvm::Type*> params;
        for (const QN::Type* const type : function->paramTypes()) {
            params.push_back(Shape::typeOf(state_->context, *type));
        }
        auto* const type = llvm::FunctionType::get(
            Shape::typeOf(state_->context, *function->resultType()), params, false);
        functions.push_back(llvm::Function::Create(type, llvm::GlobalValue::ExternalLinkage,
                                                   std::string(function->name()), module));
    }
    for (std::size_t i = 0; i < functions.size(); ++i) {
        Shape(module, *functions[i], scope.functions()[i]->cfg(), named).build();
    }
    verify();
}

LlvmModule::~LlvmModule() = default;

std::size_t LlvmModule::instructions() const {
    return state_->module.getInstructionCount();
}

std::size_t LlvmModule::blocks() const {
    std::size_t blocks = 0;
    for (const llvm::Function& function : state_->module) {
        blocks += function.size();
    }
    return blocks;
}

std::size_t LlvmModule::printedBytes() const {
    llvm::SmallString<0> text;
    llvm::raw_svector_ostream stream(text);
    state_->module.print(stream, nullptr);
    return text.size();
}

void LlvmModule::print() const {
    llvm::SmallString<0> text;
    llvm::raw_svector_ostream stream(text);
    state_->module.print(stream, nullptr);
    keep(text.data());
}

void LlvmModule::printOneInstruction() const {
    llvm::SmallString<256> text;
    llvm::raw_svector_ostream stream(text);
    for (const llvm::Function& function : llvm::reverse(state_->module)) {
        if (!function.isDeclaration()) {
            function.back().back().print(stream);
            break;
        }
    }
    keep(text.data());
}

void LlvmModule::printGraphs() const {
    // The writer asks for the probability of each edge; this one knows none and says "as likely as
    // the others" at once, and the weights stay unwritten.
    const llvm::BranchProbabilityInfo probabilities;
    for (llvm::Function& function : state_->module) {
        if (!function.isDeclaration()) {
            llvm::SmallString<0> text;
            llvm::raw_svector_ostream stream(text);
            llvm::DOTFuncInfo info(&function, nullptr, &probabilities, 0);
            info.setEdgeWeights(false);
            llvm::WriteGraph(stream, &info, false);
            keep(text.data());
        }
    }
}

void LlvmModule::verify() const {
    std::string text;
    llvm::raw_string_ostream stream(text);
    if (llvm::verifyModule(state_->module, &stream)) {
        throw std::runtime_error("the LLVM module is not valid: " + text.substr(0, 2000));
    }
}

void LlvmModule::findDominators() const {
    for (llvm::Function& function : state_->module) {
        if (!function.isDeclaration()) {
            const llvm::DominatorTree tree(function);
            keep(tree.getRoot());
        }
    }
}

void LlvmModule::count() const {
    std::array<std::size_t, 128> kinds = {};
    for (const llvm::Function& function : state_->module) {
        for (const llvm::BasicBlock& block : function) {
            for (const llvm::Instruction& instruction : block) {
                ++kinds[instruction.getOpcode()];
            }
        }
    }
    keep(kinds);
}

} // namespace bench
