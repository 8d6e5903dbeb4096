// Loops, elements, calls and returns; see translator.cpp.
#include "codegen/intrinsics.hpp"
#include "codegen/translator.hpp"

#include <cmath>

namespace varnix::codegen {

using QN::ScalarKind;
using QOp = QN::Op;
using Status = RegisterState::Status;

namespace {

[[nodiscard]] std::uint32_t jumpTarget(const Code& code, std::uint32_t at) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(at) +
                                      code.instructions[at].offset());
}

[[nodiscard]] bool isWholeConstant(const Operand& part) {
    return part.constant != nullptr && part.constant->isScalar() &&
           part.type.kind == ScalarKind::Double &&
           std::trunc(part.constant->asDouble()) == part.constant->asDouble();
}
/// The step of a range, if it is a small whole constant.
[[nodiscard]] std::optional<std::int64_t> wholeStep(const Operand& step) {
    constexpr double most = 1024;
    if (!isWholeConstant(step) || step.constant->asDouble() == 0 ||
        std::fabs(step.constant->asDouble()) > most)
        return std::nullopt;
    return static_cast<std::int64_t>(step.constant->asDouble());
}

} // namespace

// ---- loops

Translator::LoopVars& Translator::loopAt(std::size_t r, ScalarKind kind) {
    LoopVars& vars = loops_[{r, static_cast<int>(kind)}];
    if (vars.index == nullptr && !emitter_.isDry()) {
        const QN::Type* const counted =
            kind == ScalarKind::Double ? QN::Type::f64() : QN::Type::i64();
        vars.index = emitter_.temporary(QN::Type::i64());
        vars.count = emitter_.temporary(QN::Type::i64());
        vars.first = emitter_.temporary(counted);
        vars.step = emitter_.temporary(counted);
        vars.last = emitter_.temporary(counted);
        vars.steps = emitter_.temporary(QN::Type::i64());
    }
    return vars;
}

void Translator::forRange(std::uint32_t at) {
    const std::size_t r = code_.instructions[at].a;
    const Operand parts[3] = {ops_.only(read(r)), ops_.only(read(r + 1)), ops_.only(read(r + 2))};
    std::optional<ScalarKind> integer;
    for (const Operand& part : parts)
        if (isInteger(part.type.kind)) {
            if (isWide(part.type.kind) || (integer && *integer != part.type.kind))
                throw Outside{"a range of 64-bit integers"};
            integer = part.type.kind;
        }
    const ScalarKind kind = integer.value_or(ScalarKind::Double);
    LoopVars& loop = loopAt(r, kind);
    Emitter& e = emitter_;
    Ref value[3];
    for (int k = 0; k < 3; ++k) {
        const ScalarKind from = parts[k].type.kind;
        value[k] = !integer ? e.convert(parts[k].value, from, kind)
                   : from == ScalarKind::Double
                       ? ops_.wholeNumber(parts[k].value, ScalarKind::Int64)
                       : e.convert(parts[k].value, from, ScalarKind::Int64);
    }
    const auto [first, step, last] = value;
    Operations::RangeShape shape;
    bool isUncut = integer.has_value();
    if (!integer) {
        const std::optional<std::int64_t> known = wholeStep(parts[1]);
        const bool countsWhole =
            known.has_value() && (parts[0].constant == nullptr || isWholeConstant(parts[0]));
        if (countsWhole) {
            shape = {.count = ops_.turnsOfWholeSteps(first, *known, last), .isCut = e.truth(false)};
            isUncut = true;
        } else {
            shape = ops_.shapeOfRange(first, step, last);
        }
    } else {
        const Ref zero = e.index(0);
        const Ref isBelow = e.compare(QOp::Lt, first, last);
        const Ref isAbove = e.compare(QOp::Gt, first, last);
        const Ref leadsAway = e.select(e.compare(QOp::Gt, step, zero), isAbove, isBelow);
        const Ref empty = e.either(e.compare(QOp::Eq, step, zero), leadsAway);
        const Ref steps = e.towardZero(QOp::Div, e.plainly(QOp::Sub, last, first), step);
        shape.count = e.select(empty, zero, e.plainly(QOp::Add, steps, e.index(1)));
        shape.isCut = e.truth(false);
        const Ref end = e.plainly(QOp::Add, first, e.plainly(QOp::Mul, steps, step));
        const auto fits = [&](Ref n) {
            const Ref narrow = e.convert(n, ScalarKind::Int64, kind);
            return e.compare(QOp::Eq, e.convert(narrow, kind, ScalarKind::Int64), n);
        };
        const Ref endFits = fits(end);
        e.require(e.either(empty, e.both(fits(first), endFits)), HostTrap::BadArgument);
    }
    e.store(loop.index, e.index(0));
    e.store(loop.count,
            e.select(shape.isCut, e.plainly(QOp::Add, shape.count, e.index(1)), shape.count));
    e.store(loop.steps, shape.count);
    e.store(loop.first, first);
    e.store(loop.step, step);
    e.store(loop.last, last);
    for (std::size_t k = 0; k < loopState; ++k)
        clear(r + k);
    state_[r] = {.status = Status::Loop, .type = scalarType(kind), .isUncut = isUncut};
    flowTo(jumpTarget(code_, at));
}

