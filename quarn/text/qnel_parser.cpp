// Parses QNEL; its grammar is in qn/text.hpp. A function is read in two steps: its tokens are
// gathered first, so that blocks and the largest value number are known, then the nodes are made
// and references to values further down are filled in at the end.
#include "text/labels.hpp"
#include "text/qnel_lexer.hpp"

#include <qn/arithmetic.hpp>
#include <qn/scope.hpp>
#include <qn/text.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace QN {

namespace {

using text::Lexer;
using text::Token;
using text::TokenKind;

/// The largest number of a value or block; tables are indexed by them.
constexpr std::uint32_t largestId = (1U << 22) - 1;

/// Unwinds to the entry of the parser, with the place of the mistake.
struct Failure {
    std::size_t offset;
    std::string message;
};

[[noreturn]] void fail(const Token& at, std::string message) {
    throw Failure{at.offset, std::move(message)};
}

/// `text` as a part of a message, with escapes for what a terminal would not show or would obey.
std::string quoted(std::string_view text) {
    constexpr std::size_t most = 40;
    std::string result = "'";
    for (const char c : text.substr(0, most)) {
        if (c >= 0x20 && c < 0x7F) {
            result += c;
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
            result += escape;
        }
    }
    return result + (text.size() > most ? "...'" : "'");
}

std::string shown(const Token& token) {
    return token.kind == TokenKind::End ? "the end of the text" : quoted(token.text);
}

template <typename Number>
bool readNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

template <typename Number>
bool readHex(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return error == std::errc() && end == text.data() + text.size();
}

/// Looks at a gathered list of tokens one after the other.
class Cursor {
public:
    Cursor(const std::vector<Token>& tokens, std::size_t at) : tokens_(&tokens), at_(at) {}

    [[nodiscard]] const Token& peek() const { return (*tokens_)[at_]; }
    const Token& take() { return (*tokens_)[at_++]; }
    [[nodiscard]] std::size_t place() const { return at_; }
    [[nodiscard]] bool atAtom(std::string_view text) const {
        return peek().kind == TokenKind::Atom && peek().text == text;
    }
    const Token& expect(TokenKind kind, const char* what) {
        if (peek().kind != kind) {
            fail(peek(), std::string("expected ") + what + ", found " + shown(peek()));
        }
        return take();
    }

private:
    const std::vector<Token>* tokens_;
    std::size_t at_;
};

std::string readName(Cursor& cursor, const char* what) {
    const Token& token = cursor.peek();
    if (token.kind == TokenKind::String) {
        std::string name;
        if (!text::unquote(token.text, name)) {
            fail(token, "malformed escape in a string");
        }
        cursor.take();
        return name;
    }
    if (token.kind != TokenKind::Atom || !text::isIdentifier(token.text)) {
        fail(token, std::string("expected ") + what + ", found " + shown(token));
    }
    return std::string(cursor.take().text);
}

const Type* readType(Cursor& cursor) {
    const Token& token = cursor.expect(TokenKind::Atom, "a type");
    const Type* const type = Type::named(token.text);
    if (type == nullptr) {
        fail(token, shown(token) + " is no type");
    }
    return type;
}

/// An optional @N.
std::uint32_t readLine(Cursor& cursor) {
    const Token& token = cursor.peek();
    if (token.kind != TokenKind::Atom || !token.text.starts_with('@')) {
        return 0;
    }
    std::uint32_t line = 0;
    if (!readNumber(token.text.substr(1), line)) {
        fail(token, shown(token) + " is no line number");
    }
    cursor.take();
    return line;
}

class FunctionParser {
public:
    FunctionParser(Function& function, const std::vector<Token>& tokens)
        : function_(function), cfg_(function.cfg()), tokens_(tokens) {}

