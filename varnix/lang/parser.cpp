// The parser's statements, functions and error messages.
#include "lang/parser.hpp"

#include "lang/parser_state.hpp"
#include "value/errors.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace varnix {

using objsys::COSNameID;

Parser::Parser(const Source& source) : source_(source), tree_(std::make_unique<SyntaxTree>()) {
    list_ = tokenize(source, tree_->arena);
    unfinished_ = list_.endsInJoin;
    scope_ = &tree_->scopes.emplace_back();
    tree_->body = &tree_->functions.emplace_back(tree_->arena);
    tree_->body->scope = scope_;
}

Parser::Nesting::Nesting(Parser& parser) : parser_(parser) {
    if (parser.nesting_ >= maxNesting)
        raiseAt(id::tooDeep, parser.source_, parser.token().place,
                fmt::format("more than {} levels of brackets, blocks and operators", maxNesting));
    ++parser.nesting_;
}

// ---- tokens and errors

void Parser::fail(Place place, std::string message) const {
    raiseSyntax(source_, place, std::move(message));
}

std::string Parser::describe(const Token& found) const {
    switch (found.kind) {
    case TokenKind::Name:
    case TokenKind::Number:
        return fmt::format("'{}'", source_.text.substr(found.begin, found.end - found.begin));
    default:
        return nameOf(found.kind);
    }
}

void Parser::failExpected(std::string_view expected) {
    const Token& found = token();
    if (found.kind == TokenKind::EndOfInput && !openers_.empty()) {
        // The end of the source is far from the mistake; where the bracket or block starts is not.
        unfinished_ = true;
        const Opener& opener = openers_.back();
        fail(opener.place, fmt::format("expected {} for this {}, found end of input", expected,
                                       nameOf(opener.kind)));
    }
    fail(found.place, fmt::format("expected {}, found {}", expected, describe(found)));
}

const Token& Parser::expect(TokenKind kind, const char* purpose) {
    if (!is(kind))
        failExpected(fmt::format("{}{}", nameOf(kind), purpose));
    return advance();
}

void Parser::closeBracket(TokenKind kind, const char* expected) {
    if (!is(kind))
        failExpected(expected);
    advance();
    openers_.pop_back();
}

// ---- names

Slot Parser::mention(COSNameID name, Place place, bool assigned) {
    const auto [where, isNew] =
        scope_->slots.try_emplace(name, static_cast<Slot>(scope_->entries.size()));
    if (isNew) {
        if (scope_->entries.size() >= 50000)
            raiseAt(id::tooLarge, source_, place, "too many names in one function");
        scope_->entries.push_back({.name = name});
    }
    Scope::Entry& entry = scope_->entries[where->second];
    entry.assigned = entry.assigned || assigned;
    return where->second;
}

Slot Parser::addParameter(const Token& name) {
    if (scope_->slots.contains(intern(name)))
        fail(name.place, fmt::format("the parameter '{}' is there twice", name.text));
    const Slot slot = mention(intern(name), name.place, false);
    scope_->entries[slot].parameter = true;
    return slot;
}

// ---- statements

std::unique_ptr<SyntaxTree> Parser::script() {
    for (skipSeparators(); !is(TokenKind::EndOfInput); skipSeparators()) {
        if (is(TokenKind::Function))
            function();
        else
            tree_->body->block.push_back(statement());
    }
    return std::move(tree_);
}

std::unique_ptr<SyntaxTree> Parser::expressionOnly() {
    while (accept(TokenKind::EndOfLine)) {
    }
    auto* const result = statementNode<ReturnStatement>(StatementKind::Return, token().place);
    result->values.push_back(expression());
    while (accept(TokenKind::EndOfLine) || accept(TokenKind::Semicolon)) {
    }
    if (!is(TokenKind::EndOfInput))
        failExpected("end of the expression");
    tree_->body->block.push_back(result);
    return std::move(tree_);
}

void Parser::skipSeparators() {
    while (is(TokenKind::EndOfLine) || is(TokenKind::Semicolon))
        advance();
}

