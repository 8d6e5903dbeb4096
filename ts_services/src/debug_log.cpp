// Composes the paths of debug files. See the header for the form of a name.
#include <ts/debug_log.hpp>
#include <ts/switch_changes.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace tssv::debug {

namespace {

// Shared by all logs of the process, so that no two files of one run ever get the same number.
std::uint64_t fileCounter = 0;

std::string withoutSlashes(std::string text) {
    std::replace(text.begin(), text.end(), '/', '_');
    return text;
}

} // namespace

std::string DebugLog::logDirectory() const {
    if (mode_ == Mode::Manual) {
        return directory_;
    }
    const char* temporary = std::getenv("TMPDIR");
    std::string folder = temporary != nullptr && *temporary != '\0' ? temporary : "/tmp";
    if (folder.back() != '/') {
        folder += '/';
    }
    return folder + "quarn-debug";
}

void DebugLog::setLogDirectory(const std::string& directory) {
    tssv::detail::switchChanges += directory != directory_ ? 1 : 0;
    directory_ = directory;
    mode_ = directory.empty() ? Mode::Auto : Mode::Manual;
}

void DebugLog::setUsePIDInName(bool use) noexcept {
    tssv::detail::switchChanges += use != usePIDInName_ ? 1 : 0;
    usePIDInName_ = use;
}

std::string DebugLog::logFilePath(const std::string& first, const std::string& second) {
    std::string path = logDirectory();
    if (path.back() != '/') {
        path += '/';
    }
    path += withoutSlashes(first);
    if (usePIDInName_) {
        path += '-' + std::to_string(::getpid());
    }
    char number[32];
    std::snprintf(number, sizeof number, "-%04llu", static_cast<unsigned long long>(++fileCounter));
    path += number;
    if (!second.empty()) {
        if (second.front() != '.') {
            path += '.';
        }
        path += withoutSlashes(second);
    }
    return path;
}

std::string DebugLog::makeLogDirectory() const {
    std::error_code error;
    const std::filesystem::path folder = logDirectory();
    std::filesystem::create_directories(folder, error);
    // create_directories reports no error for an existing file on some implementations.
    if (!error && !std::filesystem::is_directory(folder, error) && !error) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    return error ? "cannot make the folder '" + folder.string() + "': " + error.message()
                 : std::string();
}

std::uint64_t DebugLog::nextNumber() noexcept {
    return fileCounter + 1;
}

void DebugLog::resetCounter() noexcept {
    fileCounter = 0;
}

} // namespace tssv::debug
