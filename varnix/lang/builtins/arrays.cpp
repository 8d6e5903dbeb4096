// Built-in functions that make arrays, tell their size and change their shape.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "value/format.hpp"
#include "value/gather.hpp"

#include <algorithm>
#include <cmath>

namespace varnix::builtins {
namespace {

using numeric::View;

/// The class named by a last argument such as "int32", double when there is none; takes it from
/// the count of size arguments.
[[nodiscard]] hvClassID classArgument(const Arguments& in, std::size_t& end) {
    end = in.count();
    if (end == 0 || !in[end - 1].isTextRow())
        return hvDOUBLE_CLASS;
    --end;
    const std::string_view wanted = in.text(end);
    for (int k = hvDOUBLE_CLASS; k <= hvUINT64_CLASS; ++k)
        if (const auto id = static_cast<hvClassID>(k);
            (id == hvDOUBLE_CLASS || id == hvLOGICAL_CLASS || numeric::isIntegerClass(id)) &&
            wanted == className(id))
            return id;
    in.bad(end, fmt::format("is no numeric class: {}", formatBrief(in[end])));
}

template <class F>
void filled(BuiltinCall& call, F&& fill) {
    const Arguments in(call);
    std::size_t end = 0;
    const hvClassID id = classArgument(in, end);
    if (end > 2)
        in.bad(2, "must be the name of a class");
    const auto size = in.size(0, end);
    numeric::ArrayHolder result(newArray(id, size.first, size.second));
    numeric::withElementType(
        id, [&]<class T>(T) { fill(elements<T>(result.get()), size.first, size.second); });
    call.give(Value::fromArray(result.release()));
}

void zeros(BuiltinCall& call) {
    filled(call,
           []<class T>(T* out, std::size_t m, std::size_t n) { std::fill_n(out, m * n, T{}); });
}
void ones(BuiltinCall& call) {
    filled(call,
           []<class T>(T* out, std::size_t m, std::size_t n) { std::fill_n(out, m * n, T{1}); });
}
void eye(BuiltinCall& call) {
    filled(call, []<class T>(T* out, std::size_t m, std::size_t n) {
        std::fill_n(out, m * n, T{});
        for (std::size_t i = 0; i < std::min(m, n); ++i)
            out[i + i * m] = T{1};
    });
}

/// inf and nan: a constant, or an array of it.
template <class F>
void constants(BuiltinCall& call, F&& value) {
    const Arguments in(call);
    const auto [rows, columns] = in.size(0, 2);
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, rows, columns));
    std::fill_n(elements<double>(result.get()), rows * columns, value());
    call.give(Value::fromArray(result.release()));
}
void infinity(BuiltinCall& call) {
    constants(call, [] { return std::numeric_limits<double>::infinity(); });
}
void notANumber(BuiltinCall& call) {
    constants(call, [] { return std::numeric_limits<double>::quiet_NaN(); });
}

void linspace(BuiltinCall& call) {
    const Arguments in(call);
    const double first = in.real(0);
    const double last = in.real(1);
    const auto n =
        static_cast<std::size_t>(in.has(2) ? in.whole(2, 0, std::int64_t{1} << 40) : 100);
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, 1, n));
    double* out = elements<double>(result.get());
    const double steps = static_cast<double>(n) - 1;
    for (std::size_t i = 0; i + 1 < n; ++i)
        out[i] = first + (last - first) * (static_cast<double>(i) / steps);
    if (n != 0)
        out[n - 1] = last;
    call.give(Value::fromArray(result.release()));
}

void size(BuiltinCall& call) {
    const Arguments in(call);
    const auto rows = static_cast<double>(in[0].rows());
    const auto columns = static_cast<double>(in[0].columns());
    if (in.has(1)) {
        if (call.requested > 1)
            in.failWith(id::tooManyOutputs, "one dimension is one result");
        return call.give(Value::ofDouble(in.whole(1, 1, 2) == 1 ? rows : columns));
    }
    if (call.requested > 1) {
        call.give(Value::ofDouble(rows));
        return call.give(Value::ofDouble(columns));
    }
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, 1, 2));
    elements<double>(result.get())[0] = rows;
    elements<double>(result.get())[1] = columns;
    call.give(Value::fromArray(result.release()));
}