/// A statement ends with its line, with ';', or where the block around it goes on or ends.
void Parser::endStatement(Statement& statement, const char* after) {
    statement.echo = !is(TokenKind::Semicolon);
    if (accept(TokenKind::Semicolon) || accept(TokenKind::EndOfLine) || is(TokenKind::EndOfInput) ||
        atBlockEnd())
        return;
    failExpected(after);
}

bool Parser::atBlockEnd() const {
    switch (token().kind) {
    case TokenKind::End:
    case TokenKind::Else:
    case TokenKind::ElseIf:
    case TokenKind::Case:
    case TokenKind::Otherwise:
    case TokenKind::Catch:
        return true;
    default:
        return false;
    }
}

void Parser::block(Block& into) {
    for (skipSeparators(); !atBlockEnd() && !is(TokenKind::EndOfInput); skipSeparators())
        into.push_back(statement());
}

void Parser::closeBlock(const char* others) {
    if (!is(TokenKind::End))
        failExpected(others);
    advance();
    openers_.pop_back();
}

const Statement* Parser::statement() {
    const Nesting nesting(*this);
    const Token& first = token();
    switch (first.kind) {
    case TokenKind::If:
        return ifStatement();
    case TokenKind::For:
        return forStatement();
    case TokenKind::While:
        return whileStatement();
    case TokenKind::Switch:
        return switchStatement();
    case TokenKind::Try:
        return tryStatement();
    case TokenKind::Return:
        return returnStatement();
    case TokenKind::Break:
    case TokenKind::Continue: {
        if (loops_ == 0)
            fail(first.place, fmt::format("{} stands outside a loop", nameOf(first.kind)));
        advance();
        auto* const node = statementNode<Statement>(
            first.kind == TokenKind::Break ? StatementKind::Break : StatementKind::Continue,
            first.place);
        endStatement(*node, "end of line or ';'");
        return node;
    }
    case TokenKind::Function:
        fail(first.place, "a function stands by itself in its file, not inside a block or another "
                          "function");
    case TokenKind::End:
    case TokenKind::Else:
    case TokenKind::ElseIf:
    case TokenKind::Case:
    case TokenKind::Otherwise:
    case TokenKind::Catch:
        fail(first.place, fmt::format("expected a statement, found {} that belongs to no block",
                                      nameOf(first.kind)));
    default:
        return evaluateOrAssign();
    }
}

Target Parser::target(const Expression* written) {
    Target result(tree_->arena);
    const Expression* root = written;
    if (written->kind == ExpressionKind::Chain) {
        const auto* const chain = static_cast<const ChainExpression*>(written);
        root = chain->root;
        for (const Link& link : chain->links) {
            if (link.kind == LinkKind::Call)
                fail(link.place, "a call cannot be assigned to; elements are written x[i], what a "
                                 "cell holds c{i}");
            Link& copy = result.links.emplace_back(tree_->arena);
            copy.kind = link.kind;
            copy.place = link.place;
            copy.name = link.name;
            copy.arguments = link.arguments;
        }
    }
    if (root->kind != ExpressionKind::Name)
        fail(written->place, "expected a variable, an element or a field on the left of '='");
    result.root = static_cast<const NameExpression*>(root);
    scope_->entries[result.root->slot].assigned = true;
    return result;
}

const Statement* Parser::evaluateOrAssign() {
    const Place place = token().place;
    const Expression* const first = expression();
    if (!is(TokenKind::Assign) && !is(TokenKind::Comma)) {
        auto* const node = statementNode<EvaluateStatement>(StatementKind::Evaluate, place);
        node->value = first;
        endStatement(*node, "end of line, ';' or '='");
        return node;
    }
    auto* const node = statementNode<AssignStatement>(StatementKind::Assign, place);
    const bool joined = first->kind == ExpressionKind::Join && is(TokenKind::Assign);
    if (joined)
        fail(place, "several variables are assigned without brackets: a, b = f(x)");
    node->targets.push_back(target(first));
    while (accept(TokenKind::Comma)) {
        if (node->targets.size() >= maxArguments)
            fail(token().place, "too many variables on the left of '='");
        node->targets.push_back(target(postfix()));
    }
    expect(TokenKind::Assign);
    node->value = expression();
    if (node->targets.size() > 1) {
        // Only something that is called can give more than one value.
        const ExpressionKind kind = node->value->kind;
        if (kind != ExpressionKind::Name && kind != ExpressionKind::Chain)
            fail(node->value->place, "expected a call on the right of '=': only a function gives "
                                     "more than one value");
    }
    endStatement(*node, "end of line or ';'");
    return node;
}

