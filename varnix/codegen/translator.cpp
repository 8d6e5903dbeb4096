// Blocks, registers, and the plain instructions; calls, loops and elements are in
// translator_parts.cpp.
#include "codegen/translator.hpp"

#include "codegen/intrinsics.hpp"

#include <algorithm>

namespace varnix::codegen {

using QN::ScalarKind;
using Status = RegisterState::Status;

namespace {

constexpr std::uint32_t mostLines = std::uint32_t{1} << 24;

[[nodiscard]] bool isTest(varnix::Op op) {
    return op >= varnix::Op::TestEqual && op <= varnix::Op::TestGreaterEqualConstant;
}
/// Instructions of which the Jump that follows is a part.
[[nodiscard]] bool takesJump(varnix::Op op) {
    return isTest(op) || op == varnix::Op::CaseTest || op == varnix::Op::ForRangeStep ||
           op == varnix::Op::ForEachStep;
}
[[nodiscard]] bool isJump(varnix::Op op) {
    switch (op) {
    case varnix::Op::Jump:
    case varnix::Op::JumpBack:
    case varnix::Op::JumpIfTrue:
    case varnix::Op::JumpIfFalse:
    case varnix::Op::ForRange:
    case varnix::Op::ForEach:
        return true;
    default:
        return false;
    }
}
[[nodiscard]] std::uint32_t jumpTarget(const Code& code, std::uint32_t at) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(at) +
                                      code.instructions[at].offset());
}
[[nodiscard]] bool fallsThrough(varnix::Op op) {
    return op == varnix::Op::JumpIfTrue || op == varnix::Op::JumpIfFalse;
}
[[nodiscard]] int keyOf(ValueType type) {
    return static_cast<int>(type.kind) * 2 + (type.isArray ? 1 : 0);
}
[[nodiscard]] BinaryOp operatorOf(varnix::Op op, varnix::Op first, BinaryOp firstOperator) {
    return static_cast<BinaryOp>(static_cast<int>(firstOperator) + static_cast<int>(op) -
                                 static_cast<int>(first));
}

} // namespace

ReturnCounts countReturns(const Code& code) {
    ReturnCounts counts{~std::size_t{0}, 0};
    std::vector<bool> seen(code.instructions.size());
    std::vector<std::uint32_t> open{0};
    while (!open.empty()) {
        std::uint32_t at = open.back();
        open.pop_back();
        for (; at < code.instructions.size() && !seen[at]; ++at) {
            seen[at] = true;
            const Instruction& each = code.instructions[at];
            if (each.op == varnix::Op::Return) {
                counts.least = std::min<std::size_t>(counts.least, each.wide());
                counts.most = std::max<std::size_t>(counts.most, each.wide());
                break;
            }
            if (takesJump(each.op)) {
                open.push_back(jumpTarget(code, at + 1));
                ++at; // and on behind the jump
            } else if (isJump(each.op)) {
                open.push_back(jumpTarget(code, at));
                if (!fallsThrough(each.op))
                    break;
            }
        }
    }
    counts.least = std::min(counts.least, counts.most);
    return counts;
}

Translator::Translator(Program& program, Instance& instance)
    : program_(program), instance_(instance), code_(*instance.code), ops_(emitter_, *this) {}

Translator::Translator(Program& program, Instance& instance, QN::Function& function)
    : program_(program), instance_(instance), code_(*instance.code), emitter_(function.cfg()),
      ops_(emitter_, *this), function_(&function) {}

// ---- blocks

void Translator::findBlocks() {
    const auto count = static_cast<std::uint32_t>(code_.instructions.size());
    std::vector<bool> leads(count + 1);
    leads[0] = true;
    for (std::uint32_t at = 0; at < count; ++at) {
        const varnix::Op op = code_.instructions[at].op;
        if (takesJump(op)) {
            leads[jumpTarget(code_, at + 1)] = true;
            leads[std::min(at + 2, count)] = true;
            ++at;
        } else if (isJump(op)) {
            leads[jumpTarget(code_, at)] = true;
            leads[at + 1] = true;
        } else if (op == varnix::Op::Return) {
            leads[at + 1] = true;
        }
    }
    instance_.blockAt.resize(count);
    for (std::uint32_t at = 0; at < count; ++at) {
        if (leads[at]) {
            if (!instance_.blocks.empty())
                instance_.blocks.back().end = at;
            instance_.blocks.push_back({.begin = at, .in = {}});
        }
        instance_.blockAt[at] = static_cast<std::uint32_t>(instance_.blocks.size() - 1);
    }
    instance_.blocks.back().end = count;
}

