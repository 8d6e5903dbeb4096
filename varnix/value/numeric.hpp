// Arithmetic on the element types of arrays: what one integer element does with another element.
//
// Inside the host only. Every function here is exact: results are those of real arithmetic, rounded
// to nearest with ties away from zero and saturated to the type, also for 64-bit integers together
// with doubles. The compiler's run-time library may call the same functions, so that compiled and
// interpreted code agree to the last bit.
#pragma once

#include "value/array.hpp"
#include "value/value.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

namespace varnix::numeric {

__extension__ using Int128 = __int128;
__extension__ using UInt128 = unsigned __int128;

enum class Arithmetic : std::uint8_t { Add, Subtract, Multiply, Divide, Power };

/// An array in the making; releases it when an error passes.
struct ArrayRelease {
    void operator()(hvArray* array) const { hvDestroyArray(array); }
};
using ArrayHolder = std::unique_ptr<hvArray, ArrayRelease>;

[[nodiscard]] constexpr bool isIntegerClass(hvClassID id) {
    return id >= hvINT8_CLASS;
}
[[nodiscard]] constexpr bool isSignedClass(hvClassID id) {
    return id >= hvINT8_CLASS && id <= hvINT64_CLASS;
}
/// Classes that take part in arithmetic: double, logical, char and the integers.
[[nodiscard]] constexpr bool isArithmeticClass(hvClassID id) {
    return id >= hvINT8_CLASS || (id >= hvDOUBLE_CLASS && id <= hvCHAR_CLASS);
}

/// Calls f(T{}) with the element type of an integer class.
template <class F>
decltype(auto) withIntegerType(hvClassID id, F&& f) {
    switch (id) {
    case hvINT8_CLASS:
        return f(std::int8_t{});
    case hvINT16_CLASS:
        return f(std::int16_t{});
    case hvINT32_CLASS:
        return f(std::int32_t{});
    case hvINT64_CLASS:
        return f(std::int64_t{});
    case hvUINT8_CLASS:
        return f(std::uint8_t{});
    case hvUINT16_CLASS:
        return f(std::uint16_t{});
    case hvUINT32_CLASS:
        return f(std::uint32_t{});
    default:
        return f(std::uint64_t{});
    }
}

/// Calls f(T{}) with the element type of an arithmetic class; characters are read as unsigned.
template <class F>
decltype(auto) withElementType(hvClassID id, F&& f) {
    switch (id) {
    case hvDOUBLE_CLASS:
        return f(double{});
    case hvLOGICAL_CLASS:
        return f(bool{});
    case hvCHAR_CLASS:
        return f(std::uint8_t{});
    default:
        return withIntegerType(id, std::forward<F>(f));
    }
}

template <class T>
[[nodiscard]] constexpr hvClassID classFor() {
    if constexpr (std::is_same_v<T, double>)
        return hvDOUBLE_CLASS;
    else if constexpr (std::is_same_v<T, bool>)
        return hvLOGICAL_CLASS;
    else if constexpr (std::is_same_v<T, char>)
        return hvCHAR_CLASS;
    else if constexpr (std::is_signed_v<T>)
        return sizeof(T) == 1   ? hvINT8_CLASS
               : sizeof(T) == 2 ? hvINT16_CLASS
               : sizeof(T) == 4 ? hvINT32_CLASS
                                : hvINT64_CLASS;
    else
        return sizeof(T) == 1   ? hvUINT8_CLASS
               : sizeof(T) == 2 ? hvUINT16_CLASS
               : sizeof(T) == 4 ? hvUINT32_CLASS
                                : hvUINT64_CLASS;
}

/// A scalar value of the element type.
template <class T>
[[nodiscard]] Value scalarOf(T v) {
    if constexpr (std::is_same_v<T, double>)
        return Value::ofDouble(v);
    else if constexpr (std::is_same_v<T, bool>)
        return Value::ofLogical(v);
    else if constexpr (std::is_same_v<T, char>)
        return Value::text({&v, 1});
    else if constexpr (std::is_signed_v<T>)
        return Value::ofSigned(tagOfClass(classFor<T>()), v);
    else
        return Value::ofUnsigned(tagOfClass(classFor<T>()), v);
}

/// The elements of a value to be read, for scalars without boxing. Borrows from the value.
class View {
public:
    explicit View(const Value& v) : id_(v.classID()), rows_(v.rows()), columns_(v.columns()) {
        if (v.isCounted()) {
            data_ = v.array()->data;
            return;
        }
        data_ = scalar_;
        withElementType(id_, [&]<class T>(T) {
            T element{};
            if constexpr (std::is_same_v<T, double>)
                element = v.asDouble();
            else if constexpr (std::is_signed_v<T>)
                element = static_cast<T>(v.asSigned());
            else
                element = static_cast<T>(v.asUnsigned());
            std::memcpy(scalar_, &element, sizeof element);
        });
    }
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    [[nodiscard]] hvClassID classID() const { return id_; }
    [[nodiscard]] std::size_t rows() const { return rows_; }
    [[nodiscard]] std::size_t columns() const { return columns_; }
    [[nodiscard]] std::size_t count() const { return rows_ * columns_; }
    template <class T>
    [[nodiscard]] const T* as() const {
        return static_cast<const T*>(data_);
    }
    /// One element as a double; 64-bit integers are rounded.
    [[nodiscard]] double at(std::size_t i) const {
        return withElementType(id_, [&]<class T>(T) { return static_cast<double>(as<T>()[i]); });
    }

private:
    hvClassID id_;
    std::size_t rows_;
    std::size_t columns_;
    const void* data_;
    alignas(8) unsigned char scalar_[8] = {};
};

/// A double rounded to nearest (ties away from zero) and saturated; NaN is 0.
template <class T>
[[nodiscard]] T saturate(double v) {
    using Limits = std::numeric_limits<T>;
    constexpr double above = static_cast<double>(UInt128{1} << Limits::digits);
    if (std::isnan(v))
        return 0;
    const double rounded = std::round(v);
    if (rounded >= above)
        return Limits::max();
    if (rounded < static_cast<double>(Limits::min()))
        return Limits::min();
    return static_cast<T>(rounded);
}
template <class T>
[[nodiscard]] T saturate(Int128 v) {
    using Limits = std::numeric_limits<T>;
    if (v > Int128{Limits::max()})
        return Limits::max();
    if (v < Int128{Limits::min()})
        return Limits::min();
    return static_cast<T>(v);
}
template <class T>
[[nodiscard]] T saturateSign(bool negative) {
    return negative ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
}

/// The largest magnitude that results are cut to before they are saturated to a type; beyond every
/// integer type, so that the cut never shows.
inline constexpr Int128 huge = Int128{1} << 120;

/// a OP b on whole numbers below 2^64 in magnitude, rounded to nearest, cut to +-huge. x/0 is
/// +-huge by the sign of x, 0/0 is 0.
[[nodiscard]] Int128 wholeArithmetic(Arithmetic op, Int128 a, Int128 b);
/// n OP d, or d OP n when `swapped`, for any double; rounded to nearest, cut to +-huge, NaN is 0.
/// Powers with a fractional operand or a negative exponent go through long double.
[[nodiscard]] Int128 mixedArithmetic(Arithmetic op, Int128 n, double d, bool swapped);

/// The arithmetic of an integer class. Op is known at compile time where elements are worked on in
/// loops; `arithmetic` below takes it at run time.
template <Arithmetic Op, class T>
[[nodiscard]] T arithmeticOf(T a, T b) {
    if constexpr (Op == Arithmetic::Add || Op == Arithmetic::Subtract ||
                  Op == Arithmetic::Multiply) {
        if constexpr (sizeof(T) <= 4) { // 64 bits hold every sum and product
            using Wide = std::conditional_t<Op == Arithmetic::Multiply && std::is_unsigned_v<T>,
                                            std::uint64_t, std::int64_t>;
            const Wide x = a;
            const Wide y = b;
            const Wide wide = Op == Arithmetic::Add        ? x + y
                              : Op == Arithmetic::Subtract ? x - y
                                                           : x * y;
            constexpr Wide least = std::numeric_limits<T>::min();
            constexpr Wide most = std::numeric_limits<T>::max();
            return static_cast<T>(wide < least ? least : (wide > most ? most : wide));
        } else {
            T result;
            const bool over = Op == Arithmetic::Add        ? __builtin_add_overflow(a, b, &result)
                              : Op == Arithmetic::Subtract ? __builtin_sub_overflow(a, b, &result)
                                                           : __builtin_mul_overflow(a, b, &result);
            if (!over)
                return result;
        }
    }
    return saturate<T>(wholeArithmetic(Op, a, b));
}
/// The same with a double on the right (or, below, on the left).
template <Arithmetic Op, class T>
[[nodiscard]] T arithmeticOf(T a, double b) {
    if constexpr (sizeof(T) <= 4 && Op != Arithmetic::Power && Op != Arithmetic::Divide)
        if (const auto whole = static_cast<std::int32_t>(b >= -0x1p30 && b <= 0x1p30 ? b : 0.5);
            static_cast<double>(whole) == b) {
            using Wide = std::int64_t;
            const Wide wide = Op == Arithmetic::Add        ? Wide{a} + whole
                              : Op == Arithmetic::Subtract ? Wide{a} - whole
                                                           : Wide{a} * whole;
            constexpr Wide least = std::numeric_limits<T>::min();
            constexpr Wide most = std::numeric_limits<T>::max();
            return static_cast<T>(wide < least ? least : (wide > most ? most : wide));
        }
    return saturate<T>(mixedArithmetic(Op, a, b, false));
}
template <Arithmetic Op, class T>
[[nodiscard]] T arithmeticOf(double a, T b) {
    if constexpr (Op == Arithmetic::Add || Op == Arithmetic::Multiply)
        return arithmeticOf<Op, T>(b, a);
    else
        return saturate<T>(mixedArithmetic(Op, b, a, true));
}

/// Calls f with a std::integral_constant of the operation.
template <class F>
decltype(auto) withArithmetic(Arithmetic op, F&& f) {
    switch (op) {
    case Arithmetic::Add:
        return f(std::integral_constant<Arithmetic, Arithmetic::Add>());
    case Arithmetic::Subtract:
        return f(std::integral_constant<Arithmetic, Arithmetic::Subtract>());
    case Arithmetic::Multiply:
        return f(std::integral_constant<Arithmetic, Arithmetic::Multiply>());
    case Arithmetic::Divide:
        return f(std::integral_constant<Arithmetic, Arithmetic::Divide>());
    default:
        return f(std::integral_constant<Arithmetic, Arithmetic::Power>());
    }
}
template <class T, class A, class B>
[[nodiscard]] T arithmetic(Arithmetic op, A a, B b) {
    return withArithmetic(op, [&](auto known) { return arithmeticOf<known(), T>(a, b); });
}

/// -1, 0, 1, or 2 when unordered: exact comparison of a 64-bit integer with a double.
template <class T>
[[nodiscard]] int compareExact(T n, double d) {
    if (std::isnan(d))
        return 2;
    constexpr double above = static_cast<double>(UInt128{1} << std::numeric_limits<T>::digits);
    if (d >= above)
        return -1;
    if (d < static_cast<double>(std::numeric_limits<T>::min()))
        return 1;
    const double whole = std::trunc(d);
    const T w = static_cast<T>(whole);
    if (n != w)
        return n < w ? -1 : 1;
    return whole < d ? -1 : (whole > d ? 1 : 0);
}

/// x^y for doubles as the language has it: std::pow; a negative base with a fractional exponent
/// gives NaN.
[[nodiscard]] inline double power(double x, double y) {
    return y == 2.0 ? x * x : std::pow(x, y);
}

/// Copies elements from..from+n as doubles; 64-bit integers are rounded.
void loadDoubles(const View& view, std::size_t from, std::size_t n, double* out);

/// The class of an arithmetic result; raises "varnix:wrongType" naming the operator.
[[nodiscard]] hvClassID arithmeticClass(const char* what, hvClassID left, hvClassID right);

/// "2 by 3".
[[nodiscard]] std::string sizeText(std::size_t rows, std::size_t columns);
[[nodiscard]] inline std::string sizeText(const Value& v) {
    return sizeText(v.rows(), v.columns());
}

} // namespace varnix::numeric