void length(BuiltinCall& call) {
    call.give(Value::ofDouble(static_cast<double>(call.arguments[0].count())));
}
void rows(BuiltinCall& call) {
    call.give(Value::ofDouble(static_cast<double>(call.arguments[0].rows())));
}
void columns(BuiltinCall& call) {
    call.give(Value::ofDouble(static_cast<double>(call.arguments[0].columns())));
}
void isempty(BuiltinCall& call) {
    call.give(Value::ofLogical(call.arguments[0].count() == 0));
}

/// The value as an array that no one else holds, to be given another size; null for what has none.
[[nodiscard]] numeric::ArrayHolder ownCopy(const Arguments& in, std::size_t i) {
    if (in[i].isStruct() || in[i].isFunction())
        in.wrongType(i, "an array");
    const numeric::ArrayHolder array(in[i].toArray());
    return numeric::ArrayHolder(copyArray(array.get()));
}

void reshape(BuiltinCall& call) {
    const Arguments in(call);
    numeric::ArrayHolder result = ownCopy(in, 0);
    const std::size_t n = result->count();
    std::pair<std::size_t, std::size_t> shape;
    // [] for one of two extents: what is left.
    const bool freeRows = in.count() == 3 && in[1].count() == 0;
    const bool freeColumns = in.count() == 3 && in[2].count() == 0;
    if (freeRows && freeColumns)
        in.bad(2, "may not be [] when argument 2 is");
    if (freeRows || freeColumns) {
        const std::size_t given = freeRows ? 2 : 1;
        const auto extent = static_cast<std::size_t>(in.whole(given, 1, std::int64_t{1} << 40));
        if (n % extent != 0)
            in.bad(given, fmt::format("does not divide the {} elements", n));
        shape = freeRows ? std::pair{n / extent, extent} : std::pair{extent, n / extent};
    } else {
        shape = in.size(1, 3);
    }
    // Extents stay below 2^33 each, so the product does not overflow.
    if (shape.first * shape.second != n)
        in.failWith(id::wrongSize, fmt::format("{} elements cannot become {}", n,
                                               numeric::sizeText(shape.first, shape.second)));
    result->rows = shape.first;
    result->columns = shape.second;
    call.give(Value::fromArray(result.release()));
}

void requireArray(const Arguments& in, std::size_t i) {
    if (in[i].isStruct() || in[i].isFunction())
        in.wrongType(i, "an array");
}

void transpose(BuiltinCall& call) {
    const Arguments in(call);
    requireArray(in, 0);
    const Value& x = in[0];
    const std::size_t m = x.rows();
    const std::size_t n = x.columns();
    if (x.count() == 1)
        return call.give(x);
    if (m == 1 || n == 1 || x.count() == 0) {
        numeric::ArrayHolder result = ownCopy(in, 0);
        std::swap(result->rows, result->columns);
        return call.give(Value::fromArray(result.release()));
    }
    call.give(gather(x, n, m, [m](std::size_t i, std::size_t j) { return j + i * m; }));
}

void repmat(BuiltinCall& call) {
    const Arguments in(call);
    requireArray(in, 0);
    const Value& x = in[0];
    const auto [m, n] = in.size(1, 3);
    if (x.count() == 1 && m == 1 && n == 1)
        return call.give(x);
    const std::size_t r = x.rows();
    const std::size_t c = x.columns();
    std::size_t newRows = 0;
    std::size_t newColumns = 0;
    if (__builtin_mul_overflow(r, m, &newRows) || __builtin_mul_overflow(c, n, &newColumns))
        in.failWith(id::tooLarge, "the result is too large");
    call.give(gather(x, newRows, newColumns,
                     [r, c](std::size_t i, std::size_t j) { return i % r + j % c * r; }));
}

void flip(BuiltinCall& call) {
    const Arguments in(call);
    requireArray(in, 0);
    const Value& x = in[0];
    const std::size_t m = x.rows();
    const std::size_t n = x.columns();
    if (x.count() <= 1)
        return call.give(x);
    const bool alongRows = in.has(1) ? in.whole(1, 1, 2) == 1 : m != 1;
    call.give(gather(x, m, n, [&](std::size_t i, std::size_t j) {
        return alongRows ? m - 1 - i + j * m : i + (n - 1 - j) * m;
    }));
}

void diagonal(BuiltinCall& call) {
    const Arguments in(call);
    const Value x = in.doubles(0);
    const View view(x);
    const std::size_t m = view.rows();
    const std::size_t n = view.columns();
    if (m == 1 || n == 1) {
        const std::size_t k = view.count();
        numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, k, k));
        std::fill_n(elements<double>(result.get()), k * k, 0.0);
        for (std::size_t i = 0; i < k; ++i)
            elements<double>(result.get())[i * (k + 1)] = view.at(i);
        return call.give(Value::fromArray(result.release()));
    }
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, std::min(m, n), 1));
    for (std::size_t i = 0; i < std::min(m, n); ++i)
        elements<double>(result.get())[i] = view.at(i * (m + 1));
    call.give(Value::fromArray(result.release()));
}

