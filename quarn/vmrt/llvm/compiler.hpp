// From a module to object code: LLVM's transforms and its code generator, set up once and used for
// every module, since setting them up takes longer than compiling a small function.
//
// Owner: an engine. After a failure inside LLVM a compiler is not used again.
#pragma once

#include <qn/vmrt/engine_config.hpp>

#include <llvm/ADT/SmallVector.h>
#include <llvm/IR/Module.h>
#include <memory>

namespace QN::VMRT {

class Compiler {
public:
    /// Throws std::runtime_error if LLVM cannot generate code for this processor.
    explicit Compiler(const VMEngineConfig& config);
    Compiler(const Compiler&) = delete;
    Compiler& operator=(const Compiler&) = delete;
    ~Compiler();

    /// Gives the module the processor that code is made for.
    void prepare(llvm::Module& module) const;
    /// Runs LLVM's transforms of the level.
    void optimize(llvm::Module& module);
    /// The object code of the module, which is changed on the way. Holds until the next call.
    [[nodiscard]] llvm::StringRef generate(llvm::Module& module);
    /// The same as text for an assembler.
    [[nodiscard]] std::string assembly(const llvm::Module& module) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

/// Whether LLVM ends the process by itself when it fails inside this scope: it does not, but throws
/// std::runtime_error with its message.
class FatalErrorScope {
public:
    FatalErrorScope();
    FatalErrorScope(const FatalErrorScope&) = delete;
    FatalErrorScope& operator=(const FatalErrorScope&) = delete;
    ~FatalErrorScope();
};

} // namespace QN::VMRT
