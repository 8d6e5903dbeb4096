// Expressions to code.
#include "lang/compiler_state.hpp"
#include "value/array.hpp"

#include <algorithm>

namespace varnix {

namespace {

/// Elements of a literal that are gathered by one instruction; longer ones are gathered in pieces,
/// so that they do not need a register for each element.
constexpr std::size_t pieceLength = 200;

Op operationOf(BinaryOp op) {
    return static_cast<Op>(static_cast<int>(Op::Add) + static_cast<int>(op));
}
static_assert(static_cast<int>(Op::Or) - static_cast<int>(Op::Add) ==
              static_cast<int>(BinaryOp::Or));

std::optional<Op> constantOperationOf(BinaryOp op) {
    switch (op) {
    case BinaryOp::Add:
        return Op::AddConstant;
    case BinaryOp::Subtract:
        return Op::SubtractConstant;
    case BinaryOp::Multiply:
        return Op::MultiplyConstant;
    case BinaryOp::Divide:
        return Op::DivideConstant;
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<double> FunctionCompiler::constantDouble(const Expression& expression) {
    if (expression.kind == ExpressionKind::Number) {
        const auto& number = static_cast<const NumberExpression&>(expression);
        if (number.tag == Tag::Double)
            return number.number;
    } else if (expression.kind == ExpressionKind::Unary) {
        const auto& sign = static_cast<const UnaryExpression&>(expression);
        if (sign.op == UnaryOp::Negate && sign.operand->kind == ExpressionKind::Number)
            if (const auto inner = constantDouble(*sign.operand))
                return -*inner;
    }
    return std::nullopt;
}

/// The nodes of a left-leaning chain of operators, the innermost first. A sum of a hundred thousand
/// terms is a tree of that depth; it must not be walked by recursion.
std::vector<const BinaryExpression*>
FunctionCompiler::leftSpine(const BinaryExpression& expression) {
    std::vector<const BinaryExpression*> spine;
    const Expression* node = &expression;
    while (node->kind == expression.kind) {
        const auto* const inner = static_cast<const BinaryExpression*>(node);
        spine.push_back(inner);
        node = inner->left;
    }
    std::reverse(spine.begin(), spine.end());
    return spine;
}

Register FunctionCompiler::operand(const Expression& expression) {
    if (expression.kind == ExpressionKind::Name) {
        const auto& name = static_cast<const NameExpression&>(expression);
        if (isVariable(name.slot))
            return name.slot;
    }
    const Register temporary = take(expression.place);
    into(expression, temporary);
    return temporary;
}

void FunctionCompiler::into(const Expression& node, Register target) {
    const Temporaries scope(*this);
    switch (node.kind) {
    case ExpressionKind::Number: {
        const auto& number = static_cast<const NumberExpression&>(node);
        const bool isSigned = number.tag >= Tag::Int8 && number.tag <= Tag::Int64;
        const std::size_t index =
            number.tag == Tag::Double ? doubleConstant(number.number)
            : isSigned                ? constant(Value::ofSigned(number.tag, number.signedValue))
                       : constant(Value::ofUnsigned(number.tag, number.unsignedValue));
        emitWide(node.place, Op::LoadConstant, target, index);
        return;
    }
    case ExpressionKind::Text:
        emitWide(node.place, Op::LoadConstant, target,
                 textConstant(static_cast<const TextExpression&>(node).text));
        return;
    case ExpressionKind::Logical:
        emitWide(node.place, Op::LoadConstant, target,
                 constant(Value::ofLogical(static_cast<const LogicalExpression&>(node).value)));
        return;
    case ExpressionKind::Name:
        return nameAlone(static_cast<const NameExpression&>(node), 1, target);
    case ExpressionKind::End:
        return end(node.place, target);
    case ExpressionKind::Colon: // the indices' own; see indexWindow
        return;
    case ExpressionKind::Unary:
        return unary(static_cast<const UnaryExpression&>(node), target);
    case ExpressionKind::Binary:
        return binary(static_cast<const BinaryExpression&>(node), target);
    case ExpressionKind::AndAlso:
    case ExpressionKind::OrElse:
        return shortCircuit(static_cast<const BinaryExpression&>(node), target);
    case ExpressionKind::Range:
        return range(static_cast<const RangeExpression&>(node), target);
    case ExpressionKind::Join:
    case ExpressionKind::Cell:
        return matrix(static_cast<const MatrixExpression&>(node), target);
    case ExpressionKind::Chain:
        return chain(static_cast<const ChainExpression&>(node), 1, target);
    case ExpressionKind::Lambda:
        return lambda(static_cast<const LambdaExpression&>(node), target);
    case ExpressionKind::Handle:
        return handle(static_cast<const HandleExpression&>(node), target);
    }
}

void FunctionCompiler::unary(const UnaryExpression& node, Register target) {
    if (const auto number = constantDouble(node)) {
        emitWide(node.place, Op::LoadConstant, target, doubleConstant(*number));
        return;
    }
    const Op op = node.op == UnaryOp::Negate ? Op::Negate
                  : node.op == UnaryOp::Not  ? Op::Not
                                             : Op::Plus;
    emit(node.place, op, target, operand(*node.operand));
}

void FunctionCompiler::binary(const BinaryExpression& node, Register target) {
    const auto spine = leftSpine(node);
    Register left = operand(*spine.front()->left);
    std::optional<Register> partial; // holds the value of all but the last operator
    if (isTemporary(left))
        partial = left;
    for (const BinaryExpression* const each : spine) {
        const bool last = each == spine.back();
        if (!last && !partial)
            partial = take(each->place);
        const Temporaries scope(*this);
        const Register result = last ? target : *partial;
        const auto number = constantDouble(*each->right);
        const auto op = number ? constantOperationOf(each->op) : std::nullopt;
        const std::size_t index = op ? doubleConstant(*number) : 0;
        if (op && index <= 0xFFFF)
            emit(each->place, *op, result, left, index);
        else
            emit(each->place, operationOf(each->op), result, left, operand(*each->right));
        left = result;
    }
}

void FunctionCompiler::shortCircuit(const BinaryExpression& node, Register target) {
    // Into a temporary, since the later operands may read the variable that is being assigned.
    const Register result = isTemporary(target) ? target : take(node.place);
    const Op leave = node.kind == ExpressionKind::AndAlso ? Op::JumpIfFalse : Op::JumpIfTrue;
    const auto spine = leftSpine(node);
    Label done;
    const auto step = [&](const Expression& each, bool last) {
        const Temporaries scope(*this);
        emit(each.place, Op::Truth, result, operand(each));
        if (!last)
            jump(each.place, leave, result, done);
    };
    step(*spine.front()->left, false);
    for (const BinaryExpression* const each : spine)
        step(*each->right, each == spine.back());
    bind(done);
    if (result != target)
        emit(node.place, Op::Move, target, result);
}

void FunctionCompiler::rangeParts(const RangeExpression& node, Register window) {
    into(*node.first, window);
    if (node.step != nullptr)
        into(*node.step, static_cast<Register>(window + 1));
    else
        emitWide(node.place, Op::LoadConstant, static_cast<Register>(window + 1),
                 doubleConstant(1));
    into(*node.last, static_cast<Register>(window + 2));
}

void FunctionCompiler::range(const RangeExpression& node, Register target) {
    const Register window = take(node.place, 3);
    rangeParts(node, window);
    emit(node.place, Op::Range, target, window);
}

// ---- literals of arrays and cells

std::optional<Value> FunctionCompiler::constantMatrix(const MatrixExpression& node) const {
    const std::size_t rows = node.rows.size();
    const std::size_t columns = rows == 0 ? 0 : node.rows.front().size();
    for (const ExpressionList& each : node.rows) {
        if (each.size() != columns)
            return std::nullopt; // reported when it runs
        for (const Expression* const element : each)
            if (!constantDouble(*element))
                return std::nullopt;
    }
    hvArray* const array = newArray(hvDOUBLE_CLASS, rows, columns);
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t column = 0; column < columns; ++column)
            elements<double>(array)[column * rows + row] = *constantDouble(*node.rows[row][column]);
    return Value::fromArray(array);
}

/// Gathers `count` parts from `first` on, made by element(i, register), with the instruction
/// `make`; many of them in pieces that are joined with `join`.
template <class Element>
void FunctionCompiler::pieces(std::size_t first, std::size_t count, Op make, Op join, Place place,
                              Register target, const Element& element) {
    const Temporaries scope(*this);
    if (count <= pieceLength) {
        const Register window = take(place, count);
        for (std::size_t i = 0; i < count; ++i)
            element(first + i, static_cast<Register>(window + i));
        emit(place, make, target, count == 0 ? 0 : window, count);
        return;
    }
    const std::size_t length = std::max(pieceLength, (count + pieceLength - 1) / pieceLength);
    const std::size_t number = (count + length - 1) / length;
    const Register window = take(place, number);
    for (std::size_t i = 0; i < number; ++i)
        pieces(first + i * length, std::min(length, count - i * length), make, join, place,
               static_cast<Register>(window + i), element);
    emit(place, join, target, window, number);
}

void FunctionCompiler::row(std::span<const Expression* const> parts, bool cell, Place place,
                           Register target) {
    pieces(0, parts.size(), cell ? Op::MakeCell : Op::Join, Op::Join, place, target,
           [&](std::size_t i, Register r) { into(*parts[i], r); });
}

void FunctionCompiler::matrix(const MatrixExpression& node, Register target) {
    const bool cell = node.kind == ExpressionKind::Cell;
    if (!cell) {
        if (auto value = constantMatrix(node)) {
            emitWide(node.place, Op::LoadConstant, target, constant(*value));
            return;
        }
    }
    if (node.rows.size() <= 1) {
        row(node.rows.empty() ? std::span<const Expression* const>()
                              : std::span<const Expression* const>(node.rows.front()),
            cell, node.place, target);
        return;
    }
    pieces(0, node.rows.size(), Op::Stack, Op::Stack, node.place, target,
           [&](std::size_t i, Register r) { row(node.rows[i], cell, node.place, r); });
}

// ---- functions as values

void FunctionCompiler::lambda(const LambdaExpression& node, Register target) {
    auto code = std::make_unique<Code>();
    code->unit = code_.unit;
    code->text = node.text;
    code->place = node.place;
    code->parameters = node.parameters;
    FunctionCompiler inner(source_, options_, *code, *node.scope, this);
    inner.lambdaBody(*node.body);
    FunctionMaker maker{std::move(code), {}};
    maker.captures.assign(node.captures.begin(), node.captures.end());
    code_.makers.push_back(std::move(maker));
    emitWide(node.place, Op::MakeFunction, target, code_.makers.size() - 1);
}

void FunctionCompiler::handle(const HandleExpression& node, Register target) {
    NamePathSite site;
    site.names.assign(node.path.begin(), node.path.end());
    code_.paths.push_back(std::move(site));
    emitWide(node.place, Op::MakeHandle, target, code_.paths.size() - 1);
}

} // namespace varnix
