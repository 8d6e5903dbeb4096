// What the operators of the language do, as IR: the counterpart of value/ops.hpp and
// value/index.hpp, to the last bit.
//
// A number is a node, an array lies in a variable. Where something depends on a size that is only
// known when the code runs, the code decides; what it cannot decide (or what is a script error) is
// a trap, after which the interpreter does the whole call.
#pragma once

#include "codegen/emitter.hpp"
#include "value/ops.hpp"

#include <cstddef>
#include <map>
#include <span>
#include <string>

namespace varnix::codegen {

/// Raised while a function is translated: it does something that is not compiled.
struct Outside {
    std::string reason;
};

/// A value in the code.
struct Operand {
    ValueType type;
    Emitter::Ref value = nullptr;    ///< of a number
    QN::Var* array = nullptr;        ///< of an array: where it lies
    const Value* constant = nullptr; ///< what it is, if that is known
    bool isText = false;             ///< a constant text, of which there is nothing else
    /// A whole number that is always equal to the value, in i64; null if none is at hand.
    Emitter::Ref whole = nullptr;
};

/// Where arrays that operations make come to lie.
class ArrayPlaces {
public:
    /// A variable for a new array, which is none of the operands at hand.
    virtual QN::Var* placeFor(QN::ScalarKind kind) = 0;

protected:
    ~ArrayPlaces() = default;
};

class Operations {
public:
    using Ref = Emitter::Ref;

    Operations(Emitter& emitter, ArrayPlaces& places) : e_(emitter), places_(places) {}

    [[nodiscard]] Emitter& emitter() noexcept { return e_; }

    // ---- operators: operations_scalar.cpp
    Operand binary(BinaryOp op, const Operand& left, const Operand& right);
    Operand unary(UnaryOp op, const Operand& x);
    /// What a condition means, a logical.
    Ref truthOf(const Operand& x);
    /// An element of one kind as one of another, as by double(x), int32(x), logical(x).
    Ref converted(Ref x, QN::ScalarKind from, QN::ScalarKind to);
    Operand convertedTo(QN::ScalarKind kind, const Operand& x);
    /// An element as a logical; not a number counts as true.
    Ref truthOfElement(Ref x, QN::ScalarKind kind);
    Ref arithmetic(BinaryOp op, Ref x, QN::ScalarKind xKind, Ref y, QN::ScalarKind yKind,
                   const Operand& left, const Operand& right);
    Ref compare(QN::Op op, Ref x, QN::ScalarKind xKind, Ref y, QN::ScalarKind yKind,
                const Operand& left, const Operand& right);
    /// A number of the class, or a whole constant that is a number of the class, too.
    static bool isOf(QN::ScalarKind kind, const Operand& x);
    /// The class of an arithmetic result.
    static QN::ScalarKind arithmeticKind(QN::ScalarKind left, QN::ScalarKind right);
    /// A double as a whole number of `kind`; gives up where it is none, or beyond 2^53.
    Ref wholeNumber(Ref x, QN::ScalarKind kind);

    // ---- arrays: operations_array.cpp
    [[nodiscard]] Operand scalar(QN::ScalarKind kind, Ref value) const {
        return {.type = scalarType(kind), .value = value};
    }
    /// A new array of zeros.
    Operand newArray(QN::ScalarKind kind, Ref rows, Ref columns);
    Operand inArray(QN::ScalarKind kind, QN::Var* var) const {
        return {.type = arrayType(kind), .array = var};
    }
    Ref rowsOf(const Operand& x) { return x.type.isArray ? e_.rows(x.array) : e_.index(1); }
    Ref columnsOf(const Operand& x) { return x.type.isArray ? e_.columns(x.array) : e_.index(1); }
    Ref countOf(const Operand& x) { return x.type.isArray ? e_.count(x.array) : e_.index(1); }
    /// Gives up before memory is used that the host would want to ask for.
    void requireRoom(QN::ScalarKind kind, Ref rows, Ref columns);
    /// The one number of an operand; gives up (or traps with `code`) where there are more or none.
    Operand only(const Operand& x, HostTrap code = HostTrap::Assumption);
    /// The same as a double.
    Ref onlyDouble(const Operand& x);

