// From the IR of a unit to a module of LLVM's: the functions that the entry reaches, what they
// share, and who calls whom.
//
// Owner: one compilation. Functions are translated one by one by a FunctionEmitter.
#pragma once

#include "vmrt/llvm/unit.hpp"

#include <qn/scope.hpp>
#include <qn/vmrt/engine_config.hpp>

#include <llvm/IR/DIBuilder.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Module.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace QN::VMRT {

/// What the bits of memory mean, for alias analysis: an access of one sort never meets one of
/// another.
enum class Memory { ArrayHeader, BufferHeader, Variable, State, Counter };

/// One function of the unit.
struct UnitFunction {
    Function* source = nullptr;
    llvm::Function* code = nullptr;
    std::uint32_t index = 0;        // in UnitFacts::functions
    std::uint32_t firstCounter = 0; // in the counters of the unit
    bool isEntry = false;           // takes words, not values
    bool recurs = false;            // can be called again while it runs
    std::vector<UnitFunction*> callees;
};

class UnitEmitter {
public:
    UnitEmitter(llvm::LLVMContext& context, const VMEngineConfig& config, Scope& unit,
                Function& entry, std::string_view sourceFile);
    UnitEmitter(const UnitEmitter&) = delete;
    UnitEmitter& operator=(const UnitEmitter&) = delete;
    ~UnitEmitter();

    /// Translates everything. Throws CompilationRefused for IR that it does not understand.
    std::unique_ptr<llvm::Module> run();

    [[nodiscard]] UnitFacts& facts() noexcept { return facts_; }
    /// The name of the symbol at which the unit is entered.
    [[nodiscard]] const std::string& entrySymbol() const noexcept { return entrySymbol_; }

    // For function emitters.
    [[nodiscard]] const VMEngineConfig& config() const noexcept { return config_; }
    [[nodiscard]] llvm::Module& module() noexcept { return *module_; }
    [[nodiscard]] llvm::LLVMContext& context() noexcept { return context_; }
    /// The function of that name as seen from the unit, if it has a graph; null otherwise.
    [[nodiscard]] UnitFunction* functionNamed(std::string_view name);
    /// A host function; see hostSymbol().
    [[nodiscard]] llvm::Function* host(const char* name, llvm::Type* result,
                                       llvm::ArrayRef<llvm::Type*> parameters, bool pure);
    [[nodiscard]] std::int32_t addSite(Site site);
    [[nodiscard]] llvm::Type* typeOf(const Type& type) const;
    [[nodiscard]] llvm::Type* elementType(ScalarKind kind) const;
    [[nodiscard]] llvm::MDNode* tag(Memory memory) const {
        return tags_[static_cast<std::size_t>(memory)];
    }
    [[nodiscard]] llvm::MDNode* elementTag(ScalarKind kind) const {
        return elementTags_[static_cast<std::size_t>(kind)];
    }
    /// What says how many rows or columns there may be.
    [[nodiscard]] llvm::MDNode* extents() const { return extents_; }
    /// What says that a branch is hardly ever taken to its first side.
    [[nodiscard]] llvm::MDNode* unlikely() const { return unlikely_; }
    [[nodiscard]] llvm::MDNode* likely() const { return likely_; }
    [[nodiscard]] llvm::DIBuilder* debugInfo() noexcept { return debug_.get(); }
    [[nodiscard]] llvm::DISubprogram* subprogram(const UnitFunction& function);

private:
    void collect();
    void findRecursion();
    void declare(UnitFunction& function);
    [[nodiscard]] std::string symbolOf(const Function& function) const;
    void makeTags();
    void beginDebugInfo(std::string_view sourceFile);

    llvm::LLVMContext& context_;
    const VMEngineConfig& config_;
    Scope& unit_;
    Function& entry_;
    std::unique_ptr<llvm::Module> module_;
    std::vector<std::unique_ptr<UnitFunction>> functions_; // in the order of the unit
    std::unordered_map<const Function*, UnitFunction*> bySource_;
    std::map<std::string, llvm::Function*> hosts_;
    std::string entrySymbol_;
    UnitFacts facts_;
    std::vector<llvm::MDNode*> tags_;
    std::vector<llvm::MDNode*> elementTags_;
    llvm::MDNode* extents_ = nullptr;
    llvm::MDNode* unlikely_ = nullptr;
    llvm::MDNode* likely_ = nullptr;
    std::unique_ptr<llvm::DIBuilder> debug_;
    llvm::DICompileUnit* compileUnit_ = nullptr;
    llvm::DIFile* file_ = nullptr;
};

} // namespace QN::VMRT
