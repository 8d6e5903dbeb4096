// Built-in functions that bring an array down to one number per column (or per row), and the
// running ones.
//
// Without a dimension a row or column is taken whole and a matrix column by column; dimension 1
// goes down the columns, 2 along the rows. Sums of integers are exact and saturate at the end.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

namespace varnix::builtins {
namespace {

using numeric::Int128;
using numeric::View;

/// The lines of an array along a dimension.
struct Lines {
    std::size_t length; ///< elements in each line
    std::size_t count;  ///< number of lines
    std::size_t step;   ///< from one element of a line to the next
    std::size_t stride; ///< from one line to the next
    std::size_t rows;   ///< size of the result with one element per line
    std::size_t columns;
    bool down; ///< lines are columns
};

[[nodiscard]] Lines linesOf(const Value& x, int dimension) {
    const std::size_t m = x.rows();
    const std::size_t n = x.columns();
    if (dimension == 0 && m == 0 && n == 0)
        return {0, 1, 1, 0, 1, 1, true}; // one line without elements
    if (dimension == 0)
        dimension = m == 1 ? 2 : 1;
    return dimension == 1 ? Lines{m, n, 1, m, 1, n, true} : Lines{n, m, m, 1, m, 1, false};
}

[[nodiscard]] int dimensionArgument(const Arguments& in, std::size_t i) {
    return in.has(i) ? static_cast<int>(in.whole(i, 1, 2)) : 0;
}

/// One result per line: reduce(first, step, length) of elements of type T gives Result.
template <class Result, class T, class F>
[[nodiscard]] Value reduceLines(const View& view, const Lines& lines, F&& reduce) {
    numeric::ArrayHolder result(newArray(numeric::classFor<Result>(), lines.rows, lines.columns));
    for (std::size_t k = 0; k < lines.count; ++k)
        elements<Result>(result.get())[k] =
            reduce(view.as<T>() + k * lines.stride, lines.step, lines.length);
    return Value::fromArray(result.release());
}

/// sum and prod: doubles by doubles, integers exactly.
template <numeric::Arithmetic Op>
void accumulate(BuiltinCall& call) {
    const Arguments in(call);
    const Value& x = in.numbers(0);
    const Lines lines = linesOf(x, dimensionArgument(in, 1));
    constexpr bool adds = Op == numeric::Arithmetic::Add;
    if (!numeric::isIntegerClass(x.classID())) {
        const Value doubles = convertTo(hvDOUBLE_CLASS, x);
        return call.give(reduceLines<double, double>(
            View(doubles), lines, [](const double* p, std::size_t step, std::size_t n) {
                double total = adds ? 0 : 1;
                for (std::size_t i = 0; i < n; ++i)
                    total = adds ? total + p[i * step] : total * p[i * step];
                return total;
            }));
    }
    call.give(numeric::withIntegerType(x.classID(), [&]<class T>(T) {
        return reduceLines<T, T>(View(x), lines, [](const T* p, std::size_t step, std::size_t n) {
            if constexpr (adds) {
                Int128 total = 0; // below 2^33 elements of 64 bits: cannot overflow
                for (std::size_t i = 0; i < n; ++i)
                    total += p[i * step];
                return numeric::saturate<T>(total);
            } else {
                T total = 1;
                for (std::size_t i = 0; i < n; ++i)
                    total = numeric::arithmetic<T>(Op, total, p[i * step]);
                return total;
            }
        });
    }));
}

/// cumsum and cumprod: every step in the class of x.
template <numeric::Arithmetic Op>
void running(BuiltinCall& call) {
    const Arguments in(call);
    const Value x =
        numeric::isIntegerClass(in.numbers(0).classID()) ? in[0] : convertTo(hvDOUBLE_CLASS, in[0]);
    const Lines lines = linesOf(x, dimensionArgument(in, 1));
    const View view(x);
    numeric::ArrayHolder result(newArray(view.classID(), view.rows(), view.columns()));
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        T* out = elements<T>(result.get());
        for (std::size_t k = 0; k < lines.count; ++k)
            for (std::size_t i = 0; i < lines.length; ++i) {
                const std::size_t at = k * lines.stride + i * lines.step;
                const T element = view.as<T>()[at];
                if (i == 0)
                    out[at] = element;
                else if constexpr (std::is_same_v<T, double>)
                    out[at] = Op == numeric::Arithmetic::Add ? out[at - lines.step] + element
                                                             : out[at - lines.step] * element;
                else if constexpr (!std::is_same_v<T, bool>)
                    out[at] = numeric::arithmetic<T>(Op, out[at - lines.step], element);
            }
    });
    call.give(Value::fromArray(result.release()));
}

