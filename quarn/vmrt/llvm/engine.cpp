// The engine: translate, optimize, generate, link; and what comes out of it.
#include "vmrt/llvm/compiler.hpp"
#include "vmrt/llvm/debugger.hpp"
#include "vmrt/llvm/dumps.hpp"
#include "vmrt/llvm/linker.hpp"
#include "vmrt/llvm/runtime.hpp"
#include "vmrt/llvm/unit_emitter.hpp"
#include "vmrt/llvm_library.hpp"

#include <qn/console.hpp>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <llvm/IR/DiagnosticInfo.h>
#include <llvm/IR/DiagnosticPrinter.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Verifier.h>
#include <llvm/Support/raw_ostream.h>
#include <new>
#include <optional>
#include <pthread.h>

namespace QN::VMRT {
namespace {

constexpr std::sig_atomic_t neverAsked = 0;

/// The lowest address to which compiled calls may take the stack: some of it stays for the host.
std::uintptr_t lowestStackAddress() {
    static const std::uintptr_t lowest = [] {
        constexpr std::size_t reserve = 256 * 1024;
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
            return std::uintptr_t{0};
        }
        void* stack = nullptr;
        std::size_t bytes = 0;
        pthread_attr_getstack(&attributes, &stack, &bytes);
        pthread_attr_destroy(&attributes);
        return reinterpret_cast<std::uintptr_t>(stack) + reserve;
    }();
    return lowest;
}

class MachineCode final : public Executable {
public:
    MachineCode(LinkedCode code, UnitFacts facts, std::string entryName, Slabs& slabs,
                const VMEngineConfig& config)
        : entry_(std::bit_cast<EntryFunction>(code.entry)), stackLimit_(lowestStackAddress()),
          counters_(facts.counterCount), facts_(std::move(facts)), entryName_(std::move(entryName)),
          piece_(code.piece), slabs_(slabs), reports_(config.useDebugReporter()),
          aborts_(config.abortOnError()) {
        if (!code.debugObject.empty()) {
            registration_.emplace(std::move(code.debugObject));
        }
    }
    ~MachineCode() override { slabs_.giveBack(piece_); }

    void call(std::uint64_t* slots, ExecutionContext& context) override {
        if (context.depthLeft <= 0) [[unlikely]] {
            throw EvaluationError(TrapCode::StackOverflow, entryName_, 0);
        }
        RunState state{context.interruptRequested != nullptr ? context.interruptRequested
                                                             : &neverAsked,
                       stackLimit_, counters_.data()};
        const Status status = entry_(slots, &state, context.depthLeft - 1);
        if (status != 0) [[unlikely]] {
            fail(status);
        }
    }

    std::vector<CounterValue> counters() const override {
        std::vector<CounterValue> values;
        for (const CounterRange& range : facts_.counters) {
            for (std::uint32_t i = 0; i < range.count; ++i) {
                values.push_back({facts_.functions[range.function], i, counters_[range.first + i]});
            }
        }
        return values;
    }

    bool needsScope() const noexcept override { return false; }

private:
    [[noreturn]] void fail(Status status) const {
        if (status == outOfMemory) {
            throw std::bad_alloc();
        }
        const Site& site = facts_.sites[static_cast<std::size_t>(status) - 1];
        const EvaluationError error(site.code, facts_.functions[site.function], site.line,
                                    site.detail);
        if (site.code >= TrapCode::FirstOfHost) { // no check of ours
            throw error;
        }
        if (reports_) {
            consoleWrite(error.function() + ": line " + std::to_string(error.line()) + ": " +
                         error.what() + "\n");
        }
        if (aborts_) {
            std::fflush(stdout);
            std::abort();
        }
        throw error;
    }

    EntryFunction entry_;
    std::uintptr_t stackLimit_;
    std::vector<std::uint64_t> counters_;
    UnitFacts facts_;
    std::string entryName_;
    CodePiece piece_;
    Slabs& slabs_;
    bool reports_;
    bool aborts_;
    std::optional<DebuggerRegistration> registration_;
};

class LlvmEngine final : public MachineCodeEngine {
public:
    explicit LlvmEngine(const VMEngineConfig& config)
        : config_(config), slabs_(config.defaultCodeSlabSize(),
                                  config.jitEmitDebugInfo() ? Breakpoints::Yes : Breakpoints::No) {
        const FatalErrorScope fatalErrors;
        compiler_ = std::make_unique<Compiler>(config_);
    }

