// Operators on numbers: which node, or which few, do what value/numeric.hpp does.
#include "codegen/operations.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace varnix::codegen {

using QN::Op;
using QN::ScalarKind;
using Ref = Emitter::Ref;

namespace {

constexpr double largestWhole = 0x1p53;

[[nodiscard]] Op arithmeticOp(BinaryOp op) {
    switch (op) {
    case BinaryOp::Add:
        return Op::Add;
    case BinaryOp::Subtract:
        return Op::Sub;
    case BinaryOp::Multiply:
    case BinaryOp::TimesElement:
        return Op::Mul;
    case BinaryOp::Divide:
    case BinaryOp::DivideElement:
        return Op::Div;
    default:
        return Op::Pow;
    }
}

[[nodiscard]] Op comparisonOp(BinaryOp op) {
    switch (op) {
    case BinaryOp::Equal:
        return Op::Eq;
    case BinaryOp::NotEqual:
        return Op::Ne;
    case BinaryOp::Less:
        return Op::Lt;
    case BinaryOp::LessEqual:
        return Op::Le;
    case BinaryOp::Greater:
        return Op::Gt;
    default:
        return Op::Ge;
    }
}

[[nodiscard]] const double* knownDouble(const Operand& x, double& storage) {
    if (x.constant == nullptr || x.constant->tag() != Tag::Double)
        return nullptr;
    storage = x.constant->asDouble();
    return &storage;
}

/// Whether a double times or plus a number of 32 bits is exact in double: it has few enough bits.
[[nodiscard]] bool isShort(double d) {
    return std::fabs(d) < 0x1p30 && d * 0x1p20 == std::trunc(d * 0x1p20) &&
           std::fabs(d) * 0x1p20 < 0x1p50;
}
[[nodiscard]] bool isShortFactor(double d) {
    int exponent = 0;
    const double fraction = std::frexp(d, &exponent);
    return std::isfinite(d) && std::fabs(d) < 0x1p60 &&
           std::ldexp(fraction, 20) == std::trunc(std::ldexp(fraction, 20));
}

} // namespace

bool Operations::isOf(ScalarKind kind, const Operand& x) {
    if (x.type.kind == kind)
        return true;
    if (x.constant == nullptr || x.constant->tag() != Tag::Double)
        return false;
    const double value = x.constant->asDouble();
    const int bits = QN::Type::scalar(kind)->bits() - (isSigned(kind) ? 1 : 0);
    const double end = std::min(std::ldexp(1.0, bits), largestWhole);
    return value == std::trunc(value) && value < end && value >= (isSigned(kind) ? -end : 0);
}

ScalarKind Operations::arithmeticKind(ScalarKind left, ScalarKind right) {
    if (isInteger(left) && isInteger(right) && left != right)
        throw Outside{"arithmetic of two different integer classes"};
    return isInteger(left) ? left : isInteger(right) ? right : ScalarKind::Double;
}

Ref Operations::truthOfElement(Ref x, ScalarKind kind) {
    return e_.convert(x, kind, ScalarKind::Logical);
}

Ref Operations::converted(Ref x, ScalarKind from, ScalarKind to) {
    if (from == ScalarKind::Double && to == ScalarKind::Logical)
        e_.require(e_.compare(Op::Eq, x, x), HostTrap::BadArgument); // nan has no truth
    return e_.convert(x, from, to);
}

Operand Operations::convertedTo(ScalarKind kind, const Operand& x) {
    if (x.type.kind == kind)
        return x;
    return map(kind, x, [&](Ref element) { return converted(element, x.type.kind, kind); });
}

Ref Operations::wholeNumber(Ref x, ScalarKind kind) {
    const Ref whole = e_.compare(Op::Eq, e_.unary(Op::Trunc, x), x); // false for nan
    const Ref above = e_.compare(Op::Ge, x, e_.number(isSigned(kind) ? -largestWhole : 0));
    const Ref below = e_.compare(Op::Le, x, e_.number(largestWhole));
    e_.require(e_.both(whole, e_.both(above, below)), HostTrap::Assumption);
    return e_.convert(x, ScalarKind::Double, kind);
}

