// LLVM as the peer of the IR library: IR of the shape of ours, and LLVM's own tools for it.
//
// Why it exists: a printer or a verifier can only be compared on input of the same shape and size.
// LlvmModule gives each node of a scope one LLVM instruction with the same operands (a call of a
// declared function where LLVM has no such operation), so both have the same number of them but for
// the allocas that stand for our variables.
// LLVM's headers are included in peers/llvm*.cpp only.
#pragma once

#include "measure.hpp"

#include <qn/scope.hpp>

#include <cstddef>
#include <memory>

namespace bench {

class LlvmModule {
public:
    /// `named`: values and blocks have names; else they are numbered as they are printed.
    explicit LlvmModule(const QN::Scope& scope, bool named = false);
    LlvmModule(const LlvmModule&) = delete;
    LlvmModule& operator=(const LlvmModule&) = delete;
    ~LlvmModule();

    [[nodiscard]] std::size_t instructions() const;
    [[nodiscard]] std::size_t blocks() const;
    /// Bytes of all functions as text.
    [[nodiscard]] std::size_t printedBytes() const;

    // Each performs the operation once on the whole module.
    void print() const;
    void printOneInstruction() const; ///< the last instruction of the last function
    void printGraphs() const;         ///< the dot form of every function
    void verify() const;              ///< throws if the module is not valid
    void findDominators() const;
    void count() const; ///< instructions by kind

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// What stands around each run of an LLVM pass.
enum class LlvmHooks { passAlone, none, empty, timing };

/// A loop of which one repetition runs a pass that does nothing `passesPerRepetition` times on one
/// function, through a pass manager (or directly for passAlone).
inline constexpr std::size_t passesPerRepetition = 16;
Loop llvmPasses(LlvmHooks hooks);

/// Starts and stops an llvm::Timer.
Loop llvmTimer();

/// `count` allocations of `bytes` from a fresh llvm::BumpPtrAllocator, which is then dropped.
Loop llvmAllocations(std::size_t count, std::size_t bytes);

} // namespace bench
