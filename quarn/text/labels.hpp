// How the variables and constants of one function are written, worked out once per print.
#pragma once

#include <qn/cfg.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace QN::text {

[[nodiscard]] bool isIdentifier(std::string_view text) noexcept;

/// Appends `text` in double quotes, with escapes for what cannot stand inside.
void appendQuoted(std::string& out, std::string_view text);

/// Appends an identifier as it is, anything else quoted.
void appendName(std::string& out, std::string_view name);

/// Appends a name as it is, but one with control characters quoted: it must not end a line.
void appendPlainName(std::string& out, std::string_view name);
/// Whether appendPlainName() appends something else than the name.
[[nodiscard]] bool hasControlCharacters(std::string_view name) noexcept;

/// Appends a constant: "1.5", "-inf", "5i32", "true".
void appendConstant(std::string& out, const Const& constant);

/// Roughly how long a function, or a scope with all in it, is in a form with one line per node.
[[nodiscard]] std::size_t expectedLength(const Function& function) noexcept;
[[nodiscard]] std::size_t expectedLength(const Scope& scope) noexcept;

/// The text of an operation, followed by enough for Pen::putQuickly().
[[nodiscard]] std::string_view textOf(Op op) noexcept;

/// How often each name of a function's variables occurs. A function has a handful of variables and
/// is printed often, so this is a flat table with a cheap hash, not a general map.
class NameCounts {
public:
    void take(const Cfg& cfg);
    [[nodiscard]] std::uint32_t of(std::string_view name) const noexcept {
        return const_cast<NameCounts*>(this)->find(name).count;
    }

private:
    struct Slot {
        std::string_view name;
        std::uint32_t count = 0;
    };
    /// The slot of the name, or the free one where it would go.
    Slot& find(std::string_view name) noexcept;

    std::vector<Slot> slots_; // a power of two, at most half full
};

/// Labels of one function at a time; used again for the next one, it keeps its memory. The text of
/// a label is followed by enough for Pen::putQuickly().
class Labels {
public:
    enum class Style : std::uint8_t {
        Qnel,        // $name, $name.N, $.N
        Plain,       // names as they are; tN for a temporary without one
        Disambiguate // the same, with _1, _2 behind repeated ones
    };
    /// What becomes of names with control characters. Labels of QNEL hold only identifiers.
    enum class Controls : std::uint8_t { AsTheyAre, Quoted };
    Labels() = default;
    Labels(const Cfg& cfg, Style style) { take(cfg, style); }
    Labels(const Labels&) = delete;
    Labels& operator=(const Labels&) = delete;

    void take(const Cfg& cfg, Style style, Controls controls = Controls::AsTheyAre);

    [[nodiscard]] std::string_view of(const Var& var) const noexcept { return vars_[var.id()]; }
    [[nodiscard]] std::string_view of(const Const& constant) const noexcept {
        return consts_[constant.id()];
    }
    /// The length of the longest label.
    [[nodiscard]] std::size_t longest() const noexcept { return longest_; }

private:
    /// Append the labels in order of declaration and note where each ends.
    void addVarLabels(const Cfg& cfg, Style style);
    void addName(std::string_view name);
    void addDisambiguated(const Cfg& cfg);

    std::string text_;
    std::vector<std::string_view> vars_;   // by id
    std::vector<std::string_view> consts_; // by id
    std::size_t longest_ = 0;
    Controls controls_ = Controls::AsTheyAre;
    std::vector<std::size_t> ends_;
    NameCounts counts_;
};

} // namespace QN::text
