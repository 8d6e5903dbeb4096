// Reading the arguments of a built-in: each function takes the argument's position (from 0) and
// raises "varnix:wrongType" or "varnix:badArgument" with a message that names the function and the
// argument (from 1) when it is not what is wanted.
#pragma once

#include "lang/builtin.hpp"
#include "value/array.hpp"
#include "value/errors.hpp"
#include "value/numeric.hpp"
#include "value/ops.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varnix::builtins {

class Arguments {
public:
    explicit Arguments(const BuiltinCall& call) : call_(call) {}

    [[nodiscard]] std::size_t count() const { return call_.arguments.size(); }
    [[nodiscard]] const Value& operator[](std::size_t i) const { return call_.arguments[i]; }
    [[nodiscard]] bool has(std::size_t i) const { return i < count(); }
    [[nodiscard]] const char* name() const {
        return call_.builtin ? call_.builtin->name : "built-in function";
    }

    /// "NAME: argument 2 must be EXPECTED, not 1 by 3 cell".
    [[noreturn]] void wrongType(std::size_t i, std::string_view expected) const;
    /// "NAME: argument 2 PROBLEM".
    [[noreturn]] void bad(std::size_t i, std::string_view problem) const;
    /// "NAME: MESSAGE" under another identifier.
    [[noreturn]] void failWith(std::string_view identifier, std::string_view message) const;

    /// A text row. The view lives as long as the argument.
    [[nodiscard]] std::string_view text(std::size_t i) const;
    /// A text row for the operating system: without NUL.
    [[nodiscard]] std::string path(std::size_t i) const;
    /// The texts of a cell, or of one text.
    [[nodiscard]] std::vector<std::string_view> texts(std::size_t i) const;

    /// A numeric or logical scalar.
    [[nodiscard]] double real(std::size_t i) const;
    /// A whole number from `least` to `most`.
    [[nodiscard]] std::int64_t whole(std::size_t i, std::int64_t least, std::int64_t most) const;
    /// Numbers, logicals or characters, of any size.
    [[nodiscard]] const Value& numbers(std::size_t i) const;
    /// Numbers or logicals, of any size, as an array or scalar of doubles.
    [[nodiscard]] Value doubles(std::size_t i) const;

    /// The size given by the arguments i and on: nothing is 1 by 1, n is n by n, [m, n] or m, n.
    /// `end` is one more than the last argument that may belong to it.
    [[nodiscard]] std::pair<std::size_t, std::size_t> size(std::size_t i, std::size_t end) const;

private:
    [[nodiscard]] std::size_t extent(std::size_t i, double n) const;

    const BuiltinCall& call_;
};

/// What a value is, for messages: "a text", "3 by 1 double", "double" for a scalar, "a struct".
[[nodiscard]] std::string describe(const Value& v);

/// An N by 1 cell of texts.
template <class Range>
[[nodiscard]] Value textColumn(const Range& texts) {
    numeric::ArrayHolder cell(newArray(hvCELL_CLASS, std::size(texts), 1));
    std::size_t i = 0;
    for (const auto& text : texts)
        setCell(cell.get(), i++, Value::text(text));
    return Value::fromArray(cell.release());
}

/// f(element) for each text of a cell or for one text; the result is of class T's array, or a cell
/// of texts (or one text) when f gives std::string.
template <class F>
[[nodiscard]] Value mapTexts(const Arguments& in, std::size_t i, F&& f) {
    using Result = decltype(f(std::string_view()));
    constexpr bool toText = std::is_same_v<Result, std::string>;
    if (!in[i].isCell()) {
        if constexpr (toText)
            return Value::text(f(in.text(i)));
        else
            return numeric::scalarOf<Result>(f(in.text(i)));
    }
    const std::vector<std::string_view> texts = in.texts(i);
    const Value& cell = in[i];
    numeric::ArrayHolder result(
        newArray(toText ? hvCELL_CLASS : numeric::classFor<bool>(), cell.rows(), cell.columns()));
    for (std::size_t k = 0; k < texts.size(); ++k)
        if constexpr (toText)
            setCell(result.get(), k, Value::text(f(texts[k])));
        else
            elements<Result>(result.get())[k] = f(texts[k]);
    return Value::fromArray(result.release());
}

/// f(double) for each number of an array, as an array of Result (double or bool).
template <class Result, class F>
[[nodiscard]] Value mapDoubles(const Value& numbers, F&& f) {
    if (numbers.tag() == Tag::Double)
        return numeric::scalarOf<Result>(f(numbers.asDouble()));
    const numeric::View view(numbers);
    numeric::ArrayHolder result(newArray(numeric::classFor<Result>(), view.rows(), view.columns()));
    Result* out = elements<Result>(result.get());
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        const T* in = view.as<T>();
        for (std::size_t k = 0; k < view.count(); ++k)
            out[k] = f(static_cast<double>(in[k]));
    });
    return Value::fromArray(result.release());
}

/// f(a, b) for each pair of elements of two values that hold elements of type A and B; scalars
/// expand. The result is an array of Result. Raises "varnix:wrongSize" when the sizes do not agree.
template <class Result, class A, class B = A, class F>
[[nodiscard]] Value mapPairs(const Arguments& in, const Value& left, const Value& right, F&& f) {
    const numeric::View a(left);
    const numeric::View b(right);
    const bool expandLeft = a.count() == 1;
    const bool expandRight = b.count() == 1;
    if (!expandLeft && !expandRight && (a.rows() != b.rows() || a.columns() != b.columns()))
        in.failWith(id::wrongSize, fmt::format("sizes do not agree: {} and {}",
                                               numeric::sizeText(left), numeric::sizeText(right)));
    const numeric::View& shape = expandLeft ? b : a;
    if (expandLeft && expandRight)
        return numeric::scalarOf<Result>(f(*a.as<A>(), *b.as<B>()));
    numeric::ArrayHolder result(
        newArray(numeric::classFor<Result>(), shape.rows(), shape.columns()));
    for (std::size_t i = 0; i < shape.count(); ++i)
        elements<Result>(result.get())[i] =
            f(a.as<A>()[expandLeft ? 0 : i], b.as<B>()[expandRight ? 0 : i]);
    return Value::fromArray(result.release());
}

} // namespace varnix::builtins