const Expression* Parser::condition() {
    const Expression* const result = expression();
    if (is(TokenKind::Assign))
        fail(token().place, "expected a condition, found '='; a comparison is written '=='");
    return result;
}

const Statement* Parser::ifStatement() {
    auto* const node = statementNode<IfStatement>(StatementKind::If, token().place);
    openers_.push_back({token().place, TokenKind::If});
    do {
        advance();
        IfStatement::Branch branch(tree_->arena);
        branch.condition = condition();
        block(branch.block);
        node->branches.push_back(std::move(branch));
    } while (is(TokenKind::ElseIf));
    const char* expected = "'elseif', 'else' or 'end'";
    if (accept(TokenKind::Else)) {
        block(node->otherwise);
        expected = "'end'";
    }
    closeBlock(expected);
    endStatement(*node, "end of line or ';'");
    return node;
}

const Statement* Parser::forStatement() {
    auto* const node = statementNode<ForStatement>(StatementKind::For, token().place);
    openers_.push_back({token().place, TokenKind::For});
    advance();
    const Token& variable = token();
    if (variable.kind != TokenKind::Name)
        failExpected("the name of the loop variable");
    advance();
    auto* const name = expressionNode<NameExpression>(ExpressionKind::Name, variable.place);
    name->name = intern(variable);
    name->slot = mention(name->name, variable.place, true);
    node->variable = name;
    expect(TokenKind::Assign, " after the loop variable");
    node->range = expression();
    ++loops_;
    block(node->block);
    --loops_;
    closeBlock("'end'");
    endStatement(*node, "end of line or ';'");
    return node;
}

const Statement* Parser::whileStatement() {
    auto* const node = statementNode<WhileStatement>(StatementKind::While, token().place);
    openers_.push_back({token().place, TokenKind::While});
    advance();
    node->condition = condition();
    ++loops_;
    block(node->block);
    --loops_;
    closeBlock("'end'");
    endStatement(*node, "end of line or ';'");
    return node;
}

const Statement* Parser::switchStatement() {
    auto* const node = statementNode<SwitchStatement>(StatementKind::Switch, token().place);
    openers_.push_back({token().place, TokenKind::Switch});
    advance();
    node->subject = condition();
    skipSeparators();
    while (accept(TokenKind::Case)) {
        IfStatement::Branch branch(tree_->arena);
        branch.condition = condition();
        block(branch.block);
        node->cases.push_back(std::move(branch));
    }
    const char* expected = "'case', 'otherwise' or 'end'";
    if (accept(TokenKind::Otherwise)) {
        block(node->otherwise);
        expected = "'end'";
    }
    closeBlock(expected);
    endStatement(*node, "end of line or ';'");
    return node;
}

const Statement* Parser::returnStatement() {
    const Token& first = advance();
    auto* const node = statementNode<ReturnStatement>(StatementKind::Return, first.place);
    if (!is(TokenKind::EndOfLine) && !is(TokenKind::Semicolon) && !is(TokenKind::EndOfInput) &&
        !atBlockEnd()) {
        if (!inFunction_)
            fail(token().place, "only a function returns values");
        do {
            if (node->values.size() >= maxArguments)
                fail(token().place, "too many values to return");
            node->values.push_back(expression());
        } while (accept(TokenKind::Comma));
    }
    endStatement(*node, "',', end of line or ';'");
    return node;
}

