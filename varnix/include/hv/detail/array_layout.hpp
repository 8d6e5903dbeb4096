// How an hvArray lies in memory. Not for modules to use by name: it is public only because the
// object system's inline functions (object_array.hpp, factory/binding_registry.hpp) rely on it,
// which is what makes an array of a thousand live objects cost microseconds.
#pragma once

#include <hv/array.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace objsys {
class COSClass;
class COSInterface;
} // namespace objsys

namespace varnix::detail {

/// Whether AddressSanitizer watches every read and every block.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif
#else
inline constexpr bool sanitized = false;
#endif

} // namespace varnix::detail

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
static_assert(sizeof(ShortText) == hvShortText);

/// At `keepFirst + hvShortText - n`: ones for n characters and zeros for the rest.
inline constexpr std::array<unsigned char, 2 * hvShortText> keepFirst = [] {
    std::array<unsigned char, 2 * hvShortText> result{};
    for (std::size_t i = 0; i < hvShortText; ++i)
        result[i] = 0xff;
    return result;
}();

/// The 1 to hvShortText - 1 characters of an array, with NULs behind them.
inline ShortText readShortText(const hvArray* array, std::size_t length) {
    ShortText text{};
    if (sanitized) {
        std::memcpy(&text, array->data, length);
        return text;
    }
    // All elements lie in blocks of multiples of hvShortText bytes, so that many can be read.
    ShortText keep;
    std::memcpy(&text, array->data, sizeof text);
    std::memcpy(&keep, keepFirst.data() + hvShortText - length, sizeof keep);
    return text & keep;
}

/// A short text that was released. Like every text it has the size of its block in front of it.
struct FreeText {
    FreeText* next;
};
inline constexpr std::size_t shortTextBlock = 16 + hvShortText;

extern constinit FreeText* freeShortTexts;

/// Memory of hvShortText bytes for a text. Most texts that cross the door are short.
inline char* takeShortText() {
    FreeText* const text = freeShortTexts;
    if (sanitized || !text) [[unlikely]]
        return static_cast<char*>(hvMalloc(hvShortText));
    freeShortTexts = text->next;
    return reinterpret_cast<char*>(text);
}

/// hvArray2String of all others.
char* otherText(const hvArray* array);
/// hvFree of all others.
void freeOtherText(void* memory) noexcept;

} // namespace varnix::detail

inline bool hvIsShortText(const hvArray* array) {
    return array && array->classID == hvCHAR_CLASS && array->count() - 1 < hvShortText - 1;
}

inline char* hvArray2String(const hvArray* array) {
    if (!hvIsShortText(array)) [[unlikely]]
        return varnix::detail::otherText(array);
    const varnix::detail::ShortText whole = varnix::detail::readShortText(array, array->count());
    char* const text = varnix::detail::takeShortText();
    std::memcpy(text, &whole, sizeof whole);
    return text;
}

inline void hvFree(void* memory) {
    namespace detail = varnix::detail;
    if (!memory)
        return;
    if (detail::sanitized || static_cast<std::size_t*>(memory)[-1] != detail::shortTextBlock)
        [[unlikely]] {
        detail::freeOtherText(memory);
        return;
    }
    detail::freeShortTexts = new (memory) detail::FreeText{detail::freeShortTexts};
}

inline void hvDestroyArray(hvArray* array) {
    if (array && --array->refs == 0)
        hvFreeUnreferenced(array);
}