void difference(BuiltinCall& call) {
    const Arguments in(call);
    const Value x =
        numeric::isIntegerClass(in.numbers(0).classID()) ? in[0] : convertTo(hvDOUBLE_CLASS, in[0]);
    const Lines lines = linesOf(x, dimensionArgument(in, 1));
    const View view(x);
    const std::size_t length = lines.length == 0 ? 0 : lines.length - 1;
    numeric::ArrayHolder result(lines.down ? newArray(view.classID(), length, view.columns())
                                           : newArray(view.classID(), view.rows(), length));
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        T* out = elements<T>(result.get());
        for (std::size_t k = 0; k < lines.count; ++k)
            for (std::size_t i = 0; i < length; ++i) {
                const T* p = view.as<T>() + k * lines.stride + i * lines.step;
                T& to = out[lines.down ? k * length + i : i * lines.count + k];
                if constexpr (std::is_same_v<T, double>)
                    to = p[lines.step] - p[0];
                else if constexpr (!std::is_same_v<T, bool>)
                    to = numeric::arithmetic<T>(numeric::Arithmetic::Subtract, p[lines.step], p[0]);
            }
    });
    call.give(Value::fromArray(result.release()));
}

// min and max -------------------------------------------------------------------------------------

/// Whether b is to be preferred to a; nan never is, and anything is preferred to it.
template <bool Greatest, class T>
[[nodiscard]] bool better(T a, T b) {
    if constexpr (std::is_same_v<T, double>)
        if (std::isnan(a))
            return !std::isnan(b);
    return Greatest ? b > a : b < a;
}

template <bool Greatest>
void extremeOfTwo(BuiltinCall& call, const Arguments& in) {
    if (call.requested > 1)
        in.failWith(id::tooManyOutputs, "places are given for one array only");
    const hvClassID id =
        numeric::arithmeticClass(in.name(), in.numbers(0).classID(), in.numbers(1).classID());
    const Value left = convertTo(id, in[0]);
    const Value right = convertTo(id, in[1]);
    call.give(numeric::withElementType(id, [&]<class T>(T) {
        return mapPairs<T, T>(in, left, right,
                              [](T a, T b) { return better<Greatest>(a, b) ? b : a; });
    }));
}

template <bool Greatest>
void extreme(BuiltinCall& call) {
    const Arguments in(call);
    if (in.count() == 2)
        return extremeOfTwo<Greatest>(call, in);
    if (in.has(1) && in[1].count() != 0)
        in.bad(1, "must be [] when there is a dimension");
    const Value x =
        in.numbers(0).isLogical() || in[0].isChar() ? convertTo(hvDOUBLE_CLASS, in[0]) : in[0];
    const Lines lines = linesOf(x, dimensionArgument(in, 2));
    if (lines.length == 0) { // there is nothing to choose from
        call.give(x);
        if (call.requested > 1)
            call.give(convertTo(hvDOUBLE_CLASS, x));
        return;
    }
    numeric::ArrayHolder places(newArray(hvDOUBLE_CLASS, lines.rows, lines.columns));
    double* place = elements<double>(places.get());
    const View view(x);
    call.give(numeric::withElementType(x.classID(), [&]<class T>(T) {
        return reduceLines<T, T>(view, lines, [&](const T* p, std::size_t step, std::size_t n) {
            std::size_t best = 0;
            for (std::size_t i = 1; i < n; ++i)
                if (better<Greatest>(p[best * step], p[i * step]))
                    best = i;
            *place++ = static_cast<double>(best + 1);
            return p[best * step];
        });
    }));
    if (call.requested > 1)
        call.give(Value::fromArray(places.release()));
}

// Statistics --------------------------------------------------------------------------------------

/// f(numbers of a line) for each line of doubles.
template <class F>
void statistic(BuiltinCall& call, F&& f) {
    const Arguments in(call);
    const Value x = in.doubles(0);
    const Lines lines = linesOf(x, dimensionArgument(in, 1));
    std::vector<double> line(lines.length);
    call.give(reduceLines<double, double>(View(x), lines,
                                          [&](const double* p, std::size_t step, std::size_t n) {
                                              for (std::size_t i = 0; i < n; ++i)
                                                  line[i] = p[i * step];
                                              return f(line);
                                          }));
}

