// The lexer: source text to tokens.
//
// Blanks, comments and joined lines vanish here; a line end is a token of its own except inside
// brackets, where it is a blank. Every token knows its place.
#pragma once

#include "lang/source.hpp"
#include "value/value.hpp"

#include <memory_resource>
#include <string_view>
#include <vector>

namespace varnix {

enum class TokenKind : std::uint8_t {
    EndOfInput,
    EndOfLine,
    Name,
    Number,
    Text,
    // keywords
    If,
    ElseIf,
    Else,
    For,
    While,
    Switch,
    Case,
    Otherwise,
    Break,
    Continue,
    Try,
    Catch,
    End,
    Function,
    Return,
    Fn,
    True,
    False,
    // brackets and separators
    LeftParen,
    RightParen,
    LeftBracket,
    RightBracket,
    LeftBrace,
    RightBrace,
    Comma,
    Semicolon,
    Colon,
    Dot,
    Assign,
    // operators
    OrElse,
    AndAlso,
    Or,
    And,
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    Plus,
    Minus,
    Star,
    Slash,
    DotStar,
    DotSlash,
    Caret,
    DotCaret,
    Not,
};

/// The token as a person would name it in "expected ...": "')'", "a name", "end of line".
[[nodiscard]] const char* nameOf(TokenKind kind);
[[nodiscard]] bool isKeyword(TokenKind kind);

struct Token {
    TokenKind kind = TokenKind::EndOfInput;
    /// Numbers: the class of the literal; its value is `number`, or `magnitude` for integers. The
    /// range of an integer is checked by the parser, which knows whether a minus stands before it.
    Tag tag = Tag::Double;
    Place place;
    std::uint32_t begin = 0; ///< offset of the first byte in the source
    std::uint32_t end = 0;   ///< offset after the last one
    union {
        double number;
        std::uint64_t magnitude = 0;
    };
    /// Names: as written. Texts: the characters that the literal stands for.
    std::string_view text;
};

/// A comment that stands alone on its line; what help shows of a script function.
struct Comment {
    std::uint32_t line = 0;
    std::string_view text; ///< without the '#' and one blank after it
};

struct TokenList {
    std::vector<Token> tokens; ///< the last one is EndOfInput
    std::vector<Comment> comments;
    bool endsInJoin = false; ///< the last line ended with "..."
};

/// Splits a source into tokens. Texts that differ from how they are written are put into `arena`;
/// the result refers to it and to the source. Raises "varnix:syntax".
[[nodiscard]] TokenList tokenize(const Source& source, std::pmr::memory_resource& arena);

} // namespace varnix
