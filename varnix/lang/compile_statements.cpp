// Statements to code.
#include "lang/compiler_state.hpp"

namespace varnix {

void FunctionCompiler::body(const Block& block) {
    statements(block);
    emitWide(code_.place, Op::Return, 0, 0);
}

void FunctionCompiler::lambdaBody(const Expression& value) {
    const Temporaries scope(*this);
    // What is called may give nothing (a function that only prints); so may the whole then.
    if (value.kind == ExpressionKind::Chain ||
        (value.kind == ExpressionKind::Name &&
         !isVariable(static_cast<const NameExpression&>(value).slot))) {
        const Register result = take(value.place);
        callLike(value, 0, result);
        emitWide(value.place, Op::Return, result, 1);
        return;
    }
    emitWide(value.place, Op::Return, operand(value), 1);
}

void FunctionCompiler::statements(const Block& block) {
    for (const Statement* const each : block) {
        const Temporaries scope(*this);
        statement(*each);
    }
}

void FunctionCompiler::statement(const Statement& node) {
    switch (node.kind) {
    case StatementKind::Evaluate:
        return evaluate(static_cast<const EvaluateStatement&>(node));
    case StatementKind::Assign:
        return assign(static_cast<const AssignStatement&>(node));
    case StatementKind::If:
        return ifStatement(static_cast<const IfStatement&>(node));
    case StatementKind::For:
        return forStatement(static_cast<const ForStatement&>(node));
    case StatementKind::While:
        return whileStatement(static_cast<const WhileStatement&>(node));
    case StatementKind::Switch:
        return switchStatement(static_cast<const SwitchStatement&>(node));
    case StatementKind::Break:
        return jump(node.place, Op::Jump, 0, *loops_.back().exit);
    case StatementKind::Continue:
        return jump(node.place, Op::Jump, 0, *loops_.back().next);
    case StatementKind::Return:
        return returnStatement(static_cast<const ReturnStatement&>(node));
    case StatementKind::Try:
        return tryStatement(static_cast<const TryStatement&>(node));
    }
}

void FunctionCompiler::evaluate(const EvaluateStatement& node) {
    const Expression& value = *node.value;
    const bool isName = value.kind == ExpressionKind::Name;
    const bool mayBeMissing = isName || value.kind == ExpressionKind::Chain;
    if (isName && isVariable(static_cast<const NameExpression&>(value).slot)) {
        // Looking at a variable: an error when it has no value, else nothing but the echo.
        const Slot slot = static_cast<const NameExpression&>(value).slot;
        const Register temporary = take(node.place);
        emit(node.place, Op::Copy, temporary, slot);
        emitWide(node.place, Op::Clear, temporary, 1);
        if (options_.echo && node.echo)
            emit(node.place, Op::Echo, slot);
        return;
    }
    if (mayBeMissing && !options_.echo) {
        callLike(value, 0, noSlot);
        return;
    }
    const Register result = take(node.place);
    if (mayBeMissing)
        callLike(value, 0, result);
    else
        into(value, result);
    if (options_.echo)
        emit(node.place, Op::EchoResult, result, answer_, node.echo ? 1 : 0);
    else
        emitWide(node.place, Op::Clear, result, 1);
}

void FunctionCompiler::assign(const AssignStatement& node) {
    if (node.targets.size() == 1) {
        const Target& target = node.targets.front();
        if (target.links.empty())
            into(*node.value, target.root->slot);
        else
            store(target, operand(*node.value));
    } else {
        const Register window = take(node.place, node.targets.size());
        callLike(*node.value, node.targets.size(), window);
        for (std::size_t i = 0; i < node.targets.size(); ++i) {
            const Temporaries scope(*this);
            const auto value = static_cast<Register>(window + i);
            if (node.targets[i].links.empty()) {
                emit(node.place, Op::Move, node.targets[i].root->slot, value);
            } else {
                store(node.targets[i], value);
                emitWide(node.place, Op::Clear, value, 1);
            }
        }
    }
    if (options_.echo && node.echo)
        for (const Target& target : node.targets)
            emit(node.place, Op::Echo, target.root->slot);
}

void FunctionCompiler::ifStatement(const IfStatement& node) {
    Label done;
    for (std::size_t i = 0; i < node.branches.size(); ++i) {
        Label next;
        {
            const Temporaries scope(*this);
            branch(*node.branches[i].condition, false, next);
        }
        statements(node.branches[i].block);
        if (i + 1 < node.branches.size() || !node.otherwise.empty())
            jump(node.place, Op::Jump, 0, done);
        bind(next);
    }
    statements(node.otherwise);
    bind(done);
}

void FunctionCompiler::loopBody(const Block& block, Label& next, Label& exit) {
    loops_.push_back({&next, &exit});
    statements(block);
    loops_.pop_back();
}

void FunctionCompiler::forStatement(const ForStatement& node) {
    Label start;
    Label next;
    Label exit;
    const bool isRange = node.range->kind == ExpressionKind::Range;
    const Register state = take(node.place, loopState);
    if (isRange)
        rangeParts(static_cast<const RangeExpression&>(*node.range), state);
    else
        into(*node.range, static_cast<Register>(state + loopSubject));
    jump(node.range->place, isRange ? Op::ForRange : Op::ForEach, state, next);
    bind(start);
    loopBody(node.block, next, exit);
    bind(next);
    emit(node.place, isRange ? Op::ForRangeStep : Op::ForEachStep, state, node.variable->slot);
    jump(node.place, Op::Jump, 0, start);
    bind(exit);
    emitWide(node.place, Op::Clear, state, loopState);
}

void FunctionCompiler::whileStatement(const WhileStatement& node) {
    Label next;
    Label exit;
    bind(next);
    {
        const Temporaries scope(*this);
        branch(*node.condition, false, exit);
    }
    loopBody(node.block, next, exit);
    jump(node.place, Op::JumpBack, 0, next);
    bind(exit);
}

void FunctionCompiler::switchStatement(const SwitchStatement& node) {
    Label done;
    const Register subject = operand(*node.subject);
    for (const IfStatement::Branch& each : node.cases) {
        Label next;
        {
            const Temporaries scope(*this);
            const Register alternative = operand(*each.condition);
            emit(each.condition->place, Op::CaseTest, subject, alternative);
            jump(each.condition->place, Op::Jump, 0, next);
        }
        statements(each.block);
        jump(node.place, Op::Jump, 0, done);
        bind(next);
    }
    statements(node.otherwise);
    bind(done);
    if (isTemporary(subject))
        emitWide(node.place, Op::Clear, subject, 1);
}

void FunctionCompiler::returnStatement(const ReturnStatement& node) {
    if (node.values.size() == 1) {
        emitWide(node.place, Op::Return, operand(*node.values.front()), 1);
        return;
    }
    const Register window = take(node.place, node.values.size());
    for (std::size_t i = 0; i < node.values.size(); ++i)
        into(*node.values[i], static_cast<Register>(window + i));
    emitWide(node.place, Op::Return, node.values.empty() ? 0 : window, node.values.size());
}

void FunctionCompiler::tryStatement(const TryStatement& node) {
    Label done;
    Code::Handler handler;
    handler.begin = static_cast<std::uint32_t>(code_.instructions.size());
    handler.temporaries = static_cast<std::uint16_t>(next_);
    statements(node.block);
    handler.end = static_cast<std::uint32_t>(code_.instructions.size());
    jump(node.place, Op::Jump, 0, done);
    handler.target = static_cast<std::uint32_t>(code_.instructions.size());
    code_.handlers.push_back(handler);
    if (node.variable != nullptr)
        emit(node.variable->place, Op::CatchError, node.variable->slot);
    statements(node.handler);
    bind(done);
}

// ---- conditions

namespace {

std::optional<Op> testOf(BinaryOp op, bool withConstant) {
    switch (op) {
    case BinaryOp::Equal:
        return withConstant ? Op::TestEqualConstant : Op::TestEqual;
    case BinaryOp::NotEqual:
        return withConstant ? Op::TestNotEqualConstant : Op::TestNotEqual;
    case BinaryOp::Less:
        return withConstant ? Op::TestLessConstant : Op::TestLess;
    case BinaryOp::LessEqual:
        return withConstant ? Op::TestLessEqualConstant : Op::TestLessEqual;
    case BinaryOp::Greater:
        return withConstant ? Op::TestGreaterConstant : Op::TestGreater;
    case BinaryOp::GreaterEqual:
        return withConstant ? Op::TestGreaterEqualConstant : Op::TestGreaterEqual;
    default:
        return std::nullopt;
    }
}

} // namespace

void FunctionCompiler::branch(const Expression& condition, bool sense, Label& label) {
    switch (condition.kind) {
    case ExpressionKind::AndAlso:
    case ExpressionKind::OrElse: {
        // `a && b` jumps when false as soon as one of them is; when true only after the last.
        const auto spine = leftSpine(static_cast<const BinaryExpression&>(condition));
        const bool deciding = condition.kind == ExpressionKind::OrElse;
        Label decided;
        Label& early = sense == deciding ? label : decided;
        branch(*spine.front()->left, deciding, early);
        for (std::size_t i = 0; i + 1 < spine.size(); ++i)
            branch(*spine[i]->right, deciding, early);
        branch(*spine.back()->right, sense, label);
        bind(decided);
        return;
    }
    case ExpressionKind::Logical:
        if (static_cast<const LogicalExpression&>(condition).value == sense)
            jump(condition.place, Op::Jump, 0, label);
        return;
    case ExpressionKind::Binary: {
        const auto& comparison = static_cast<const BinaryExpression&>(condition);
        const auto number = constantDouble(*comparison.right);
        const std::size_t index = number ? doubleConstant(*number) : 0;
        const bool withConstant = number && index <= 0xFFFF;
        const auto test = testOf(comparison.op, withConstant);
        if (!test)
            break;
        const Temporaries scope(*this);
        const Register left = operand(*comparison.left);
        const std::size_t right = withConstant ? index : operand(*comparison.right);
        emit(condition.place, *test, left, right, sense ? 1 : 0);
        jump(condition.place, Op::Jump, 0, label);
        return;
    }
    default:
        break;
    }
    const Temporaries scope(*this);
    jump(condition.place, sense ? Op::JumpIfTrue : Op::JumpIfFalse, operand(condition), label);
}

} // namespace varnix
