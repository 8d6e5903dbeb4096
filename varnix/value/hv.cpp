// The array interface that modules see, over the host's arrays.

#include "value/array.hpp"
#include "value/errors.hpp"

#include <hv/array.hpp>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

/// memcpy for texts, which are mostly short: up to 16 characters without a call.
inline void copyText(char* to, const char* from, std::size_t length) {
    if (length > 16) {
        std::memcpy(to, from, length);
    } else if (length >= 8) {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::memcpy(&first, from, 8);
        std::memcpy(&last, from + length - 8, 8);
        std::memcpy(to, &first, 8);
        std::memcpy(to + length - 8, &last, 8);
    } else {
        for (std::size_t i = 0; i < length; ++i)
            to[i] = from[i];
    }
}

} // namespace

hvArray* hvCreateArray(hvClassID classID, std::size_t m, std::size_t n) {
    hvArray* const array = varnix::newArray(classID, m, n);
    std::memset(array->data, 0, array->count() * varnix::elementSize(classID));
    return array;
}

hvArray* hvCreateDoubleScalar(double value) {
    hvArray* const array = varnix::newArray(hvDOUBLE_CLASS, 1, 1);
    *varnix::elements<double>(array) = value;
    return array;
}

hvArray* hvCreateLogicalScalar(bool value) {
    hvArray* const array = varnix::newArray(hvLOGICAL_CLASS, 1, 1);
    *varnix::elements<bool>(array) = value;
    return array;
}

namespace {
inline hvArray* makeText(const char* text, std::size_t length) {
    hvArray* const array = varnix::newText(length);
    copyText(varnix::elements<char>(array), text, length);
    return array;
}
} // namespace

hvArray* hvCreateString(const char* text) {
    return makeText(text, text ? std::strlen(text) : 0);
}

hvArray* hvCreateStringN(const char* text, std::size_t length) {
    return makeText(text, length);
}

void* hvMalloc(std::size_t bytes) {
    try {
        return varnix::heap::takeSized(std::max(bytes, hvShortText));
    } catch (const std::bad_alloc&) {
        varnix::fail(varnix::id::outOfMemory, "there is no memory for a text of {} characters",
                     bytes - 1);
    }
}

char* hvArrayToString(const hvArray* array) {
    return hvArray2String(array);
}

namespace varnix::detail {

constinit FreeText* freeShortTexts = nullptr;

char* otherText(const hvArray* array) {
    if (hvGetClassID(array) != hvCHAR_CLASS)
        return nullptr;
    const std::size_t length = array->count();
    auto* const text = static_cast<char*>(hvMalloc(length + 1));
    if (length == 0)
        std::memset(text, 0, hvShortText);
    else
        std::memcpy(text, array->data, length);
    text[length] = '\0';
    return text;
}

void freeOtherText(void* memory) noexcept {
    heap::giveSized(memory);
}

} // namespace varnix::detail

void hvFreeEx(void* memory) {
    varnix::heap::giveSized(memory);
}

hvArray* hvCreateCellMatrix(std::size_t m, std::size_t n) {
    return varnix::newArray(hvCELL_CLASS, m, n);
}

void hvSetCell(hvArray* cell, std::size_t index, hvArray* value) {
    if (hvGetClassID(cell) != hvCELL_CLASS || index >= cell->count()) {
        hvDestroyArray(value);
        varnix::fail(varnix::id::badIndex, "cell array has no cell {}", index);
    }
    hvDestroyArray(std::exchange(cell->cells()[index], value));
}

hvArray* hvGetCell(const hvArray* cell, std::size_t index) {
    if (hvGetClassID(cell) != hvCELL_CLASS || index >= cell->count())
        return nullptr;
    return cell->cells()[index];
}
