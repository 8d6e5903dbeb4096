// How an hvArray lies in memory. Not for modules to use by name: it is public only because the
// object system's inline functions (object_array.hpp, factory/binding_registry.hpp) rely on it,
// which is what makes an array of a thousand live objects cost microseconds.
#pragma once

#include <hv/array.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace objsys {
class COSClass;
class COSInterface;
} // namespace objsys

struct hvArray {
    enum Flags : std::uint8_t {
        /// Part of a COSInterface: the 1 by 1 array that *is* the handle of one script instance.
        Handle = 1,
        /// An object array marked by omSetClassOfHeterogeneousArray.
        Heterogeneous = 2,
        /// The elements are a separate allocation rather than following the header.
        SeparateData = 4,
        /// An object array whose elements all have the array's own class, as far as is known from
        /// the way it was filled.
        Uniform = 8,
    };

    std::uint32_t refs;
    hvClassID classID;
    std::uint8_t flags;
    /// Object arrays: not 0 while the references to the elements are not counted yet; the host's
    /// own note of where it keeps such a row.
    std::uint16_t deferred;
    /// Object arrays: the class of the array as a whole. Others: null. Beside the references, so
    /// that a walk over many handles touches one cache line of each.
    objsys::COSClass* objectClass;
    std::size_t rows;
    std::size_t columns;
    /// Numeric, logical, char: the elements. Cell: hvArray*[]. Object: COSInterface*[].
    /// Struct and function: the host's own record.
    void* data;

    [[nodiscard]] std::size_t count() const { return rows * columns; }
    [[nodiscard]] bool isHandle() const { return (flags & Handle) != 0; }
    [[nodiscard]] objsys::COSInterface** objects() const {
        return static_cast<objsys::COSInterface**>(data);
    }
    [[nodiscard]] hvArray** cells() const { return static_cast<hvArray**>(data); }
};

/// Frees an array whose last reference went; for hvDestroyArray only.
void hvFreeUnreferenced(hvArray* array) noexcept;

inline std::size_t hvGetNumberOfElements(const hvArray* array) {
    return array ? array->count() : 0;
}

inline hvClassID hvGetClassID(const hvArray* array) {
    return array ? array->classID : hvUNKNOWN_CLASS;
}

inline std::size_t hvGetM(const hvArray* array) {
    return array ? array->rows : 0;
}

inline std::size_t hvGetN(const hvArray* array) {
    return array ? array->columns : 0;
}

inline const void* hvGetData(const hvArray* array) {
    constexpr unsigned withoutData = 1U << hvUNKNOWN_CLASS | 1U << hvCELL_CLASS |
                                     1U << hvSTRUCT_CLASS | 1U << hvFUNCTION_CLASS |
                                     1U << hvOBJECT_CLASS;
    return array && (withoutData >> array->classID & 1U) == 0 ? array->data : nullptr;
}

inline void* hvGetData(hvArray* array) {
    return const_cast<void*>(hvGetData(static_cast<const hvArray*>(array)));
}

inline hvArray* hvShareArray(hvArray* array) {
    if (array)
        ++array->refs;
    return array;
}

namespace varnix::detail {

/// hvShortText characters that are moved as one.
using ShortText [[gnu::vector_size(16)]] = std::uint64_t;

/// Fewer than hvShortText characters with NULs behind them. Reads nothing beyond the characters.
inline ShortText readShortText(const char* from, std::size_t length) {
    static_assert(sizeof(ShortText) == hvShortText && std::endian::native == std::endian::little);
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    if (length >= 8) {
        std::memcpy(&low, from, 8);
        std::memcpy(&high, from + length - 8, 8); // the last eight, some of which are in low
        high = high >> 8 >> 8 * (15 - length);
    } else {
        for (std::size_t i = length; i-- > 0;)
            low = low << 8 | static_cast<unsigned char>(from[i]);
    }
    return ShortText{low, high};
}

} // namespace varnix::detail

inline char* hvArray2String(const hvArray* array) {
    if (hvGetClassID(array) != hvCHAR_CLASS)
        return nullptr;
    const std::size_t length = array->count();
    auto* const text = static_cast<char*>(hvMalloc(length + 1));
    const auto* const from = static_cast<const char*>(array->data);
    if (length < hvShortText) {
        const varnix::detail::ShortText whole = varnix::detail::readShortText(from, length);
        std::memcpy(text, &whole, sizeof whole);
    } else {
        std::memcpy(text, from, length);
        text[length] = '\0';
    }
    return text;
}

inline void hvDestroyArray(hvArray* array) {
    if (array && --array->refs == 0)
        hvFreeUnreferenced(array);
}
