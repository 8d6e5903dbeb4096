// Prints the IR before and after transforms, one file per run and side, so that one can leaf
// through a compilation:
//
//   FOLDER/NNNN-before-TAG.ENDING and FOLDER/NNNN-after-TAG.ENDING     FOLDER: outputFolderName()
//
// A run over a function prints that function, a run over a scope the scope. HTML dumps are listed
// in FOLDER/index.html. Numbering and the index begin anew when the folder changes.
//
// Owner: whoever makes it. What each dump looks like is PrettyPrinter's business.
#pragma once

#include <qn/debug_service.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace QN {

class PrettyPrintService : public DebugService {
public:
    /// The numbers are known to callers. Any other value is taken for Html.
    enum class OutputFormat : std::int32_t { Html = 0, Text = 1, Qnel = 2, Dot = 3 };

    /// With the sides that are requested from the start.
    PrettyPrintService(bool before, bool after);
    ~PrettyPrintService() override;

    /// Html at start.
    [[nodiscard]] OutputFormat outputFormat() const noexcept { return format_; }
    void setOutputFormat(OutputFormat format) noexcept;

    /// Whether equal names of variables are told apart (x, x_1); off at start. QNEL always tells
    /// them apart, in its own way.
    [[nodiscard]] bool varNameDisambiguation() const noexcept { return disambiguates_; }
    void setVarNameDisambiguation(bool disambiguate) noexcept;

    /// On: the numbers of the files that are kept follow each other. Off, as at start: a number is
    /// a place in the sequence of all sides of all runs, printed or not, so that equal numbers mean
    /// equal places whatever the filter.
    [[nodiscard]] bool gaplessNumbering() const noexcept { return gapless_; }
    void setGaplessNumbering(bool gapless) noexcept;

    /// Whether an after that equals the previous dump of the same function or scope is left out;
    /// off at start.
    [[nodiscard]] bool removeIdenticalFiles() const noexcept { return removesIdentical_; }
    void setRemoveIdenticalFiles(bool remove) noexcept;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    void dump(const TransformRun& run, bool after);
    void set(bool& setting, bool value) noexcept;

    OutputFormat format_ = OutputFormat::Html;
    bool disambiguates_ = false;
    bool gapless_ = false;
    bool removesIdentical_ = false;
    std::unique_ptr<State> state_;
};

} // namespace QN