void Translator::findTypes() {
    if (!code_.handlers.empty())
        throw Outside{"try"};
    if (instance_.blocks.empty()) {
        findBlocks();
        Instance::Block& first = instance_.blocks.front();
        first.in.resize(code_.registers);
        for (std::size_t i = 0; i < instance_.arguments.size(); ++i)
            first.in[i] = {.status = Status::Set, .type = instance_.arguments[i]};
        first.isReached = true;
    }
    // All blocks again: what a callee gives may have become known.
    for (std::uint32_t i = 0; i < instance_.blocks.size(); ++i)
        if (instance_.blocks[i].isReached) {
            instance_.blocks[i].isQueued = true;
            queue_.push_back(i);
        }
    while (!queue_.empty()) {
        const auto next = std::min_element(queue_.begin(), queue_.end());
        Instance::Block& each = instance_.blocks[*next];
        *next = queue_.back();
        queue_.pop_back();
        each.isQueued = false;
        state_ = each.in;
        block(each);
    }
}

void Translator::write() {
    QN::Cfg& cfg = function_->cfg();
    std::size_t number = 0;
    for (QN::Var& var : cfg.vars()) {
        if (number < instance_.arguments.size())
            variables_[{number, keyOf(instance_.arguments[number])}] = &var;
        else
            resultPointers_.push_back(&var);
        ++number;
    }
    // The entry is no target of a jump, whatever the function begins with.
    QN::Block* const entry = cfg.addBlock();
    for (const Instance::Block& each : instance_.blocks)
        if (each.isReached)
            irBlocks_[each.begin] = cfg.addBlock();
    emitter_.setLine(std::min(code_.place.line, mostLines - 1));
    emitter_.at(entry);
    emitter_.jump(irBlocks_.at(0));
    for (const Instance::Block& each : instance_.blocks) {
        if (!each.isReached)
            continue;
        state_ = each.in;
        emitter_.at(irBlocks_.at(each.begin));
        block(each);
    }
}

void Translator::block(const Instance::Block& block) {
    values_.assign(code_.registers, nullptr);
    borrowed_.assign(code_.registers, nullptr);
    ops_.forgetPlaces();
    const std::uint32_t end = block.end;
    for (std::uint32_t at = block.begin; at < end;) {
        emitter_.setLine(std::min(code_.places[at].line, mostLines - 1));
        operands_.clear();
        target_ = noTarget;
        if (instruction(at))
            return;
    }
    flowTo(end);
}

QN::Block* Translator::blockFor(std::uint32_t target) {
    return emitter_.isDry() ? nullptr : irBlocks_.at(target);
}

void Translator::flowTo(std::uint32_t target) {
    settle();
    merge(target);
    prepareEdge(target);
    emitter_.jump(blockFor(target));
}

void Translator::branchTo(Ref condition, std::uint32_t ifTrue, std::uint32_t ifFalse) {
    settle();
    merge(ifTrue);
    merge(ifFalse);
    prepareEdge(ifTrue);
    prepareEdge(ifFalse);
    emitter_.branch(condition, blockFor(ifTrue), blockFor(ifFalse));
}

RegisterState Translator::join(const RegisterState& a, const RegisterState& b, bool named) const {
    if (a == b)
        return a;
    if (a.status == Status::Set && b.status == Status::Set && !a.isText && !b.isText &&
        a.type.kind == b.type.kind) {
        if (a.type == b.type)
            return {.status = Status::Set, .type = a.type};
        if (named)
            return {.status = Status::Set, .type = arrayType(a.type.kind)};
    }
    if (a.status == Status::Loop && b.status == Status::Loop && a.type == b.type)
        return {.status = Status::Loop, .type = a.type}; // of which one may be cut
    return {.status = Status::Unknown, .type = {}};
}

void Translator::merge(std::uint32_t target) {
    if (!emitter_.isDry())
        return;
    const std::uint32_t number = instance_.blockAt[target];
    Instance::Block& to = instance_.blocks[number];
    bool changed = false;
    if (!to.isReached) {
        to.isReached = changed = true;
        to.in = state_;
    } else {
        for (std::size_t r = 0; r < state_.size(); ++r) {
            const RegisterState joined = join(to.in[r], state_[r], isNamed(r));
            if (joined != to.in[r]) {
                to.in[r] = joined;
                changed = true;
            }
        }
    }
    if (changed && !to.isQueued) {
        to.isQueued = true;
        queue_.push_back(number);
    }
}

