// Cuts QNEL into parentheses, atoms and strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace QN::text {

enum class TokenKind : std::uint8_t { Open, Close, Atom, String, End, Bad };

/// One token: its text lies in the source; a string's includes the quotes.
struct Token {
    TokenKind kind = TokenKind::End;
    std::size_t offset = 0;
    std::string_view text;
};

class Lexer {
public:
    /// A byte order mark, which some editors put in front, is no token.
    explicit Lexer(std::string_view source) noexcept
        : source_(source), at_(source.starts_with("\xEF\xBB\xBF") ? 3 : 0) {}

    /// The next token; End again and again at the end. Bad is a string without its end.
    Token next() noexcept;
    [[nodiscard]] std::string_view source() const noexcept { return source_; }

private:
    std::string_view source_;
    std::size_t at_;
};

/// The text that a string token means; false if an escape is malformed.
[[nodiscard]] bool unquote(std::string_view token, std::string& out);

} // namespace QN::text