void Translator::forRangeStep(std::uint32_t at) {
    const Instruction& i = code_.instructions[at];
    if (state_[i.a].status != Status::Loop)
        throw Outside{"a loop over ranges of two classes"};
    settle(); // before the ways part
    const ScalarKind kind = state_[i.a].type.kind;
    LoopVars& loop = loopAt(i.a, kind);
    Emitter& e = emitter_;
    const std::uint32_t body = jumpTarget(code_, at + 1);
    const std::uint32_t exit = at + 2;
    const Ref index = e.load(loop.index);
    QN::Block* const turn = e.newBlock();
    QN::Block* const rest = e.newBlock();
    e.branch(e.compare(QOp::Lt, index, e.load(loop.count)), turn, rest);

    const State before = state_;
    const std::vector<Ref> valuesBefore = values_;
    e.at(turn);
    const bool isDouble = kind == ScalarKind::Double;
    const Ref counted = isDouble ? e.convert(index, ScalarKind::Int64, kind) : index;
    const Ref offset = isDouble ? e.binary(QOp::Mul, counted, e.load(loop.step))
                                : e.plainly(QOp::Mul, counted, e.load(loop.step));
    Ref value = isDouble ? e.binary(QOp::Add, e.load(loop.first), offset)
                         : e.convert(e.plainly(QOp::Add, e.load(loop.first), offset),
                                     ScalarKind::Int64, kind);
    e.store(loop.index, e.plainly(QOp::Add, index, e.index(1)));
    if (isDouble && !before[i.a].isUncut) {
        // The last value, where adding up steps would pass it by a rounding error.
        QN::Var* const cut = e.temporary(QN::Type::f64());
        e.store(cut, value);
        e.unless(e.compare(QOp::Lt, index, e.load(loop.steps)),
                 [&] { e.store(cut, e.load(loop.last)); });
        value = e.load(cut);
    }
    write(i.b, ops_.scalar(kind, value));
    flowTo(body);

    state_ = before;
    values_ = valuesBefore;
    e.at(rest);
    flowTo(exit);
}

void Translator::forEach(std::uint32_t at) {
    const std::size_t r = code_.instructions[at].a;
    const Operand all = read(r + loopSubject);
    if (all.isText)
        throw Outside{"a text"};
    Emitter& e = emitter_;
    LoopVars& loop = loopAt(r, ScalarKind::Int64);
    const Ref count = ops_.countOf(all);
    // Columns of one element; a variable that is a column would be of another type.
    if (all.type.isArray) {
        const Ref empty = e.compare(QOp::Eq, count, e.index(0));
        e.require(e.either(e.compare(QOp::Eq, ops_.rowsOf(all), e.index(1)), empty),
                  HostTrap::Assumption);
    }
    e.store(loop.index, e.index(0));
    e.store(loop.count, count);
    clear(r + 1);
    clear(r + 3);
    state_[r] = {.status = Status::Loop, .type = scalarType(all.type.kind)};
    values_[r] = nullptr;
    flowTo(jumpTarget(code_, at));
}