/// Numbers become arrays where other ways to the target bring arrays.
void Translator::prepareEdge(std::uint32_t target) {
    if (emitter_.isDry())
        return;
    const State& in = instance_.blocks[instance_.blockAt[target]].in;
    for (std::size_t r = 0; r < in.size(); ++r)
        if (in[r].status == Status::Set && in[r].type.isArray && state_[r].status == Status::Set &&
            !state_[r].type.isArray) {
            const Ref array = emitter_.load(promoted(read(r)).array);
            emitter_.store(variableFor(r, in[r].type), array);
        }
}

// ---- registers

QN::Var* Translator::variableFor(std::size_t r, ValueType type) {
    if (emitter_.isDry())
        return nullptr;
    QN::Var*& var = variables_[{r, keyOf(type)}];
    if (var == nullptr)
        var = isNamed(r) ? emitter_.variable(QN::VarKind::User, type.ir(), code_.names[r].str(),
                                             std::min(code_.place.line, mostLines - 1))
                         : emitter_.temporary(type.ir());
    return var;
}

Operand Translator::constant(const Value& value) {
    if (value.isScalar()) {
        const ScalarKind kind = kindOfTag(value.tag());
        return {.type = scalarType(kind),
                .value = emitter_.constant(kind, value.asUnsigned()),
                .constant = &value};
    }
    if (value.isTextRow())
        return {.type = {}, .constant = &value, .isText = true};
    return constantArray(value);
}

Operand Translator::constantArray(const Value& value) {
    constexpr std::size_t mostElements = 256;
    const auto type = typeOfValue(value);
    if (!type || value.count() > mostElements)
        throw Outside{"a constant that is no small array of numbers"};
    const Ref columns = emitter_.index(static_cast<std::int64_t>(value.columns()));
    const Ref rows = emitter_.index(static_cast<std::int64_t>(value.rows()));
    const Operand result = ops_.newArray(type->kind, rows, columns);
    if (type->kind != ScalarKind::Double)
        throw Outside{"a constant array of another class"};
    for (std::size_t i = 0; i < value.count(); ++i) {
        const Ref element = emitter_.number(static_cast<const double*>(value.array()->data)[i]);
        emitter_.setElement(result.array, emitter_.index(static_cast<std::int64_t>(i) + 1),
                            element);
    }
    return result;
}

Operand Translator::promoted(const Operand& scalar) {
    QN::Var* const box = emitter_.temporary(QN::Type::array(scalar.type.kind));
    emitter_.store(box, emitter_.newArray(scalar.type.kind, emitter_.index(1), emitter_.index(1)));
    emitter_.setElement(box, emitter_.index(1), scalar.value);
    return ops_.inArray(scalar.type.kind, box);
}

QN::Var* Translator::placeFor(ScalarKind kind) {
    if (emitter_.isDry())
        return nullptr;
    if (target_ != noTarget) {
        QN::Var* const var = variableFor(target_, arrayType(kind));
        if (std::find(operands_.begin(), operands_.end(), var) == operands_.end()) {
            target_ = noTarget; // for one array only
            settle(var);
            return var;
        }
    }
    return emitter_.temporary(QN::Type::array(kind));
}

Operand Translator::read(std::size_t r) {
    const RegisterState& state = state_[r];
    if (state.status != Status::Set)
        throw Outside{isNamed(r) ? "the variable " + code_.names[r].str() +
                                       ", which may have no value or values of two types"
                                 : "a value that may be missing"};
    if (state.isText)
        return {.type = {}, .constant = state.constant, .isText = true};
    if (state.type.isArray) {
        QN::Var* const var = borrowed_[r] != nullptr ? borrowed_[r] : variableFor(r, state.type);
        operands_.push_back(var);
        return ops_.inArray(state.type.kind, var);
    }
    if (state.constant != nullptr)
        return constant(*state.constant);
    if (!emitter_.isDry() && values_[r] == nullptr)
        values_[r] = emitter_.load(variableFor(r, state.type));
    return {.type = state.type, .value = values_[r]};
}

