// Puts object code into code memory and joins it with the host's functions.
//
// Owner: whoever compiles. Two linkers of LLVM's do the work, see the setting useMCJIT.
#pragma once

#include "vmrt/llvm/slabs.hpp"

#include <llvm/ADT/StringRef.h>
#include <string>

namespace QN::VMRT {

struct LinkedCode {
    CodePiece piece;
    const char* entry = nullptr;
    /// The object as a debugger wants to see it, if that was asked for.
    std::string debugObject;
};

struct LinkOptions {
    bool softFloat = false;
    bool forDebugger = false;
};

/// Links with RuntimeDyld, the older linker. Throws std::runtime_error.
[[nodiscard]] LinkedCode linkWithRuntimeDyld(llvm::StringRef object, const std::string& entry,
                                             Slabs& slabs, LinkOptions options);
/// Links with JITLink, the newer one. Throws std::runtime_error.
[[nodiscard]] LinkedCode linkWithJitLink(llvm::StringRef object, const std::string& entry,
                                         Slabs& slabs, LinkOptions options);

} // namespace QN::VMRT