Ref Operations::doubles(BinaryOp op, Ref x, Ref y, const Operand& right) {
    const Op node = arithmeticOp(op);
    if (node != Op::Pow)
        return e_.binary(node, x, y);
    double exponent = 0;
    if (knownDouble(right, exponent) != nullptr)
        return exponent == 2 ? e_.binary(Op::Mul, x, x) : e_.binary(Op::Pow, x, y);
    const Ref power = e_.binary(Op::Pow, x, y);
    const Ref square = e_.binary(Op::Mul, x, x);
    return e_.select(e_.compare(Op::Eq, y, e_.number(2)), square, power);
}

/// An integer with a double or a logical: the exact result, rounded once.
Ref Operations::mixed(BinaryOp op, Ref x, ScalarKind xKind, Ref y, ScalarKind yKind,
                      const Operand& left, const Operand& right) {
    const Op node = arithmeticOp(op);
    const bool integerFirst = isInteger(xKind);
    const ScalarKind kind = integerFirst ? xKind : yKind;
    const ScalarKind other = integerFirst ? yKind : xKind;
    if (isOf(kind, left) && isOf(kind, right)) {
        const Ref b = e_.convert(y, yKind, kind);
        return e_.binary(node, e_.convert(x, xKind, kind), b);
    }
    if (other == ScalarKind::Double && !isWide(kind)) {
        double known = 0;
        if (knownDouble(integerFirst ? right : left, known) != nullptr &&
            known != std::trunc(known)) {
            const bool exact = node == Op::Mul                      ? isShortFactor(known)
                               : node == Op::Add || node == Op::Sub ? isShort(known)
                                                                    : false;
            if (!exact)
                throw Outside{"an integer with a fraction"};
            const Ref a = e_.convert(x, xKind, ScalarKind::Double);
            const Ref b = e_.convert(y, yKind, ScalarKind::Double);
            return e_.convert(e_.binary(node, a, b), ScalarKind::Double, kind);
        }
    }
    const ScalarKind wide = kind == ScalarKind::Uint64 ? ScalarKind::Uint64 : ScalarKind::Int64;
    const auto whole = [&](Ref v, ScalarKind from) {
        return from == ScalarKind::Double ? wholeNumber(v, wide) : e_.convert(v, from, wide);
    };
    const Ref a = whole(x, xKind);
    const Ref b = whole(y, yKind);
    return e_.convert(e_.binary(node, a, b), wide, kind);
}

Ref Operations::arithmetic(BinaryOp op, Ref x, ScalarKind xKind, Ref y, ScalarKind yKind,
                           const Operand& left, const Operand& right) {
    const ScalarKind kind = arithmeticKind(xKind, yKind);
    if (kind == ScalarKind::Double) {
        const Ref b = e_.convert(y, yKind, kind);
        return doubles(op, e_.convert(x, xKind, kind), b, right);
    }
    if (arithmeticOp(op) == Op::Pow)
        throw Outside{"a power of integers"};
    if (xKind == yKind)
        return e_.binary(arithmeticOp(op), x, y);
    return mixed(op, x, xKind, y, yKind, left, right);
}