void isequal(BuiltinCall& call) {
    bool equal = true;
    for (std::size_t i = 1; i < call.arguments.size() && equal; ++i)
        equal = isEqual(call.arguments[0], call.arguments[i]);
    call.give(Value::ofLogical(equal));
}

constexpr Builtin table[] = {
    {"zeros", "zeros(m, n, class)",
     "An m by n array of zeros; zeros(n) is n by n, zeros([m, n]) works too. The class is double "
     "unless a last argument names another.\nExample: zeros(1, 3) gives [0, 0, 0]",
     0, 3, 1, zeros},
    {"ones", "ones(m, n, class)",
     "An m by n array of ones, sized as by zeros.\nExample: ones(2, 1, \"int8\") gives [1i8; 1i8]",
     0, 3, 1, ones},
    {"eye", "eye(m, n, class)",
     "An m by n array with ones on the diagonal, sized as by zeros.\nExample: eye(2) gives [1, 0; "
     "0, 1]",
     0, 3, 1, eye},
    {"inf", "inf(m, n)", "Infinity, or an array of it.\nExample: inf gives 1 / 0", 0, 2, 1,
     infinity},
    {"nan", "nan(m, n)",
     "Not a number, or an array of it. nan equals nothing, not even itself; see isnan.\n"
     "Example: isnan(nan) gives true",
     0, 2, 1, notANumber},
    {"linspace", "linspace(a, b, n)",
     "n numbers from a to b in equal steps, 100 without n.\nExample: linspace(0, 1, 3) gives [0, "
     "0.5, 1]",
     2, 3, 1, linspace},
    {"size", "size(x) or size(x, dimension)",
     "The numbers of rows and columns, as [rows, columns], as two results, or one of them.\n"
     "Example: size(\"abc\") gives [1, 3]",
     1, 2, 2, size},
    {"length", "length(x)", "The number of elements.\nExample: length([1, 2; 3, 4]) gives 4", 1, 1,
     1, length},
    {"numel", "numel(x)", "The number of elements, as length.\nExample: numel({1, 2}) gives 2", 1,
     1, 1, length},
    {"rows", "rows(x)", "The number of rows.\nExample: rows([1; 2]) gives 2", 1, 1, 1, rows},
    {"columns", "columns(x)", "The number of columns.\nExample: columns([1; 2]) gives 1", 1, 1, 1,
     columns},
    {"isempty", "isempty(x)", "Whether there are no elements.\nExample: isempty(\"\") gives true",
     1, 1, 1, isempty},
    {"reshape", "reshape(x, m, n)",
     "The elements of x, column after column, as an m by n array. One of m and n may be [] to be "
     "found from the other.\nExample: reshape(1:4, 2, []) gives [1, 3; 2, 4]",
     2, 3, 1, reshape},
    {"transpose", "transpose(x)",
     "Rows become columns.\nExample: transpose([1, 2; 3, 4]) gives [1, 3; 2, 4]", 1, 1, 1,
     transpose},
    {"repmat", "repmat(x, m, n)",
     "m by n copies of x side by side; repmat(x, n) is n by n.\nExample: repmat(\"ab\", 1, 2) "
     "gives "
     "\"abab\"",
     2, 3, 1, repmat},
    {"flip", "flip(x, dimension)",
     "The elements in reverse order: of a row its columns, else the rows, or as the dimension (1: "
     "rows, 2: columns) says.\nExample: flip(\"abc\") gives \"cba\"",
     1, 2, 1, flip},
    {"diag", "diag(x)",
     "Of a row or column the matrix with it as diagonal; of a matrix the diagonal as a column.\n"
     "Example: diag([1, 2; 3, 4]) gives [1; 4]",
     1, 1, 1, diagonal},
    {"isequal", "isequal(a, b, ...)",
     "Whether all values are the same as a whole: size and contents, numbers by value whatever "
     "their class, structs by fields in any order, objects by identity. A text equals only a text, "
     "nan nothing.\nExample: isequal({1, \"a\"}, {1, \"a\"}) gives true",
     2, anyNumber, 1, isequal},
};

} // namespace

Table arrays() {
    return table;
}

} // namespace varnix::builtins