void Translator::write(std::size_t r, const Operand& value) {
    state_[r] = {.status = Status::Set,
                 .type = value.type,
                 .isText = value.isText,
                 .constant = value.constant};
    values_[r] = value.value;
    borrowed_[r] = nullptr;
    if (emitter_.isDry() || value.isText)
        return;
    QN::Var* const var = variableFor(r, value.type);
    if (!value.type.isArray) {
        emitter_.store(var, value.value);
    } else if (value.array != var) {
        settle(var);
        const bool isUsers = value.array->varKind() != QN::VarKind::Temp;
        if (isUsers && !isNamed(r))
            borrowed_[r] = value.array;
        else
            emitter_.store(var, emitter_.load(value.array));
    }
}

void Translator::clear(std::size_t r) {
    state_[r] = {};
    values_[r] = nullptr;
    borrowed_[r] = nullptr;
}

void Translator::settle(const QN::Var* changing) {
    for (std::size_t r = 0; r < borrowed_.size(); ++r)
        if (borrowed_[r] != nullptr && (changing == nullptr || borrowed_[r] == changing))
            settleOne(r);
}

void Translator::settleOne(std::size_t r) {
    if (borrowed_[r] != nullptr)
        emitter_.store(variableFor(r, state_[r].type), emitter_.load(borrowed_[r]));
    borrowed_[r] = nullptr;
}

// ---- instructions

void Translator::binary(BinaryOp op, const Operand& left, const Operand& right, std::size_t to) {
    target_ = to;
    write(to, ops_.binary(op, left, right));
}

void Translator::test(std::uint32_t at, BinaryOp op, const Operand& left, const Operand& right) {
    const Ref truth = ops_.truthOf(ops_.binary(op, left, right));
    const std::uint32_t jump = jumpTarget(code_, at + 1);
    if (code_.instructions[at].c != 0)
        branchTo(truth, jump, at + 2);
    else
        branchTo(truth, at + 2, jump);
}