void Translator::forEachStep(std::uint32_t at) {
    const Instruction& i = code_.instructions[at];
    if (state_[i.a].status != Status::Loop)
        throw Outside{"a loop over arrays of two classes"};
    settle(); // before the ways part
    LoopVars& loop = loopAt(i.a, ScalarKind::Int64);
    Emitter& e = emitter_;
    const Ref index = e.load(loop.index);
    QN::Block* const turn = e.newBlock();
    QN::Block* const done = e.newBlock();
    e.branch(e.compare(QOp::Lt, index, e.load(loop.count)), turn, done);
    const State before = state_;
    const std::vector<Ref> valuesBefore = values_;
    e.at(turn);
    const Ref next = e.plainly(QOp::Add, index, e.index(1));
    e.store(loop.index, next);
    const Operand all = read(i.a + loopSubject);
    write(i.b, all.type.isArray ? ops_.scalar(all.type.kind, e.element(all.array, next)) : all);
    flowTo(jumpTarget(code_, at + 1));
    state_ = before;
    values_ = valuesBefore;
    e.at(done);
    flowTo(at + 2);
}

// ---- elements

void Translator::endOf(const Instruction& at, bool target) {
    const std::size_t which = at.c & 0xFFU;
    const std::size_t total = at.c >> 8U;
    Ref last = emitter_.index(0);
    if (!target || state_[at.b].status != Status::Unset) {
        const Operand base = read(at.b);
        if (base.isText)
            throw Outside{"a text"};
        last = total == 1   ? ops_.countOf(base)
               : which == 0 ? ops_.rowsOf(base)
               : which == 1 ? ops_.columnsOf(base)
                            : emitter_.index(1);
    }
    write(at.a, ops_.scalar(ScalarKind::Double,
                            emitter_.convert(last, ScalarKind::Int64, ScalarKind::Double)));
}

void Translator::indexSite(const IndexShape& shape) {
    if (shape.brace)
        throw Outside{"a cell"};
    if (shape.count < 1 || shape.count > 2)
        throw Outside{"three indices"};
    const Operand base = read(shape.base);
    Operand held[2];
    const Operand* indices[2] = {nullptr, nullptr};
    for (std::size_t k = 0; k < shape.count; ++k)
        if (((shape.colons >> k) & 1U) == 0) {
            held[k] = read(shape.window + k);
            indices[k] = &held[k];
        }
    target_ = shape.result;
    if (shape.count == 1 && indices[0] != nullptr)
        write(shape.result, ops_.index(base, held[0]));
    else
        write(shape.result, ops_.indexWithColons(base, indices[0], indices[1], shape.count));
}

/// The array variable that an assignment to elements of the register changes.
QN::Var* Translator::assigned(std::size_t r, ScalarKind kindOfNew) {
    RegisterState& state = state_[r];
    if (state.status == Status::Unset) {
        const ValueType type = arrayType(kindOfNew);
        QN::Var* const var = variableFor(r, type);
        emitter_.store(var, emitter_.newArray(kindOfNew, emitter_.index(0), emitter_.index(0)));
        state = {.status = Status::Set, .type = type};
        return var;
    }
    settleOne(r);
    const Operand x = read(r);
    if (x.isText)
        throw Outside{"a text"};
    if (x.type.isArray) {
        settle(x.array);
        return x.array;
    }
    write(r, promoted(x));
    return variableFor(r, state.type);
}

void Translator::storePath(const PathSite& site) {
    if (site.steps.size() != 1 || site.steps[0].kind != LinkKind::Index || site.steps[0].count != 2)
        throw Outside{"an assignment that reaches into a value"};
    const PathSite::Step& step = site.steps[0];
    const Operand value = read(site.value);
    Operand held[2];
    const Operand* indices[2] = {nullptr, nullptr};
    for (std::size_t k = 0; k < 2; ++k)
        if (((step.colons >> k) & 1U) == 0) {
            held[k] = read(step.window + k);
            indices[k] = &held[k];
        }
    settleOne(site.root);
    const Operand x = read(site.root);
    if (x.array != nullptr)
        settle(x.array);
    if (!x.type.isArray)
        throw Outside{"an assignment to several elements of a number"};
    ops_.assignLine(x.type.kind, x.array, indices[0], indices[1], value);
    if (!isNamed(site.value))
        clear(site.value);
}

void Translator::gather(const Instruction& at) {
    std::vector<Operand> parts;
    for (std::size_t k = 0; k < at.c; ++k)
        parts.push_back(read(at.b + k));
    target_ = at.a;
    const Operand result = ops_.join(parts, at.op == varnix::Op::Join);
    for (std::size_t k = 0; k < at.c; ++k)
        clear(at.b + k);
    write(at.a, result);
}

// ---- calls

