// Arrays as wholes: sizes, new ones, joining, ranges.
#include "codegen/operations.hpp"

#include <limits>
#include <vector>

namespace varnix::codegen {

using QN::Op;
using QN::ScalarKind;
using Ref = Emitter::Ref;

namespace {

/// From here on the host asks the system whether there is memory; see value/memory_limit.hpp.
constexpr std::int64_t modestBytes = std::int64_t{64} << 20;
constexpr std::int64_t modestExtent = std::int64_t{1} << 27;

} // namespace

void Operations::requireRoom(ScalarKind kind, Ref rows, Ref columns) {
    const auto bytes = static_cast<std::int64_t>(QN::ArrayValue::elementBytes(kind));
    const Ref most = e_.index(modestExtent);
    const Ref modestColumns = e_.compare(Op::Le, columns, most);
    e_.require(e_.both(e_.compare(Op::Le, rows, most), modestColumns), HostTrap::Assumption);
    e_.require(
        e_.compare(Op::Le, e_.plainly(Op::Mul, rows, columns), e_.index(modestBytes / bytes)),
        HostTrap::Assumption);
}

Operand Operations::newArray(ScalarKind kind, Ref rows, Ref columns) {
    QN::Var* const var = places_.placeFor(kind);
    e_.store(var, e_.newArray(kind, rows, columns));
    return inArray(kind, var);
}

Operand Operations::only(const Operand& x, HostTrap code) {
    if (x.isText)
        throw Outside{"a text"};
    if (!x.type.isArray)
        return x;
    e_.require(e_.compare(Op::Eq, countOf(x), e_.index(1)), code);
    return scalar(x.type.kind, e_.element(x.array, e_.index(1)));
}

Ref Operations::onlyDouble(const Operand& x) {
    const Operand one = only(x);
    return e_.convert(one.value, one.type.kind, ScalarKind::Double);
}

Operations::Pairing Operations::pair(const Operand& left, const Operand& right) {
    Pairing p;
    if (!left.type.isArray || !right.type.isArray) {
        const Operand& shape = left.type.isArray ? left : right;
        p.rows = rowsOf(shape);
        p.columns = columnsOf(shape);
        p.leftIsOne = p.rightIsOne = e_.truth(false);
        return p;
    }
    p.leftIsOne = e_.compare(Op::Eq, countOf(left), e_.index(1));
    p.rightIsOne = e_.compare(Op::Eq, countOf(right), e_.index(1));
    const Ref rightColumns = columnsOf(right);
    const Ref sameColumns = e_.compare(Op::Eq, columnsOf(left), rightColumns);
    const Ref rightRows = rowsOf(right);
    const Ref sameRows = e_.compare(Op::Eq, rowsOf(left), rightRows);
    const Ref same = e_.both(sameRows, sameColumns);
    e_.require(e_.either(same, e_.either(p.leftIsOne, p.rightIsOne)), HostTrap::WrongSize);
    const Ref leftRows = rowsOf(left);
    p.rows = e_.select(p.leftIsOne, rowsOf(right), leftRows);
    const Ref leftColumns = columnsOf(left);
    p.columns = e_.select(p.leftIsOne, columnsOf(right), leftColumns);
    return p;
}

// ---- ranges

Operations::RangeShape Operations::shapeOfRange(Ref first, Ref step, Ref last) {
    Ref numbers = e_.compare(Op::Eq, last, last);
    numbers = e_.both(e_.compare(Op::Eq, step, step), numbers);
    numbers = e_.both(e_.compare(Op::Eq, first, first), numbers);
    e_.require(numbers, HostTrap::BadArgument);
    // As the machine does it (lang/loops.cpp), operation by operation.
    const Ref quotient = e_.binary(Op::Div, e_.binary(Op::Sub, last, first), step);
    const Ref epsilon = e_.number(std::numeric_limits<double>::epsilon());
    const Ref slack =
        e_.binary(Op::Mul, e_.binary(Op::Mul, e_.unary(Op::Abs, quotient), e_.number(4)), epsilon);
    const Ref steps = e_.unary(Op::Floor, e_.binary(Op::Add, quotient, slack));
    const Ref zero = e_.number(0);
    const Ref forward = e_.compare(Op::Ge, steps, zero);
    const Ref some = e_.both(e_.compare(Op::Ne, step, zero), forward);
    const Ref beyond = e_.index(std::int64_t{1} << 62);
    const Ref most = e_.binary(Op::Sub, beyond, e_.index(1));
    const Ref whole =
        e_.binary(Op::Min, e_.convert(steps, ScalarKind::Double, ScalarKind::Int64), most);
    const Ref count = e_.select(some, e_.plainly(Op::Add, whole, e_.index(1)), e_.index(0));
    const Ref beforeLast =
        e_.convert(e_.plainly(Op::Sub, count, e_.index(1)), ScalarKind::Int64, ScalarKind::Double);
    const Ref end = e_.binary(Op::Add, first, e_.binary(Op::Mul, beforeLast, step));
    const Ref isBelow = e_.compare(Op::Lt, end, last);
    const Ref isAbove = e_.compare(Op::Gt, end, last);
    const Ref passes = e_.select(e_.compare(Op::Gt, step, zero), isAbove, isBelow);
    RangeShape shape;
    shape.isCut = e_.both(e_.compare(Op::Gt, count, e_.index(1)), passes);
    shape.count = e_.select(shape.isCut, e_.plainly(Op::Sub, count, e_.index(1)), count);
    return shape;
}

Ref Operations::turnsOfWholeSteps(Ref first, std::int64_t step, Ref last) {
    // Below this, neither the quotient's rounding nor the slack reaches the next whole number.
    constexpr std::int64_t most = std::int64_t{1} << 48;
    const auto isSmall = [&](Ref whole) {
        const Ref notAbove = e_.compare(Op::Le, whole, e_.index(most));
        return e_.both(e_.compare(Op::Ge, whole, e_.index(-most)), notAbove);
    };
    const Ref from = e_.truncated(first);
    const Ref to = e_.truncated(last);
    const Ref lastIsWhole = e_.isTruncated(last, to);
    const Ref bothWhole = e_.both(e_.isTruncated(first, from), lastIsWhole);
    const Ref lastIsSmall = isSmall(to);
    const Ref bothSmall = e_.both(isSmall(from), lastIsSmall);
    QN::Var* const count = e_.temporary(QN::Type::i64());
    QN::Block* const whole = e_.newBlock();
    QN::Block* const other = e_.newBlock();
    QN::Block* const done = e_.newBlock();
    e_.branch(e_.both(bothWhole, bothSmall), whole, other);
    e_.at(whole);
    const Ref way = step > 0 ? e_.plainly(Op::Sub, to, from) : e_.plainly(Op::Sub, from, to);
    const std::int64_t size = step > 0 ? step : -step;
    const Ref one = e_.index(1);
    if (size == 1) {
        e_.store(count, e_.plainly(Op::Add, way, one));
    } else {
        const Ref steps = e_.plainly(Op::Add, e_.towardZero(Op::Div, way, e_.index(size)), one);
        e_.store(count, e_.select(e_.compare(Op::Ge, way, e_.index(0)), steps, e_.index(0)));
    }
    e_.jump(done);
    e_.at(other);
    const RangeShape shape = shapeOfRange(first, e_.number(static_cast<double>(step)), last);
    e_.require(e_.negation(shape.isCut), HostTrap::Assumption);
    e_.store(count, shape.count);
    e_.jump(done);
    e_.at(done);
    return e_.load(count);
}

Operand Operations::range(const Operand& firstValue, const Operand& stepValue,
                          const Operand& lastValue) {
    for (const Operand* const each : {&firstValue, &stepValue, &lastValue})
        if (each->isText || isInteger(each->type.kind))
            throw Outside{"a range of integers"};
    const Ref first = onlyDouble(firstValue);
    const Ref step = onlyDouble(stepValue);
    const Ref last = onlyDouble(lastValue);
    const RangeShape shape = shapeOfRange(first, step, last);
    requireRoom(ScalarKind::Double, e_.index(1), shape.count);
    const Ref total =
        e_.select(shape.isCut, e_.plainly(Op::Add, shape.count, e_.index(1)), shape.count);
    const Operand result = newArray(ScalarKind::Double, e_.index(1), total);
    e_.loop(e_.index(1), shape.count, [&](Ref k) {
        const Ref from0 =
            e_.convert(e_.plainly(Op::Sub, k, e_.index(1)), ScalarKind::Int64, ScalarKind::Double);
        e_.setElement(result.array, k, e_.binary(Op::Add, first, e_.binary(Op::Mul, from0, step)));
    });
    e_.when(shape.isCut, [&] { e_.setElement(result.array, total, last); });
    return result;
}

// ---- joining

namespace {

[[nodiscard]] ScalarKind joinedKind(std::span<const Operand> parts) {
    bool allLogical = true;
    std::optional<ScalarKind> integer;
    for (const Operand& part : parts) {
        if (part.isText)
            throw Outside{"a text"};
        const ScalarKind kind = part.type.kind;
        allLogical = allLogical && kind == ScalarKind::Logical;
        if (isInteger(kind)) {
            if (integer && *integer != kind)
                throw Outside{"two integer classes side by side"};
            integer = kind;
        }
    }
    return integer ? *integer : allLogical ? ScalarKind::Logical : ScalarKind::Double;
}

} // namespace

Operand Operations::join(std::span<const Operand> parts, bool horizontal) {
    if (parts.empty())
        return newArray(ScalarKind::Double, e_.index(0), e_.index(0));
    if (parts.size() == 1 && !parts[0].isText)
        return parts[0];
    const ScalarKind kind = joinedKind(parts);
    const auto toKind = [&](Ref x, ScalarKind from) { return converted(x, from, kind); };
    bool anyArray = false;
    bool anyDouble = false; // a part that makes doubles of logicals whatever its size
    for (const Operand& part : parts) {
        anyArray = anyArray || part.type.isArray;
        anyDouble = anyDouble || (!part.type.isArray && part.type.kind == ScalarKind::Double);
    }
    const auto n = static_cast<std::int64_t>(parts.size());
    if (!anyArray) {
        const Ref columns = e_.index(horizontal ? n : 1);
        const Operand result = newArray(kind, e_.index(horizontal ? 1 : n), columns);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const Ref element = toKind(parts[i].value, parts[i].type.kind);
            e_.setElement(result.array, e_.index(static_cast<std::int64_t>(i) + 1), element);
        }
        return result;
    }
    // Parts of 0 by 0 vanish; all others must agree across.
    Ref across = e_.index(0);
    Ref along = e_.index(0);
    Ref seen = e_.truth(false);
    for (const Operand& part : parts) {
        const Ref rows = rowsOf(part);
        const Ref columns = columnsOf(part);
        const Ref mine = horizontal ? rows : columns;
        Ref vanishes = e_.truth(false);
        if (part.type.isArray) {
            const Ref noColumns = e_.compare(Op::Eq, columns, e_.index(0));
            vanishes = e_.both(e_.compare(Op::Eq, rows, e_.index(0)), noColumns);
        }
        // [] has no say in the class of the result either.
        if (kind == ScalarKind::Double && part.type.isArray &&
            part.type.kind == ScalarKind::Double && !anyDouble)
            e_.require(e_.negation(vanishes), HostTrap::Assumption);
        const Ref agrees = e_.either(vanishes, e_.compare(Op::Eq, mine, across));
        e_.require(e_.either(e_.negation(seen), agrees), HostTrap::WrongSize);
        across = e_.select(e_.either(seen, vanishes), across, mine);
        seen = e_.either(seen, e_.negation(vanishes));
        along = e_.plainly(Op::Add, along, horizontal ? columns : rows);
    }
    requireRoom(kind, across, along);
    const Operand result = newArray(kind, horizontal ? across : along, horizontal ? along : across);
    Ref at = e_.index(0); // elements (or, below each other, rows) that are filled
    for (const Operand& part : parts) {
        if (!part.type.isArray) {
            const Ref next = e_.plainly(Op::Add, at, e_.index(1));
            const Ref element = toKind(part.value, part.type.kind);
            if (horizontal)
                e_.setElement(result.array, next, element);
            else
                e_.setElement(result.array, next, e_.index(1), element);
            at = next;
        } else if (horizontal) {
            const Ref count = countOf(part);
            e_.loop(e_.index(1), count, [&](Ref k) {
                const Ref element = toKind(e_.element(part.array, k), part.type.kind);
                e_.setElement(result.array, e_.plainly(Op::Add, at, k), element);
            });
            at = e_.plainly(Op::Add, at, count);
        } else {
            const Ref rows = rowsOf(part);
            e_.loop(e_.index(1), columnsOf(part), [&](Ref column) {
                e_.loop(e_.index(1), rows, [&](Ref row) {
                    const Ref element = toKind(e_.element(part.array, row, column), part.type.kind);
                    e_.setElement(result.array, e_.plainly(Op::Add, at, row), column, element);
                });
            });
            at = e_.plainly(Op::Add, at, rows);
        }
    }
    return result;
}

} // namespace varnix::codegen