    /// `place` is behind the head of the function.
    void parse(std::size_t place) {
        Cursor cursor(tokens_, place);
        while (cursor.peek().kind == TokenKind::Open &&
               tokens_[cursor.place() + 1].text != "block") {
            parseVar(cursor);
        }
        gather(cursor.place());
        while (cursor.peek().kind == TokenKind::Open) {
            parseBlock(cursor);
        }
        cursor.expect(TokenKind::Close, "')'");
        for (const auto& [node, index, token] : pending_) {
            node->setOperand(index, valueOf(*token));
        }
    }

private:
    struct Pending {
        Node* node;
        std::size_t index;
        const Token* token;
    };

    void parseVar(Cursor& cursor) {
        cursor.take();
        const Token& kindToken = cursor.expect(TokenKind::Atom, "a kind of variable or 'block'");
        VarKind kind;
        if (kindToken.text == "param") {
            kind = VarKind::Param;
        } else if (kindToken.text == "user") {
            kind = VarKind::User;
        } else if (kindToken.text == "temp") {
            kind = VarKind::Temp;
        } else {
            fail(kindToken,
                 "expected 'param', 'user', 'temp' or 'block', found " + shown(kindToken));
        }
        const Token& label = cursor.expect(TokenKind::Atom, "a variable");
        if (!label.text.starts_with('$')) {
            fail(label, "expected a variable, found " + shown(label));
        }
        std::string name(label.text.substr(1));
        if (const std::size_t dot = name.find('.'); dot != std::string::npos) {
            std::uint32_t number = 0;
            if (!readNumber(std::string_view(name).substr(dot + 1), number)) {
                fail(label, shown(label) + " is no variable");
            }
            name.erase(dot);
        } else if (name.empty()) {
            fail(label, shown(label) + " is no variable");
        }
        if (!name.empty() && !text::isIdentifier(name)) {
            fail(label, shown(label) + " is no variable");
        }
        if (cursor.peek().kind == TokenKind::String) {
            name = readName(cursor, "a name");
        }
        const Token& typeToken = cursor.peek();
        const Type* const type = readType(cursor);
        if (type->isVoid()) {
            fail(typeToken, "a variable cannot be void");
        }
        const std::uint32_t line = readLine(cursor);
        cursor.expect(TokenKind::Close, "')'");
        Var* var;
        if (kind == VarKind::Param) {
            if (cfg_.numVars() != cfg_.numParams()) {
                fail(kindToken, "parameters come before other variables");
            }
            var = function_.addParam(type, name, line);
        } else {
            var = cfg_.addVar(kind, type, name, line);
        }
        if (!vars_.emplace(label.text, var).second) {
            fail(label, "variable " + shown(label) + " is declared twice");
        }
    }

    static std::uint32_t readId(const Token& token, const char* what) {
        std::uint32_t id = 0;
        if (token.text.size() < 2 || !readNumber(token.text.substr(1), id)) {
            fail(token, "expected " + std::string(what) + ", found " + shown(token));
        }
        if (id > largestId) {
            fail(token, std::string(what) + " number is too large");
        }
        return id;
    }

    /// Makes the blocks, in order, and finds the largest value number.
    void gather(std::size_t place) {
        Cursor cursor(tokens_, place);
        int depth = 0;
        std::uint32_t largestValue = 0;
        for (; depth > 0 || cursor.peek().kind != TokenKind::Close; cursor.take()) {
            const Token& token = cursor.peek();
            if (token.kind == TokenKind::Close) {
                --depth;
            } else if (token.kind == TokenKind::Open) {
                ++depth;
                const Token& first = tokens_[cursor.place() + 1];
                const Token& second =
                    tokens_[cursor.place() + 2 < tokens_.size() ? cursor.place() + 2
                                                                : cursor.place() + 1];
                if (depth == 1 && first.kind == TokenKind::Atom && first.text == "block" &&
                    second.kind == TokenKind::Atom && second.text.starts_with('b')) {
                    const std::uint32_t id = readId(second, "a block");
                    if (blocks_.contains(id)) {
                        fail(second, "block " + shown(second) + " is defined twice");
                    }
                    blocks_.emplace(id, cfg_.addBlockAs(id));
                } else if (depth == 2 && first.kind == TokenKind::Atom &&
                           first.text.starts_with('%')) {
                    largestValue = std::max(largestValue, readId(first, "a value"));
                }
            }
        }
        values_.resize(largestValue + 1);
        nextId_ = largestValue + 1;
    }

