// What the tests of services share: a debug log in a folder of its own, the console as text, a
// full disk, and the funnel through which a transform runs between its hooks.
#pragma once

#include <qn/console.hpp>
#include <qn/default_services.hpp>
#include <qn/ir.hpp>
#include <qn/transform_run.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace QN::testing_support {

inline std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Names of the files in a folder, sorted; none if there is no such folder.
inline std::vector<std::string> filesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// While one lives, no file of the process can grow beyond a size, as on a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) : oldAction_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &old_), 0);
        const rlimit small{bytes, old_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldAction_);
    }

private:
    void (*oldAction_)(int);
    rlimit old_{};
};

class ServiceTest : public ::testing::Test {
protected:
    ServiceTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quarn-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
        log.setLogDirectory(folder);
        log.setUsePIDInName(false);
        tssv::debug::DebugLog::resetCounter();
        setConsoleSink(
            [](void* self, std::string_view text) {
                static_cast<ServiceTest*>(self)->console += text;
            },
            this);
    }
    ~ServiceTest() override {
        setConsoleSink(nullptr, nullptr);
        log.setLogDirectory("");
        log.setUsePIDInName(true);
        std::filesystem::remove_all(folder);
    }

    /// Runs `act` on `function` as the transform `transform`, between the hooks of all services.
    template <typename Act>
    void run(const char* transform, Function& function, Act act) {
        TransformRun described(++runs, transform, function.scope(), function, function.name());
        between(described, act);
    }
    template <typename Act>
    void runOnScope(const char* transform, Scope& scope, Act act) {
        TransformRun described(++runs, transform, scope, scope.name());
        between(described, act);
    }

    tssv::debug::DebugLog& log = DefaultServices::debugServices().debugLog();
    std::string folder;
    std::string console;
    std::uint64_t runs = 0;

private:
    template <typename Act>
    void between(TransformRun& described, Act act) {
        DebugServices& services = DefaultServices::debugServices();
        services.forEach([&](Service& service) { service.prepass(described); });
        described.setOutcome(act() ? RunOutcome::Changed : RunOutcome::Unchanged);
        services.forEachReversed([&](Service& service) { service.postpass(described); });
    }
};

} // namespace QN::testing_support
