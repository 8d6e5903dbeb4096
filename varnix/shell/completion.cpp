// See completion.hpp.
#include "shell/completion.hpp"

#include <algorithm>
#include <optional>

namespace varnix {

namespace {

bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isNamePart(char c) {
    return isNameStart(c) || isDigit(c);
}

struct Token {
    enum class Kind { Name, Text, Number, Sign };
    Kind kind;
    std::size_t begin;
    std::size_t end;
};

/// Tokens of a text that may stop anywhere; none when it stops inside a text or a comment.
std::optional<std::vector<Token>> tokensOf(std::string_view text) {
    std::vector<Token> tokens;
    std::size_t i = 0;
    const auto skipWhile = [&](auto&& wanted) {
        while (i < text.size() && wanted(text[i]))
            ++i;
    };
    while (i < text.size()) {
        const char c = text[i];
        const std::size_t begin = i;
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
        } else if (c == '#') {
            skipWhile([](char d) { return d != '\n'; });
            if (i == text.size())
                return std::nullopt;
        } else if (c == '"' || c == '\'') {
            ++i;
            while (i < text.size() && text[i] != c && text[i] != '\n')
                i += (c == '"' && text[i] == '\\') ? 2 : 1;
            if (i >= text.size())
                return std::nullopt;
            ++i;
            tokens.push_back({Token::Kind::Text, begin, i});
        } else if (isNameStart(c)) {
            skipWhile(isNamePart);
            tokens.push_back({Token::Kind::Name, begin, i});
        } else if (isDigit(c)) {
            // 1.5e3, 0x1F, 5u64: a dot belongs to the number only when a digit follows it.
            skipWhile(isNamePart);
            if (i + 1 < text.size() && text[i] == '.' && isDigit(text[i + 1])) {
                ++i;
                skipWhile(isNamePart);
            }
            tokens.push_back({Token::Kind::Number, begin, i});
        } else {
            ++i;
            tokens.push_back({Token::Kind::Sign, begin, i});
        }
    }
    return tokens;
}

/// One link of a chain read backwards: a name, and what is applied to it before the next dot.
struct Link {
    std::string_view name;
    std::string applied; ///< opening brackets in order: "[" and "(" in `x[1](2)`
};

/// Reads the chain that ends before tokens[end] (which follows a dot), innermost link last. None
/// when it does not begin with a name.
std::optional<std::vector<Link>> chainBefore(std::string_view text,
                                             const std::vector<Token>& tokens, std::size_t end) {
    std::vector<Link> links;
    const auto sign = [&](std::size_t i) {
        return tokens[i].kind == Token::Kind::Sign ? text[tokens[i].begin] : '\0';
    };
    std::size_t i = end; // one past the link being read
    while (true) {
        Link link;
        while (i > 0 && (sign(i - 1) == ')' || sign(i - 1) == ']')) {
            int depth = 0;
            do {
                --i;
                const char c = sign(i);
                if (c == ')' || c == ']' || c == '}')
                    ++depth;
                if (c == '(' || c == '[' || c == '{')
                    --depth;
            } while (i > 0 && depth != 0);
            if (depth != 0)
                return std::nullopt;
            link.applied.insert(link.applied.begin(), sign(i));
        }
        if (i == 0 || tokens[i - 1].kind != Token::Kind::Name)
            return std::nullopt;
        --i;
        link.name = text.substr(tokens[i].begin, tokens[i].end - tokens[i].begin);
        links.insert(links.begin(), std::move(link));
        if (i == 0 || sign(i - 1) != '.')
            return links;
        --i;
    }
}

std::unique_ptr<NamedThing> follow(const std::vector<Link>& links, const NameWorld& world) {
    std::unique_ptr<NamedThing> thing;
    for (const Link& link : links) {
        thing = &link == links.data() ? world.find(link.name) : thing->member(link.name);
        for (const char bracket : link.applied)
            if (thing)
                thing = bracket == '[' ? thing->indexed() : thing->called();
        if (!thing)
            return nullptr;
    }
    return thing;
}

} // namespace

std::string Completion::common() const {
    if (candidates.empty())
        return {};
    // Candidates are sorted: what the first and the last share, all share.
    const std::string& first = candidates.front();
    const std::string& last = candidates.back();
    const auto differ = std::mismatch(first.begin(), first.end(), last.begin(), last.end());
    return {first.begin(), differ.first};
}

Completion complete(std::string_view text, std::size_t cursor, const NameWorld& world) {
    cursor = std::min(cursor, text.size());
    text = text.substr(0, cursor);
    Completion result;
    result.start = cursor;
    const auto tokens = tokensOf(text);
    if (!tokens)
        return result;

    std::size_t before = tokens->size(); // tokens left of the name under the cursor
    if (before > 0 && tokens->back().end == cursor) {
        if (tokens->back().kind == Token::Kind::Name) {
            --before;
            result.start = (*tokens)[before].begin;
        } else if (tokens->back().kind != Token::Kind::Sign) {
            return result; // inside a number, right after a text
        }
    }
    const std::string_view prefix = text.substr(result.start);

    std::vector<std::string> names;
    const bool afterDot = before > 0 && text[(*tokens)[before - 1].begin] == '.' &&
                          (*tokens)[before - 1].kind == Token::Kind::Sign;
    if (afterDot) {
        const auto links = chainBefore(text, *tokens, before - 1);
        const auto thing = links ? follow(*links, world) : nullptr;
        if (thing)
            names = thing->members();
    } else {
        names = world.names();
    }
    std::erase_if(names, [&](const std::string& name) { return !name.starts_with(prefix); });
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    result.candidates = std::move(names);
    return result;
}

} // namespace varnix
