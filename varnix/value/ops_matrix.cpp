// Matrix product, right division and power. Doubles are Eigen's work; products of integer matrices
// are summed exactly.
#include "value/errors.hpp"
#include "value/kernels.hpp"

#include <Eigen/Dense>
#include <algorithm>
#include <limits>

namespace varnix::kernels {
namespace {

using Matrix = Eigen::MatrixXd;
using Map = Eigen::Map<const Matrix>;

[[nodiscard]] Eigen::Index dimension(std::size_t n) {
    return static_cast<Eigen::Index>(n);
}
[[nodiscard]] Map mapOf(const Value& doubles) {
    static constexpr double none = 0;
    const numeric::View view(doubles);
    const double* data = doubles.isCounted() ? view.as<double>() : &none;
    return {data, dimension(doubles.rows()), dimension(doubles.columns())};
}
[[nodiscard]] Value fromMatrix(const Matrix& m) {
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, static_cast<std::size_t>(m.rows()),
                                         static_cast<std::size_t>(m.cols())));
    std::copy(m.data(), m.data() + m.size(), elements<double>(result.get()));
    return Value::fromArray(result.release());
}
/// The operand as an array of doubles, also when it is a scalar.
[[nodiscard]] Matrix matrixOf(const Value& v) {
    const Value doubles = convertTo(hvDOUBLE_CLASS, v);
    if (doubles.isScalar())
        return Matrix::Constant(1, 1, doubles.asDouble());
    return mapOf(doubles);
}

/// Sums exactly while they stay below 2^120, which is beyond what saturates every class.
template <class T>
Value integerProduct(const Value& left, const Value& right) {
    using numeric::Arithmetic;
    using numeric::Int128;
    const numeric::View a(left);
    const numeric::View b(right);
    const bool exact = a.classID() == b.classID();
    numeric::ArrayHolder result(newArray(numeric::classFor<T>(), a.rows(), b.columns()));
    T* out = elements<T>(result.get());
    for (std::size_t j = 0; j < b.columns(); ++j)
        for (std::size_t i = 0; i < a.rows(); ++i) {
            if (exact) {
                Int128 sum = 0;
                for (std::size_t k = 0; k < a.columns(); ++k) {
                    sum +=
                        numeric::wholeArithmetic(Arithmetic::Multiply, a.as<T>()[i + k * a.rows()],
                                                 b.as<T>()[k + j * b.rows()]);
                    sum = std::clamp(sum, -numeric::huge, numeric::huge);
                }
                out[i + j * a.rows()] = numeric::saturate<T>(sum);
            } else {
                long double sum = 0; // 64 bits of mantissa: 64-bit integers enter exactly
                for (std::size_t k = 0; k < a.columns(); ++k) {
                    const auto element = [](const numeric::View& v, std::size_t at) {
                        return v.classID() == numeric::classFor<T>()
                                   ? static_cast<long double>(v.as<T>()[at])
                                   : static_cast<long double>(v.at(at));
                    };
                    sum += element(a, i + k * a.rows()) * element(b, k + j * b.rows());
                }
                const long double limit = 0x1p100L;
                out[i + j * a.rows()] = std::isnan(sum)
                                            ? T{0}
                                            : numeric::saturate<T>(static_cast<Int128>(
                                                  std::round(std::clamp(sum, -limit, limit))));
            }
        }
    return Value::fromArray(result.release());
}

[[nodiscard]] Value identity(hvClassID id, std::size_t n) {
    Matrix unit = Matrix::Identity(dimension(n), dimension(n));
    return convertTo(id, fromMatrix(unit));
}

[[noreturn]] void failSingular(const char* what) {
    fail("varnix:singularMatrix", "{}: the matrix is singular to working precision", what);
}

} // namespace

Value matrixProduct(const Value& left, const Value& right) {
    const hvClassID id = numeric::arithmeticClass("*", left.classID(), right.classID());
    if (left.columns() != right.rows())
        fail(id::wrongSize,
             "inner sizes do not agree for *: {} and {}; .* multiplies element by element",
             numeric::sizeText(left), numeric::sizeText(right));
    if (id != hvDOUBLE_CLASS)
        return numeric::withIntegerType(id,
                                        [&]<class T>(T) { return integerProduct<T>(left, right); });
    const Value a = convertTo(hvDOUBLE_CLASS, left);
    const Value b = convertTo(hvDOUBLE_CLASS, right);
    // A scalar operand never comes here, so both are arrays; the result is written in place.
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, a.rows(), b.columns()));
    Eigen::Map<Matrix> out(elements<double>(result.get()), dimension(a.rows()),
                           dimension(b.columns()));
    if (a.columns() == 0)
        out.setZero();
    else
        out.noalias() = mapOf(a) * mapOf(b);
    return Value::fromArray(result.release());
}

Value matrixRightDivide(const Value& left, const Value& right) {
    const hvClassID id = numeric::arithmeticClass("/", left.classID(), right.classID());
    if (left.columns() != right.columns())
        fail(id::wrongSize,
             "numbers of columns do not agree for /: {} and {}; ./ divides element by element",
             numeric::sizeText(left), numeric::sizeText(right));
    const Matrix a = matrixOf(left).transpose();
    const Matrix b = matrixOf(right).transpose();
    Matrix x;
    if (a.size() == 0 || b.size() == 0) {
        x = Matrix::Zero(b.cols(), a.cols());
    } else if (b.rows() == b.cols()) {
        const Eigen::PartialPivLU<Matrix> lu(b);
        if (!(lu.rcond() >= std::numeric_limits<double>::epsilon() / 4))
            failSingular("/");
        x = lu.solve(a);
    } else {
        x = b.completeOrthogonalDecomposition().solve(a);
    }
    return convertTo(id, fromMatrix(x.transpose()));
}

Value matrixPower(const Value& base, const Value& exponent) {
    const hvClassID id = numeric::arithmeticClass("^", base.classID(), exponent.classID());
    if (exponent.count() != 1 || base.rows() != base.columns())
        fail(id::wrongSize,
             "^ needs a square matrix and a scalar exponent, not {} and {}; .^ works element by "
             "element",
             numeric::sizeText(base), numeric::sizeText(exponent));
    const double n = numeric::View(exponent).at(0);
    if (n != std::trunc(n) || std::fabs(n) > 0x1p53)
        fail(id::badArgument, "the exponent of a matrix power must be a whole number");
    Value factor = convertTo(id, base);
    if (n < 0) {
        const Eigen::PartialPivLU<Matrix> lu(matrixOf(base));
        if (base.count() != 0 && !(lu.rcond() >= std::numeric_limits<double>::epsilon() / 4))
            failSingular("^");
        factor = base.count() == 0 ? factor : convertTo(id, fromMatrix(lu.inverse()));
    }
    Value result = identity(id, base.rows());
    for (auto k = static_cast<std::uint64_t>(std::fabs(n)); k != 0; k >>= 1) {
        if ((k & 1) != 0)
            result = binary(BinaryOp::Multiply, result, factor);
        if (k > 1)
            factor = binary(BinaryOp::Multiply, factor, factor);
    }
    return result;
}

} // namespace varnix::kernels
