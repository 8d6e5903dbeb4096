// See compiler.hpp.
#include "vmrt/llvm/compiler.hpp"

#include "vmrt/llvm/passes.hpp"

#include <algorithm>
#include <llvm/Analysis/CGSCCPassManager.h>
#include <llvm/Analysis/LoopAnalysisManager.h>
#include <llvm/Analysis/TargetTransformInfo.h>
#include <llvm/IR/LegacyPassManager.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Support/CommandLine.h>
#include <llvm/Support/ErrorHandling.h>
#include <llvm/Support/TargetSelect.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/Target/TargetMachine.h>
#include <llvm/TargetParser/Host.h>
#include <llvm/Transforms/IPO/GlobalDCE.h>
#include <llvm/Transforms/Scalar/EarlyCSE.h>
#include <llvm/Transforms/Scalar/SCCP.h>
#include <llvm/Transforms/Scalar/SROA.h>
#include <llvm/Transforms/Scalar/SimplifyCFG.h>
#include <llvm/Transforms/Utils/Cloning.h>
#include <optional>
#include <stdexcept>
#include <string>

namespace QN::VMRT {
namespace {

using Level = VMEngineConfig::JitOptimizationLevel;

llvm::CodeGenOptLevel codeGenLevel(Level level) {
    switch (level) {
    case VMEngineConfig::OptNone:
        return llvm::CodeGenOptLevel::None;
    case VMEngineConfig::OptLess:
        return llvm::CodeGenOptLevel::Less;
    case VMEngineConfig::OptAggressive:
    case VMEngineConfig::OptAccelerator:
        return llvm::CodeGenOptLevel::Aggressive;
    default:
        return llvm::CodeGenOptLevel::Default;
    }
}

llvm::OptimizationLevel passLevel(Level level) {
    switch (level) {
    case VMEngineConfig::OptNone:
        return llvm::OptimizationLevel::O0;
    case VMEngineConfig::OptLess:
        return llvm::OptimizationLevel::O1;
    case VMEngineConfig::OptAggressive:
    case VMEngineConfig::OptAccelerator:
        return llvm::OptimizationLevel::O3;
    default:
        return llvm::OptimizationLevel::O2;
    }
}

std::unique_ptr<llvm::TargetMachine> makeTargetMachine(const VMEngineConfig& config) {
    static const bool initialized = [] {
        llvm::InitializeNativeTarget();
        llvm::InitializeNativeTargetAsmPrinter();
        return true;
    }();
    static_cast<void>(initialized);
    const std::string triple = llvm::sys::getProcessTriple();
    std::string problem;
    const llvm::Target* const target = llvm::TargetRegistry::lookupTarget(triple, problem);
    if (target == nullptr) {
        throw std::runtime_error(problem);
    }
    std::string processor = "x86-64";
    std::string features;
    if (config.jitOptimizationLevel() == VMEngineConfig::OptAccelerator) {
        processor = llvm::sys::getHostCPUName().str();
        for (const auto& [name, present] : llvm::sys::getHostCPUFeatures()) {
            features +=
                (features.empty() ? "" : ",") + std::string(present ? "+" : "-") + name.str();
        }
    }
    llvm::TargetOptions options;
    // a * b + c stays two operations, each rounded.
    options.AllowFPOpFusion = llvm::FPOpFusion::Strict;
    options.UnsafeFPMath = false;
    std::unique_ptr<llvm::TargetMachine> machine(target->createTargetMachine(
        triple, processor, features, options, llvm::Reloc::PIC_, llvm::CodeModel::Small,
        codeGenLevel(config.jitOptimizationLevel()), /*JIT=*/true));
    if (machine == nullptr) {
        throw std::runtime_error("LLVM has no code generator for " + triple);
    }
    return machine;
}

/// Gives an option of the whole process a value for as long as this is there, unless somebody else
/// has given it one. Without effect where LLVM has no such option.
class OptionScope {
public:
    OptionScope(llvm::StringRef name, llvm::StringRef value) {
        const auto found = llvm::cl::getRegisteredOptions().find(name);
        if (found != llvm::cl::getRegisteredOptions().end() &&
            found->second->getNumOccurrences() == 0) {
            option_ = found->second;
            option_->addOccurrence(0, name, value);
        }
    }
    OptionScope(const OptionScope&) = delete;
    OptionScope& operator=(const OptionScope&) = delete;
    ~OptionScope() {
        if (option_ != nullptr) {
            option_->reset();
        }
    }

private:
    llvm::cl::Option* option_ = nullptr;
};

/// Switches the fast instruction selector of the code generators that are set up in this scope off,
/// or leaves it: at level None LLVM takes it unless this option says otherwise; the options of the
/// target machine are not asked.
class FastISelScope {
public:
    explicit FastISelScope(bool on) {
        if (!on) {
            off_.emplace("fast-isel", "false");
        }
    }

private:
    std::optional<OptionScope> off_;
};

} // namespace

struct Compiler::Parts {
    explicit Parts(const VMEngineConfig& settings)
        : config(settings), machine(makeTargetMachine(settings)), out(object) {
        const FastISelScope fastISel(config.enableFastISel());
        llvm::MCContext* assembler = nullptr;
        if (machine->addPassesToEmitMC(generator, assembler, out, /*DisableVerify=*/true)) {
            throw std::runtime_error("LLVM cannot generate object code for this processor");
        }
        if (config.jitOptimizationLevel() == VMEngineConfig::OptNone) {
            return; // nothing is transformed
        }
        llvm::PipelineTuningOptions tuning;
        // Loops that are cut into pieces would be unrolled with a rest for each piece: a third more
        // to compile, and programs gain nothing that can be measured.
        tuning.LoopUnrolling = passLevel(config.jitOptimizationLevel()).getSpeedupLevel() > 2;
        tuning.LoopInterleaving = true;
        tuning.LoopVectorization = passLevel(config.jitOptimizationLevel()).getSpeedupLevel() > 1;
        // What straight-line code gains by vectors of two, it loses by waiting for the values to be
        // put together.
        tuning.SLPVectorization = passLevel(config.jitOptimizationLevel()).getSpeedupLevel() > 2;
        builder = std::make_unique<llvm::PassBuilder>(machine.get(), tuning);
        builder->registerModuleAnalyses(ofModules);
        builder->registerCGSCCAnalyses(ofCallGraphs);
        builder->registerFunctionAnalyses(ofFunctions);
        builder->registerLoopAnalyses(ofLoops);
        builder->crossRegisterProxies(ofLoops, ofFunctions, ofCallGraphs, ofModules);
        const bool makesVersions = tuning.LoopVectorization;
        builder->registerVectorizerStartEPCallback(
            [makesVersions](llvm::FunctionPassManager& passes, llvm::OptimizationLevel) {
                addLoopPasses(passes, makesVersions);
            });
        ofOneFunction = makePipelineOfOneFunction();
    }

