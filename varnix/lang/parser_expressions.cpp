// The parser's expressions. Operators by rising precedence:
//   ||   &&   |   &   == != < <= > >=   :   + -   * / .* ./   unary - + !   ^ .^
#include "lang/parser_state.hpp"

#include <fmt/format.h>
#include <optional>

namespace varnix {

using objsys::COSNameID;

namespace {

constexpr int rangeLevel = 6;

int levelOf(TokenKind kind) {
    switch (kind) {
    case TokenKind::OrElse:
        return 1;
    case TokenKind::AndAlso:
        return 2;
    case TokenKind::Or:
        return 3;
    case TokenKind::And:
        return 4;
    case TokenKind::Equal:
    case TokenKind::NotEqual:
    case TokenKind::Less:
    case TokenKind::LessEqual:
    case TokenKind::Greater:
    case TokenKind::GreaterEqual:
        return 5;
    case TokenKind::Colon:
        return rangeLevel;
    case TokenKind::Plus:
    case TokenKind::Minus:
        return 7;
    case TokenKind::Star:
    case TokenKind::Slash:
    case TokenKind::DotStar:
    case TokenKind::DotSlash:
        return 8;
    default:
        return 0;
    }
}

BinaryOp operatorOf(TokenKind kind) {
    switch (kind) {
    case TokenKind::Or:
        return BinaryOp::Or;
    case TokenKind::And:
        return BinaryOp::And;
    case TokenKind::Equal:
        return BinaryOp::Equal;
    case TokenKind::NotEqual:
        return BinaryOp::NotEqual;
    case TokenKind::Less:
        return BinaryOp::Less;
    case TokenKind::LessEqual:
        return BinaryOp::LessEqual;
    case TokenKind::Greater:
        return BinaryOp::Greater;
    case TokenKind::GreaterEqual:
        return BinaryOp::GreaterEqual;
    case TokenKind::Plus:
        return BinaryOp::Add;
    case TokenKind::Minus:
        return BinaryOp::Subtract;
    case TokenKind::Star:
        return BinaryOp::Multiply;
    case TokenKind::Slash:
        return BinaryOp::Divide;
    case TokenKind::DotStar:
        return BinaryOp::TimesElement;
    case TokenKind::DotSlash:
        return BinaryOp::DivideElement;
    case TokenKind::Caret:
        return BinaryOp::Power;
    default:
        return BinaryOp::PowerElement;
    }
}

std::optional<UnaryOp> unaryOf(TokenKind kind) {
    switch (kind) {
    case TokenKind::Minus:
        return UnaryOp::Negate;
    case TokenKind::Plus:
        return UnaryOp::Plus;
    case TokenKind::Not:
        return UnaryOp::Not;
    default:
        return std::nullopt;
    }
}

} // namespace

const Expression* Parser::binary(int lowest) {
    const Expression* left = unary();
    for (;;) {
        const Token& op = token();
        const int level = levelOf(op.kind);
        if (level == 0 || level < lowest)
            return left;
        if (level == rangeLevel) {
            left = range(left);
            continue;
        }
        advance();
        const ExpressionKind kind = op.kind == TokenKind::OrElse    ? ExpressionKind::OrElse
                                    : op.kind == TokenKind::AndAlso ? ExpressionKind::AndAlso
                                                                    : ExpressionKind::Binary;
        auto* const node = expressionNode<BinaryExpression>(kind, op.place);
        node->op = operatorOf(op.kind);
        node->left = left;
        node->right = binary(level + 1);
        left = node;
    }
}

const Expression* Parser::range(const Expression* first) {
    auto* const node = expressionNode<RangeExpression>(ExpressionKind::Range, token().place);
    advance();
    node->first = first;
    node->last = binary(rangeLevel + 1);
    if (accept(TokenKind::Colon)) {
        node->step = node->last;
        node->last = binary(rangeLevel + 1);
    }
    if (is(TokenKind::Colon))
        fail(token().place, "a range has at most three parts, first:step:last");
    return node;
}

const Expression* Parser::unary() {
    const Nesting nesting(*this);
    const Token& first = token();
    const auto op = unaryOf(first.kind);
    if (!op)
        return power();
    advance();
    // The most negative integers have no positive counterpart: -128i8 is one literal.
    if (*op == UnaryOp::Negate && is(TokenKind::Number) && token().tag != Tag::Double &&
        token(1).kind != TokenKind::Caret && token(1).kind != TokenKind::DotCaret)
        return number(true);
    auto* const node = expressionNode<UnaryExpression>(ExpressionKind::Unary, first.place);
    node->op = *op;
    node->operand = unary();
    return node;
}

const Expression* Parser::power() {
    const Expression* left = postfix();
    while (is(TokenKind::Caret) || is(TokenKind::DotCaret)) {
        const Token& op = advance();
        auto* const node = expressionNode<BinaryExpression>(ExpressionKind::Binary, op.place);
        node->op = operatorOf(op.kind);
        node->left = left;
        node->right = exponent();
        left = node;
    }
    return left;
}

/// What stands right of '^' may bear signs of its own: 2^-1.
const Expression* Parser::exponent() {
    const Nesting nesting(*this);
    const Token& first = token();
    const auto op = unaryOf(first.kind);
    if (!op)
        return postfix();
    advance();
    auto* const node = expressionNode<UnaryExpression>(ExpressionKind::Unary, first.place);
    node->op = *op;
    node->operand = exponent();
    return node;
}

const Expression* Parser::postfix() {
    const Expression* const root = primary();
    ChainExpression* chain = nullptr;
    for (;;) {
        const Token& opener = token();
        Link link(tree_->arena);
        link.place = opener.place;
        switch (opener.kind) {
        case TokenKind::Dot: {
            advance();
            const Token& name = token();
            if (name.kind == TokenKind::LeftParen)
                fail(name.place, "expected the name of a member after '.'; there are no computed "
                                 "member names");
            if (name.kind != TokenKind::Name && !isKeyword(name.kind))
                failExpected("the name of a member after '.'");
            link.kind = LinkKind::Member;
            link.place = name.place;
            link.name = intern(name);
            advance();
            break;
        }
        case TokenKind::LeftParen:
            link.kind = LinkKind::Call;
            arguments(link.arguments, TokenKind::RightParen, false);
            break;
        case TokenKind::LeftBracket:
            link.kind = LinkKind::Index;
            arguments(link.arguments, TokenKind::RightBracket, true);
            break;
        case TokenKind::LeftBrace:
            link.kind = LinkKind::Brace;
            arguments(link.arguments, TokenKind::RightBrace, true);
            break;
        default:
            return chain ? chain : root;
        }
        if (!chain) {
            chain = expressionNode<ChainExpression>(ExpressionKind::Chain, root->place);
            chain->root = root;
        }
        chain->links.push_back(std::move(link));
    }
}

void Parser::arguments(ExpressionList& list, TokenKind close, bool indices) {
    const Nesting nesting(*this);
    openers_.push_back({token().place, token().kind});
    advance();
    if (indices)
        ++indices_;
    while (!is(close)) {
        if (list.size() >= maxArguments)
            fail(token().place, indices ? "too many indices" : "too many arguments");
        const TokenKind next = token(1).kind;
        if (indices && is(TokenKind::Colon) && (next == TokenKind::Comma || next == close)) {
            list.push_back(expressionNode<Expression>(ExpressionKind::Colon, token().place));
            advance();
        } else {
            list.push_back(expression());
        }
        if (is(TokenKind::Assign) && !indices)
            fail(token().place, "expected ',' or ')', found '='; arguments have no names");
        if (!is(close) && !accept(TokenKind::Comma))
            failExpected(fmt::format("',' or {}", nameOf(close)));
    }
    if (indices) {
        --indices_;
        if (list.empty())
            fail(token().place, "expected an index");
        if (list.size() > 2)
            fail(list[2]->place, "expected one or two indices; arrays have two dimensions");
    }
    closeBracket(close, nameOf(close));
}

const Expression* Parser::primary() {
    const Token& first = token();
    switch (first.kind) {
    case TokenKind::Number:
        return number(false);
    case TokenKind::Text: {
        advance();
        auto* const node = expressionNode<TextExpression>(ExpressionKind::Text, first.place);
        node->text = first.text;
        return node;
    }
    case TokenKind::True:
    case TokenKind::False: {
        advance();
        auto* const node = expressionNode<LogicalExpression>(ExpressionKind::Logical, first.place);
        node->value = first.kind == TokenKind::True;
        return node;
    }
    case TokenKind::Name: {
        advance();
        auto* const node = expressionNode<NameExpression>(ExpressionKind::Name, first.place);
        node->name = intern(first);
        node->slot = mention(node->name, first.place, false);
        return node;
    }
    case TokenKind::LeftParen: {
        openers_.push_back({first.place, first.kind});
        advance();
        const Expression* const inner = expression();
        closeBracket(TokenKind::RightParen, "')'");
        return inner;
    }
    case TokenKind::LeftBracket:
        return matrix(ExpressionKind::Join, TokenKind::RightBracket, "',', ';' or ']'");
    case TokenKind::LeftBrace:
        return matrix(ExpressionKind::Cell, TokenKind::RightBrace, "',', ';' or '}'");
    case TokenKind::Fn:
        return functionValue();
    case TokenKind::End:
        if (indices_ > 0) {
            advance();
            return expressionNode<Expression>(ExpressionKind::End, first.place);
        }
        failExpected("an expression");
    default:
        failExpected("an expression");
    }
}

const Expression* Parser::number(bool negative) {
    const Token& first = advance();
    auto* const node = expressionNode<NumberExpression>(ExpressionKind::Number, first.place);
    node->tag = first.tag;
    if (first.tag == Tag::Double) {
        node->number = first.number;
        return node;
    }
    const bool isSigned = first.tag >= Tag::Int8 && first.tag <= Tag::Int64;
    const int width =
        8 << (static_cast<int>(first.tag) - static_cast<int>(isSigned ? Tag::Int8 : Tag::UInt8));
    const std::uint64_t largest = ~std::uint64_t{0} >> (64 - width + (isSigned ? 1 : 0));
    const std::uint64_t limit = !negative ? largest : isSigned ? largest + 1 : 0;
    if (first.magnitude > limit)
        fail(first.place,
             fmt::format("the number does not fit in {}{}", isSigned ? "int" : "uint", width));
    if (isSigned)
        node->signedValue =
            static_cast<std::int64_t>(negative ? 0 - first.magnitude : first.magnitude);
    else
        node->unsignedValue = first.magnitude;
    return node;
}

const Expression* Parser::matrix(ExpressionKind kind, TokenKind close, const char* expected) {
    const Token& first = token();
    openers_.push_back({first.place, first.kind});
    advance();
    auto* const node = expressionNode<MatrixExpression>(kind, first.place);
    // A separator may stand before the closing bracket: long lists are written one row per line.
    while (!is(close)) {
        ExpressionList row(&tree_->arena);
        while (!is(close) && !is(TokenKind::Semicolon)) {
            row.push_back(expression());
            if (!is(close) && !is(TokenKind::Semicolon) && !accept(TokenKind::Comma))
                failExpected(expected);
        }
        if (row.empty())
            failExpected("an expression");
        node->rows.push_back(std::move(row));
        accept(TokenKind::Semicolon);
    }
    closeBracket(close, expected);
    return node;
}

const Expression* Parser::functionValue() {
    const Token& first = advance();
    if (is(TokenKind::LeftParen))
        return lambda(first);
    auto* const node = expressionNode<HandleExpression>(ExpressionKind::Handle, first.place);
    do {
        if (!is(TokenKind::Name))
            failExpected(node->path.empty() ? "'(' or the name of a function after 'fn'"
                                            : "a name after '.'");
        node->path.push_back(intern(token()));
        advance();
    } while (accept(TokenKind::Dot));
    return node;
}

const Expression* Parser::lambda(const Token& head) {
    const Nesting nesting(*this);
    auto* const node = expressionNode<LambdaExpression>(ExpressionKind::Lambda, head.place);
    Scope* const outer = scope_;
    scope_ = &tree_->scopes.emplace_back();
    scope_->parent = outer;
    node->scope = scope_;
    openers_.push_back({token().place, TokenKind::LeftParen});
    advance();
    while (!is(TokenKind::RightParen)) {
        if (!is(TokenKind::Name))
            failExpected("the name of a parameter or ')'");
        if (node->parameters >= maxArguments)
            fail(token().place, "too many parameters");
        addParameter(token());
        ++node->parameters;
        advance();
        if (!is(TokenKind::RightParen) && !accept(TokenKind::Comma))
            failExpected("',' or ')'");
    }
    closeBracket(TokenKind::RightParen, "')'");
    const std::size_t indices = std::exchange(indices_, 0);
    node->body = expression();
    indices_ = indices;
    const std::size_t end = list_.tokens[at_ - 1].end;
    node->text = std::string_view(source_.text).substr(head.begin, end - head.begin);
    const Scope& inner = *scope_;
    scope_ = outer;
    for (std::size_t slot = node->parameters; slot < inner.entries.size(); ++slot)
        node->captures.push_back(
            {static_cast<Slot>(slot), mention(inner.entries[slot].name, node->place, false)});
    return node;
}

} // namespace varnix