const Statement* Parser::tryStatement() {
    auto* const node = statementNode<TryStatement>(StatementKind::Try, token().place);
    openers_.push_back({token().place, TokenKind::Try});
    advance();
    block(node->block);
    if (!is(TokenKind::Catch))
        failExpected("'catch'");
    advance();
    // On one line, "catch err" followed by '=', '(' and the like starts a statement instead.
    if (is(TokenKind::Name)) {
        const TokenKind next = token(1).kind;
        if (next == TokenKind::EndOfLine || next == TokenKind::Semicolon ||
            next == TokenKind::EndOfInput || next == TokenKind::Name || isKeyword(next)) {
            const Token& variable = advance();
            auto* const name = expressionNode<NameExpression>(ExpressionKind::Name, variable.place);
            name->name = intern(variable);
            name->slot = mention(name->name, variable.place, true);
            node->variable = name;
        }
    }
    block(node->handler);
    closeBlock("'end'");
    endStatement(*node, "end of line or ';'");
    return node;
}

// ---- functions

void Parser::function() {
    openers_.push_back({token().place, TokenKind::Function});
    advance();
    const Token& name = token();
    if (name.kind != TokenKind::Name)
        failExpected("the name of the function");
    advance();
    for (const FunctionTree& other : tree_->functions)
        if (&other != tree_->body && other.name == intern(name))
            fail(name.place, fmt::format("the function '{}' is there twice; the first one is in "
                                         "line {}",
                                         name.text, other.place.line));
    FunctionTree& tree = tree_->functions.emplace_back(tree_->arena);
    tree.name = intern(name);
    tree.place = name.place;
    Scope* const outer = scope_;
    scope_ = &tree_->scopes.emplace_back();
    tree.scope = scope_;
    tree.signature = name.text;
    tree.signature += '(';
    if (is(TokenKind::LeftParen)) {
        openers_.push_back({token().place, TokenKind::LeftParen});
        advance();
        while (!is(TokenKind::RightParen)) {
            if (!is(TokenKind::Name))
                failExpected("the name of a parameter or ')'");
            if (tree.parameters >= maxArguments)
                fail(token().place, "too many parameters");
            addParameter(token());
            tree.signature += tree.parameters == 0 ? "" : ", ";
            tree.signature += token().text;
            ++tree.parameters;
            advance();
            if (!is(TokenKind::RightParen) && !accept(TokenKind::Comma))
                failExpected("',' or ')'");
        }
        closeBracket(TokenKind::RightParen, "')'");
    }
    tree.signature += ')';
    if (!is(TokenKind::EndOfLine) && !is(TokenKind::Semicolon))
        failExpected("end of line or ';' after the head of the function");
    tree.help = helpAround(name.place.line);
    inFunction_ = true;
    block(tree.block);
    inFunction_ = false;
    closeBlock("'end'");
    scope_ = outer;
    Statement ending{};
    endStatement(ending, "end of line or ';'");
}

/// The comment lines that end just above a line, or else those that start just below it.
std::string Parser::helpAround(std::uint32_t headLine) const {
    const auto& comments = list_.comments;
    const auto below = std::lower_bound(
        comments.begin(), comments.end(), headLine,
        [](const Comment& comment, std::uint32_t line) { return comment.line < line; });
    auto first = below;
    for (std::uint32_t line = headLine;
         first != comments.begin() && std::prev(first)->line + 1 == line; --line)
        --first;
    auto last = below;
    if (first == below)
        for (std::uint32_t line = headLine + 1; last != comments.end() && last->line == line;
             ++line)
            ++last;
    std::string help;
    for (; first != last; ++first) {
        help += first->text;
        help += '\n';
    }
    return help;
}

// ---- entry points

std::unique_ptr<SyntaxTree> parseScript(const Source& source) {
    return Parser(source).script();
}

std::unique_ptr<SyntaxTree> parseExpression(const Source& source) {
    return Parser(source).expressionOnly();
}

bool endsUnfinished(std::string_view text) {
    const Source source{.name = "<prompt>", .folder = {}, .text = std::string(text) + "\n"};
    std::unique_ptr<Parser> parser;
    try {
        parser = std::make_unique<Parser>(source);
        if (parser->unfinished())
            return true;
        (void)parser->script();
        return false;
    } catch (const std::exception&) {
        return parser != nullptr && parser->unfinished();
    }
}

} // namespace varnix