    /// What the default pipeline does to a module in which there is nothing to inline and nobody to
    /// tell about the function.
    llvm::ModulePassManager makePipelineOfOneFunction() {
        const llvm::OptimizationLevel level = passLevel(config.jitOptimizationLevel());
        llvm::ModulePassManager passes;
        if (level == llvm::OptimizationLevel::O2) {
            llvm::FunctionPassManager all;
            addDefaultPasses(all);
            passes.addPass(llvm::createModuleToFunctionPassAdaptor(std::move(all)));
            return passes;
        }
        llvm::FunctionPassManager early;
        early.addPass(llvm::SimplifyCFGPass());
        early.addPass(llvm::SROAPass(llvm::SROAOptions::ModifyCFG));
        early.addPass(llvm::EarlyCSEPass());
        early.addPass(llvm::SCCPPass());
        passes.addPass(llvm::createModuleToFunctionPassAdaptor(std::move(early)));
        passes.addPass(llvm::createModuleToFunctionPassAdaptor(
            builder->buildFunctionSimplificationPipeline(level, llvm::ThinOrFullLTOPhase::None)));
        passes.addPass(
            builder->buildModuleOptimizationPipeline(level, llvm::ThinOrFullLTOPhase::None));
        return passes;
    }

    /// The same for a module of several functions. The inliner in it serves for one run only.
    llvm::ModulePassManager makePipelineOfSeveral() {
        const llvm::OptimizationLevel level = passLevel(config.jitOptimizationLevel());
        if (level != llvm::OptimizationLevel::O2) {
            return builder->buildPerModuleDefaultPipeline(level);
        }
        llvm::ModulePassManager passes =
            builder->buildModuleSimplificationPipeline(level, llvm::ThinOrFullLTOPhase::None);
        llvm::FunctionPassManager vectors;
        addDefaultVectorPasses(vectors);
        passes.addPass(llvm::createModuleToFunctionPassAdaptor(std::move(vectors)));
        passes.addPass(llvm::GlobalDCEPass());
        return passes;
    }

