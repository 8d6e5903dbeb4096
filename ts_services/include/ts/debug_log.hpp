// The debug log: decides in which folder debug output goes and what its files are called. Every
// writer of debug files asks it for their paths, so that one setting moves them all.
//
// Owner: whoever makes one; the process's own is QN::DefaultServices::debugServices().debugLog().
// The counter is shared by all logs of the process. One thread only.
#pragma once

#include <cstdint>
#include <string>

namespace tssv::debug {

class DebugLog {
public:
    /// AUTO until somebody sets a directory, MANUAL from then on.
    enum class Mode : std::int32_t { Auto = 0, Manual = 1 };

    DebugLog() = default;

    /// The folder of debug output, without a trailing slash unless it was given with one. In AUTO
    /// mode "quarn-debug" under the folder for temporary files (TMPDIR, or /tmp), found afresh on
    /// each call.
    [[nodiscard]] std::string logDirectory() const;

    /// Makes `directory` the folder of debug output, as given, and the mode MANUAL. An empty text
    /// goes back to AUTO. The folder is not made here; see makeLogDirectory().
    void setLogDirectory(const std::string& directory);

    [[nodiscard]] Mode mode() const noexcept { return mode_; }

    /// Whether file names carry the process id, which keeps two processes that share a folder
    /// apart.
    [[nodiscard]] bool usePIDInName() const noexcept { return usePIDInName_; }
    void setUsePIDInName(bool use) noexcept;

    /// A new path for a debug file: DIRECTORY/FIRST[-PID]-NNNN[.SECOND], where NNNN is the
    /// counter's next value in at least four digits. `first` is the stem, `second` the ending with
    /// or without its dot. Slashes in either become underscores, so that the file stays inside the
    /// folder. Nothing is created.
    [[nodiscard]] std::string logFilePath(const std::string& first, const std::string& second);

    /// Makes the folder with all its parents. Returns an empty text, or what went wrong.
    [[nodiscard]] std::string makeLogDirectory() const;

    /// The number that the next file of the process gets, starting at 1.
    [[nodiscard]] static std::uint64_t nextNumber() noexcept;

    /// Numbering starts again at 1.
    static void resetCounter() noexcept;

private:
    std::string directory_;
    Mode mode_ = Mode::Auto;
    bool usePIDInName_ = true;
};

} // namespace tssv::debug
