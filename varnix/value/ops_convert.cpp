// Conversions between numeric, logical and character classes, and ranges.
#include "value/errors.hpp"
#include "value/numeric.hpp"
#include "value/ops.hpp"

#include <cstring>

namespace varnix {
namespace {

using numeric::Int128;
using numeric::View;

template <class To, class From>
[[nodiscard]] To convertElement(From v) {
    if constexpr (std::is_same_v<To, double>) {
        return static_cast<double>(v);
    } else if constexpr (std::is_same_v<To, bool>) {
        if constexpr (std::is_same_v<From, double>)
            if (std::isnan(v))
                fail(id::badArgument, "nan has no truth and cannot become a logical");
        return v != From{};
    } else if constexpr (std::is_same_v<To, char>) {
        if constexpr (!std::is_same_v<From, bool> && !std::is_same_v<From, std::uint8_t>)
            if (!(v >= From{0} && static_cast<double>(v) <= 255 &&
                  static_cast<double>(v) == std::trunc(static_cast<double>(v))))
                fail(id::badArgument, "a character's code must be a whole number from 0 to 255");
        return static_cast<char>(static_cast<std::uint8_t>(v));
    } else if constexpr (std::is_same_v<From, double>) {
        return numeric::saturate<To>(v);
    } else {
        return numeric::saturate<To>(static_cast<Int128>(v));
    }
}

template <class To>
Value convertAll(const Value& value) {
    const View view(value);
    return numeric::withElementType(view.classID(), [&]<class From>(From) {
        const From* in = view.as<From>();
        if (value.isScalar())
            return numeric::scalarOf<To>(convertElement<To, From>(*in));
        numeric::ArrayHolder result(newArray(numeric::classFor<To>(), view.rows(), view.columns()));
        for (std::size_t i = 0; i < view.count(); ++i)
            elements<To>(result.get())[i] = convertElement<To, From>(in[i]);
        return Value::fromArray(result.release());
    });
}

/// A whole number as an operand of an integer range.
[[nodiscard]] Int128 wholeOf(const Value& v, const char* what) {
    if (v.isInteger())
        return numeric::withIntegerType(
            v.classID(), [&]<class T>(T) { return static_cast<Int128>(*View(v).as<T>()); });
    const double d = toDouble(v, what);
    if (!(d == std::trunc(d)) || std::fabs(d) >= 0x1p64)
        fail(id::badArgument, "{} of a range of integers must be a whole number", what);
    return static_cast<Int128>(d);
}

template <class T>
Value integerRange(const Value& firstValue, const Value& stepValue, const Value& lastValue) {
    const Int128 first = wholeOf(firstValue, "the first value");
    const Int128 step = wholeOf(stepValue, "the step");
    const Int128 last = wholeOf(lastValue, "the last value");
    const bool empty = step == 0 || (step > 0 ? first > last : first < last);
    const Int128 count = empty ? 0 : (last - first) / step + 1;
    if (count > static_cast<Int128>(maxArrayBytes))
        fail(id::tooLarge, "the range is too large");
    for (const Int128 end : {first, first + (count - 1) * step})
        if (!empty && numeric::saturate<T>(end) != end)
            fail(id::badArgument, "the range leaves the class {}",
                 className(numeric::classFor<T>()));
    numeric::ArrayHolder result(
        newArray(numeric::classFor<T>(), 1, static_cast<std::size_t>(count)));
    for (Int128 i = 0; i < count; ++i)
        elements<T>(result.get())[i] = static_cast<T>(first + i * step);
    return Value::fromArray(result.release());
}

[[nodiscard]] double boundOf(const Value& v, const char* what) {
    const double d = v.isChar() && v.count() == 1 ? numeric::View(v).at(0) : toDouble(v, what);
    if (std::isnan(d))
        fail(id::badArgument, "{} of a range is nan", what);
    return d;
}

Value doubleRange(double first, double step, double last) {
    double steps = (last - first) / step;
    // A little more than the rounding error of the quotient, so that 0:0.1:1 reaches 1.
    steps = std::floor(steps + std::fabs(steps) * 4 * std::numeric_limits<double>::epsilon());
    std::size_t count = 0;
    if (step != 0 && !std::isnan(steps) && steps >= 0) {
        if (steps >= static_cast<double>(maxArrayBytes / sizeof(double)))
            fail(id::tooLarge, "the range is too large");
        count = static_cast<std::size_t>(steps) + 1;
    }
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, 1, count));
    double* out = elements<double>(result.get());
    for (std::size_t i = 0; i < count; ++i)
        out[i] = first + static_cast<double>(i) * step;
    if (count > 1 && (step > 0 ? out[count - 1] > last : out[count - 1] < last))
        out[count - 1] = last; // rounding carried the last element past the end
    return Value::fromArray(result.release());
}

} // namespace

Value convertTo(hvClassID target, const Value& value) {
    const hvClassID from = value.classID();
    if (from == target)
        return value;
    if (!numeric::isArithmeticClass(from) || !numeric::isArithmeticClass(target))
        fail(id::wrongType, "{} cannot be converted to {}", className(value), className(target));
    if (target == hvCHAR_CLASS)
        return convertAll<char>(value);
    if (target == hvDOUBLE_CLASS)
        return convertAll<double>(value);
    if (target == hvLOGICAL_CLASS)
        return convertAll<bool>(value);
    return numeric::withIntegerType(target, [&]<class T>(T) { return convertAll<T>(value); });
}

Value range(const Value& first, const Value& step, const Value& last) {
    hvClassID id = hvDOUBLE_CLASS;
    for (const Value* v : {&first, &step, &last})
        if (v->isInteger()) {
            if (id != hvDOUBLE_CLASS && id != v->classID())
                fail(id::wrongType, "a range of two different integer types, {} and {}",
                     className(id), className(*v));
            id = v->classID();
        }
    if (id == hvDOUBLE_CLASS)
        return doubleRange(boundOf(first, "the first value"), boundOf(step, "the step"),
                           boundOf(last, "the last value"));
    return numeric::withIntegerType(id,
                                    [&]<class T>(T) { return integerRange<T>(first, step, last); });
}

} // namespace varnix
