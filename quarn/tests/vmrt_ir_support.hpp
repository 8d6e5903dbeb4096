// What tests share that read the LLVM IR which comes out of the runtime's passes.
#pragma once

#include "vmrt_support.hpp"

#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace QN::vmrt_test {

inline constexpr auto byDefault = VMEngineConfig::OptDefault;

class LlvmIr : public ::testing::Test {
protected:
    LlvmIr()
        : folder_(std::filesystem::temp_directory_path() /
                  ("vmrt-ir-" + std::to_string(::getpid()))) {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
        DefaultServices::debugServices().debugLog().setLogDirectory(folder_.string());
    }
    ~LlvmIr() override {
        DefaultServices::debugServices().debugLog().setLogDirectory("");
        std::filesystem::remove_all(folder_);
    }

    /// LLVM's IR of the function f as it goes to the code generator.
    std::string irOf(std::string_view text, VMEngineConfig::JitOptimizationLevel level) {
        VMEngineConfig config = atLevel(level);
        config.setDumpLlvmIR(true);
        const auto engine = VMRT::makeEngine(config);
        const auto scope = parsed(text);
        static_cast<void>(engine->prepare(*scope, *scope->find("f"), ""));
        std::string ir;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            std::ifstream file(entry.path());
            ir.append(std::istreambuf_iterator<char>(file), {});
            std::filesystem::remove(entry.path());
        }
        EXPECT_FALSE(ir.empty());
        return ir;
    }

    std::filesystem::path folder_;
};

inline bool has(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

} // namespace QN::vmrt_test
