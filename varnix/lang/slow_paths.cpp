// The slow halves of the machine's simpler instructions: everything but scalar doubles and
// logicals, and operands that turn out to be functions.
#include "lang/machine.hpp"
#include "object/package_tree.hpp"
#include "shell/console.hpp"
#include "value/array.hpp"
#include "value/errors.hpp"
#include "value/format.hpp"
#include "value/ops.hpp"

namespace varnix {

using objsys::COSNameID;

const Value& Machine::operand(const Frame& frame, std::size_t r, Value& holder) {
    const Value& value = frame.base[r];
    if (!value.isUnset() || frame.code->isTemporary(r))
        return value;
    holder = nameValue(frame, r);
    return holder;
}

/// A name without a value in the place of a variable: a function called without arguments.
Value Machine::nameValue(const Frame& frame, std::size_t slot) {
    const COSNameID name = frame.code->names[slot];
    const NameResolver::Found found = names_.find(name, frame.code->unit);
    if (found.script != nullptr) {
        enter(*found.script, {}, Sink{});
        return finishOne(true);
    }
    if (found.builtin == nullptr)
        raiseUndefined(name, frame.code->unit);
    invokeBuiltin(*found.builtin, {}, Sink{});
    return finishOne(false);
}

void Machine::raiseUndefined(COSNameID name, const Unit* unit) {
    if (objsys::PackageTree::findRoot(name.str()) != nullptr)
        fail(id::undefined, "'{}' is a package; a class in it is written {}.NAME", name.str(),
             name.str());
    std::vector<std::string> candidates = variableNames(currentWorkspace());
    for (std::string& candidate : names_.candidates(unit))
        if (candidate != name.str()) // a file of that name that defines no such function
            candidates.push_back(std::move(candidate));
    fail(id::undefined, "'{}' is not defined{}", name.str(), suggestion(name.str(), candidates));
}

// ---- operators

void Machine::binarySlow(Frame& frame, BinaryOp op, const Instruction& at) {
    Value left;
    Value right;
    Value result = binary(op, operand(frame, at.b, left), operand(frame, at.c, right));
    clearTemporary(frame, at.b);
    clearTemporary(frame, at.c);
    frame.base[at.a] = std::move(result);
}

void Machine::binaryConstantSlow(Frame& frame, BinaryOp op, const Instruction& at) {
    Value left;
    Value result = binary(op, operand(frame, at.b, left), frame.code->constants[at.c]);
    clearTemporary(frame, at.b);
    frame.base[at.a] = std::move(result);
}

bool Machine::testSlow(Frame& frame, BinaryOp op, const Instruction& at) {
    Value left;
    Value right;
    const bool result = isTrue(binary(op, operand(frame, at.a, left), operand(frame, at.b, right)));
    clearTemporary(frame, at.a);
    clearTemporary(frame, at.b);
    return result;
}

bool Machine::testConstantSlow(Frame& frame, BinaryOp op, const Instruction& at) {
    Value left;
    const bool result = isTrue(binary(op, operand(frame, at.a, left), frame.code->constants[at.b]));
    clearTemporary(frame, at.a);
    return result;
}

void Machine::unarySlow(Frame& frame, UnaryOp op, const Instruction& at) {
    Value holder;
    Value result = unary(op, operand(frame, at.b, holder));
    clearTemporary(frame, at.b);
    frame.base[at.a] = std::move(result);
}

bool Machine::truthSlow(Frame& frame, std::size_t r) {
    Value holder;
    const bool result = isTrue(operand(frame, r, holder));
    clearTemporary(frame, r);
    return result;
}

bool Machine::caseMatches(Frame& frame, const Instruction& at) {
    Value subjectHolder;
    Value alternativeHolder;
    const Value& subject = operand(frame, at.a, subjectHolder);
    const Value& alternative = operand(frame, at.b, alternativeHolder);
    const auto matches = [&](const Value& each) {
        // A text and the codes of its characters are different things here.
        return subject.isChar() == each.isChar() && isEqual(subject, each);
    };
    bool result = false;
    if (alternative.isCell() && !subject.isCell()) {
        for (std::size_t i = 0; i < alternative.count() && !result; ++i)
            result = matches(cellAt(alternative.array(), i));
    } else {
        result = matches(alternative);
    }
    clearTemporary(frame, at.b);
    return result;
}

// ---- making values

void Machine::makeRange(Frame& frame, const Instruction& at) {
    Value* const window = frame.base + at.b;
    Value result = range(window[0], window[1], window[2]);
    for (std::size_t i = 0; i < 3; ++i)
        window[i] = Value();
    frame.base[at.a] = std::move(result);
}

void Machine::gather(Frame& frame, const Instruction& at) {
    const std::span<Value> parts(frame.base + at.b, at.c);
    Value result;
    if (at.op == Op::Join) {
        result = joinHorizontally(parts);
    } else if (at.op == Op::Stack) {
        result = joinVertically(parts);
    } else {
        result = Value::fromArray(newArray(hvCELL_CLASS, parts.empty() ? 0 : 1, parts.size()));
        for (std::size_t i = 0; i < parts.size(); ++i)
            setCell(result.array(), i, parts[i]);
    }
    for (Value& part : parts)
        part = Value();
    frame.base[at.a] = std::move(result);
}

void Machine::makeFunction(Frame& frame, const Instruction& at) {
    const FunctionMaker& maker = frame.code->makers[at.wide()];
    std::vector<Value> captured;
    captured.reserve(maker.captures.size());
    for (const LambdaExpression::Capture& capture : maker.captures)
        captured.push_back(frame.base[capture.outside]);
    frame.base[at.a] = newFunction(std::make_shared<AnonymousFunction>(
        frame.code->unit->shared_from_this(), *maker.code, std::move(captured)));
}

void Machine::makeHandle(Frame& frame, const Instruction& at) {
    const NamePathSite& site = frame.code->paths[at.wide()];
    NameResolver::Found found;
    if (site.names.size() == 1)
        found = names_.find(site.names.front(), frame.code->unit);
    // The code of the function lives with its own unit, which need not be this one.
    const Unit* const unit = found.script ? found.script->unit : frame.code->unit;
    frame.base[at.a] = newFunction(std::make_shared<NamedFunction>(
        site.names, unit->shared_from_this(), found.script, found.builtin));
}

// ---- the prompt

void Machine::echo(Frame& frame, std::size_t slot) {
    if (!frame.base[slot].isUnset())
        console::print(formatEcho(frame.code->names[slot].str(), frame.base[slot]));
}

void Machine::echoResult(Frame& frame, const Instruction& at) {
    if (frame.base[at.a].isUnset())
        return;
    frame.base[at.b] = std::move(frame.base[at.a]);
    if (at.c != 0)
        echo(frame, at.b);
}

// ---- errors

Value Machine::errorValue() const {
    const auto field = [](Value& record, const char* name, Value value) {
        structOf(record.array()).place(COSNameID(name)) = std::move(value);
    };
    const auto& frames = caught_->stack();
    hvArray* const places = newArray(hvCELL_CLASS, 1, frames.size());
    Value stack = Value::fromArray(places);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        Value place = newStruct();
        field(place, "function", Value::text(frames[i].function));
        field(place, "file", Value::text(frames[i].file));
        field(place, "line", Value::ofDouble(frames[i].line));
        field(place, "column", Value::ofDouble(frames[i].column));
        setCell(places, i, place);
    }
    Value error = newStruct();
    field(error, "message", Value::text(caught_->message()));
    field(error, "identifier", Value::text(caught_->identifier()));
    field(error, "stack", std::move(stack));
    return error;
}

} // namespace varnix
