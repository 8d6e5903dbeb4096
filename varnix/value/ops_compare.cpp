// Comparisons and the element-by-element logical operators.
//
// Every numeric class but the 64-bit integers fits into a double exactly, so there are three kinds
// of operand: doubles, int64 and uint64. Comparisons of the kinds with each other are exact.
#include "value/errors.hpp"
#include "value/kernels.hpp"

#include <objsys/interface.hpp>

namespace varnix::kernels {
namespace {

using numeric::View;

/// What an order (-1, 0, 1, or 2 for unordered) means for an operator.
[[nodiscard]] bool holds(BinaryOp op, int order) {
    switch (op) {
    case BinaryOp::Equal:
        return order == 0;
    case BinaryOp::NotEqual:
        return order != 0;
    case BinaryOp::Less:
        return order == -1;
    case BinaryOp::LessEqual:
        return order == -1 || order == 0;
    case BinaryOp::Greater:
        return order == 1;
    default:
        return order == 1 || order == 0;
    }
}

template <class A, class B>
[[nodiscard]] int orderOf(A a, B b) {
    if constexpr (std::is_same_v<A, B>) {
        return a < b ? -1 : (a > b ? 1 : (a == b ? 0 : 2));
    } else if constexpr (std::is_same_v<B, double>) {
        return numeric::compareExact(a, b);
    } else if constexpr (std::is_same_v<A, double>) {
        const int order = numeric::compareExact(b, a);
        return order == 2 ? 2 : -order;
    } else {
        return std::cmp_less(a, b) ? -1 : (std::cmp_equal(a, b) ? 0 : 1);
    }
}

template <class F>
Value fillLogical(const Shape& shape, F&& at) {
    if (shape.count() == 1)
        return Value::ofLogical(at(0, 0));
    numeric::ArrayHolder result(newArray(hvLOGICAL_CLASS, shape.rows, shape.columns));
    bool* out = elements<bool>(result.get());
    for (std::size_t i = 0; i < shape.count(); ++i)
        out[i] = at(i * shape.leftStep, i * shape.rightStep);
    return Value::fromArray(result.release());
}

/// Calls f with the operand's elements as double*, int64* or uint64*.
template <class F>
Value withKind(const Value& operand, F&& f) {
    const hvClassID id = operand.classID();
    if (id == hvINT64_CLASS) {
        const View view(operand);
        return f(view.as<std::int64_t>());
    }
    if (id == hvUINT64_CLASS) {
        const View view(operand);
        return f(view.as<std::uint64_t>());
    }
    const Value converted = convertTo(hvDOUBLE_CLASS, operand);
    const View view(converted);
    return f(view.as<double>());
}

Value compareDoubles(BinaryOp op, const Shape& shape, const double* a, const double* b) {
    switch (op) {
    case BinaryOp::Equal:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] == b[j]; });
    case BinaryOp::NotEqual:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] != b[j]; });
    case BinaryOp::Less:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] < b[j]; });
    case BinaryOp::LessEqual:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] <= b[j]; });
    case BinaryOp::Greater:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] > b[j]; });
    default:
        return fillLogical(shape, [=](std::size_t i, std::size_t j) { return a[i] >= b[j]; });
    }
}

Value compareObjects(BinaryOp op, const Value& left, const Value& right) {
    if (!left.isObject() || !right.isObject() ||
        (op != BinaryOp::Equal && op != BinaryOp::NotEqual))
        fail(id::wrongType, "{} does not compare {} with {}", spelling(op), className(left),
             className(right));
    const Shape shape = expand(spelling(op), left, right);
    objsys::COSInterface** const a = left.array()->objects();
    objsys::COSInterface** const b = right.array()->objects();
    const bool equal = op == BinaryOp::Equal;
    return fillLogical(shape,
                       [=](std::size_t i, std::size_t j) { return (a[i] == b[j]) == equal; });
}

} // namespace

Value compare(BinaryOp op, const Value& left, const Value& right) {
    if (left.isObject() || right.isObject())
        return compareObjects(op, left, right);
    for (const Value* operand : {&left, &right})
        if (!numeric::isArithmeticClass(operand->classID()))
            fail(id::wrongType, "{} does not compare {} with {}; isequal compares any values",
                 spelling(op), className(left), className(right));
    const Shape shape = expand(spelling(op), left, right);
    if (left.isChar() && right.isChar()) {
        const auto* a = static_cast<const std::uint8_t*>(left.array()->data);
        const auto* b = static_cast<const std::uint8_t*>(right.array()->data);
        return fillLogical(shape, [=](std::size_t i, std::size_t j) {
            return holds(op, a[i] < b[j] ? -1 : (a[i] > b[j] ? 1 : 0));
        });
    }
    return withKind(left, [&]<class A>(const A* a) {
        return withKind(right, [&]<class B>(const B* b) {
            if constexpr (std::is_same_v<A, double> && std::is_same_v<B, double>)
                return compareDoubles(op, shape, a, b);
            else
                return fillLogical(shape, [=](std::size_t i, std::size_t j) {
                    return holds(op, orderOf(a[i], b[j]));
                });
        });
    });
}

Value logic(BinaryOp op, const Value& left, const Value& right) {
    for (const Value* operand : {&left, &right})
        if (!numeric::isArithmeticClass(operand->classID()))
            fail(id::wrongType, "{} needs numbers, logicals or characters, not {}", spelling(op),
                 className(*operand));
    const Shape shape = expand(spelling(op), left, right);
    const View a(left);
    const View b(right);
    const bool both = op == BinaryOp::And;
    return numeric::withElementType(a.classID(), [&]<class A>(A) {
        return numeric::withElementType(b.classID(), [&]<class B>(B) {
            const A* x = a.as<A>();
            const B* y = b.as<B>();
            return fillLogical(shape, [=](std::size_t i, std::size_t j) {
                const bool p = x[i] != A{};
                const bool q = y[j] != B{};
                return both ? (p && q) : (p || q);
            });
        });
    });
}

} // namespace varnix::kernels
