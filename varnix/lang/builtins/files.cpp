// Built-in functions on files and folders. Errors of the operating system raise "varnix:ioError"
// with the path and the system's reason.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "lang/interpreter.hpp"
#include "value/format.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnix::builtins {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void failIo(const Arguments& in, std::string_view what, std::string_view path,
                         int code) {
    in.failWith(id::ioError, fmt::format("cannot {} {}: {}", what, path, std::strerror(code)));
}

/// An open file; closes it.
class File {
public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int descriptor() const { return descriptor_; }
    /// Whether all went well, which some file systems tell only now.
    bool close() { return descriptor_ < 0 || ::close(std::exchange(descriptor_, -1)) == 0; }
    [[nodiscard]] bool write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t n = ::write(descriptor_, text.data(), text.size());
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            text.remove_prefix(static_cast<std::size_t>(n));
        }
        return true;
    }

private:
    int descriptor_;
};

void readfile(BuiltinCall& call) {
    const Arguments in(call);
    const std::string path = in.path(0);
    const File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen())
        failIo(in, "read", path, errno);
    std::string text;
    struct stat status = {};
    if (::fstat(file.descriptor(), &status) == 0 && S_ISREG(status.st_mode))
        text.reserve(static_cast<std::size_t>(status.st_size) + 1);
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(file.descriptor(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            failIo(in, "read", path, errno);
        if (n == 0)
            break;
        text.append(buffer, static_cast<std::size_t>(n));
        if (text.size() > maxArrayBytes)
            in.failWith(id::tooLarge, fmt::format("{} is too large", path));
    }
    call.give(Value::text(text));
}

/// Devices and pipes are written to as they are.
void writeThrough(const Arguments& in, const std::string& path, std::string_view text) {
    File file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file.isOpen() || !file.write(text) || !file.close())
        failIo(in, "write", path, errno);
}

/// Files are written whole or not at all: into a new file beside, which then takes the name.
void writefile(BuiltinCall& call) {
    const Arguments in(call);
    std::string path = in.path(0);
    const std::string_view text = in.text(1);
    struct stat status = {};
    mode_t mode = 0666;
    if (::stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode))
            failIo(in, "write", path, EISDIR);
        if (!S_ISREG(status.st_mode))
            return writeThrough(in, path, text);
        if (::access(path.c_str(), W_OK) != 0)
            failIo(in, "write", path, errno);
        mode = status.st_mode & 07777;
        // A link stays a link: what it points at is replaced.
        std::error_code error;
        if (const fs::path target = fs::canonical(path, error); !error)
            path = target.string();
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        mode &= ~mask;
    }
    std::string beside = path + ".XXXXXX";
    File file(::mkstemp(beside.data()));
    if (!file.isOpen())
        failIo(in, "write", path, errno);
    if (!file.write(text) || ::fchmod(file.descriptor(), mode) != 0 || !file.close() ||
        ::rename(beside.c_str(), path.c_str()) != 0) {
        const int code = errno;
        ::unlink(beside.c_str());
        failIo(in, "write", path, code);
    }
}

void appendfile(BuiltinCall& call) {
    const Arguments in(call);
    const std::string path = in.path(0);
    const std::string_view text = in.text(1);
    File file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (!file.isOpen() || !file.write(text) || !file.close())
        failIo(in, "write", path, errno);
}

void isfile(BuiltinCall& call) {
    std::error_code error;
    call.give(Value::ofLogical(fs::is_regular_file(Arguments(call).path(0), error)));
}
void isfolder(BuiltinCall& call) {
    std::error_code error;
    call.give(Value::ofLogical(fs::is_directory(Arguments(call).path(0), error)));
}

void makefolder(BuiltinCall& call) {
    const Arguments in(call);
    const std::string path = in.path(0);
    std::error_code error;
    fs::create_directories(path, error);
    if (error)
        failIo(in, "make", path, error.value());
}

