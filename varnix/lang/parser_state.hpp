// The parser's class; its two halves are parser.cpp (statements) and parser_expressions.cpp.
#pragma once

#include "lang/parser.hpp"

#include <new>
#include <string>
#include <utility>

namespace varnix {

class Parser {
public:
    explicit Parser(const Source& source);

    [[nodiscard]] std::unique_ptr<SyntaxTree> script();
    [[nodiscard]] std::unique_ptr<SyntaxTree> expressionOnly();
    /// After an error: whether more input could still have made the text right.
    [[nodiscard]] bool unfinished() const { return unfinished_; }

private:
    /// Counts one level of nesting while it lives.
    class Nesting {
    public:
        explicit Nesting(Parser& parser);
        ~Nesting() { --parser_.nesting_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;

    private:
        Parser& parser_;
    };

    /// A bracket or block that is open, for messages at the end of input.
    struct Opener {
        Place place;
        TokenKind kind;
    };

    // tokens
    [[nodiscard]] const Token& token(std::size_t ahead = 0) const {
        const std::size_t last = list_.tokens.size() - 1;
        return list_.tokens[at_ + ahead < last ? at_ + ahead : last];
    }
    [[nodiscard]] bool is(TokenKind kind) const { return token().kind == kind; }
    const Token& advance() {
        const Token& current = token();
        if (current.kind != TokenKind::EndOfInput)
            ++at_;
        return current;
    }
    bool accept(TokenKind kind) {
        if (!is(kind))
            return false;
        advance();
        return true;
    }
    const Token& expect(TokenKind kind, const char* purpose = "");
    [[noreturn]] void fail(Place place, std::string message) const;
    [[noreturn]] void failExpected(std::string_view expected);
    [[nodiscard]] std::string describe(const Token& found) const;
    void closeBracket(TokenKind kind, const char* expected);

    // tree
    template <class T>
    T* make(Place place) {
        void* const memory = tree_->arena.allocate(sizeof(T), alignof(T));
        T* node;
        if constexpr (std::is_constructible_v<T, std::pmr::memory_resource&>)
            node = new (memory) T(tree_->arena);
        else
            node = new (memory) T();
        node->place = place;
        return node;
    }
    template <class T>
    T* expressionNode(ExpressionKind kind, Place place) {
        T* const node = make<T>(place);
        node->kind = kind;
        return node;
    }
    template <class T>
    T* statementNode(StatementKind kind, Place place) {
        T* const node = make<T>(place);
        node->kind = kind;
        return node;
    }
    Slot mention(objsys::COSNameID name, Place place, bool assigned);
    Slot addParameter(const Token& name);
    [[nodiscard]] objsys::COSNameID intern(const Token& name) const {
        return objsys::COSNameID(name.text);
    }

    // statements
    void skipSeparators();
    void endStatement(Statement& statement, const char* after);
    [[nodiscard]] bool atBlockEnd() const;
    void block(Block& into);
    void closeBlock(const char* others);
    const Statement* statement();
    const Statement* evaluateOrAssign();
    const Statement* ifStatement();
    const Statement* forStatement();
    const Statement* whileStatement();
    const Statement* switchStatement();
    const Statement* returnStatement();
    const Statement* tryStatement();
    const Expression* condition();
    void function();
    [[nodiscard]] std::string helpAround(std::uint32_t headLine) const;
    Target target(const Expression* written);

    // expressions
    const Expression* expression() { return binary(1); }
    const Expression* binary(int lowest);
    const Expression* range(const Expression* first);
    const Expression* unary();
    const Expression* power();
    const Expression* exponent();
    const Expression* postfix();
    const Expression* primary();
    const Expression* number(bool negative);
    const Expression* matrix(ExpressionKind kind, TokenKind close, const char* expected);
    const Expression* functionValue();
    const Expression* lambda(const Token& head);
    void arguments(ExpressionList& list, TokenKind close, bool indices);

    const Source& source_;
    std::unique_ptr<SyntaxTree> tree_;
    TokenList list_;
    std::size_t at_ = 0;
    Scope* scope_ = nullptr;
    std::vector<Opener> openers_;
    std::size_t nesting_ = 0;
    std::size_t indices_ = 0; // index brackets around, where `end` has a meaning
    std::size_t loops_ = 0;
    bool inFunction_ = false;
    bool unfinished_ = false;
};

} // namespace varnix
