// What LLVM puts around the run of a pass, its timers and its allocator; see llvm.hpp.
#include "llvm.hpp"

#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/PassInstrumentation.h>
#include <llvm/IR/PassManager.h>
#include <llvm/IR/PassTimingInfo.h>
#include <llvm/Support/Allocator.h>
#include <llvm/Support/Timer.h>
#include <llvm/Support/raw_ostream.h>
#include <memory>

namespace bench {
namespace {

struct NothingPass : llvm::PassInfoMixin<NothingPass> {
    llvm::PreservedAnalyses run(llvm::Function& function, llvm::FunctionAnalysisManager&) {
        keep(&function);
        return llvm::PreservedAnalyses::all();
    }
};

/// A function with one instruction, and all that running passes on it takes.
struct Passes {
    explicit Passes(LlvmHooks hooks)
        : function(*llvm::Function::Create(
              llvm::FunctionType::get(llvm::Type::getVoidTy(context), false),
              llvm::GlobalValue::ExternalLinkage, "f", module)) {
        llvm::IRBuilder<>(llvm::BasicBlock::Create(context, "", &function)).CreateRetVoid();
        timing.setOutStream(llvm::nulls());
        if (hooks == LlvmHooks::empty) {
            callbacks.registerBeforeNonSkippedPassCallback([](llvm::StringRef, llvm::Any) {});
            callbacks.registerAfterPassCallback(
                [](llvm::StringRef, llvm::Any, const llvm::PreservedAnalyses&) {});
        } else if (hooks == LlvmHooks::timing) {
            timing.registerCallbacks(callbacks);
        }
        const bool none = hooks == LlvmHooks::none;
        analyses.registerPass([this, none] {
            return llvm::PassInstrumentationAnalysis(none ? nullptr : &callbacks);
        });
        for (std::size_t i = 0; i < passesPerRepetition; ++i) {
            manager.addPass(NothingPass());
        }
    }

    llvm::LLVMContext context;
    llvm::Module module{"m", context};
    llvm::Function& function;
    llvm::TimePassesHandler timing{true};
    llvm::PassInstrumentationCallbacks callbacks;
    llvm::FunctionAnalysisManager analyses;
    llvm::FunctionPassManager manager;
};

} // namespace

Loop llvmPasses(LlvmHooks hooks) {
    const auto passes = std::make_shared<Passes>(hooks);
    if (hooks == LlvmHooks::passAlone) {
        return repeat([passes] {
            for (std::size_t i = 0; i < passesPerRepetition; ++i) {
                NothingPass().run(passes->function, passes->analyses);
            }
        });
    }
    return repeat([passes] { passes->manager.run(passes->function, passes->analyses); });
}

Loop llvmTimer() {
    struct Stopwatch {
        llvm::TimerGroup group{"g", "g"};
        llvm::Timer timer{"t", "t", group};
        ~Stopwatch() { timer.clear(); } // else it prints
    };
    const auto stopwatch = std::make_shared<Stopwatch>();
    return repeat([stopwatch] {
        stopwatch->timer.startTimer();
        stopwatch->timer.stopTimer();
    });
}

Loop llvmAllocations(std::size_t count, std::size_t bytes) {
    return repeat([count, bytes] {
        llvm::BumpPtrAllocator pool;
        for (std::size_t i = 0; i < count; ++i) {
            keep(pool.Allocate(bytes, llvm::Align(8)));
        }
    });
}

} // namespace bench
