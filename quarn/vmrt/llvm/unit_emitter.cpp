// See unit_emitter.hpp.
#include "vmrt/llvm/unit_emitter.hpp"

#include "vmrt/llvm/function_emitter.hpp"
#include "vmrt/llvm/runtime.hpp"

#include <qn/engine.hpp>

#include <algorithm>
#include <llvm/BinaryFormat/Dwarf.h>
#include <llvm/IR/MDBuilder.h>

namespace QN::VMRT {

UnitEmitter::UnitEmitter(llvm::LLVMContext& context, const VMEngineConfig& config, Scope& unit,
                         Function& entry, std::string_view sourceFile)
    : context_(context), config_(config), unit_(unit), entry_(entry),
      module_(std::make_unique<llvm::Module>(llvm::StringRef(entry.name()), context)) {
    makeTags();
    if (config_.jitEmitDebugInfo() || config_.emitDWARF()) {
        beginDebugInfo(sourceFile);
    }
}

UnitEmitter::~UnitEmitter() = default;

void UnitEmitter::makeTags() {
    llvm::MDBuilder make(context_);
    llvm::MDNode* const root = make.createTBAARoot("quarn");
    const auto tagOf = [&](const char* name) {
        llvm::MDNode* const type = make.createTBAAScalarTypeNode(name, root);
        return make.createTBAAStructTagNode(type, type, 0);
    };
    for (const char* const name :
         {"array header", "buffer header", "variable", "run state", "counter"}) {
        tags_.push_back(tagOf(name));
    }
    for (const char* const name :
         {"f64 elements", "logical elements", "i8 elements", "i16 elements", "i32 elements",
          "i64 elements", "u8 elements", "u16 elements", "u32 elements", "u64 elements"}) {
        elementTags_.push_back(tagOf(name));
    }
    extents_ = make.createRange(llvm::APInt(64, 0),
                                llvm::APInt(64, std::uint64_t{ArrayValue::maxExtent} + 1));
    unlikely_ = make.createBranchWeights(1, 1U << 20);
    likely_ = make.createBranchWeights(1U << 20, 1);
}

// Functions ---------------------------------------------------------------------------------------

void UnitEmitter::collect() {
    std::vector<Function*> reached = {&entry_};
    const auto add = [&](Function* function) {
        auto made = std::make_unique<UnitFunction>();
        made->source = function;
        bySource_.emplace(function, made.get());
        functions_.push_back(std::move(made));
    };
    add(&entry_);
    bool entryIsCalled = false;
    for (std::size_t i = 0; i < reached.size(); ++i) {
        UnitFunction& caller = *bySource_.at(reached[i]);
        for (const Callee& callee : reached[i]->cfg().callees()) {
            Function* const found = unit_.lookUp(callee.name());
            if (found == nullptr || !found->hasCfg() || !callee.hasUses()) {
                continue;
            }
            entryIsCalled |= found == &entry_;
            if (!bySource_.contains(found)) {
                add(found);
                reached.push_back(found);
            }
            caller.callees.push_back(bySource_.at(found));
        }
    }
    // In the order of the unit, the ones of scopes around it behind.
    std::unordered_map<const Function*, std::size_t> places;
    for (const auto& function : unit_.functions()) {
        places.emplace(function.get(), places.size());
    }
    const auto placeOf = [&](const std::unique_ptr<UnitFunction>& function) {
        const auto found = places.find(function->source);
        return found == places.end() ? places.size() : found->second;
    };
    std::stable_sort(functions_.begin(), functions_.end(),
                     [&](const auto& a, const auto& b) { return placeOf(a) < placeOf(b); });
    for (const auto& function : functions_) {
        function->index = static_cast<std::uint32_t>(facts_.functions.size());
        facts_.functions.emplace_back(function->source->name());
    }
    bySource_.at(&entry_)->isEntry = !entryIsCalled;
}

void UnitEmitter::findRecursion() {
    for (const auto& function : functions_) {
        std::vector<UnitFunction*> open = function->callees;
        std::vector<bool> seen(functions_.size());
        while (!open.empty() && !function->recurs) {
            UnitFunction* const next = open.back();
            open.pop_back();
            function->recurs = next == function.get();
            if (!seen[next->index]) {
                seen[next->index] = true;
                open.insert(open.end(), next->callees.begin(), next->callees.end());
            }
        }
    }
}

UnitFunction* UnitEmitter::functionNamed(std::string_view name) {
    const auto found = bySource_.find(unit_.lookUp(name));
    return found == bySource_.end() ? nullptr : found->second;
}

std::string UnitEmitter::symbolOf(const Function& function) const {
    std::string name(function.name());
    // A name that means something to LLVM or to the linker would be taken for it.
    const bool taken = hostSymbol(name, true) != nullptr || name.starts_with("llvm.") ||
                       name.starts_with("__") || module_->getNamedValue(name) != nullptr;
    return taken ? "script." + name : name;
}

void UnitEmitter::declare(UnitFunction& function) {
    const Function& source = *function.source;
    llvm::Type* const pointer = llvm::PointerType::getUnqual(context_);
    llvm::Type* const status = llvm::Type::getInt32Ty(context_);
    std::vector<llvm::Type*> parameters;
    llvm::Type* result = status;
    if (function.isEntry) {
        parameters.push_back(pointer);
    } else {
        for (const Type* const type : source.paramTypes()) {
            parameters.push_back(type->isArray() ? pointer : typeOf(*type));
        }
        if (source.resultType()->isArray()) {
            parameters.push_back(pointer);
        } else if (!source.resultType()->isVoid()) {
            result = llvm::StructType::get(context_, {typeOf(*source.resultType()), status});
        }
    }
    parameters.push_back(pointer);
    parameters.push_back(llvm::Type::getInt64Ty(context_));
    function.code = llvm::Function::Create(llvm::FunctionType::get(result, parameters, false),
                                           function.isEntry ? llvm::Function::ExternalLinkage
                                                            : llvm::Function::InternalLinkage,
                                           symbolOf(source), *module_);
    if (!function.isEntry) {
        function.code->setCallingConv(llvm::CallingConv::Fast);
    }
}

std::unique_ptr<llvm::Module> UnitEmitter::run() {
    collect();
    findRecursion();
    for (const auto& function : functions_) {
        declare(*function);
    }
    UnitFunction& entry = *bySource_.at(&entry_);
    for (const auto& function : functions_) {
        FunctionEmitter(*this, *function).run();
    }
    if (entry.isEntry) {
        entrySymbol_ = entry.code->getName().str();
    } else {
        entrySymbol_ = emitDoor(*this, entry)->getName().str();
    }
    if (debug_ != nullptr) {
        debug_->finalize();
    }
    return std::move(module_);
}

// What functions share ----------------------------------------------------------------------------

llvm::Function* UnitEmitter::host(const char* name, llvm::Type* result,
                                  llvm::ArrayRef<llvm::Type*> parameters, bool pure) {
    llvm::Function*& known = hosts_[name];
    if (known == nullptr) {
        known = llvm::Function::Create(llvm::FunctionType::get(result, parameters, false),
                                       llvm::Function::ExternalLinkage, name, *module_);
        known->setDoesNotThrow();
        known->addFnAttr(llvm::Attribute::WillReturn);
        // What LLVM knows of the C library's functions would let it exchange them for others, whose
        // last bits may differ.
        known->addFnAttr(llvm::Attribute::NoBuiltin);
        if (pure) {
            known->setDoesNotAccessMemory();
        } else {
            for (unsigned i = 0; i < parameters.size(); ++i) {
                if (parameters[i]->isPointerTy()) {
                    known->addParamAttr(i, llvm::Attribute::NoCapture);
                }
            }
        }
    }
    return known;
}

std::int32_t UnitEmitter::addSite(Site site) {
    facts_.sites.push_back(std::move(site));
    return static_cast<std::int32_t>(facts_.sites.size());
}

llvm::Type* UnitEmitter::typeOf(const Type& type) const {
    if (type.isPointer()) {
        return llvm::PointerType::getUnqual(context_);
    }
    return type.isDouble() ? llvm::Type::getDoubleTy(context_)
                           : llvm::Type::getIntNTy(context_, static_cast<unsigned>(type.bits()));
}

llvm::Type* UnitEmitter::elementType(ScalarKind kind) const {
    return kind == ScalarKind::Logical ? llvm::Type::getInt8Ty(context_)
                                       : typeOf(*Type::scalar(kind));
}

// Debug information -------------------------------------------------------------------------------

void UnitEmitter::beginDebugInfo(std::string_view sourceFile) {
    module_->addModuleFlag(llvm::Module::Warning, "Debug Info Version",
                           llvm::DEBUG_METADATA_VERSION);
    module_->addModuleFlag(llvm::Module::Warning, "Dwarf Version", 4);
    debug_ = std::make_unique<llvm::DIBuilder>(*module_);
    const std::size_t slash = sourceFile.rfind('/');
    const bool hasFolder = slash != std::string_view::npos;
    file_ = debug_->createFile(
        llvm::StringRef(hasFolder ? sourceFile.substr(slash + 1) : sourceFile),
        llvm::StringRef(hasFolder ? sourceFile.substr(0, slash) : std::string_view()));
    compileUnit_ = debug_->createCompileUnit(llvm::dwarf::DW_LANG_C, file_, "quarn", true, "", 0);
}

llvm::DISubprogram* UnitEmitter::subprogram(const UnitFunction& function) {
    llvm::DISubroutineType* const type =
        debug_->createSubroutineType(debug_->getOrCreateTypeArray({}));
    const std::uint32_t line = function.source->line();
    return debug_->createFunction(compileUnit_, llvm::StringRef(function.source->name()),
                                  function.code->getName(), file_, line, type, line,
                                  llvm::DINode::FlagZero, llvm::DISubprogram::SPFlagDefinition);
}

} // namespace QN::VMRT
