// Machine code through LLVM. The library that holds LLVM is loaded at the first use, so that a
// process that compiles nothing does not pay for it.
#pragma once

#include <qn/engine.hpp>
#include <qn/vmrt/engine_config.hpp>

#include <memory>

namespace QN::VMRT {

/// An engine whose settings are a copy of `config`, taken now. Throws std::runtime_error with the
/// loader's message if LLVM cannot be loaded.
[[nodiscard]] std::unique_ptr<Engine>
makeEngine(const VMEngineConfig& config = VMEngineConfig::prototype());

} // namespace QN::VMRT