[[nodiscard]] double meanOf(const std::vector<double>& v) {
    double sum = 0;
    for (const double d : v)
        sum += d;
    return sum / static_cast<double>(v.size());
}
[[nodiscard]] double varianceOf(const std::vector<double>& v) {
    if (v.size() == 1)
        return std::isfinite(v[0]) ? 0 : std::nan("");
    const double mean = meanOf(v);
    double sum = 0;
    for (const double d : v)
        sum += (d - mean) * (d - mean);
    return v.empty() ? std::nan("") : sum / static_cast<double>(v.size() - 1);
}
[[nodiscard]] double medianOf(std::vector<double> v) {
    if (v.empty() || std::any_of(v.begin(), v.end(), [](double d) { return std::isnan(d); }))
        return std::nan("");
    const auto middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), middle, v.end());
    if (v.size() % 2 != 0)
        return *middle;
    const double below = *std::max_element(v.begin(), middle);
    return below + (*middle - below) / 2;
}

void mean(BuiltinCall& call) {
    statistic(call, meanOf);
}
void median(BuiltinCall& call) {
    statistic(call, medianOf);
}
void variance(BuiltinCall& call) {
    statistic(call, varianceOf);
}
void deviation(BuiltinCall& call) {
    statistic(call, [](const std::vector<double>& v) { return std::sqrt(varianceOf(v)); });
}

/// any and all: a line is decided by the first element whose truth is `Decisive`.
template <bool Decisive>
void truth(BuiltinCall& call) {
    const Arguments in(call);
    const Value& x = in.numbers(0);
    const Lines lines = linesOf(x, dimensionArgument(in, 1));
    call.give(numeric::withElementType(x.classID(), [&]<class T>(T) {
        return reduceLines<bool, T>(View(x), lines,
                                    [](const T* p, std::size_t step, std::size_t n) {
                                        for (std::size_t i = 0; i < n; ++i)
                                            if ((p[i * step] != T{}) == Decisive)
                                                return Decisive;
                                        return !Decisive;
                                    });
    }));
}

constexpr Builtin table[] = {
    {"sum", "sum(x, dimension)",
     "The sum of a row or column, or of each column of a matrix; with a dimension of each column "
     "(1) "
     "or row (2). Integers keep their class.\nExample: sum([1, 2; 3, 4]) gives [4, 6]",
     1, 2, 1, accumulate<numeric::Arithmetic::Add>},
    {"prod", "prod(x, dimension)",
     "The product of the elements, by columns or rows as in sum.\nExample: prod([2, 3, 4]) gives "
     "24",
     1, 2, 1, accumulate<numeric::Arithmetic::Multiply>},
    {"cumsum", "cumsum(x, dimension)",
     "The sums of the elements so far.\nExample: cumsum([1, 2, 3]) gives [1, 3, 6]", 1, 2, 1,
     running<numeric::Arithmetic::Add>},
    {"cumprod", "cumprod(x, dimension)",
     "The products of the elements so far.\nExample: cumprod([1, 2, 3]) gives [1, 2, 6]", 1, 2, 1,
     running<numeric::Arithmetic::Multiply>},
    {"diff", "diff(x, dimension)",
     "The differences of neighbours, one fewer than there are elements.\nExample: diff([1, 4, 9]) "
     "gives [3, 5]",
     1, 2, 1, difference},
    {"min", "min(x), min(x, y) or min(x, [], dimension)",
     "The least element of a row or column, or of each column of a matrix, and as a second result "
     "its place; or the lesser of each pair. nan is passed over.\nExample: min([3, 1, 2]) gives 1",
     1, 3, 2, extreme<false>},
    {"max", "max(x), max(x, y) or max(x, [], dimension)",
     "The greatest element, as min gives the least.\nExample: max([3, 1], 2) gives [3, 2]", 1, 3, 2,
     extreme<true>},
    {"mean", "mean(x, dimension)",
     "The mean of the elements, by columns or rows as in sum.\nExample: mean([1, 2, 6]) gives 3", 1,
     2, 1, mean},
    {"median", "median(x, dimension)",
     "The middle element in order, or the mean of the middle two.\nExample: median([9, 1, 2]) "
     "gives "
     "2",
     1, 2, 1, median},
    {"var", "var(x, dimension)",
     "The variance of a sample: squares of the distances from the mean, summed, by n - 1.\n"
     "Example: var([1, 3]) gives 2",
     1, 2, 1, variance},
    {"std", "std(x, dimension)",
     "The standard deviation of a sample, the square root of var.\nExample: std([1, 1, 1]) gives 0",
     1, 2, 1, deviation},
    {"any", "any(x, dimension)",
     "Whether an element is not zero, by columns or rows as in sum.\nExample: any([0, 2]) gives "
     "true",
     1, 2, 1, truth<true>},
    {"all", "all(x, dimension)",
     "Whether no element is zero, by columns or rows as in sum.\nExample: all([0, 2]) gives false",
     1, 2, 1, truth<false>},
};

} // namespace

Table reductions() {
    return table;
}

} // namespace varnix::builtins
