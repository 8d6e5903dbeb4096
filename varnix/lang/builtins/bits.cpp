// Built-in functions on the bits of whole numbers.
//
// Integers work in their own class, signed ones in two's complement; doubles must be whole numbers
// from 0 to 2^53 and give doubles.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <cmath>

namespace varnix::builtins {
namespace {

using numeric::View;

[[nodiscard]] bool isBitPattern(double d) {
    return d >= 0 && d <= 0x1p53 && d == std::trunc(d);
}

void requireBitPatterns(const Arguments& in, std::size_t i) {
    const View view(in.numbers(i));
    if (numeric::isIntegerClass(view.classID()))
        return;
    for (std::size_t k = 0; k < view.count(); ++k)
        if (!isBitPattern(view.at(k)))
            in.bad(i, "must hold whole numbers from 0 to 2^53");
}

/// An operand in the common class; raises where a double does not fit it.
[[nodiscard]] Value inClass(const Arguments& in, std::size_t i, hvClassID id) {
    Value converted = convertTo(id, in[i]);
    if (!isEqual(converted, convertTo(hvDOUBLE_CLASS, in[i])) && in[i].classID() != id)
        in.bad(i, fmt::format("does not fit into {}", className(id)));
    return converted;
}

template <class F>
void bitwise(BuiltinCall& call, F f) {
    const Arguments in(call);
    const hvClassID id =
        numeric::arithmeticClass(in.name(), in.numbers(0).classID(), in.numbers(1).classID());
    requireBitPatterns(in, 0);
    requireBitPatterns(in, 1);
    if (id == hvDOUBLE_CLASS)
        return call.give(mapPairs<double, double>(
            in, convertTo(id, in[0]), convertTo(id, in[1]), [f](double a, double b) {
                return static_cast<double>(
                    f(static_cast<std::uint64_t>(a), static_cast<std::uint64_t>(b)));
            }));
    const Value left = inClass(in, 0, id);
    const Value right = inClass(in, 1, id);
    call.give(numeric::withIntegerType(id, [&]<class T>(T) {
        return mapPairs<T, T>(in, left, right, [f](T a, T b) { return static_cast<T>(f(a, b)); });
    }));
}

void bitand_(BuiltinCall& call) {
    bitwise(call, [](auto a, auto b) { return a & b; });
}
void bitor_(BuiltinCall& call) {
    bitwise(call, [](auto a, auto b) { return a | b; });
}
void bitxor_(BuiltinCall& call) {
    bitwise(call, [](auto a, auto b) { return a ^ b; });
}

/// n bits wide.
[[nodiscard]] std::uint64_t shifted(std::uint64_t v, double by, int width) {
    if (std::fabs(by) >= width)
        return 0;
    const int n = static_cast<int>(by);
    const std::uint64_t mask = width == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
    return n >= 0 ? (v << n) & mask : v >> -n;
}

void bitshift(BuiltinCall& call) {
    const Arguments in(call);
    requireBitPatterns(in, 0);
    const Value by = in.doubles(1);
    const View shifts(by);
    for (std::size_t k = 0; k < shifts.count(); ++k)
        if (shifts.at(k) != std::trunc(shifts.at(k)))
            in.bad(1, "must hold whole numbers");
    const hvClassID id = in[0].classID();
    if (!numeric::isIntegerClass(id))
        return call.give(mapPairs<double, double>(
            in, convertTo(hvDOUBLE_CLASS, in[0]), by, [](double v, double n) {
                return static_cast<double>(shifted(static_cast<std::uint64_t>(v), n, 53));
            }));
    call.give(numeric::withIntegerType(id, [&]<class T>(T) {
        const View view(in[0]);
        for (std::size_t k = 0; k < view.count(); ++k)
            if (view.as<T>()[k] < T{0})
                in.bad(0, "must not be negative");
        return mapPairs<T, T, double>(in, in[0], by, [](T v, double n) {
            return static_cast<T>(
                shifted(static_cast<std::uint64_t>(v), n, std::numeric_limits<T>::digits));
        });
    }));
}

constexpr Builtin table[] = {
    {"bitand", "bitand(a, b)",
     "The bits that both whole numbers have.\nExample: bitand(12, 10) gives 8", 2, 2, 1, bitand_},
    {"bitor", "bitor(a, b)",
     "The bits that at least one of two whole numbers has.\nExample: bitor(12, 10) gives 14", 2, 2,
     1, bitor_},
    {"bitxor", "bitxor(a, b)",
     "The bits that exactly one of two whole numbers has.\nExample: bitxor(12, 10) gives 6", 2, 2,
     1, bitxor_},
    {"bitshift", "bitshift(a, n)",
     "The bits of a moved n places up, or down for negative n; bits that leave the class (53 bits "
     "for doubles) are lost.\nExample: bitshift(3, 2) gives 12",
     2, 2, 1, bitshift},
};

} // namespace

Table bits() {
    return table;
}

} // namespace varnix::builtins