    void parseBlock(Cursor& cursor) {
        cursor.take();
        const Token& keyword = cursor.expect(TokenKind::Atom, "'block'");
        if (keyword.text != "block") {
            fail(keyword, "expected 'block', found " + shown(keyword));
        }
        const Token& label = cursor.expect(TokenKind::Atom, "a block");
        if (!label.text.starts_with('b')) {
            fail(label, "expected a block, found " + shown(label));
        }
        Block* const block = blocks_.at(readId(label, "a block"));
        while (cursor.peek().kind == TokenKind::Open) {
            cursor.take();
            parseNode(cursor, block);
            cursor.expect(TokenKind::Close, "')'");
        }
        cursor.expect(TokenKind::Close, "')'");
    }

    void parseNode(Cursor& cursor, Block* block) {
        std::uint32_t id = 0;
        const Type* type = Type::voidType();
        const Token& start = cursor.peek();
        const bool named = start.kind == TokenKind::Atom && start.text.starts_with('%');
        if (named) {
            id = readId(cursor.take(), "a value");
            const Token& typeToken = cursor.peek();
            type = readType(cursor);
            if (type->isVoid()) {
                fail(typeToken, "a value cannot be void");
            }
            if (id == 0) {
                fail(start, "value numbers start at 1");
            }
            if (values_[id] != nullptr) {
                fail(start, "value " + shown(start) + " is defined twice");
            }
        } else {
            id = nextId_++;
        }
        const Token& opToken = cursor.expect(TokenKind::Atom, "an operation");
        Mode mode;
        const Op op = readOp(opToken, mode);
        const GivesValue gives = givesValue(op);
        if (named && gives == GivesValue::Never) {
            fail(start, shown(opToken) + " gives no value");
        }
        if (!named && gives == GivesValue::Always) {
            fail(opToken, shown(opToken) + " gives a value, which needs a number and a type");
        }
        operands_.clear();
        const std::size_t firstPending = pending_.size();
        const std::string_view letters = infoOf(op).operands;
        std::size_t letter = 0;
        while (cursor.peek().kind == TokenKind::Atom && !cursor.peek().text.starts_with('@')) {
            if (letter == letters.size()) {
                fail(cursor.peek(), "too many operands for " + shown(opToken));
            }
            if (operands_.size() == Node::maxOperands) {
                fail(cursor.peek(), "too many operands");
            }
            parseOperand(cursor, letters[letter]);
            letter += letters[letter] == '*' ? 0 : 1;
        }
        if (letter < letters.size() && letters[letter] != '*' && letters[letter] != '?') {
            fail(cursor.peek(), "too few operands for " + shown(opToken));
        }
        const std::uint32_t line = readLine(cursor);
        Node* const node = cfg_.makeNodeAs(id, op, mode, type, operands_, line);
        cfg_.append(block, node);
        for (std::size_t i = firstPending; i < pending_.size(); ++i) {
            pending_[i].node = node;
        }
        if (named) {
            values_[id] = node;
        }
    }

