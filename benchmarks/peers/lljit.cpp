// See lljit.hpp. The module is cloned for each compilation, since compiling uses it up; cloning
// takes about a hundredth of the time.
#include "lljit.hpp"

#include "measure.hpp"

#include <llvm/ExecutionEngine/Orc/LLJIT.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Support/TargetSelect.h>
#include <llvm/Transforms/Utils/Cloning.h>
#include <stdexcept>

namespace bench {

struct PlainLljit::State {
    int level = 0;
    std::string name;
    llvm::orc::ThreadSafeContext context{std::make_unique<llvm::LLVMContext>()};
    std::unique_ptr<llvm::Module> module;
    std::unique_ptr<llvm::orc::LLJIT> jit;

    State(const std::string& ir, std::string function, int itsLevel)
        : level(itsLevel), name(std::move(function)) {
        llvm::SMDiagnostic problem;
        module = llvm::parseIR(llvm::MemoryBufferRef(ir, "ir"), problem, *context.getContext());
        if (module == nullptr) {
            throw std::runtime_error(problem.getMessage().str());
        }
    }

    template <typename T>
    T checked(llvm::Expected<T> value) {
        if (!value) {
            throw std::runtime_error(llvm::toString(value.takeError()));
        }
        return std::move(*value);
    }
    void checked(llvm::Error problem) {
        if (problem) {
            throw std::runtime_error(llvm::toString(std::move(problem)));
        }
    }

    std::unique_ptr<llvm::orc::LLJIT> make() {
        auto builder = checked(llvm::orc::JITTargetMachineBuilder::detectHost());
        builder.setCodeGenOptLevel(level == 0 ? llvm::CodeGenOptLevel::None
                                              : llvm::CodeGenOptLevel::Default);
        auto made = checked(
            llvm::orc::LLJITBuilder().setJITTargetMachineBuilder(std::move(builder)).create());
        made->getMainJITDylib().addGenerator(
            checked(llvm::orc::DynamicLibrarySearchGenerator::GetForCurrentProcess(
                made->getDataLayout().getGlobalPrefix())));
        if (level != 0) {
            made->getIRTransformLayer().setTransform(
                [](llvm::orc::ThreadSafeModule unit, llvm::orc::MaterializationResponsibility&)
                    -> llvm::Expected<llvm::orc::ThreadSafeModule> {
                    unit.withModuleDo([](llvm::Module& each) {
                        llvm::LoopAnalysisManager ofLoops;
                        llvm::FunctionAnalysisManager ofFunctions;
                        llvm::CGSCCAnalysisManager ofCallGraphs;
                        llvm::ModuleAnalysisManager ofModules;
                        llvm::PassBuilder passes;
                        passes.registerModuleAnalyses(ofModules);
                        passes.registerCGSCCAnalyses(ofCallGraphs);
                        passes.registerFunctionAnalyses(ofFunctions);
                        passes.registerLoopAnalyses(ofLoops);
                        passes.crossRegisterProxies(ofLoops, ofFunctions, ofCallGraphs, ofModules);
                        passes.buildPerModuleDefaultPipeline(llvm::OptimizationLevel::O2)
                            .run(each, ofModules);
                    });
                    return unit;
                });
        }
        return made;
    }

    void compileIn(llvm::orc::LLJIT& compiler) {
        const auto tracker = compiler.getMainJITDylib().createResourceTracker();
        checked(compiler.addIRModule(
            tracker, llvm::orc::ThreadSafeModule(llvm::CloneModule(*module), context)));
        checked(compiler.lookup(name));
        checked(tracker->remove());
    }
};

namespace {

void initializeTarget() {
    llvm::InitializeNativeTarget();
    llvm::InitializeNativeTargetAsmPrinter();
}

} // namespace

PlainLljit::PlainLljit(const std::string& ir, std::string name, int level)
    : state_(std::make_unique<State>(ir, std::move(name), level)) {
    initializeTarget();
    state_->jit = state_->make();
}

PlainLljit::~PlainLljit() = default;

void PlainLljit::compileNext() {
    state_->compileIn(*state_->jit);
}

double PlainLljit::compileFirstOfProcess(const std::string& ir, const std::string& name,
                                         int level) {
    if (llvm::TargetRegistry::targets().begin() != llvm::TargetRegistry::targets().end()) {
        throw std::logic_error("this process has compiled something");
    }
    State state(ir, name, level);
    return processorTimeOf([&] {
        initializeTarget();
        state.compileIn(*(state.jit = state.make()));
    });
}

void PlainLljit::compileFirst() {
    const auto compiler = state_->make();
    state_->compileIn(*compiler);
}

} // namespace bench
