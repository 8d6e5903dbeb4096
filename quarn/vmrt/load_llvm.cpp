// Loads the library with LLVM in it, which lies beside this one, at the first engine.
#include "vmrt/llvm_library.hpp"

#include <dlfcn.h>
#include <stdexcept>
#include <string>

namespace QN::VMRT {
namespace {

std::string folderOfThisLibrary() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&makeEngine), &info) == 0 ||
        info.dli_fname == nullptr) {
        return {};
    }
    const std::string file = info.dli_fname;
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? std::string() : file.substr(0, slash + 1);
}

LlvmFactory loadFactory() {
    // It stays loaded: LLVM's own tables refer to each other until the process ends.
    void* const library =
        dlopen((folderOfThisLibrary() + llvmLibraryFile).c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    void* const factory = dlsym(library, llvmFactoryName);
    if (factory == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<LlvmFactory>(factory);
}

} // namespace

std::unique_ptr<MachineCodeEngine> makeEngine(const VMEngineConfig& config) {
    static const LlvmFactory factory = loadFactory();
    return std::unique_ptr<MachineCodeEngine>(factory(config));
}

} // namespace QN::VMRT