    static Op readOp(const Token& token, Mode& mode) {
        std::string_view rest = token.text;
        const std::size_t colon = rest.find(':');
        const std::optional<Op> op = opNamed(rest.substr(0, colon));
        if (!op) {
            fail(token, shown(token) + " is no operation");
        }
        Rounding rounding = Rounding::NearestAway;
        Overflow overflow = Overflow::Saturate;
        bool inBounds = false;
        rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon);
        while (!rest.empty()) {
            rest.remove_prefix(1);
            const std::string_view word = rest.substr(0, rest.find(':'));
            rest.remove_prefix(word.size());
            if (word == "wrap") {
                overflow = Overflow::Wrap;
            } else if (word == "inb") {
                inBounds = true;
            } else if (word == "even") {
                rounding = Rounding::NearestEven;
            } else if (word == "zero") {
                rounding = Rounding::TowardZero;
            } else if (word == "down") {
                rounding = Rounding::Down;
            } else if (word == "up") {
                rounding = Rounding::Up;
            } else {
                fail(token, quoted(word) + " is no mode of an operation");
            }
        }
        mode = Mode(rounding, overflow).withInBounds(inBounds);
        return *op;
    }

    void parseOperand(Cursor& cursor, char letter) {
        const Token& token = cursor.take();
        const char sign = token.text.front();
        switch (letter) {
        case 'V':
            operands_.push_back(varOf(token));
            break;
        case 'a':
            if (sign == '$') {
                operands_.push_back(varOf(token));
                break;
            }
            parseValue(token);
            break;
        case 'B':
            operands_.push_back(blockOf(token));
            break;
        case 'C':
            operands_.push_back(calleeOf(token, cursor));
            break;
        case 'K':
            operands_.push_back(constantOf(token));
            break;
        default:
            parseValue(token);
        }
    }

    void parseValue(const Token& token) {
        if (token.text.front() != '%') {
            operands_.push_back(constantOf(token));
            return;
        }
        const std::uint32_t id = readId(token, "a value");
        Node* const known = id < values_.size() ? values_[id] : nullptr;
        if (known == nullptr) {
            pending_.push_back({nullptr, operands_.size(), &token});
        }
        operands_.push_back(known);
    }

    Entity* valueOf(const Token& token) {
        const std::uint32_t id = readId(token, "a value");
        Node* const node = id < values_.size() ? values_[id] : nullptr;
        if (node == nullptr) {
            fail(token, "value " + shown(token) + " is not defined");
        }
        return node;
    }

    Entity* varOf(const Token& token) {
        if (token.text.front() != '$') {
            fail(token, "expected a variable, found " + shown(token));
        }
        const auto found = vars_.find(token.text);
        if (found == vars_.end()) {
            fail(token, "variable " + shown(token) + " is not declared");
        }
        return found->second;
    }

    Entity* blockOf(const Token& token) {
        if (token.text.front() != 'b') {
            fail(token, "expected a block, found " + shown(token));
        }
        const auto found = blocks_.find(readId(token, "a block"));
        if (found == blocks_.end()) {
            fail(token, "block " + shown(token) + " is not defined");
        }
        return found->second;
    }

    Entity* calleeOf(const Token& token, Cursor& cursor) {
        if (token.text.front() != '&') {
            fail(token, "expected a callee, found " + shown(token));
        }
        if (token.text.size() > 1) {
            if (!text::isIdentifier(token.text.substr(1))) {
                fail(token, shown(token) + " is no callee");
            }
            return cfg_.callee(token.text.substr(1));
        }
        const Token& quoted = cursor.peek();
        if (quoted.kind != TokenKind::String || quoted.offset != token.offset + 1) {
            fail(token, "'&' without the name of a callee");
        }
        return cfg_.callee(readName(cursor, "a name"));
    }

    Entity* constantOf(const Token& token) {
        const std::string_view text = token.text;
        if (text == "true" || text == "false") {
            return cfg_.constantLogical(text == "true");
        }
        if (text.starts_with("nan:")) {
            std::uint64_t bits = 0;
            if (!readHex(text.substr(4), bits) || !std::isnan(asDouble(bits))) {
                fail(token, shown(token) + " is no NaN");
            }
            return cfg_.constant(Type::f64(), bits);
        }
        if (text == "nan") {
            return cfg_.constant(Type::f64(), 0x7FF8000000000000);
        }
        if (text == "inf" || text == "-inf") {
            return cfg_.constantDouble(text == "inf" ? HUGE_VAL : -HUGE_VAL);
        }
        if (const std::size_t suffix = text.find_first_of("iu"); suffix != std::string_view::npos) {
            return integerOf(token, text.substr(0, suffix), Type::named(text.substr(suffix)));
        }
        double value = 0;
        const bool plain = text.find_first_not_of("0123456789.eE+-") == std::string_view::npos;
        if (!plain || !readNumber(text, value)) {
            fail(token, "expected a value, found " + shown(token));
        }
        return cfg_.constantDouble(value);
    }

