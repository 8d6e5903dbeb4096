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

/// Appends a constant: "1.5", "-inf", "5i32", "true".
void appendConstant(std::string& out, const Const& constant);

/// Roughly how long a function, or a scope with all in it, is in a form with one line per node.
[[nodiscard]] std::size_t expectedLength(const Function& function) noexcept;
[[nodiscard]] std::size_t expectedLength(const Scope& scope) noexcept;

class Labels {
public:
    enum class Style : std::uint8_t {
        Qnel,        // $name, $name.N, $.N
        Plain,       // names as they are; tN for a temporary without one
        Disambiguate // the same, with _1, _2 behind repeated ones
    };
    Labels(const Cfg& cfg, Style style);

    [[nodiscard]] std::string_view of(const Var& var) const noexcept { return vars_[var.id()]; }
    [[nodiscard]] std::string_view of(const Const& constant) const noexcept {
        return consts_[constant.id()];
    }
    /// The length of the longest label.
    [[nodiscard]] std::size_t longest() const noexcept { return longest_; }

private:
    /// Append the labels in order of declaration and note where each ends.
    void addVarLabels(const Cfg& cfg, Style style, std::vector<std::size_t>& ends);
    void addDisambiguated(const Cfg& cfg, std::vector<std::size_t>& ends);

    std::string text_;
    std::vector<std::string_view> vars_;   // by id
    std::vector<std::string_view> consts_; // by id
    std::size_t longest_ = 0;
};

} // namespace QN::text
