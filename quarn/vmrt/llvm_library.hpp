// What libquarn and the library with LLVM in it know of each other: the name of the file, and the
// one function that it exports.
#pragma once

#include <qn/vmrt/engine.hpp>

namespace QN::VMRT {

inline constexpr const char* llvmLibraryFile = "libquarn_llvm.so";
inline constexpr const char* llvmFactoryName = "quarn_make_llvm_engine";

/// Makes an engine with a copy of the settings. The caller owns what it gets. Throws
/// std::runtime_error if LLVM has no code generator for this processor.
using LlvmFactory = MachineCodeEngine* (*)(const VMEngineConfig& config);

} // namespace QN::VMRT
