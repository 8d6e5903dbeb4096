// Prints functions and scopes in any of the library's forms, with what belongs around them: where
// entities were made, if they know it, and what a verification finds.
//
// The two switches are process-wide. A printer is made for one print and owns nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace QN {

class Function;
class Scope;

enum class PrintForm : std::uint8_t { Html, Text, Qnel, Dot };

/// "html", "txt", "qnel", "dot": the ending of a file in that form.
[[nodiscard]] std::string_view endingOf(PrintForm form) noexcept;

class PrettyPrinter {
public:
    /// `title` is what a page calls itself; it lives as long as the printer.
    explicit PrettyPrinter(PrintForm form, bool disambiguateNames = false,
                           std::string_view title = {}) noexcept
        : form_(form), disambiguateNames_(disambiguateNames), title_(title) {}

    /// Append to `out`.
    void print(const Function& function, std::string& out) const;
    void print(const Scope& scope, std::string& out) const;

    /// Whether arithmetic nodes show how they round and overflow, also where that is the default;
    /// off at start. QNEL always shows what is not the default.
    [[nodiscard]] static bool doPrintMathRoundingOverflow() noexcept;
    static void setDoPrintMathRoundingOverflow(bool print) noexcept;

    /// Whether what is printed is verified too, and the failures stand at its top; on at start.
    [[nodiscard]] static bool doSanityCheck() noexcept;
    static void setDoSanityCheck(bool check) noexcept;

private:
    PrintForm form_;
    bool disambiguateNames_;
    std::string_view title_;
};

} // namespace QN
