// Code that prints what it executes.
#include "vmrt/llvm/function_emitter.hpp"

#include <qn/text.hpp>

#include <llvm/IR/ModuleSlotTracker.h>
#include <llvm/Support/raw_ostream.h>

namespace QN::VMRT {

void FunctionEmitter::print(const std::string& line, llvm::Instruction* before) {
    const llvm::IRBuilder<>::InsertPointGuard guard(ir_);
    if (before != nullptr) {
        ir_.SetInsertPoint(before); // with its place in the source
    }
    const bool valgrind =
        unit_.config().instrumentIRDebugPrint() == VMEngineConfig::DebugPrintValgrind;
    llvm::Value* const text = ir_.CreateGlobalString(line, "line", 0, &unit_.module());
    ir_.CreateCall(unit_.host(valgrind ? "qn_print_valgrind" : "qn_print", ir_.getVoidTy(),
                              {ir_.getPtrTy()}, false),
                   {text});
}

void FunctionEmitter::printNode(const Node& node) {
    const VMEngineConfig& config = unit_.config();
    if (config.instrumentIRDebugPrint() == VMEngineConfig::DebugPrintNone ||
        !config.instrumentIRVerbosityQUARN()) {
        return;
    }
    std::string line(function_.source->name());
    line += ":" + std::to_string(node.line()) + ": ";
    printText(node, line);
    print(line, nullptr);
}

void FunctionEmitter::printInstructions() {
    llvm::ModuleSlotTracker names(&unit_.module());
    names.incorporateFunction(*code_);
    std::vector<std::pair<llvm::Instruction*, std::string>> lines;
    for (llvm::BasicBlock& block : *code_) {
        for (llvm::Instruction& instruction : block) {
            const auto* const call = llvm::dyn_cast<llvm::CallInst>(&instruction);
            const bool isPrint = call != nullptr && call->getCalledFunction() != nullptr &&
                                 call->getCalledFunction()->getName().starts_with("qn_print");
            if (isPrint || llvm::isa<llvm::PHINode>(instruction) ||
                llvm::isa<llvm::AllocaInst>(instruction)) {
                continue;
            }
            std::string text = std::string(function_.source->name()) + ": llvm:";
            llvm::raw_string_ostream out(text);
            instruction.print(out, names);
            lines.emplace_back(&instruction, std::move(out.str()));
        }
    }
    for (const auto& [instruction, line] : lines) {
        print(line, instruction);
    }
}

} // namespace QN::VMRT
