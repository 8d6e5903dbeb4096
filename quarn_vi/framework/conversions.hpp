// Plain native values as the host's typed values, and back.
//
// HostType<T> knows, for each native type that a member may take or give, the data-type name, how
// to pack a value (an array in the result carries one reference, for the host) and how to unpack
// one (the host keeps its array). pack takes the name from who has it at hand: it is always name().
// Adding a type is one specialisation.
#pragma once

#include <hv/array.hpp>
#include <objsys/factory/binding_registry.hpp>
#include <objsys/factory/errors.hpp>
#include <objsys/factory/wrappable.hpp>
#include <objsys/object_array.hpp>
#include <objsys/value.hpp>

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace objsys::factory::impl {

/// A native controller class: it says under which full script name its objects are bound.
template <class C>
concept Controller = std::derived_from<C, full::Wrappable> && requires {
    { C::scriptClassName } -> std::convertible_to<const char*>;
};

/// The interned full script name of a controller class.
template <Controller C>
COSNameID scriptName() {
    static const COSNameID name(C::scriptClassName);
    return name;
}

template <class T>
struct HostType; // a type without a specialisation cannot cross the door

template <>
struct HostType<void> {
    static COSNameID name() { return COSNameID::voidType(); }
};

/// The scalars differ only in their name and in the two functions of COSValue.
#define QUARN_VI_SCALAR_TYPE(TYPE, NAME, PACK, UNPACK)                                             \
    template <>                                                                                    \
    struct HostType<TYPE> {                                                                        \
        static COSNameID name() {                                                                  \
            static const COSNameID interned(NAME);                                                 \
            return interned;                                                                       \
        }                                                                                          \
        static COSValue pack(TYPE value, COSNameID type = name()) {                                \
            return COSValue::PACK(value, type);                                                    \
        }                                                                                          \
        static TYPE unpack(const COSValue& value) { return value.UNPACK(); }                       \
    }

QUARN_VI_SCALAR_TYPE(bool, "logical scalar", ofLogical, asLogical);
QUARN_VI_SCALAR_TYPE(std::int32_t, "int32 scalar", ofInt32, asInt32);
QUARN_VI_SCALAR_TYPE(std::uint32_t, "uint32 scalar", ofUInt32, asUInt32);
QUARN_VI_SCALAR_TYPE(std::uint64_t, "uint64 scalar", ofUInt64, asUInt64);
QUARN_VI_SCALAR_TYPE(std::int64_t, "int64 scalar", ofInt64, asInt64);
QUARN_VI_SCALAR_TYPE(double, "double scalar", ofDouble, asDouble);

#undef QUARN_VI_SCALAR_TYPE

/// Releases a host array when an error passes through.
struct ArrayRelease {
    void operator()(hvArray* array) const { hvDestroyArray(array); }
};
using ArrayHolder = std::unique_ptr<hvArray, ArrayRelease>;

/// Releases a text that the host made, also when an error passes through.
struct TextRelease {
    void operator()(char* text) const { hvFree(text); }
};

#if defined(__SSE2__)
/// The characters up to the first NUL of hvShortText characters, of which the last is NUL.
/// `nuls` has a bit set for each that is.
inline std::string shortString(__m128i characters, unsigned nuls) {
    std::string result("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", hvShortText - 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(result.data()), characters); // with its NUL
    const auto length = static_cast<unsigned>(std::countr_zero(nuls));
    if (length >= hvShortText)
        __builtin_unreachable();
    result.erase(length);
    return result;
}
#endif

/// The characters up to the first NUL of a text made by hvArray2String. Such a text has at least
/// hvShortText bytes, NULs behind its last character, so a short one is searched and copied whole.
inline std::string stringOfText(const char* text) {
#if defined(__SSE2__)
    const __m128i start = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const auto nuls =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(start, _mm_setzero_si128())));
    constexpr unsigned last = 1U << (hvShortText - 1);
    if ((nuls & last) != 0) [[likely]]
        return shortString(start, nuls);
#endif
    return std::string(text);
}

template <>
struct HostType<std::string> {
    static COSNameID name() {
        static const COSNameID interned("char");
        return interned;
    }
    /// The characters up to the first NUL.
    static COSValue pack(const std::string& value, COSNameID type = name()) {
        return COSValue::ofArray(hvCreateString(value.c_str()), type);
    }
    /// The host has checked that the value is a character array.
    static std::string unpack(const COSValue& value) {
        const hvArray* const array = value.asArray();
        // Short texts go a way of their own, on which the compiler sees what it has just stored.
        return hvIsShortText(array) ? convert(array) : convert(array);
    }

private:
    [[gnu::always_inline]] static std::string convert(const hvArray* array) {
        const std::unique_ptr<char, TextRelease> text(hvArray2String(array));
        return stringOfText(text.get());
    }
};

template <>
struct HostType<std::vector<std::string>> {
    static COSNameID name() {
        static const COSNameID interned("cell");
        return interned;
    }
    /// An N by 1 cell array; 0 by 1 for an empty vector.
    static COSValue pack(const std::vector<std::string>& value, COSNameID type = name());
    /// Any cell array of texts, in linear order; null is empty. Raises the framework's errors for
    /// what is no cell array and for an element that is no text.
    static std::vector<std::string> unpack(const COSValue& value);
};

/// One object: its handle, bound on first use. The object stays its owner's; null gives an empty
/// array.
template <Controller C>
struct HostType<C*> {
    static COSNameID name() { return scriptName<C>(); }
    static COSValue pack(C* value, COSNameID type = name()) {
        return COSValue::ofArray(basic::BindingRegistry::announce(value, type), type);
    }
};

/// A row of objects: a 1 by N array of handles. The objects stay their owner's. The other way, as
/// the input of a method, the first row's elements count: one for each column.
template <Controller C>
struct HostType<std::vector<C*>> {
    static COSNameID name() {
        static const COSNameID interned(std::string(C::scriptClassName) + " vector");
        return interned;
    }
    static COSValue pack(const std::vector<C*>& value, COSNameID type = name()) {
        const COSNameID element = scriptName<C>();
        ArrayHolder row(omCreateOBJSYSMatrix(1, value.size(), element));
        basic::BindingRegistry::announceRow(row.get(), value.data(), value.size(), element);
        omSetClassOfHeterogeneousArray(row.get());
        return COSValue::ofArray(row.release(), type);
    }
    static std::vector<C*> unpack(const COSValue& value) {
        const std::size_t columns = hvGetN(value.asArray());
        std::vector<C*> result;
        result.reserve(columns);
        for (std::size_t i = 0; i < columns; ++i) {
            const COSInterface* const element = omGetArrayElement(value.asArray(), i);
            result.push_back(validateSelfPointer(
                dynamic_cast<C*>(element ? element->getNativeObject(scriptName<C>()) : nullptr)));
        }
        return result;
    }
};

} // namespace objsys::factory::impl