    std::unique_ptr<Executable> prepare(Scope& unit, Function& entry,
                                        std::string_view sourceFile) override {
        const std::string name(entry.name());
        if (!entry.hasCfg()) {
            throw CompilationRefused(name, "it has no graph");
        }
        const FatalErrorScope fatalErrors;
        try {
            return compile(unit, entry, sourceFile);
        } catch (const std::runtime_error& problem) {
            if (dynamic_cast<const CompilationRefused*>(&problem) == nullptr) {
                // LLVM's own state is unknown now. What it held is left alone.
                static_cast<void>(compiler_.release());
                static_cast<void>(context_.release());
                compiler_ = std::make_unique<Compiler>(config_);
                throw CompilationRefused(name, problem.what());
            }
            throw;
        }
    }

    std::string_view name() const noexcept override { return "llvm"; }
    CodeMemory codeMemory() const noexcept override { return slabs_.use(); }

private:
    /// A context keeps constants and types for good, so it is changed from time to time.
    llvm::LLVMContext& context() {
        constexpr int modulesPerContext = 500;
        if (context_ == nullptr || ++modules_ > modulesPerContext) {
            context_ = std::make_unique<llvm::LLVMContext>();
            // Without a handler, LLVM prints the message and ends the process.
            context_->setDiagnosticHandlerCallBack(
                [](const llvm::DiagnosticInfo* info, void* engine) {
                    static_cast<LlvmEngine*>(engine)->diagnose(*info);
                },
                this);
            modules_ = 0;
        }
        return *context_;
    }

    /// Keeps the first error; warnings and remarks are about how fast code is.
    void diagnose(const llvm::DiagnosticInfo& info) {
        if (info.getSeverity() == llvm::DS_Error && diagnosed_.empty()) {
            llvm::raw_string_ostream out(diagnosed_);
            llvm::DiagnosticPrinterRawOStream printer(out);
            info.print(printer);
        }
    }

    std::unique_ptr<Executable> compile(Scope& unit, Function& entry, std::string_view sourceFile) {
        diagnosed_.clear();
        UnitEmitter emitter(context(), config_, unit, entry, sourceFile);
        const std::unique_ptr<llvm::Module> module = emitter.run();
        const std::string name(entry.name());
        const std::string symbol = emitter.entrySymbol();
        if (config_.deleteCoreFcnCfgAfterConversion()) {
            for (const auto& function : unit.functions()) {
                function->deleteCfg();
            }
        }
#ifndef NDEBUG
        std::string problem;
        llvm::raw_string_ostream out(problem);
        if (llvm::verifyModule(*module, &out)) {
            throw CompilationRefused(name, out.str());
        }
#endif
        compiler_->prepare(*module);
        compiler_->optimize(*module);
        if (config_.dumpLlvmIR()) {
            std::string text;
            llvm::raw_string_ostream into(text);
            module->print(into, nullptr);
            writeDump(name, "ll", into.str());
        }
        if (config_.dumpHostAssembly()) {
            writeDump(name, "s", compiler_->assembly(*module));
        }
        const llvm::StringRef object = compiler_->generate(*module);
        if (!diagnosed_.empty()) {
            throw CompilationRefused(name, diagnosed_);
        }
        const LinkOptions options{config_.useSoftFloat(), config_.jitEmitDebugInfo()};
        LinkedCode code = config_.useMCJIT() ? linkWithRuntimeDyld(object, symbol, slabs_, options)
                                             : linkWithJitLink(object, symbol, slabs_, options);
        return std::make_unique<MachineCode>(std::move(code), std::move(emitter.facts()), name,
                                             slabs_, config_);
    }

    VMEngineConfig config_;
    Slabs slabs_;
    std::unique_ptr<Compiler> compiler_;
    std::unique_ptr<llvm::LLVMContext> context_;
    int modules_ = 0;
    std::string diagnosed_;
};

} // namespace
} // namespace QN::VMRT

extern "C" __attribute__((visibility("default"))) QN::VMRT::MachineCodeEngine*
quarn_make_llvm_engine(const QN::VMRT::VMEngineConfig& config) {
    return new QN::VMRT::LlvmEngine(config);
}