Ref Operations::compare(Op op, Ref x, ScalarKind xKind, Ref y, ScalarKind yKind,
                        const Operand& left, const Operand& right) {
    if (xKind == yKind)
        return e_.compare(op, x, y);
    const auto compareAs = [&](ScalarKind kind) {
        const Ref b = e_.convert(y, yKind, kind);
        return e_.compare(op, e_.convert(x, xKind, kind), b);
    };
    for (const ScalarKind kind : {xKind, yKind})
        if (isInteger(kind) && isOf(kind, left) && isOf(kind, right))
            return compareAs(kind);
    if (isWide(xKind) || isWide(yKind)) {
        const bool bothWhole = xKind != ScalarKind::Double && yKind != ScalarKind::Double;
        const auto fits = [](ScalarKind kind, ScalarKind into) {
            return kind == into || kind == ScalarKind::Logical ||
                   (!isWide(kind) && (into == ScalarKind::Int64 || !isSigned(kind)));
        };
        for (const ScalarKind wide : {ScalarKind::Int64, ScalarKind::Uint64})
            if (bothWhole && fits(xKind, wide) && fits(yKind, wide))
                return compareAs(wide);
    }
    const auto asDouble = [&](Ref v, ScalarKind from) {
        const Ref d = e_.convert(v, from, ScalarKind::Double);
        if (isWide(from)) {
            const Ref above = e_.compare(Op::Gt, d, e_.number(-largestWhole));
            e_.require(e_.both(e_.compare(Op::Lt, d, e_.number(largestWhole)), above),
                       HostTrap::Assumption);
        }
        return d;
    };
    const Ref a = asDouble(x, xKind);
    return e_.compare(op, a, asDouble(y, yKind));
}

Operand Operations::binary(BinaryOp op, const Operand& left, const Operand& right) {
    if (left.isText || right.isText)
        throw Outside{"a text"};
    const ScalarKind a = left.type.kind;
    const ScalarKind b = right.type.kind;
    switch (op) {
    case BinaryOp::And:
    case BinaryOp::Or:
        return mapPairs(ScalarKind::Logical, left, right, [&](Ref x, Ref y) {
            const Ref second = truthOfElement(y, b);
            return e_.binary(op == BinaryOp::And ? Op::And : Op::Or, truthOfElement(x, a), second);
        });
    case BinaryOp::Equal:
    case BinaryOp::NotEqual:
    case BinaryOp::Less:
    case BinaryOp::LessEqual:
    case BinaryOp::Greater:
    case BinaryOp::GreaterEqual:
        return mapPairs(ScalarKind::Logical, left, right, [&](Ref x, Ref y) {
            return compare(comparisonOp(op), x, a, y, b, left, right);
        });
    default:
        break;
    }
    // The matrix operators, where they are not element by element.
    const bool both = left.type.isArray && right.type.isArray;
    if ((op == BinaryOp::Multiply && both) || (op == BinaryOp::Divide && right.type.isArray) ||
        (op == BinaryOp::Power && (left.type.isArray || right.type.isArray)))
        throw Outside{"a product, quotient or power of matrices"};
    return mapPairs(arithmeticKind(a, b), left, right,
                    [&](Ref x, Ref y) { return arithmetic(op, x, a, y, b, left, right); });
}

Operand Operations::unary(UnaryOp op, const Operand& x) {
    if (x.isText)
        throw Outside{"a text"};
    const ScalarKind kind = x.type.kind;
    switch (op) {
    case UnaryOp::Not:
        return map(ScalarKind::Logical, x,
                   [&](Ref v) { return e_.negation(truthOfElement(v, kind)); });
    case UnaryOp::Negate: {
        const ScalarKind result = isInteger(kind) ? kind : ScalarKind::Double;
        return map(result, x,
                   [&](Ref v) { return e_.unary(Op::Neg, e_.convert(v, kind, result)); });
    }
    case UnaryOp::Plus:
        break;
    }
    return kind == ScalarKind::Logical ? convertedTo(ScalarKind::Double, x) : x;
}

Ref Operations::truthOf(const Operand& x) {
    if (x.isText)
        throw Outside{"a text"};
    if (!x.type.isArray)
        return truthOfElement(x.value, x.type.kind);
    QN::Var* const all = e_.temporary(QN::Type::logical());
    e_.store(all, e_.compare(Op::Gt, countOf(x), e_.index(0)));
    e_.loop(e_.index(1), countOf(x), [&](Ref k) {
        const Ref holds = truthOfElement(e_.element(x.array, k), x.type.kind);
        e_.store(all, e_.both(e_.load(all), holds));
    });
    return e_.load(all);
}

} // namespace varnix::codegen
