// Element-by-element arithmetic with scalar expansion.
//
// Doubles, logicals and characters compute as doubles, in blocks that stay in the cache. Integer
// classes compute exactly, see numeric.hpp.
#include "value/errors.hpp"
#include "value/kernels.hpp"

#include <algorithm>
#include <array>

namespace varnix::kernels {
namespace {

using numeric::Arithmetic;
using numeric::View;

constexpr std::size_t blockSize = 512;

/// Reads an operand as doubles, block by block, without a copy where it is doubles already.
class DoubleReader {
public:
    DoubleReader(const View& view, std::size_t step) : view_(view), step_(step) {
        if (step == 0)
            buffer_.fill(view.at(0));
    }
    [[nodiscard]] const double* block(std::size_t from, std::size_t n) {
        if (step_ == 0)
            return buffer_.data();
        if (view_.classID() == hvDOUBLE_CLASS)
            return view_.as<double>() + from;
        numeric::loadDoubles(view_, from, n, buffer_.data());
        return buffer_.data();
    }

private:
    const View& view_;
    std::size_t step_;
    std::array<double, blockSize> buffer_;
};

void computeBlock(Arithmetic op, const double* a, const double* b, double* out, std::size_t n) {
    switch (op) {
    case Arithmetic::Add:
        for (std::size_t i = 0; i < n; ++i)
            out[i] = a[i] + b[i];
        break;
    case Arithmetic::Subtract:
        for (std::size_t i = 0; i < n; ++i)
            out[i] = a[i] - b[i];
        break;
    case Arithmetic::Multiply:
        for (std::size_t i = 0; i < n; ++i)
            out[i] = a[i] * b[i];
        break;
    case Arithmetic::Divide:
        for (std::size_t i = 0; i < n; ++i)
            out[i] = a[i] / b[i];
        break;
    case Arithmetic::Power:
        for (std::size_t i = 0; i < n; ++i)
            out[i] = numeric::power(a[i], b[i]);
        break;
    }
}

Value doubles(Arithmetic op, const Shape& shape, const View& left, const View& right) {
    if (left.count() == 1 && right.count() == 1) {
        const double a = left.at(0);
        const double b = right.at(0);
        double result;
        computeBlock(op, &a, &b, &result, 1);
        return Value::ofDouble(result);
    }
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, shape.rows, shape.columns));
    if (shape.count() != 0) {
        DoubleReader a(left, shape.leftStep);
        DoubleReader b(right, shape.rightStep);
        for (std::size_t from = 0; from < shape.count(); from += blockSize) {
            const std::size_t n = std::min(blockSize, shape.count() - from);
            computeBlock(op, a.block(from, n), b.block(from, n),
                         elements<double>(result.get()) + from, n);
        }
    }
    return Value::fromArray(result.release());
}

template <class T, class A, class B>
Value integers(Arithmetic op, const Shape& shape, const A* a, const B* b) {
    if (shape.count() == 1)
        return numeric::scalarOf<T>(numeric::arithmetic<T>(op, *a, *b));
    numeric::ArrayHolder result(newArray(numeric::classFor<T>(), shape.rows, shape.columns));
    T* const out = elements<T>(result.get());
    const std::size_t n = shape.count();
    numeric::withArithmetic(op, [&](auto known) {
        constexpr Arithmetic fixed = known();
        if (shape.leftStep == 0)
            for (std::size_t i = 0; i < n; ++i)
                out[i] = numeric::arithmeticOf<fixed, T>(*a, b[i]);
        else if (shape.rightStep == 0)
            for (std::size_t i = 0; i < n; ++i)
                out[i] = numeric::arithmeticOf<fixed, T>(a[i], *b);
        else
            for (std::size_t i = 0; i < n; ++i)
                out[i] = numeric::arithmeticOf<fixed, T>(a[i], b[i]);
    });
    return Value::fromArray(result.release());
}

} // namespace

Shape expand(const char* what, const Value& left, const Value& right) {
    const std::size_t leftCount = left.count();
    const std::size_t rightCount = right.count();
    if (leftCount == 1)
        return {right.rows(), right.columns(), 0, rightCount == 1 ? std::size_t{0} : 1};
    if (rightCount == 1)
        return {left.rows(), left.columns(), 1, 0};
    if (left.rows() != right.rows() || left.columns() != right.columns())
        fail(id::wrongSize, "sizes do not agree for {}: {} and {}", what, numeric::sizeText(left),
             numeric::sizeText(right));
    return {left.rows(), left.columns(), 1, 1};
}

Value arithmetic(Arithmetic op, const char* what, const Value& left, const Value& right) {
    const hvClassID resultClass = numeric::arithmeticClass(what, left.classID(), right.classID());
    const Shape shape = expand(what, left, right);
    const View a(left);
    const View b(right);
    if (resultClass == hvDOUBLE_CLASS)
        return doubles(op, shape, a, b);
    return numeric::withIntegerType(resultClass, [&]<class T>(T) {
        if (a.classID() == b.classID())
            return integers<T>(op, shape, a.as<T>(), b.as<T>());
        // The other operand, not an integer, as doubles.
        const bool leftInteger = numeric::isIntegerClass(a.classID());
        const Value other = convertTo(hvDOUBLE_CLASS, leftInteger ? right : left);
        const View d(other);
        return leftInteger ? integers<T>(op, shape, a.as<T>(), d.as<double>())
                           : integers<T>(op, shape, d.as<double>(), b.as<T>());
    });
}

} // namespace varnix::kernels
