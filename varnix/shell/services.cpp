// The host's allocator and the place of the installation.

#include <sv/sv.hpp>
#include <ut/ut.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

void* utMalloc(std::size_t bytes) {
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void utFree(void* memory) {
    std::free(memory);
}

const char* svVarnixRoot() {
    static const std::string* root = nullptr; // decided once: the text must stay valid
    if (!root) {
        const char* const given = std::getenv("VARNIX_ROOT");
        if (given && *given) {
            root = new std::string(given);
        } else {
            std::error_code ignored;
            const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
            root = new std::string(program.parent_path().parent_path().string());
        }
    }
    return root->c_str();
}