void removefile(BuiltinCall& call) {
    const Arguments in(call);
    const std::string path = in.path(0);
    if (::remove(path.c_str()) != 0)
        failIo(in, "remove", path, errno);
}

void pwd(BuiltinCall& call) {
    const Arguments in(call);
    std::error_code error;
    const fs::path folder = fs::current_path(error);
    if (error)
        failIo(in, "name", "the current folder", error.value());
    call.give(Value::text(folder.string()));
}

void cd(BuiltinCall& call) {
    const Arguments in(call);
    const char* const home = std::getenv("HOME");
    const std::string path = in.has(0) ? in.path(0) : std::string(home ? home : "/");
    if (::chdir(path.c_str()) != 0)
        failIo(in, "go to", path, errno);
    call.interpreter.foldersChanged();
}

/// The names in a folder, or the paths that fit a pattern with * and ?.
void ls(BuiltinCall& call) {
    const Arguments in(call);
    const std::string path = in.has(0) ? in.path(0) : ".";
    std::vector<std::string> names;
    if (path.find_first_of("*?") != std::string::npos) {
        glob_t found = {};
        if (::glob(path.c_str(), 0, nullptr, &found) == 0)
            names.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
        ::globfree(&found);
    } else {
        std::error_code error;
        fs::directory_iterator entry(path, error);
        while (!error && entry != fs::directory_iterator()) {
            names.push_back(entry->path().filename().string());
            entry.increment(error);
        }
        if (error)
            failIo(in, "list", path, error.value());
    }
    std::sort(names.begin(), names.end());
    call.give(textColumn(names));
}

void tempname(BuiltinCall& call) {
    const Arguments in(call);
    static std::uint64_t counter = 0; // makes the names of one process differ
    const char* const chosen = std::getenv("TMPDIR");
    const fs::path folder = chosen && *chosen ? chosen : "/tmp";
    std::error_code error;
    for (;;) {
        const fs::path path = folder / fmt::format("varnix-{}-{}", ::getpid(), ++counter);
        if (!fs::exists(fs::symlink_status(path, error)))
            return call.give(Value::text(path.string()));
    }
}

constexpr Builtin table[] = {
    {"readfile", "readfile(file)", "The contents of a file as a text.", 1, 1, 1, readfile},
    {"writefile", "writefile(file, text)",
     "Writes a text to a file, replacing what it held, whole or not at all.", 2, 2, 0, writefile},
    {"appendfile", "appendfile(file, text)",
     "Writes a text at the end of a file, which is made where there is none.", 2, 2, 0, appendfile},
    {"isfile", "isfile(path)",
     "Whether there is a file of that path.\nExample: isfile(\"/\") gives false", 1, 1, 1, isfile},
    {"isfolder", "isfolder(path)",
     "Whether there is a folder of that path.\nExample: isfolder(\"/\") gives true", 1, 1, 1,
     isfolder},
    {"makefolder", "makefolder(path)", "Makes a folder and those above it, where they are missing.",
     1, 1, 0, makefolder},
    {"removefile", "removefile(path)", "Removes a file or an empty folder.", 1, 1, 0, removefile},
    {"pwd", "pwd", "The path of the current folder.\nExample: isfolder(pwd) gives true", 0, 0, 1,
     pwd},
    {"cd", "cd(folder)", "Changes the current folder, to the home folder without an argument.", 0,
     1, 0, cd},
    {"ls", "ls(path)",
     "The names in a folder in order (the current one without a path), or the paths that fit a "
     "pattern with * and ?, as an N by 1 cell.\nExample: iscell(ls(\"/\")) gives true",
     0, 1, 1, ls},
    {"tempname", "tempname",
     "A path for a temporary file or folder of which there is none yet, in the folder $TMPDIR or "
     "/tmp.\nExample: isfile(tempname) gives false",
     0, 0, 1, tempname},
};

} // namespace

Table files() {
    return table;
}

} // namespace varnix::builtins
