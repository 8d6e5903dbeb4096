// The lexer. One pass over the bytes; see lexer.hpp.
#include "lang/lexer.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <unordered_map>

namespace varnix {

namespace {

constexpr std::array tokenNames = {
    "end of input", "end of line", "a name",  "a number", "a text",     "'if'",        "'elseif'",
    "'else'",       "'for'",       "'while'", "'switch'", "'case'",     "'otherwise'", "'break'",
    "'continue'",   "'try'",       "'catch'", "'end'",    "'function'", "'return'",    "'fn'",
    "'true'",       "'false'",     "'('",     "')'",      "'['",        "']'",         "'{'",
    "'}'",          "','",         "';'",     "':'",      "'.'",        "'='",         "'||'",
    "'&&'",         "'|'",         "'&'",     "'=='",     "'!='",       "'<'",         "'<='",
    "'>'",          "'>='",        "'+'",     "'-'",      "'*'",        "'/'",         "'.*'",
    "'./'",         "'^'",         "'.^'",    "'!'",
};
static_assert(tokenNames.size() == static_cast<std::size_t>(TokenKind::Not) + 1);

const std::unordered_map<std::string_view, TokenKind>& keywords() {
    static const std::unordered_map<std::string_view, TokenKind> table = {
        {"if", TokenKind::If},         {"elseif", TokenKind::ElseIf},
        {"else", TokenKind::Else},     {"for", TokenKind::For},
        {"while", TokenKind::While},   {"switch", TokenKind::Switch},
        {"case", TokenKind::Case},     {"otherwise", TokenKind::Otherwise},
        {"break", TokenKind::Break},   {"continue", TokenKind::Continue},
        {"try", TokenKind::Try},       {"catch", TokenKind::Catch},
        {"end", TokenKind::End},       {"function", TokenKind::Function},
        {"return", TokenKind::Return}, {"fn", TokenKind::Fn},
        {"true", TokenKind::True},     {"false", TokenKind::False},
    };
    return table;
}

// Classification by hand: the C library's depends on the locale.
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
int hexDigit(char c) {
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

class Lexer {
public:
    Lexer(const Source& source, std::pmr::memory_resource& arena)
        : source_(source), text_(source.text), arena_(arena) {}

    TokenList run() {
        if (text_.size() >= std::numeric_limits<std::uint32_t>::max())
            raiseAt("varnix:tooLarge", source_, {}, "source text of 4 gigabytes or more");
        if (text_.starts_with("\xEF\xBB\xBF")) // a byte order mark
            at_ = lineStart_ = 3;
        if (text_.starts_with("#!")) // run as a program by the system
            skipComment();
        while (at_ < text_.size())
            one();
        begin_ = at_;
        beginPlace_ = here();
        add(TokenKind::EndOfInput);
        return std::move(list_);
    }

private:
    [[nodiscard]] char peek(std::size_t ahead = 0) const {
        return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
    }
    [[nodiscard]] Place here() const {
        return {line_, static_cast<std::uint32_t>(at_ - lineStart_ - continuations_ + 1)};
    }
    [[noreturn]] void fail(Place place, std::string message) const {
        raiseSyntax(source_, place, std::move(message));
    }

    /// Steps over one byte of text that may hold characters of several bytes.
    void stepOver() {
        if ((static_cast<unsigned char>(text_[at_]) & 0xC0u) == 0x80u)
            ++continuations_;
        ++at_;
    }
    void newLine() { // at_ is after the line end
        ++line_;
        lineStart_ = at_;
        continuations_ = 0;
    }

    Token& add(TokenKind kind) {
        Token& token = list_.tokens.emplace_back();
        token.kind = kind;
        token.place = beginPlace_;
        token.begin = static_cast<std::uint32_t>(begin_);
        token.end = static_cast<std::uint32_t>(at_);
        return token;
    }
    void addAfter(TokenKind kind, std::size_t length) {
        at_ += length;
        add(kind);
    }

    void one() {
        begin_ = at_;
        beginPlace_ = here();
        const char c = text_[at_];
        switch (c) {
        case ' ':
        case '\t':
        case '\r':
        case '\f':
        case '\v':
            ++at_;
            return;
        case '\n':
            ++at_;
            if (brackets_ == 0)
                add(TokenKind::EndOfLine);
            newLine();
            return;
        case '#':
            skipComment();
            return;
        case '"':
            escapedText();
            return;
        case '\'':
            rawText();
            return;
        default:
            break;
        }
        if (isLetter(c))
            name();
        else if (isDigit(c) || (c == '.' && isDigit(peek(1))))
            number();
        else if (c == '.' && peek(1) == '.' && peek(2) == '.')
            joinLines();
        else
            punctuation(c);
    }

    void skipComment() {
        const std::size_t start = at_;
        const bool alone =
            text_.substr(lineStart_, start - lineStart_).find_first_not_of(" \t\r") ==
            std::string_view::npos;
        while (at_ < text_.size() && text_[at_] != '\n')
            stepOver();
        if (!alone)
            return;
        std::string_view body = text_.substr(start + 1, at_ - start - 1);
        if (body.starts_with(' '))
            body.remove_prefix(1);
        while (body.ends_with('\r') || body.ends_with(' '))
            body.remove_suffix(1);
        list_.comments.push_back({line_, body});
    }

    void joinLines() {
        at_ += 3;
        while (peek() == ' ' || peek() == '\t' || peek() == '\r')
            ++at_;
        if (peek() == '#')
            while (at_ < text_.size() && text_[at_] != '\n')
                stepOver();
        if (at_ == text_.size()) {
            list_.endsInJoin = true;
            return;
        }
        if (text_[at_] != '\n')
            fail(here(), "expected end of line after '...'");
        ++at_;
        newLine();
        // A join on the last line has nothing to join with.
        list_.endsInJoin = text_.find_first_not_of(" \t\r\n", at_) == std::string_view::npos;
    }

    void name() {
        while (isLetter(peek()) || isDigit(peek()))
            ++at_;
        const std::string_view word = text_.substr(begin_, at_ - begin_);
        const auto found = keywords().find(word);
        add(found == keywords().end() ? TokenKind::Name : found->second).text = word;
    }

    void number() {
        const bool hexadecimal = peek() == '0' && (peek(1) == 'x' || peek(1) == 'X');
        std::uint64_t magnitude = 0;
        double value = 0;
        bool integral = true;
        bool overflow = false;
        if (hexadecimal) {
            at_ += 2;
            const std::size_t digits = at_;
            for (int digit = hexDigit(peek()); digit >= 0; digit = hexDigit(peek())) {
                overflow = overflow || (magnitude >> 60) != 0;
                magnitude = magnitude * 16 + static_cast<std::uint64_t>(digit);
                value = value * 16 + digit;
                ++at_;
            }
            if (at_ == digits)
                fail(here(), "expected hexadecimal digits after '0x'");
        } else {
            while (isDigit(peek()))
                ++at_;
            const std::size_t endOfDigits = at_;
            if (peek() == '.' && isDigit(peek(1))) {
                integral = false;
                ++at_;
                while (isDigit(peek()))
                    ++at_;
            }
            const std::size_t sign = peek(1) == '+' || peek(1) == '-' ? 2 : 1;
            if ((peek() == 'e' || peek() == 'E') && isDigit(peek(sign))) {
                integral = false;
                at_ += sign;
                while (isDigit(peek()))
                    ++at_;
            }
            const char* const first = text_.data() + begin_;
            const auto converted = std::from_chars(first, text_.data() + at_, value);
            if (converted.ec == std::errc::result_out_of_range)
                value = decimalBeyondRange(text_.substr(begin_, at_ - begin_));
            overflow = std::from_chars(first, text_.data() + endOfDigits, magnitude).ec ==
                       std::errc::result_out_of_range;
        }
        const Tag tag = suffix();
        if (isLetter(peek()) || isDigit(peek()))
            fail(here(), fmt::format("'{}' cannot follow a number", peek()));
        if (tag != Tag::Double && !integral)
            fail(beginPlace_, "an integer literal has no fraction and no exponent");
        if (tag != Tag::Double && overflow)
            fail(beginPlace_, "the number is too large for any integer class");
        Token& token = add(TokenKind::Number);
        token.tag = tag;
        if (tag == Tag::Double)
            token.number = value;
        else
            token.magnitude = magnitude;
    }

    /// from_chars leaves the value alone both for too large and for too small numbers.
    static double decimalBeyondRange(std::string_view digits) {
        return std::strtod(std::string(digits).c_str(), nullptr);
    }

    /// The class suffix of an integer literal: i8 to u64.
    Tag suffix() {
        if (peek() != 'i' && peek() != 'u')
            return Tag::Double;
        struct Row {
            std::string_view text;
            Tag tag;
        };
        static constexpr std::array<Row, 8> rows = {{{"i8", Tag::Int8},
                                                     {"i16", Tag::Int16},
                                                     {"i32", Tag::Int32},
                                                     {"i64", Tag::Int64},
                                                     {"u8", Tag::UInt8},
                                                     {"u16", Tag::UInt16},
                                                     {"u32", Tag::UInt32},
                                                     {"u64", Tag::UInt64}}};
        std::size_t length = 1;
        while (isDigit(peek(length)) || isLetter(peek(length)))
            ++length;
        const std::string_view written = text_.substr(at_, length);
        for (const Row& row : rows)
            if (row.text == written) {
                at_ += length;
                return row.tag;
            }
        fail(here(), fmt::format("'{}' is no class suffix of a number; they are i8, i16, i32, i64, "
                                 "u8, u16, u32, u64",
                                 written));
    }

    std::string_view keep(const std::string& text) {
        if (text.empty())
            return {};
        auto* const copy = static_cast<char*>(arena_.allocate(text.size(), 1));
        std::memcpy(copy, text.data(), text.size());
        return {copy, text.size()};
    }

    void escapedText() {
        ++at_;
        std::string out;
        while (peek() != '"' || at_ >= text_.size()) {
            if (at_ >= text_.size() || peek() == '\n')
                fail(beginPlace_, "the text that starts here has no closing '\"' on its line");
            if (peek() == '\\') {
                escape(out);
            } else {
                out += text_[at_];
                stepOver();
            }
        }
        ++at_;
        const std::string_view kept = keep(out);
        add(TokenKind::Text).text = kept;
    }

    void escape(std::string& out) {
        const Place place = here();
        ++at_;
        const char c = peek();
        if (at_ >= text_.size() || c == '\n')
            fail(beginPlace_, "the text that starts here has no closing '\"' on its line");
        stepOver();
        switch (c) {
        case 'n':
            out += '\n';
            return;
        case 't':
            out += '\t';
            return;
        case 'r':
            out += '\r';
            return;
        case '0':
            out += '\0';
            return;
        case 'a':
            out += '\a';
            return;
        case 'b':
            out += '\b';
            return;
        case 'f':
            out += '\f';
            return;
        case 'v':
            out += '\v';
            return;
        case 'e':
            out += '\x1b';
            return;
        case '\\':
        case '"':
        case '\'':
            out += c;
            return;
        case 'x': {
            const int high = hexDigit(peek());
            const int low = high < 0 ? -1 : hexDigit(peek(1));
            if (low < 0)
                fail(place, "'\\x' takes two hexadecimal digits");
            out += static_cast<char>(high * 16 + low);
            at_ += 2;
            return;
        }
        default:
            fail(place, fmt::format("unknown escape '\\{}'; a backslash itself is written '\\\\', "
                                    "and a text in single quotes knows no escapes",
                                    c));
        }
    }

    void rawText() {
        ++at_;
        std::string out;
        for (;;) {
            if (at_ >= text_.size() || peek() == '\n')
                fail(beginPlace_, "the text that starts here has no closing ''' on its line");
            if (peek() == '\'') {
                if (peek(1) != '\'')
                    break;
                ++at_;
            }
            out += text_[at_];
            stepOver();
        }
        ++at_;
        const std::string_view kept = keep(out);
        add(TokenKind::Text).text = kept;
    }

    void punctuation(char c) {
        const char next = peek(1);
        switch (c) {
        case '(':
            ++brackets_;
            return addAfter(TokenKind::LeftParen, 1);
        case '[':
            ++brackets_;
            return addAfter(TokenKind::LeftBracket, 1);
        case '{':
            ++brackets_;
            return addAfter(TokenKind::LeftBrace, 1);
        case ')':
            close();
            return addAfter(TokenKind::RightParen, 1);
        case ']':
            close();
            return addAfter(TokenKind::RightBracket, 1);
        case '}':
            close();
            return addAfter(TokenKind::RightBrace, 1);
        case ',':
            return addAfter(TokenKind::Comma, 1);
        case ';':
            return addAfter(TokenKind::Semicolon, 1);
        case ':':
            return addAfter(TokenKind::Colon, 1);
        case '=':
            return next == '=' ? addAfter(TokenKind::Equal, 2) : addAfter(TokenKind::Assign, 1);
        case '!':
            return next == '=' ? addAfter(TokenKind::NotEqual, 2) : addAfter(TokenKind::Not, 1);
        case '<':
            return next == '=' ? addAfter(TokenKind::LessEqual, 2) : addAfter(TokenKind::Less, 1);
        case '>':
            return next == '=' ? addAfter(TokenKind::GreaterEqual, 2)
                               : addAfter(TokenKind::Greater, 1);
        case '|':
            return next == '|' ? addAfter(TokenKind::OrElse, 2) : addAfter(TokenKind::Or, 1);
        case '&':
            return next == '&' ? addAfter(TokenKind::AndAlso, 2) : addAfter(TokenKind::And, 1);
        case '+':
            return addAfter(TokenKind::Plus, 1);
        case '-':
            return addAfter(TokenKind::Minus, 1);
        case '*':
            return addAfter(TokenKind::Star, 1);
        case '/':
            return addAfter(TokenKind::Slash, 1);
        case '^':
            return addAfter(TokenKind::Caret, 1);
        case '.':
            if (next == '*')
                return addAfter(TokenKind::DotStar, 2);
            if (next == '/')
                return addAfter(TokenKind::DotSlash, 2);
            if (next == '^')
                return addAfter(TokenKind::DotCaret, 2);
            return addAfter(TokenKind::Dot, 1);
        case '~':
            fail(beginPlace_, "unexpected '~'; 'not' is written '!', and 'not equal' '!='");
        case '%':
            fail(beginPlace_, "unexpected '%'; a comment starts with '#'");
        default:
            break;
        }
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            fail(beginPlace_, fmt::format("unexpected character with code {}",
                                          static_cast<int>(static_cast<unsigned char>(c))));
        std::size_t length = 1;
        while ((static_cast<unsigned char>(peek(length)) & 0xC0u) == 0x80u)
            ++length;
        fail(beginPlace_, fmt::format("unexpected character '{}'", text_.substr(at_, length)));
    }

    void close() {
        if (brackets_ > 0)
            --brackets_;
    }

    const Source& source_;
    std::string_view text_;
    std::pmr::memory_resource& arena_;
    TokenList list_;
    std::size_t at_ = 0;
    std::size_t begin_ = 0;
    Place beginPlace_;
    std::uint32_t line_ = 1;
    std::size_t lineStart_ = 0;
    std::size_t continuations_ = 0; // bytes of this line that continue a character
    std::size_t brackets_ = 0;
};

} // namespace

const char* nameOf(TokenKind kind) {
    return tokenNames[static_cast<std::size_t>(kind)];
}

bool isKeyword(TokenKind kind) {
    return kind >= TokenKind::If && kind <= TokenKind::False;
}

TokenList tokenize(const Source& source, std::pmr::memory_resource& arena) {
    return Lexer(source, arena).run();
}

} // namespace varnix