    Entity* integerOf(const Token& token, std::string_view digits, const Type* type) {
        if (type == nullptr || !type->isInteger()) {
            fail(token, "expected a value, found " + shown(token));
        }
        std::uint64_t bits = 0;
        if (digits.starts_with('-')) {
            std::int64_t value = 0;
            if (!readNumber(digits, value)) {
                fail(token, shown(token) + " is no integer");
            }
            bits = static_cast<std::uint64_t>(value);
            if (!type->isSigned() && value != 0) {
                fail(token, shown(token) + " is outside the range of its type");
            }
        } else if (!readNumber(digits, bits)) {
            fail(token, shown(token) + " is no integer");
        } else if (type->isSigned() && bits > static_cast<std::uint64_t>(INT64_MAX)) {
            fail(token, shown(token) + " is outside the range of its type");
        }
        if (!isNormalized(*type, bits)) {
            fail(token, shown(token) + " is outside the range of its type");
        }
        return cfg_.constant(type, bits);
    }

    Function& function_;
    Cfg& cfg_;
    const std::vector<Token>& tokens_;
    std::unordered_map<std::string_view, Var*> vars_;
    std::unordered_map<std::uint32_t, Block*> blocks_;
    std::vector<Node*> values_; // by number
    std::vector<Entity*> operands_;
    std::vector<Pending> pending_;
    std::uint32_t nextId_ = 1;
};

class FileParser {
public:
    explicit FileParser(std::string_view text) : lexer_(text), token_(lexer_.next()) {}

    /// Fills `given`, or a new root if that is null.
    std::unique_ptr<Scope> parse(Scope* given) {
        std::unique_ptr<Scope> made;
        Scope* root = given;
        const auto make = [&](ScopeFlavor flavor, std::string_view name) {
            made = std::make_unique<Scope>(flavor, name);
            root = made.get();
        };
        bool first = true;
        for (; token_.kind != TokenKind::End; first = false) {
            const Token open = expect(TokenKind::Open, "'('");
            if (first && token_.kind == TokenKind::Atom && token_.text == "scope") {
                advance();
                const auto [flavor, name] = readScopeHead();
                if (root == nullptr) {
                    make(flavor, name);
                }
                parseScopeBody(*root);
                if (token_.kind != TokenKind::End) {
                    fail(token_, "expected the end of the text, found " + shown(token_));
                }
                return made;
            }
            if (root == nullptr) {
                make(ScopeFlavor::Unit, "main");
            }
            parseFunction(*root, open);
        }
        if (root == nullptr) {
            make(ScopeFlavor::Unit, "main");
        }
        return made;
    }

private:
    void advance() {
        token_ = lexer_.next();
        if (token_.kind == TokenKind::Bad) {
            fail(token_, "a string without its end");
        }
    }

    Token expect(TokenKind kind, const char* what) {
        if (token_.kind != kind) {
            fail(token_, std::string("expected ") + what + ", found " + shown(token_));
        }
        const Token taken = token_;
        advance();
        return taken;
    }

    std::pair<ScopeFlavor, std::string> readScopeHead() {
        const Token flavorToken = expect(TokenKind::Atom, "a flavor of scope");
        const auto flavor = [&] {
            for (const ScopeFlavor candidate :
                 {ScopeFlavor::Global, ScopeFlavor::Session, ScopeFlavor::Unit}) {
                if (toString(candidate) == flavorToken.text) {
                    return candidate;
                }
            }
            fail(flavorToken, shown(flavorToken) + " is no flavor of scope");
        }();
        std::vector<Token> one = {token_};
        Cursor cursor(one, 0);
        std::string name = readName(cursor, "the name of a scope");
        advance();
        return {flavor, std::move(name)};
    }

