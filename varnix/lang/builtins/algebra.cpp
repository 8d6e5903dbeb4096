// Linear algebra on matrices of doubles, all of it Eigen's.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

namespace varnix::builtins {
namespace {

using Matrix = Eigen::MatrixXd;

[[nodiscard]] Matrix matrixOf(const Arguments& in, std::size_t i) {
    const Value doubles = in.doubles(i);
    const numeric::View view(doubles);
    Matrix m(static_cast<Eigen::Index>(view.rows()), static_cast<Eigen::Index>(view.columns()));
    std::copy_n(view.as<double>(), view.count(), m.data());
    return m;
}
[[nodiscard]] Matrix squareOf(const Arguments& in, std::size_t i) {
    Matrix m = matrixOf(in, i);
    if (m.rows() != m.cols())
        in.failWith(id::wrongSize, fmt::format("argument {} must be a square matrix, not {}", i + 1,
                                               numeric::sizeText(in[i])));
    return m;
}
[[nodiscard]] Value fromMatrix(const Matrix& m) {
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, static_cast<std::size_t>(m.rows()),
                                         static_cast<std::size_t>(m.cols())));
    std::copy_n(m.data(), m.size(), elements<double>(result.get()));
    return Value::fromArray(result.release());
}

[[nodiscard]] Eigen::PartialPivLU<Matrix> regularLu(const Arguments& in, const Matrix& m) {
    Eigen::PartialPivLU<Matrix> lu(m);
    if (!(lu.rcond() >= std::numeric_limits<double>::epsilon() / 4))
        in.failWith("varnix:singularMatrix", "the matrix is singular to working precision");
    return lu;
}

void solve(BuiltinCall& call) {
    const Arguments in(call);
    const Matrix a = matrixOf(in, 0);
    const Matrix b = matrixOf(in, 1);
    if (a.rows() != b.rows())
        in.failWith(id::wrongSize, fmt::format("numbers of rows do not agree: {} and {}",
                                               numeric::sizeText(in[0]), numeric::sizeText(in[1])));
    if (a.size() == 0 || b.size() == 0)
        return call.give(fromMatrix(Matrix::Zero(a.cols(), b.cols())));
    call.give(fromMatrix(a.rows() == a.cols()
                             ? Matrix(regularLu(in, a).solve(b))
                             : Matrix(a.completeOrthogonalDecomposition().solve(b))));
}

void inverse(BuiltinCall& call) {
    const Arguments in(call);
    const Matrix a = squareOf(in, 0);
    call.give(a.size() == 0 ? fromMatrix(a) : fromMatrix(regularLu(in, a).inverse()));
}

void determinant(BuiltinCall& call) {
    const Arguments in(call);
    const Matrix a = squareOf(in, 0);
    call.give(Value::ofDouble(a.size() == 0 ? 1 : a.partialPivLu().determinant()));
}

void rank(BuiltinCall& call) {
    const Matrix a = matrixOf(Arguments(call), 0);
    call.give(Value::ofDouble(
        a.size() == 0 ? 0 : static_cast<double>(a.completeOrthogonalDecomposition().rank())));
}

/// The root of the largest eigenvalue of A' * A. Squaring loses what is small, not what is largest;
/// scaling keeps it from overflow.
double largestSingularValue(const Matrix& a) {
    const double scale = a.cwiseAbs().maxCoeff();
    if (scale == 0 || !std::isfinite(scale) || a.hasNaN())
        return a.hasNaN() ? std::numeric_limits<double>::quiet_NaN() : scale;
    Matrix scaled = a / scale;
    if (a.rows() < a.cols())
        scaled.transposeInPlace();
    const Eigen::SelfAdjointEigenSolver<Matrix> solver(scaled.transpose() * scaled,
                                                       Eigen::EigenvaluesOnly);
    return scale * std::sqrt(solver.eigenvalues().maxCoeff());
}

/// Vectors: p-norm. Matrices: 1, 2, inf and "fro".
void norm(BuiltinCall& call) {
    const Arguments in(call);
    const Matrix a = matrixOf(in, 0);
    const bool vector = a.rows() == 1 || a.cols() == 1;
    const bool frobenius = in.has(1) && in[1].isTextRow() && in.text(1) == "fro";
    const double p = in.has(1) && !frobenius ? in.real(1) : 2;
    if (a.size() == 0)
        return call.give(Value::ofDouble(0));
    double result = 0;
    if (frobenius || (vector && p == 2))
        result = a.stableNorm();
    else if (vector && std::isinf(p) && p > 0)
        result = a.cwiseAbs().maxCoeff();
    else if (vector && p >= 1)
        result = std::pow(a.cwiseAbs().array().pow(p).sum(), 1 / p);
    else if (p == 1)
        result = a.cwiseAbs().colwise().sum().maxCoeff();
    else if (p == 2)
        result = largestSingularValue(a);
    else if (std::isinf(p) && p > 0)
        result = a.cwiseAbs().rowwise().sum().maxCoeff();
    else
        in.bad(1, vector ? "must be a number from 1 up, inf or \"fro\""
                         : "must be 1, 2, inf or \"fro\"");
    call.give(Value::ofDouble(result));
}

constexpr Builtin table[] = {
    {"solve", "solve(A, b)",
     "The x with A * x = b; the least squares solution where A is not square. (b / A solves x * A "
     "= b.)\nExample: solve([2, 0; 0, 4], [2; 8]) gives [1; 2]",
     2, 2, 1, solve},
    {"inv", "inv(A)",
     "The inverse of a square matrix. To solve equations use solve.\nExample: inv([2, 0; 0, 4]) "
     "gives [0.5, 0; 0, 0.25]",
     1, 1, 1, inverse},
    {"det", "det(A)", "The determinant of a square matrix.\nExample: det([2, 0; 0, 4]) gives 8", 1,
     1, 1, determinant},
    {"rank", "rank(A)", "The number of independent rows.\nExample: rank([1, 2; 2, 4]) gives 1", 1,
     1, 1, rank},
    {"norm", "norm(x, p)",
     "The length of a vector (p from 1 up or inf, 2 without p) or the norm of a matrix (1, 2, inf "
     "or \"fro\").\nExample: norm([3, 4]) gives 5",
     1, 2, 1, norm},
};

} // namespace

Table algebra() {
    return table;
}

} // namespace varnix::builtins
