// See qnel_lexer.hpp.
#include "text/qnel_lexer.hpp"

namespace QN::text {

namespace {

bool endsAtom(char c) noexcept {
    return c == '(' || c == ')' || c == ';' || c == '"' || c == ' ' || c == '\n' || c == '\t' ||
           c == '\r';
}

int hexDigit(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

} // namespace

Token Lexer::next() noexcept {
    while (at_ < source_.size()) {
        const char c = source_[at_];
        if (c == ';') {
            while (at_ < source_.size() && source_[at_] != '\n') {
                ++at_;
            }
        } else if (c == ' ' || c == '\n' || c == '\t' || c == '\r') {
            ++at_;
        } else {
            break;
        }
    }
    if (at_ == source_.size()) {
        return {TokenKind::End, at_, {}};
    }
    const std::size_t start = at_;
    const auto token = [&](TokenKind kind) {
        return Token{kind, start, source_.substr(start, at_ - start)};
    };
    if (source_[at_] == '(' || source_[at_] == ')') {
        ++at_;
        return token(source_[start] == '(' ? TokenKind::Open : TokenKind::Close);
    }
    if (source_[at_] == '"') {
        for (++at_; at_ < source_.size() && source_[at_] != '\n'; ++at_) {
            if (source_[at_] == '"') {
                ++at_;
                return token(TokenKind::String);
            }
            if (source_[at_] == '\\' && at_ + 1 < source_.size()) {
                ++at_;
            }
        }
        return token(TokenKind::Bad);
    }
    while (at_ < source_.size() && !endsAtom(source_[at_])) {
        ++at_;
    }
    return token(TokenKind::Atom);
}

bool unquote(std::string_view token, std::string& out) {
    out.clear();
    token = token.substr(1, token.size() - 2);
    for (std::size_t i = 0; i < token.size(); ++i) {
        if (token[i] != '\\') {
            out += token[i];
            continue;
        }
        if (++i == token.size()) {
            return false;
        }
        switch (token[i]) {
        case 'n':
            out += '\n';
            break;
        case '"':
        case '\\':
            out += token[i];
            break;
        case 'x': {
            if (i + 2 >= token.size()) {
                return false;
            }
            const int high = hexDigit(token[i + 1]);
            const int low = hexDigit(token[i + 2]);
            if (high < 0 || low < 0) {
                return false;
            }
            out += static_cast<char>(high * 16 + low);
            i += 2;
            break;
        }
        default:
            return false;
        }
    }
    return true;
}

} // namespace QN::text