    /// f(element) of each element.
    template <typename F>
    Operand map(QN::ScalarKind kind, const Operand& x, F&& f) {
        if (!x.type.isArray)
            return scalar(kind, f(x.value));
        const Ref columns = columnsOf(x);
        const Operand result = newArray(kind, rowsOf(x), columns);
        e_.loop(e_.index(1), countOf(x),
                [&](Ref k) { e_.setElement(result.array, k, f(e_.element(x.array, k))); });
        return result;
    }
    /// f(a, b) of each pair of elements; numbers expand.
    template <typename F>
    Operand mapPairs(QN::ScalarKind kind, const Operand& left, const Operand& right, F&& f) {
        if (!left.type.isArray && !right.type.isArray)
            return scalar(kind, f(left.value, right.value));
        const Pairing p = pair(left, right);
        const Operand result = newArray(kind, p.rows, p.columns);
        e_.loop(e_.index(1), e_.count(result.array), [&](Ref k) {
            const Ref a = elementOfPair(left, p.leftIsOne, k);
            e_.setElement(result.array, k, f(a, elementOfPair(right, p.rightIsOne, k)));
        });
        return result;
    }

    // ---- indices: operations_index.cpp
    Operand index(const Operand& x, const Operand& place);
    Operand index(const Operand& x, const Operand& row, const Operand& column);
    /// x[:, j], x[i, :], x[:]; a null index is a colon.
    Operand indexWithColons(const Operand& x, const Operand* first, const Operand* second,
                            std::size_t count);
    /// x[i] = v and x[i, j] = v, where x lies in `var`.
    void assign(QN::ScalarKind kind, QN::Var* var, const Operand& place, const Operand& value);
    void assign(QN::ScalarKind kind, QN::Var* var, const Operand& row, const Operand& column,
                const Operand& value);
    /// x[:, j] = v and x[i, :] = v inside x; a null index is the colon.
    void assignLine(QN::ScalarKind kind, QN::Var* var, const Operand* row, const Operand* column,
                    const Operand& value);

    // ---- making arrays: operations_array.cpp
    Operand join(std::span<const Operand> parts, bool horizontal);
    /// first : step : last as an array.
    Operand range(const Operand& first, const Operand& step, const Operand& last);

    /// How many values a range of doubles has; where `isCut` holds the last one of `count` + 1 is
    /// `last` itself.
    struct RangeShape {
        Ref count = nullptr;
        Ref isCut = nullptr;
    };
    RangeShape shapeOfRange(Ref first, Ref step, Ref last);
    /// How many values a range of doubles has that goes by steps of a small whole number; below 1
    /// if there are none. Whole numbers are counted as such, which engines understand; gives up
    /// where the last value is `last` itself because a step passes it by a rounding error.
    Ref turnsOfWholeSteps(Ref first, std::int64_t step, Ref last);

    /// A block begins, in which nothing is known to be checked.
    void forgetPlaces() { checked_.clear(); }

private:
    struct Pairing {
        Ref rows = nullptr;
        Ref columns = nullptr;
        Ref leftIsOne = nullptr;
        Ref rightIsOne = nullptr;
    };
    Pairing pair(const Operand& left, const Operand& right);
    Ref elementOfPair(const Operand& x, Ref isOne, Ref k) {
        return x.type.isArray ? e_.element(x.array, e_.select(isOne, e_.index(1), k)) : x.value;
    }
    Ref mixed(BinaryOp op, Ref x, QN::ScalarKind xKind, Ref y, QN::ScalarKind yKind,
              const Operand& left, const Operand& right);
    Ref doubles(BinaryOp op, Ref x, Ref y, const Operand& right);
    /// An index as a place from 1: the same one as before in a block, where it is checked already.
    Ref place(const Operand& index);
    /// A value as one element of an array of `kind`.
    Ref elementFor(QN::ScalarKind kind, QN::Var* var, const Operand& value);

    Emitter& e_;
    ArrayPlaces& places_;
    std::map<Ref, Ref> checked_; // indices by the numbers that they are
};

} // namespace varnix::codegen
