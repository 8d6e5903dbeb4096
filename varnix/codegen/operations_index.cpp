// Elements: reading and assigning by index; see value/index.hpp for what they are to do.
#include "codegen/operations.hpp"

namespace varnix::codegen {

using QN::Op;
using QN::ScalarKind;
using Ref = Emitter::Ref;

Ref Operations::place(const Operand& index) {
    if (index.isText || index.type.kind == ScalarKind::Logical)
        throw Outside{"an index that is no number"};
    if (index.whole != nullptr)
        return index.whole;
    Ref& known = checked_[index.value];
    if (known == nullptr)
        known = e_.toIndex(index.value);
    return known;
}

namespace {

/// A number as an array of one element.
[[nodiscard]] Operand boxed(Operations& ops, const Operand& x) {
    if (x.type.isArray)
        return x;
    Emitter& e = ops.emitter();
    QN::Var* const box = e.temporary(QN::Type::array(x.type.kind));
    e.store(box, e.newArray(x.type.kind, e.index(1), e.index(1)));
    e.setElement(box, e.index(1), x.value);
    return ops.inArray(x.type.kind, box);
}

/// The size of x[p] for `count` places of a p of `rows` by `columns`: a vector keeps its direction
/// under a vector of indices.
struct Extents {
    Ref rows;
    Ref columns;
};
[[nodiscard]] Extents linearShape(Operations& ops, const Operand& x, Ref count, Ref rows,
                                  Ref columns) {
    Emitter& e = ops.emitter();
    const auto isOne = [&](Ref n) { return e.compare(Op::Eq, n, e.index(1)); };
    const Ref isMore = e.compare(Op::Ne, ops.countOf(x), e.index(1));
    const Ref oneColumn = isOne(columns);
    const Ref keeps = e.both(e.either(isOne(rows), oneColumn), isMore);
    const Ref asRow = e.both(keeps, isOne(ops.rowsOf(x)));
    const Ref isColumn = isOne(ops.columnsOf(x));
    const Ref asColumn = e.both(keeps, e.both(e.negation(asRow), isColumn));
    return {e.select(asRow, e.index(1), e.select(asColumn, count, rows)),
            e.select(asRow, count, e.select(asColumn, e.index(1), columns))};
}

/// x[mask]
[[nodiscard]] Operand byMask(Operations& ops, const Operand& x, const Operand& mask) {
    Emitter& e = ops.emitter();
    QN::Var* const count = e.temporary(QN::Type::i64());
    e.store(count, e.index(0));
    e.loop(e.index(1), ops.countOf(mask), [&](Ref k) {
        e.when(e.element(mask.array, k),
               [&] { e.store(count, e.plainly(Op::Add, e.load(count), e.index(1))); });
    });
    const Ref total = e.load(count);
    const Ref isRow = e.compare(Op::Eq, ops.rowsOf(mask), e.index(1));
    const Ref columns = e.select(isRow, total, e.index(1));
    const Ref rows = e.select(isRow, e.index(1), total);
    const Extents size = linearShape(ops, x, total, rows, columns);
    const Operand result = ops.newArray(x.type.kind, size.rows, size.columns);
    e.store(count, e.index(0));
    e.loop(e.index(1), ops.countOf(mask), [&](Ref k) {
        e.when(e.element(mask.array, k), [&] {
            const Ref next = e.plainly(Op::Add, e.load(count), e.index(1));
            e.store(count, next);
            e.setElement(result.array, next, e.element(x.array, k));
        });
    });
    return result;
}

} // namespace

Operand Operations::index(const Operand& x, const Operand& where) {
    if (x.isText || where.isText)
        throw Outside{"a text"};
    if (!where.type.isArray) {
        const Ref at = place(where);
        if (x.type.isArray)
            return scalar(x.type.kind, e_.element(x.array, at));
        e_.require(e_.compare(Op::Eq, at, e_.index(1)), QN::TrapCode::IndexOutOfBounds);
        return scalar(x.type.kind, x.value);
    }
    const Operand from = boxed(*this, x);
    if (where.type.kind == ScalarKind::Logical)
        return byMask(*this, from, where);
    const Ref columns = columnsOf(where);
    const Ref rows = rowsOf(where);
    const Extents size = linearShape(*this, from, countOf(where), rows, columns);
    const Operand result = newArray(x.type.kind, size.rows, size.columns);
    e_.loop(e_.index(1), countOf(where), [&](Ref k) {
        const Ref at = e_.toIndex(e_.element(where.array, k));
        e_.setElement(result.array, k, e_.element(from.array, at));
    });
    return result;
}

Operand Operations::index(const Operand& x, const Operand& row, const Operand& column) {
    if (!row.type.isArray && !column.type.isArray && !x.isText) {
        const Ref i = place(row);
        const Ref j = place(column);
        if (x.type.isArray)
            return scalar(x.type.kind, e_.element(x.array, i, j));
        const Ref one = e_.index(1);
        const Ref isFirst = e_.compare(Op::Eq, j, one);
        e_.require(e_.both(e_.compare(Op::Eq, i, one), isFirst), QN::TrapCode::IndexOutOfBounds);
        return scalar(x.type.kind, x.value);
    }
    return indexWithColons(x, &row, &column, 2);
}

Operand Operations::indexWithColons(const Operand& x, const Operand* first, const Operand* second,
                                    std::size_t count) {
    if (x.isText)
        throw Outside{"a text"};
    const Operand from = boxed(*this, x);
    if (count == 1) { // x[:]
        const Operand result = newArray(x.type.kind, countOf(from), e_.index(1));
        e_.loop(e_.index(1), countOf(from),
                [&](Ref k) { e_.setElement(result.array, k, e_.element(from.array, k)); });
        return result;
    }
    // Each index: how many places, and which one is the k-th.
    const auto extent = [&](const Operand* index, Ref whole) -> Ref {
        return index == nullptr ? whole : countOf(*index);
    };
    const auto fixed = [&](const Operand* index) -> Ref {
        if (index == nullptr)
            return nullptr;
        if (index->isText || index->type.kind == ScalarKind::Logical)
            throw Outside{"an index that is no number"};
        return index->type.isArray ? nullptr : place(*index);
    };
    const Ref fixedRow = fixed(first);
    const Ref fixedColumn = fixed(second);
    const auto at = [&](const Operand* index, Ref known, Ref k) -> Ref {
        if (index == nullptr)
            return k;
        return index->type.isArray ? e_.toIndex(e_.element(index->array, k)) : known;
    };
    const Ref rows = extent(first, rowsOf(from));
    const Ref columns = extent(second, columnsOf(from));
    requireRoom(x.type.kind, rows, columns);
    const Operand result = newArray(x.type.kind, rows, columns);
    // An index outside is an error even where the other one names nothing.
    const auto check = [&](const Operand* index, Ref known, Ref total, Ref limit) {
        if (index == nullptr)
            return;
        e_.loop(e_.index(1), total, [&](Ref k) {
            const Ref place = at(index, known, k);
            const Ref notBeyond = e_.compare(Op::Le, place, limit);
            e_.require(e_.both(e_.compare(Op::Ge, place, e_.index(1)), notBeyond),
                       QN::TrapCode::IndexOutOfBounds);
        });
    };
    check(first, fixedRow, rows, rowsOf(from));
    check(second, fixedColumn, columns, columnsOf(from));
    e_.loop(e_.index(1), columns, [&](Ref j) {
        const Ref column = at(second, fixedColumn, j);
        e_.loop(e_.index(1), rows, [&](Ref i) {
            const Ref row = at(first, fixedRow, i);
            e_.setElement(result.array, i, j, e_.element(from.array, row, column));
        });
    });
    return result;
}

// ---- assigning

Ref Operations::elementFor(ScalarKind kind, QN::Var* var, const Operand& value) {
    if (value.isText)
        throw Outside{"a text"};
    const ScalarKind from = value.type.kind;
    if (isInteger(kind) && isInteger(from) && kind != from)
        throw Outside{"an integer in an array of another integer class"};
    const Operand one = only(value, HostTrap::WrongSize);
    // [] takes the class of what is assigned first.
    if (kind == ScalarKind::Double && from != kind) {
        const Operand x = inArray(kind, var);
        const Ref hasColumns = e_.compare(Op::Ne, columnsOf(x), e_.index(0));
        e_.require(e_.either(e_.compare(Op::Ne, rowsOf(x), e_.index(0)), hasColumns),
                   HostTrap::Assumption);
    }
    return converted(one.value, from, kind);
}

void Operations::assign(ScalarKind kind, QN::Var* var, const Operand& where, const Operand& value) {
    if (where.type.isArray)
        throw Outside{"an assignment to several elements"};
    const Ref element = elementFor(kind, var, value);
    const Ref at = place(where);
    const Operand x = inArray(kind, var);
    e_.when(e_.compare(Op::Gt, at, countOf(x)), [&] {
        const Ref one = e_.index(1);
        const Ref isRow = e_.compare(Op::Eq, rowsOf(x), one);
        const Ref isColumn = e_.compare(Op::Eq, columnsOf(x), one);
        const Ref empty = e_.compare(Op::Eq, countOf(x), e_.index(0));
        const Ref asRow = e_.either(isRow, e_.both(empty, e_.negation(isColumn)));
        e_.require(e_.either(asRow, isColumn), QN::TrapCode::IndexOutOfBounds);
        requireRoom(kind, one, at);
        const Ref columns = e_.select(asRow, at, one);
        e_.resize(var, e_.select(asRow, one, at), columns);
    });
    e_.setElementInside(var, at, element); // now, if not before
}

void Operations::assign(ScalarKind kind, QN::Var* var, const Operand& row, const Operand& column,
                        const Operand& value) {
    if (row.type.isArray || column.type.isArray)
        throw Outside{"an assignment to several elements"};
    const Ref element = elementFor(kind, var, value);
    const Ref i = place(row);
    const Ref j = place(column);
    const Operand x = inArray(kind, var);
    const Ref beyondColumns = e_.compare(Op::Gt, j, columnsOf(x));
    const Ref outside = e_.either(e_.compare(Op::Gt, i, rowsOf(x)), beyondColumns);
    e_.when(outside, [&] {
        const Ref rows = e_.binary(Op::Max, rowsOf(x), i);
        const Ref columns = e_.binary(Op::Max, columnsOf(x), j);
        requireRoom(kind, rows, columns);
        e_.resize(var, rows, columns);
    });
    e_.setElementInside(var, i, j, element);
}

void Operations::assignLine(ScalarKind kind, QN::Var* var, const Operand* row,
                            const Operand* column, const Operand& value) {
    const Operand* const index = row != nullptr ? row : column;
    if (index == nullptr || index->type.isArray || value.isText ||
        (value.type.isArray && value.array == var && var != nullptr))
        throw Outside{"an assignment to several elements"};
    if (value.type.kind != kind)
        throw Outside{"elements of another class"};
    const Operand x = inArray(kind, var);
    const Ref at = place(*index);
    const Ref limit = row != nullptr ? rowsOf(x) : columnsOf(x);
    const Ref length = row != nullptr ? columnsOf(x) : rowsOf(x);
    // What grows, or takes its size from what is assigned, is left to the interpreter.
    const Ref notBeyond = e_.compare(Op::Le, at, limit);
    const Ref inside = e_.both(e_.compare(Op::Ge, at, e_.index(1)), notBeyond);
    e_.require(e_.both(e_.compare(Op::Gt, length, e_.index(0)), inside), HostTrap::Assumption);
    const auto set = [&](Ref k, Ref element) {
        if (row != nullptr)
            e_.setElement(var, at, k, element);
        else
            e_.setElement(var, k, at, element);
    };
    if (!value.type.isArray) {
        e_.loop(e_.index(1), length, [&](Ref k) { set(k, value.value); });
        return;
    }
    const Ref one = e_.index(1);
    const Ref isColumn = e_.compare(Op::Eq, columnsOf(value), one);
    const Ref isVector = e_.either(e_.compare(Op::Eq, rowsOf(value), one), isColumn);
    const Ref isOne = e_.compare(Op::Eq, countOf(value), one);
    const Ref fits = e_.both(isVector, e_.compare(Op::Eq, countOf(value), length));
    e_.require(e_.either(isOne, fits), HostTrap::WrongSize);
    e_.loop(e_.index(1), length,
            [&](Ref k) { set(k, e_.element(value.array, e_.select(isOne, one, k))); });
}

} // namespace varnix::codegen