    /// Behind the head, up to and with the closing parenthesis.
    void parseScopeBody(Scope& scope) {
        while (token_.kind == TokenKind::Open) {
            const Token open = token_;
            advance();
            if (token_.kind == TokenKind::Atom && token_.text == "scope") {
                if (scope.level() == Scope::lastLevel) {
                    fail(token_, "scopes are nested too deeply");
                }
                advance();
                const auto [flavor, name] = readScopeHead();
                parseScopeBody(scope.addChild(flavor, name));
            } else {
                parseFunction(scope, open);
            }
        }
        expect(TokenKind::Close, "')'");
    }

    /// Behind the opening parenthesis.
    void parseFunction(Scope& scope, const Token& open) {
        tokens_.clear();
        for (int depth = 1; depth > 0; advance()) {
            if (token_.kind == TokenKind::End) {
                fail(open, "'(' without its ')'");
            }
            depth += token_.kind == TokenKind::Open ? 1 : token_.kind == TokenKind::Close ? -1 : 0;
            tokens_.push_back(token_);
        }
        Cursor cursor(tokens_, 0);
        const Token& keyword = cursor.expect(TokenKind::Atom, "'function', 'declare' or 'scope'");
        const bool declares = keyword.text == "declare";
        if (!declares && keyword.text != "function") {
            fail(keyword, "expected 'function', 'declare' or 'scope', found " + shown(keyword));
        }
        const Token& nameToken = cursor.peek();
        const std::string name = readName(cursor, "the name of a function");
        const Type* const result = readType(cursor);
        Function* const function = scope.addFunction(name, result);
        if (function == nullptr) {
            fail(nameToken, "function " + shown(nameToken) + " is defined twice");
        }
        try {
            if (declares) {
                parseDeclaration(*function, cursor);
                return;
            }
            if (cursor.atAtom("local")) {
                cursor.take();
                function->setExported(false);
            }
            function->setLine(readLine(cursor));
            FunctionParser(*function, tokens_).parse(cursor.place());
        } catch (...) {
            scope.removeFunction(*function);
            throw;
        }
    }

    static void parseDeclaration(Function& function, Cursor& cursor) {
        while (cursor.peek().kind == TokenKind::Atom) {
            const Token& token = cursor.peek();
            const Type* const type = readType(cursor);
            if (type->isVoid()) {
                fail(token, "a parameter cannot be void");
            }
            function.addParam(type, "");
        }
        cursor.expect(TokenKind::Close, "')'");
        function.deleteCfg();
    }

    Lexer lexer_;
    Token token_;
    std::vector<Token> tokens_;
};

ParseError errorAt(std::string_view text, const Failure& failure) {
    ParseError error;
    const std::string_view before = text.substr(0, failure.offset);
    error.line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    const std::size_t lineStart = before.rfind('\n');
    error.column = 1 + before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1);
    error.message = failure.message;
    return error;
}

} // namespace

std::string ParseError::format(std::string_view file) const {
    std::string text(file);
    text += ':' + std::to_string(line) + ':' + std::to_string(column) + ": error: " + message;
    return text;
}

std::unique_ptr<Scope> parseQnel(std::string_view text, ParseError& error) {
    try {
        return FileParser(text).parse(nullptr);
    } catch (const Failure& failure) {
        error = errorAt(text, failure);
        return nullptr;
    }
}

bool parseQnelInto(Scope& scope, std::string_view text, ParseError& error) {
    try {
        static_cast<void>(FileParser(text).parse(&scope));
        return true;
    } catch (const Failure& failure) {
        error = errorAt(text, failure);
        return false;
    }
}

} // namespace QN