    VMEngineConfig config;
    std::unique_ptr<llvm::TargetMachine> machine;
    llvm::SmallVector<char, 0> object;
    llvm::raw_svector_ostream out;
    llvm::legacy::PassManager generator;
    // The managers refer to each other and go in this order.
    llvm::LoopAnalysisManager ofLoops;
    llvm::FunctionAnalysisManager ofFunctions;
    llvm::CGSCCAnalysisManager ofCallGraphs;
    llvm::ModuleAnalysisManager ofModules;
    std::unique_ptr<llvm::PassBuilder> builder;
    llvm::ModulePassManager ofOneFunction;
};

Compiler::Compiler(const VMEngineConfig& config) : parts_(std::make_unique<Parts>(config)) {}
Compiler::~Compiler() = default;

void Compiler::prepare(llvm::Module& module) const {
    module.setTargetTriple(parts_->machine->getTargetTriple().str());
    module.setDataLayout(parts_->machine->createDataLayout());
}

void Compiler::optimize(llvm::Module& module) {
    if (parts_->builder == nullptr) {
        return;
    }
    // Sums of doubles stay in their order, but what is summed may be computed in vectors: divisions
    // above all. LLVM has this switched off for processors without instructions for such sums.
    const OptionScope ordered("force-ordered-reductions", "true");
    const auto defined = std::count_if(module.begin(), module.end(), [](const auto& function) {
        return !function.isDeclaration();
    });
    if (defined == 1) {
        parts_->ofOneFunction.run(module, parts_->ofModules);
    } else {
        parts_->makePipelineOfSeveral().run(module, parts_->ofModules);
    }
    parts_->ofModules.clear();
    parts_->ofCallGraphs.clear();
    parts_->ofFunctions.clear();
    parts_->ofLoops.clear();
}

llvm::StringRef Compiler::generate(llvm::Module& module) {
    parts_->object.clear();
    parts_->generator.run(module);
    return {parts_->object.data(), parts_->object.size()};
}

std::string Compiler::assembly(const llvm::Module& module) const {
    const std::unique_ptr<llvm::Module> copy = llvm::CloneModule(module);
    llvm::SmallVector<char, 0> text;
    llvm::raw_svector_ostream out(text);
    const FastISelScope fastISel(parts_->config.enableFastISel());
    llvm::legacy::PassManager passes;
    if (parts_->machine->addPassesToEmitFile(passes, out, nullptr,
                                             llvm::CodeGenFileType::AssemblyFile)) {
        return {};
    }
    passes.run(*copy);
    return {text.begin(), text.end()};
}

FatalErrorScope::FatalErrorScope() {
    llvm::install_fatal_error_handler([](void*, const char* reason, bool) {
        // Through LLVM's frames, which leaves what they held behind: the alternative is the end of
        // the process.
        throw std::runtime_error(reason);
    });
}

FatalErrorScope::~FatalErrorScope() {
    llvm::remove_fatal_error_handler();
}

} // namespace QN::VMRT
