// Machine code through LLVM. The library that holds LLVM is loaded at the first use, so that a
// process that compiles nothing does not pay for it.
#pragma once

#include <qn/engine.hpp>
#include <qn/vmrt/engine_config.hpp>

#include <cstdint>
#include <memory>

namespace QN::VMRT {

/// The memory that an engine has taken for code.
struct CodeMemory {
    std::uint64_t slabs = 0;         ///< pieces of address space
    std::uint64_t reservedBytes = 0; ///< their sizes together
    std::uint64_t usedBytes = 0;     ///< what lies in them at the moment
};

/// An engine that makes machine code.
class MachineCodeEngine : public Engine {
public:
    [[nodiscard]] virtual CodeMemory codeMemory() const noexcept = 0;
};

/// An engine whose settings are a copy of `config`, taken now. Throws std::runtime_error with the
/// loader's message if LLVM cannot be loaded.
[[nodiscard]] std::unique_ptr<MachineCodeEngine>
makeEngine(const VMEngineConfig& config = VMEngineConfig::prototype());

} // namespace QN::VMRT