bool Translator::instruction(std::uint32_t& at) {
    using varnix::Op;
    const Instruction& i = code_.instructions[at];
    const std::uint32_t here = at++;
    switch (i.op) {
    case Op::LoadConstant:
        target_ = i.a;
        write(i.a, constant(code_.constants[i.wide()]));
        return false;
    case Op::Copy:
        write(i.a, read(i.b));
        return false;
    case Op::Move:
        write(i.a, read(i.b));
        clear(i.b);
        return false;
    case Op::Clear:
        for (std::uint32_t k = 0; k < i.wide(); ++k)
            clear(i.a + k);
        return false;
    case Op::Add:
    case Op::Subtract:
    case Op::Multiply:
    case Op::Divide:
    case Op::TimesElement:
    case Op::DivideElement:
    case Op::Power:
    case Op::PowerElement:
    case Op::Equal:
    case Op::NotEqual:
    case Op::Less:
    case Op::LessEqual:
    case Op::Greater:
    case Op::GreaterEqual:
    case Op::And:
    case Op::Or: {
        const Operand left = read(i.b);
        binary(operatorOf(i.op, Op::Add, BinaryOp::Add), left, read(i.c), i.a);
        return false;
    }
    case Op::AddConstant:
    case Op::SubtractConstant:
    case Op::MultiplyConstant:
    case Op::DivideConstant: {
        const Operand left = read(i.b);
        binary(operatorOf(i.op, Op::AddConstant, BinaryOp::Add), left,
               constant(code_.constants[i.c]), i.a);
        return false;
    }
    case Op::Plus:
    case Op::Negate:
    case Op::Not: {
        const Operand x = read(i.b);
        target_ = i.a;
        write(i.a,
              ops_.unary(operatorOf(i.op, Op::Plus, BinaryOp::Add) == BinaryOp::Add ? UnaryOp::Plus
                         : i.op == Op::Negate ? UnaryOp::Negate
                                              : UnaryOp::Not,
                         x));
        return false;
    }
    case Op::Truth:
        write(i.a, ops_.scalar(ScalarKind::Logical, ops_.truthOf(read(i.b))));
        return false;
    case Op::Range: {
        const Operand first = read(i.b);
        const Operand step = read(i.b + 1U);
        const Operand last = read(i.b + 2U);
        target_ = i.a;
        const Operand result = ops_.range(first, step, last);
        for (std::size_t k = 0; k < 3; ++k)
            clear(i.b + k);
        write(i.a, result);
        return false;
    }
    case Op::Jump:
    case Op::JumpBack:
        flowTo(jumpTarget(code_, here));
        return true;
    case Op::JumpIfTrue:
        branchTo(ops_.truthOf(read(i.a)), jumpTarget(code_, here), here + 1);
        return true;
    case Op::JumpIfFalse:
        branchTo(ops_.truthOf(read(i.a)), here + 1, jumpTarget(code_, here));
        return true;
    case Op::TestEqual:
    case Op::TestNotEqual:
    case Op::TestLess:
    case Op::TestLessEqual:
    case Op::TestGreater:
    case Op::TestGreaterEqual: {
        const Operand left = read(i.a);
        test(here, operatorOf(i.op, Op::TestEqual, BinaryOp::Equal), left, read(i.b));
        return true;
    }
    case Op::TestEqualConstant:
    case Op::TestNotEqualConstant:
    case Op::TestLessConstant:
    case Op::TestLessEqualConstant:
    case Op::TestGreaterConstant:
    case Op::TestGreaterEqualConstant: {
        const Operand right = constant(code_.constants[i.b]);
        test(here, operatorOf(i.op, Op::TestEqualConstant, BinaryOp::Equal), read(i.a), right);
        return true;
    }
    case Op::CaseTest: {
        const Operand subject = read(i.a);
        const Operand alternative = read(i.b);
        if (subject.isText || alternative.isText || subject.type.isArray ||
            alternative.type.isArray)
            throw Outside{"a switch on something else than numbers"};
        branchTo(ops_.binary(BinaryOp::Equal, subject, alternative).value, here + 2,
                 jumpTarget(code_, here + 1));
        return true;
    }
    case Op::ForRange:
        forRange(here);
        return true;
    case Op::ForRangeStep:
        forRangeStep(here);
        return true;
    case Op::ForEach:
        forEach(here);
        return true;
    case Op::ForEachStep:
        forEachStep(here);
        return true;
    case Op::Join:
    case Op::Stack:
        gather(i);
        return false;
    case Op::EndOf:
    case Op::EndOfTarget:
        endOf(i, i.op == Op::EndOfTarget);
        return false;
    case Op::Index: {
        const Operand base = read(i.b);
        const Operand place = read(i.c);
        target_ = i.a;
        write(i.a, ops_.index(base, place));
        return false;
    }
    case Op::IndexConstant: {
        const Operand base = read(i.b);
        write(i.a, ops_.index(base, constant(code_.constants[i.c])));
        return false;
    }
    case Op::IndexTwo: {
        const Operand base = read(i.b);
        const Operand row = read(i.c);
        const Operand column = read(i.c + 1U);
        target_ = i.a;
        write(i.a, ops_.index(base, row, column));
        return false;
    }
    case Op::IndexSite:
        indexSite(code_.indices[i.wide()]);
        return false;
    case Op::StoreIndex:
    case Op::StoreIndexConstant: {
        const Operand value = read(i.c);
        const Operand place = i.op == Op::StoreIndex ? read(i.b) : constant(code_.constants[i.b]);
        QN::Var* const var = assigned(i.a, value.type.kind);
        ops_.assign(state_[i.a].type.kind, var, place, value);
        return false;
    }
    case Op::StoreIndexTwo: {
        const Operand value = read(i.c);
        const Operand row = read(i.b);
        const Operand column = read(i.b + 1U);
        QN::Var* const var = assigned(i.a, value.type.kind);
        ops_.assign(state_[i.a].type.kind, var, row, column, value);
        return false;
    }
    case Op::StorePath:
        storePath(code_.stores[i.wide()]);
        return false;
    case Op::Call:
        return !call(code_.calls[i.wide()]);
    case Op::Return:
        leave(i);
        return true;
    case Op::MakeCell:
    case Op::Brace:
        throw Outside{"a cell"};
    case Op::GetMember:
    case Op::SetMember:
    case Op::CallMember:
    case Op::CallPath:
        throw Outside{"a member"};
    case Op::CallValue:
    case Op::MakeFunction:
    case Op::MakeHandle:
        throw Outside{"a function as a value"};
    case Op::Echo:
    case Op::EchoResult:
        throw Outside{"an echo"};
    case Op::CatchError:
        break;
    }
    throw Outside{"try"};
}

} // namespace varnix::codegen
