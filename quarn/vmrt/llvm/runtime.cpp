// The host functions that machine code calls, and the table of their names.
//
// Under "soft float" LLVM passes doubles in integer registers and calls a function for each
// operation. The C library's functions have the other convention, and the compiler's library has
// none of these functions for this processor, so each gets a form here that takes and gives bits.
// They compute with the processor's own arithmetic: soft float is a way to generate code, and its
// results are the same to the last bit.
#include "vmrt/llvm/runtime.hpp"

#include "vmrt/llvm/debug_print.hpp"

#include <qn/arithmetic.hpp>

#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace QN::VMRT {
namespace {

// Arrays ------------------------------------------------------------------------------------------

/// `made` is raw memory.
std::int32_t arrayNew(void* made, std::int64_t kind, std::int64_t rows,
                      std::int64_t cols) noexcept {
    if (!ArrayValue::isPossibleSize(rows, cols)) {
        return BadSize;
    }
    try {
        new (made) ArrayValue(static_cast<ScalarKind>(kind), rows, cols);
    } catch (const std::bad_alloc&) {
        return OutOfMemory;
    }
    return Fine;
}

std::int32_t arrayMakeWritable(ArrayValue* array) noexcept {
    try {
        static_cast<void>(array->writableData());
    } catch (const std::bad_alloc&) {
        return OutOfMemory;
    }
    return Fine;
}

std::int32_t arrayResize(ArrayValue* array, std::int64_t rows, std::int64_t cols) noexcept {
    if (!ArrayValue::isPossibleSize(rows, cols)) {
        return BadSize;
    }
    try {
        array->resize(rows, cols);
    } catch (const std::bad_alloc&) {
        return OutOfMemory;
    }
    return Fine;
}

void arrayAssign(ArrayValue* to, const ArrayValue* from) noexcept {
    *to = *from;
}

/// Takes over what `from` holds, which is then raw memory.
void arrayTake(ArrayValue* to, ArrayValue* from) noexcept {
    to->swap(*from);
    from->~ArrayValue();
}

/// Drops a reference; `buffer` is not null.
void bufferRelease(ArrayBuffer* buffer) noexcept {
    if (--buffer->references == 0) {
        buffer->release(*buffer);
    }
}

// Arithmetic that has no form in machine code -----------------------------------------------------

double mod(double a, double b) noexcept {
    return modOf(a, b);
}
double rem(double a, double b) noexcept {
    return remOf(a, b);
}

/// A whole double's lowest 64 bits in two's complement; of an infinity or NaN zero.
std::uint64_t lowBits(double whole) noexcept {
    const Mode wrap(Rounding::TowardZero, Overflow::Wrap);
    return convertScalar(*Type::f64(), *Type::scalar(ScalarKind::Uint64), wrap, bitsOf(whole));
}

// Soft float --------------------------------------------------------------------------------------

using Bits = std::uint64_t;

template <double (*function)(double)>
Bits soft1(Bits a) noexcept {
    return bitsOf(function(asDouble(a)));
}
template <double (*function)(double, double)>
Bits soft2(Bits a, Bits b) noexcept {
    return bitsOf(function(asDouble(a), asDouble(b)));
}
Bits softAdd(Bits a, Bits b) noexcept {
    return bitsOf(asDouble(a) + asDouble(b));
}
Bits softSub(Bits a, Bits b) noexcept {
    return bitsOf(asDouble(a) - asDouble(b));
}
Bits softMul(Bits a, Bits b) noexcept {
    return bitsOf(asDouble(a) * asDouble(b));
}
Bits softDiv(Bits a, Bits b) noexcept {
    return bitsOf(asDouble(a) / asDouble(b));
}
Bits softNeg(Bits a) noexcept {
    return a ^ (Bits{1} << 63);
}
/// Negative, zero, positive as a is less, equal, greater; `ofNan` if they cannot be compared.
template <int ofNan>
std::int32_t softCompare(Bits a, Bits b) noexcept {
    const double x = asDouble(a);
    const double y = asDouble(b);
    return std::isnan(x) || std::isnan(y) ? ofNan : x < y ? -1 : x > y ? 1 : 0;
}
std::int32_t softUnordered(Bits a, Bits b) noexcept {
    return std::isnan(asDouble(a)) || std::isnan(asDouble(b)) ? 1 : 0;
}
template <typename To>
To softToInteger(Bits a) noexcept {
    // Out of range the result does not matter, but the conversion must be defined here.
    constexpr double limit = sizeof(To) == 4 ? 0x1p31 : 0x1p63;
    const double value = asDouble(a);
    if (static_cast<To>(-1) < 0) {
        return value >= -limit && value < limit ? static_cast<To>(value) : 0;
    }
    return value > -1 && value < 2 * limit ? static_cast<To>(value) : 0;
}
template <typename From>
Bits softFromInteger(From value) noexcept {
    return bitsOf(static_cast<double>(value));
}
Bits softLowBits(Bits whole) noexcept {
    return lowBits(asDouble(whole));
}

// The table ---------------------------------------------------------------------------------------

template <typename Function>
const void* addressOf(Function* function) noexcept {
    return reinterpret_cast<const void*>(function);
}

using Table = std::unordered_map<std::string_view, const void*>;

/// The functions that have no doubles among their arguments.
Table common() {
    return {
        {"qn_array_new", addressOf(arrayNew)},
        {"qn_array_make_writable", addressOf(arrayMakeWritable)},
        {"qn_array_resize", addressOf(arrayResize)},
        {"qn_array_assign", addressOf(arrayAssign)},
        {"qn_array_take", addressOf(arrayTake)},
        {"qn_buffer_release", addressOf(bufferRelease)},
        {"qn_print", addressOf(printOnConsole)},
        {"qn_print_valgrind", addressOf(printInValgrind)},
        {"memcpy", addressOf(static_cast<void* (*)(void*, const void*, std::size_t)>(std::memcpy))},
        {"memmove",
         addressOf(static_cast<void* (*)(void*, const void*, std::size_t)>(std::memmove))},
        {"memset", addressOf(static_cast<void* (*)(void*, int, std::size_t)>(std::memset))},
    };
}

#define QN_UNARY(name)                                                                             \
    { #name, addressOf(static_cast <double (*)(double)>(::name)) }
#define QN_BINARY(name)                                                                            \
    { #name, addressOf(static_cast <double (*)(double, double)>(::name)) }
#define QN_SOFT_UNARY(name)                                                                        \
    { #name, addressOf(soft1 <::name>) }
#define QN_SOFT_BINARY(name)                                                                       \
    { #name, addressOf(soft2 <::name>) }
#define QN_FUNCTIONS_OF_DOUBLES(unary, binary)                                                     \
    unary(sqrt), unary(exp), unary(log), unary(sin), unary(cos), unary(tan), unary(floor),         \
        unary(ceil), unary(round), unary(trunc), unary(fabs), unary(nearbyint), unary(rint),       \
        unary(roundeven), binary(pow), binary(atan2), binary(fmod), binary(fmin), binary(fmax)

Table hardTable() {
    Table table = common();
    table.insert({QN_FUNCTIONS_OF_DOUBLES(QN_UNARY, QN_BINARY),
                  {"qn_mod", addressOf(mod)},
                  {"qn_rem", addressOf(rem)},
                  {"qn_low_bits", addressOf(lowBits)}});
    return table;
}

Table softTable() {
    Table table = common();
    table.insert({
        QN_FUNCTIONS_OF_DOUBLES(QN_SOFT_UNARY, QN_SOFT_BINARY),
        {"qn_mod", addressOf(soft2<mod>)},
        {"qn_rem", addressOf(soft2<rem>)},
        {"qn_low_bits", addressOf(softLowBits)},
        {"__adddf3", addressOf(softAdd)},
        {"__subdf3", addressOf(softSub)},
        {"__muldf3", addressOf(softMul)},
        {"__divdf3", addressOf(softDiv)},
        {"__negdf2", addressOf(softNeg)},
        {"__eqdf2", addressOf(softCompare<1>)},
        {"__nedf2", addressOf(softCompare<1>)},
        {"__ltdf2", addressOf(softCompare<1>)},
        {"__ledf2", addressOf(softCompare<1>)},
        {"__gtdf2", addressOf(softCompare<-1>)},
        {"__gedf2", addressOf(softCompare<-1>)},
        {"__unorddf2", addressOf(softUnordered)},
        {"__fixdfsi", addressOf(softToInteger<std::int32_t>)},
        {"__fixdfdi", addressOf(softToInteger<std::int64_t>)},
        {"__fixunsdfsi", addressOf(softToInteger<std::uint32_t>)},
        {"__fixunsdfdi", addressOf(softToInteger<std::uint64_t>)},
        {"__floatsidf", addressOf(softFromInteger<std::int32_t>)},
        {"__floatdidf", addressOf(softFromInteger<std::int64_t>)},
        {"__floatunsidf", addressOf(softFromInteger<std::uint32_t>)},
        {"__floatundidf", addressOf(softFromInteger<std::uint64_t>)},
    });
    return table;
}

} // namespace

const void* hostSymbol(std::string_view name, bool soft) noexcept {
    static const Table hard = hardTable();
    static const Table softened = softTable();
    const Table& table = soft ? softened : hard;
    const auto found = table.find(name);
    return found == table.end() ? nullptr : found->second;
}

} // namespace QN::VMRT
