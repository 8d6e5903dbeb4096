// Built-in functions of single numbers, element by element over arrays.
//
// Functions that keep whole numbers whole (abs, floor, mod, ...) give the class of what they get;
// logicals and characters count as doubles. The others (sqrt, sin, ...) give doubles. What has no
// real result is nan.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <cmath>

namespace varnix::builtins {
namespace {

using numeric::Int128;
using numeric::View;

/// A function from doubles to Result. F is a captureless lambda.
template <auto F, class Result = double>
void real(BuiltinCall& call) {
    call.give(mapDoubles<Result>(Arguments(call).numbers(0), F));
}

/// A function that leaves integers as they are.
template <auto F>
void rounding(BuiltinCall& call) {
    const Value& x = Arguments(call).numbers(0);
    call.give(x.isInteger() || numeric::isIntegerClass(x.classID()) ? x : mapDoubles<double>(x, F));
}

/// A function of two doubles with scalar expansion.
template <auto F>
void real2(BuiltinCall& call) {
    const Arguments in(call);
    const Value left = convertTo(hvDOUBLE_CLASS, in.numbers(0));
    const Value right = convertTo(hvDOUBLE_CLASS, in.numbers(1));
    call.give(mapPairs<double, double>(in, left, right, F));
}

/// abs and sign: one generic lambda for doubles and for whole numbers.
template <auto F>
void keepingClass(BuiltinCall& call) {
    const Value& x = Arguments(call).numbers(0);
    if (!numeric::isIntegerClass(x.classID()))
        return call.give(mapDoubles<double>(x, F));
    const View view(x);
    call.give(numeric::withIntegerType(view.classID(), [&]<class T>(T) {
        numeric::ArrayHolder result(newArray(view.classID(), view.rows(), view.columns()));
        for (std::size_t i = 0; i < view.count(); ++i)
            elements<T>(result.get())[i] = numeric::saturate<T>(F(Int128{view.as<T>()[i]}));
        return Value::fromArray(result.release());
    }));
}

constexpr auto absolute = [](auto v) { return v < 0 ? -v : v + 0; };
constexpr auto signOf = [](auto v) {
    using T = decltype(v);
    return v != v ? v : T((v > T{0}) - (v < T{0}));
};

/// The remainder with the sign of y (mod) or of x (rem), exact for whole numbers.
template <bool SignOfDivisor>
struct Remainder {
    double operator()(double x, double y) const {
        if (y == 0)
            return SignOfDivisor ? x : std::nan("");
        const double r = std::fmod(x, y);
        if (r == 0)
            return 0; // without a sign
        return SignOfDivisor && (r < 0) != (y < 0) ? r + y : r;
    }
    Int128 operator()(Int128 x, Int128 y) const {
        if (y == 0)
            return SignOfDivisor ? x : 0;
        const Int128 r = x % y;
        return SignOfDivisor && r != 0 && (r < 0) != (y < 0) ? r + y : r;
    }
};

[[nodiscard]] std::optional<Int128> wholeOf(double d) {
    if (d == std::trunc(d) && std::fabs(d) < 0x1p64)
        return static_cast<Int128>(d);
    return {};
}
template <class T>
[[nodiscard]] std::optional<Int128> wholeOf(T n) {
    return Int128{n};
}

/// f over two operands of one integer class, or of one and a double; exact where both elements are
/// whole, else by way of doubles.
template <class F>
void withIntegers(BuiltinCall& call, F f) {
    const Arguments in(call);
    if (in[0].tag() == Tag::Double && in[1].tag() == Tag::Double)
        return call.give(Value::ofDouble(f(in[0].asDouble(), in[1].asDouble())));
    const hvClassID id =
        numeric::arithmeticClass(in.name(), in.numbers(0).classID(), in.numbers(1).classID());
    if (id == hvDOUBLE_CLASS) {
        const Value left = convertTo(id, in[0]);
        const Value right = convertTo(id, in[1]);
        return call.give(
            mapPairs<double, double>(in, left, right, [f](double x, double y) { return f(x, y); }));
    }
    call.give(numeric::withIntegerType(id, [&]<class T>(T) {
        const auto one = [f](auto x, auto y) {
            const auto a = wholeOf(x);
            const auto b = wholeOf(y);
            return a && b ? numeric::saturate<T>(f(*a, *b))
                          : numeric::saturate<T>(f(static_cast<double>(x), static_cast<double>(y)));
        };
        const auto other = [](const Value& v) {
            return numeric::isIntegerClass(v.classID()) ? v : convertTo(hvDOUBLE_CLASS, v);
        };
        const Value left = other(in[0]);
        const Value right = other(in[1]);
        if (left.classID() != id)
            return mapPairs<T, double, T>(in, left, right, one);
        if (right.classID() != id)
            return mapPairs<T, T, double>(in, left, right, one);
        return mapPairs<T, T, T>(in, left, right, one);
    }));
}

void mod(BuiltinCall& call) {
    withIntegers(call, Remainder<true>());
}
void rem(BuiltinCall& call) {
    withIntegers(call, Remainder<false>());
}

/// gcd and lcm take whole numbers only.
struct CommonDivisor {
    static Int128 of(Int128 a, Int128 b) {
        a = absolute(a);
        b = absolute(b);
        while (b != 0)
            a = std::exchange(b, a % b);
        return a;
    }
    Int128 operator()(Int128 a, Int128 b) const { return of(a, b); }
    double operator()(double a, double b) const {
        return static_cast<double>(of(static_cast<Int128>(a), static_cast<Int128>(b)));
    }
};
struct CommonMultiple {
    Int128 operator()(Int128 a, Int128 b) const {
        if (a == 0 || b == 0)
            return 0;
        return numeric::wholeArithmetic(numeric::Arithmetic::Multiply,
                                        absolute(a) / CommonDivisor::of(a, b), absolute(b));
    }
    double operator()(double a, double b) const {
        return static_cast<double>((*this)(static_cast<Int128>(a), static_cast<Int128>(b)));
    }
};

template <class F>
void ofWholeNumbers(BuiltinCall& call) {
    const Arguments in(call);
    for (std::size_t i = 0; i < 2; ++i) {
        const View view(in.numbers(i));
        for (std::size_t k = 0; k < view.count(); ++k)
            if (const double d = view.at(k); d != std::trunc(d) || std::fabs(d) > 0x1p53)
                if (!numeric::isIntegerClass(view.classID()))
                    in.bad(i, "must hold whole numbers");
    }
    withIntegers(call, F());
}

void factorial(BuiltinCall& call) {
    const Arguments in(call);
    const View view(in.numbers(0));
    for (std::size_t k = 0; k < view.count(); ++k)
        if (const double d = view.at(k); !(d >= 0) || d != std::trunc(d))
            in.bad(0, "must hold whole numbers from 0 up");
    call.give(mapDoubles<double>(in[0], [](double n) {
        double product = 1;
        for (double k = 2; k <= n && std::isfinite(product); ++k)
            product *= k;
        return product;
    }));
}

constexpr Builtin table[] = {
    {"abs", "abs(x)", "The magnitude of each number.\nExample: abs([-2, 3]) gives [2, 3]", 1, 1, 1,
     keepingClass<absolute>},
    {"sign", "sign(x)",
     "-1, 0 or 1 for negative, zero and positive numbers.\nExample: sign(-0.5) gives -1", 1, 1, 1,
     keepingClass<signOf>},
    {"sqrt", "sqrt(x)", "The square root; of a negative number nan.\nExample: sqrt(9) gives 3", 1,
     1, 1, real<[](double x) { return std::sqrt(x); }>},
    {"cbrt", "cbrt(x)", "The cube root.\nExample: cbrt(-8) gives -2", 1, 1, 1,
     real<[](double x) { return std::cbrt(x); }>},
    {"exp", "exp(x)", "e to the power of x.\nExample: exp(0) gives 1", 1, 1, 1,
     real<[](double x) { return std::exp(x); }>},
    {"expm1", "expm1(x)", "exp(x) - 1, exact for small x.\nExample: expm1(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::expm1(x); }>},
    {"log", "log(x)", "The natural logarithm; of a negative number nan.\nExample: log(1) gives 0",
     1, 1, 1, real<[](double x) { return std::log(x); }>},
    {"log1p", "log1p(x)", "log(1 + x), exact for small x.\nExample: log1p(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::log1p(x); }>},
    {"log2", "log2(x)", "The logarithm to base 2.\nExample: log2(1024) gives 10", 1, 1, 1,
     real<[](double x) { return std::log2(x); }>},
    {"log10", "log10(x)", "The logarithm to base 10.\nExample: log10(1000) gives 3", 1, 1, 1,
     real<[](double x) { return std::log10(x); }>},
    {"sin", "sin(x)", "The sine of an angle in radians.\nExample: sin(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::sin(x); }>},
    {"cos", "cos(x)", "The cosine of an angle in radians.\nExample: cos(0) gives 1", 1, 1, 1,
     real<[](double x) { return std::cos(x); }>},
    {"tan", "tan(x)", "The tangent of an angle in radians.\nExample: tan(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::tan(x); }>},
    {"asin", "asin(x)", "The angle in radians whose sine is x.\nExample: asin(1) gives pi / 2", 1,
     1, 1, real<[](double x) { return std::asin(x); }>},
    {"acos", "acos(x)", "The angle in radians whose cosine is x.\nExample: acos(1) gives 0", 1, 1,
     1, real<[](double x) { return std::acos(x); }>},
    {"atan", "atan(x)", "The angle in radians whose tangent is x.\nExample: atan(0) gives 0", 1, 1,
     1, real<[](double x) { return std::atan(x); }>},
    {"atan2", "atan2(y, x)",
     "The angle in radians of the point (x, y), from -pi to pi.\nExample: atan2(0, -1) gives pi", 2,
     2, 1, real2<[](double y, double x) { return std::atan2(y, x); }>},
    {"sinh", "sinh(x)", "The hyperbolic sine.\nExample: sinh(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::sinh(x); }>},
    {"cosh", "cosh(x)", "The hyperbolic cosine.\nExample: cosh(0) gives 1", 1, 1, 1,
     real<[](double x) { return std::cosh(x); }>},
    {"tanh", "tanh(x)", "The hyperbolic tangent.\nExample: tanh(0) gives 0", 1, 1, 1,
     real<[](double x) { return std::tanh(x); }>},
    {"hypot", "hypot(x, y)",
     "sqrt(x^2 + y^2) without overflow on the way.\nExample: hypot(3, 4) gives 5", 2, 2, 1,
     real2<[](double x, double y) { return std::hypot(x, y); }>},
    {"floor", "floor(x)", "The greatest whole number not above x.\nExample: floor(-1.5) gives -2",
     1, 1, 1, rounding<[](double x) { return std::floor(x); }>},
    {"ceil", "ceil(x)", "The least whole number not below x.\nExample: ceil(1.2) gives 2", 1, 1, 1,
     rounding<[](double x) { return std::ceil(x); }>},
    {"round", "round(x)",
     "The nearest whole number; halves go away from zero.\nExample: round([2.5, -2.5]) gives "
     "[3, -3]",
     1, 1, 1, rounding<[](double x) { return std::round(x); }>},
    {"trunc", "trunc(x)", "The whole number next to x towards zero.\nExample: trunc(-1.7) gives -1",
     1, 1, 1, rounding<[](double x) { return std::trunc(x); }>},
    {"mod", "mod(x, y)",
     "The remainder of x / y with the sign of y; mod(x, 0) is x.\nExample: mod(-7, 3) gives 2", 2,
     2, 1, mod},
    {"rem", "rem(x, y)",
     "The remainder of x / y with the sign of x; rem(x, 0) is nan, 0 for integers.\n"
     "Example: rem(-7, 3) gives -1",
     2, 2, 1, rem},
    {"gcd", "gcd(a, b)",
     "The greatest common divisor of whole numbers.\nExample: gcd(12, 18) gives 6", 2, 2, 1,
     ofWholeNumbers<CommonDivisor>},
    {"lcm", "lcm(a, b)", "The least common multiple of whole numbers.\nExample: lcm(4, 6) gives 12",
     2, 2, 1, ofWholeNumbers<CommonMultiple>},
    {"factorial", "factorial(n)", "1 * 2 * ... * n as a double.\nExample: factorial(5) gives 120",
     1, 1, 1, factorial},
    {"isnan", "isnan(x)", "Which elements are nan.\nExample: isnan([1, nan]) gives [false, true]",
     1, 1, 1, real<[](double x) { return std::isnan(x); }, bool>},
    {"isinf", "isinf(x)",
     "Which elements are infinite.\nExample: isinf([1, -inf]) gives [false, true]", 1, 1, 1,
     real<[](double x) { return std::isinf(x); }, bool>},
    {"isfinite", "isfinite(x)",
     "Which elements are neither infinite nor nan.\nExample: isfinite([1, inf, nan]) gives [true, "
     "false, false]",
     1, 1, 1, real<[](double x) { return std::isfinite(x); }, bool>},
};

} // namespace

Table numbers() {
    return table;
}

} // namespace varnix::builtins
