// Writing of debug files. Each file appears under its final name whole or not at all; what goes
// wrong is said once on the console, and the compilation goes on.
//
// Owner: each service has its own writer or log. Inside the library only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace QN::detail {

/// The tag of a run as a part of a file name: without what cannot stand in one, and not too long.
[[nodiscard]] std::string asFileName(std::string_view tag);

/// Says on the console what goes wrong, but not the same thing twice in a row.
class FailureReport {
public:
    /// `what` is one sentence without its line end.
    void failed(const std::string& what);
    /// After a success the next failure is told again, whatever it is.
    void succeeded() noexcept { last_.clear(); }

private:
    std::string last_;
};

/// Writes whole files.
class FileWriter {
public:
    /// Makes `bytes` the contents of the file `path`, whose folder is made if it is not there.
    /// Returns whether it worked; if not, a file of that name is as it was before. A link stays and
    /// its target is written; what is no file, such as a device or a pipe, takes the bytes in.
    bool write(const std::string& path, std::string_view bytes);

private:
    FailureReport report_;
};

/// A file that grows piece by piece; each piece gets in whole or not at all.
class GrowingFile {
public:
    GrowingFile() noexcept = default;
    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;
    ~GrowingFile() { close(); }

    /// Begins the file `path` anew with `head`, its first piece; its folder must be there. Returns
    /// whether it worked; if not, no file without its head stays behind.
    bool create(const std::string& path, std::string_view head = {});
    /// Appends to the file, if one is open. Returns whether the piece is in it.
    bool append(std::string_view piece);
    void close() noexcept;

    /// Whether a file is open and still stands under its path: somebody may have removed it.
    [[nodiscard]] bool isThere() const noexcept;
    /// Empty if no file is open.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
    std::int64_t size_ = 0;
    std::uint64_t device_ = 0; // with serial_, which file this is
    std::uint64_t serial_ = 0;
    int file_ = -1;
    FailureReport report_;
};

/// A text file in the debug log's folder that grows line by line. The file is made at the first
/// line, and a new one when the debug log names files in another way than at the last. One that
/// cannot be made, or that somebody removes, is tried again under its name at the next line.
class LogFile {
public:
    /// `stem` is the first part of the file's name and outlives this object.
    explicit LogFile(std::string_view stem) noexcept : stem_(stem) {}

    /// Appends `lines`, which end with a line end. Nothing is kept in memory.
    void append(std::string_view lines);

    /// The file that append() wrote to last; empty if there is none.
    [[nodiscard]] const std::string& path() const noexcept { return file_.path(); }

private:
    bool open();

    std::string_view stem_;
    std::string target_; // path of the file in folder_, once that could be made
    std::string folder_;
    bool processIdInName_ = false;
    GrowingFile file_;
    FailureReport report_;
};

} // namespace QN::detail