bool Translator::call(const CallSite& site) {
    if (site.slot != noSlot && state_[site.slot].status != Status::Unset)
        throw Outside{"a call of what may be a variable"};
    std::vector<Operand> arguments;
    for (std::size_t k = 0; k < site.arguments; ++k)
        arguments.push_back(read(site.window + k));
    const NameResolver::Found found = program_.resolve(site.name, code_.unit);
    if (!found)
        throw Outside{"a name that means nothing: " + site.name.str()};
    const auto deliver = [&](std::span<const Operand> results) {
        for (std::size_t k = 0; k < site.arguments; ++k)
            clear(site.window + k);
        if (site.result == noSlot)
            return;
        for (std::size_t k = 0; k < std::max<std::size_t>(site.requested, 1); ++k)
            write(site.result + k, results[k]);
    };
    if (found.builtin != nullptr) {
        if (site.result != noSlot && site.requested <= 1)
            target_ = site.result;
        deliver(callIntrinsic(ops_, *found.builtin, arguments,
                              std::max<std::size_t>(site.requested, 1)));
        return true;
    }
    std::vector<ValueType> types;
    for (const Operand& each : arguments) {
        if (each.isText)
            throw Outside{"a call with a text"};
        types.push_back(each.type);
    }
    if (site.requested == 0 && site.result != noSlot)
        throw Outside{"a call whose value may be missing"};
    Instance& callee = program_.instance(*found.script, std::move(types), site.requested);
    callee.callers.insert(&instance_);
    if (!callee.returns)
        return false;
    std::vector<Operand> results(callee.results.size());
    for (std::size_t k = 0; k < results.size(); ++k)
        results[k].type = callee.results[k];
    if (!emitter_.isDry()) {
        std::vector<QN::Entity*> operands;
        for (const Operand& each : arguments)
            operands.push_back(each.type.isArray ? emitter_.load(each.array) : each.value);
        std::vector<QN::Var*> others;
        for (std::size_t k = 1; k < results.size(); ++k) {
            others.push_back(emitter_.temporary(results[k].type.ir()));
            operands.push_back(emitter_.addressOf(others.back()));
        }
        const Ref value = emitter_.call(callee.name, callee.function->resultType(), operands);
        if (!results.empty() && results[0].type.isArray) {
            results[0].array = emitter_.temporary(results[0].type.ir());
            emitter_.store(results[0].array, value);
        } else if (!results.empty()) {
            results[0].value = value;
        }
        for (std::size_t k = 1; k < results.size(); ++k) {
            if (results[k].type.isArray)
                results[k].array = others[k - 1];
            else
                results[k].value = emitter_.load(others[k - 1]);
        }
    }
    deliver(results);
    return true;
}

void Translator::leave(const Instruction& at) {
    std::size_t count = at.wide();
    if (count == 1 && state_[at.a].status == Status::Unset && !isNamed(at.a))
        count = 0;
    const std::size_t wanted = instance_.requested;
    if (count < wanted) { // an error of the caller
        emitter_.trap(static_cast<std::int64_t>(HostTrap::BadArgument));
        return;
    }
    std::vector<Operand> results;
    for (std::size_t k = 0; k < count; ++k) {
        Operand value = read(at.a + k); // an error where there is none
        if (value.isText)
            throw Outside{"a text"};
        if (k < wanted)
            results.push_back(value);
    }
    if (emitter_.isDry()) {
        std::vector<ValueType> types;
        for (const Operand& each : results)
            types.push_back(each.type);
        if (!instance_.returns) {
            instance_.returns = true;
            instance_.results = types;
            program_.resultsChanged(instance_);
            return;
        }
        for (std::size_t k = 0; k < types.size(); ++k) {
            if (types[k] == instance_.results[k])
                continue;
            if (types[k].kind != instance_.results[k].kind)
                throw Outside{"results of two classes"};
            if (!instance_.results[k].isArray) {
                instance_.results[k].isArray = true;
                program_.resultsChanged(instance_);
            }
        }
        return;
    }
    for (std::size_t k = 0; k < results.size(); ++k) {
        if (instance_.results[k].isArray && !results[k].type.isArray)
            results[k] = promoted(results[k]);
        if (k > 0)
            emitter_.storeThrough(resultPointers_[k - 1], results[k].type.isArray
                                                              ? emitter_.load(results[k].array)
                                                              : results[k].value);
    }
    emitter_.giveBack(results.empty()           ? nullptr
                      : results[0].type.isArray ? emitter_.load(results[0].array)
                                                : results[0].value);
}

} // namespace varnix::codegen
