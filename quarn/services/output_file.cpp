// See output_file.hpp.
#include "services/output_file.hpp"

#include <qn/console.hpp>
#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace QN::detail {

namespace {

// Zero, or the error number.
int writeAll(int file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0) {
            return ENOSPC;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int writeNewFile(const std::string& path, std::string_view bytes) noexcept {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        return errno;
    }
    const int error = writeAll(file, bytes);
    const int closeError = ::close(file) == 0 ? 0 : errno; // network disks tell here
    return error != 0 ? error : closeError;
}

// The file that takes the place of what stands at `path`: of a link its target. Empty where nothing
// may take that place and the bytes go into what is there: a device, a pipe, a link to nowhere.
std::string replaceable(const std::string& path) {
    struct stat found;
    if (::lstat(path.c_str(), &found) != 0) {
        return path;
    }
    if (!S_ISLNK(found.st_mode)) {
        return S_ISREG(found.st_mode) || S_ISDIR(found.st_mode) ? path : "";
    }
    std::error_code nowhere;
    const std::string target = std::filesystem::canonical(path, nowhere).string();
    return nowhere ? "" : replaceable(target);
}

} // namespace

std::string asFileName(std::string_view tag) {
    constexpr std::size_t longest = 180;
    std::string name(tag.substr(0, longest));
    std::replace_if(
        name.begin(), name.end(),
        [](char c) { return c == '/' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '_');
    if (tag.size() > longest) {
        char hash[24];
        std::snprintf(hash, sizeof hash, "~%016zx", std::hash<std::string_view>()(tag));
        name += hash;
    }
    return name;
}

void FailureReport::failed(const std::string& what) {
    if (what != last_) {
        last_ = what;
        consoleWrite(what + "\n");
    }
}

bool FileWriter::write(const std::string& path, std::string_view bytes) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const std::string target = replaceable(path);
    // The process id keeps two processes that write the same file apart.
    const std::string temporary =
        target.empty() ? path : target + "." + std::to_string(::getpid()) + ".part";
    int error = writeNewFile(temporary, bytes);
    if (error == ENOENT && !folder.empty()) {
        std::error_code noFolder;
        std::filesystem::create_directories(folder, noFolder);
        if (noFolder) {
            report_.failed("Cannot make the folder '" + folder.string() +
                           "': " + noFolder.message() + ".");
            return false;
        }
        error = writeNewFile(temporary, bytes);
    }
    if (error == 0 && !target.empty() && ::rename(temporary.c_str(), target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        if (!target.empty()) {
            ::unlink(temporary.c_str());
        }
        std::error_code none;
        if (std::filesystem::is_directory(path, none)) {
            report_.failed("Cannot write '" + path + "': " + std::strerror(EISDIR) + ".");
            return false;
        }
        const std::string place =
            folder.empty() ? std::string("this folder") : "'" + folder.string() + "'";
        report_.failed("Cannot write files in " + place + ": " + std::strerror(error) + ".");
        return false;
    }
    report_.succeeded();
    return true;
}

bool GrowingFile::create(const std::string& path, std::string_view head) {
    close();
    file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    struct stat made;
    if (file_ < 0 || ::fstat(file_, &made) != 0) {
        report_.failed("Cannot open '" + path + "': " + std::strerror(errno) + ".");
        close();
        return false;
    }
    path_ = path;
    device_ = made.st_dev;
    serial_ = made.st_ino;
    if (append(head)) {
        return true;
    }
    if (S_ISREG(made.st_mode)) {
        ::unlink(path.c_str());
    }
    close();
    return false;
}

void GrowingFile::close() noexcept {
    if (file_ >= 0) {
        ::close(file_);
        file_ = -1;
    }
    path_.clear();
    size_ = 0;
}

bool GrowingFile::isThere() const noexcept {
    struct stat found;
    return file_ >= 0 && ::stat(path_.c_str(), &found) == 0 && found.st_dev == device_ &&
           found.st_ino == serial_;
}

bool GrowingFile::append(std::string_view piece) {
    if (file_ < 0) {
        return false;
    }
    if (const int error = writeAll(file_, piece); error != 0) {
        // What got into the file of this piece goes out again.
        if (::ftruncate(file_, size_) == 0) {
            ::lseek(file_, size_, SEEK_SET);
        }
        report_.failed("Cannot write to '" + path_ + "': " + std::strerror(error) + ".");
        return false;
    }
    size_ += static_cast<std::int64_t>(piece.size());
    if (!piece.empty()) {
        report_.succeeded();
    }
    return true;
}

bool LogFile::open() {
    tssv::debug::DebugLog& log = DefaultServices::debugServices().debugLog();
    if (const std::string problem = log.makeLogDirectory(); !problem.empty()) {
        report_.failed("Cannot write the " + std::string(stem_) + ": " + problem + ".");
        return false;
    }
    if (target_.empty()) {
        target_ = log.logFilePath(std::string(stem_), "txt");
    }
    return file_.create(target_);
}

void LogFile::append(std::string_view lines) {
    const tssv::debug::DebugLog& log = DefaultServices::debugServices().debugLog();
    std::string folder = log.logDirectory();
    if (folder != folder_ || log.usePIDInName() != processIdInName_) {
        file_.close();
        target_.clear();
        folder_ = std::move(folder);
        processIdInName_ = log.usePIDInName();
    }
    if (file_.isThere() || open()) {
        file_.append(lines);
    }
}

} // namespace QN::detail
