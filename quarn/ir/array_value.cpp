// The elements of arrays: making, copying, growing.
#include <qn/arithmetic.hpp>
#include <qn/array_value.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace QN {
namespace {

/// A buffer and its elements in one piece of memory.
struct alignas(16) OwnBuffer : ArrayBuffer {
    [[nodiscard]] void* elements() noexcept { return this + 1; }
};

void freeBuffer(ArrayBuffer& buffer) noexcept {
    std::free(static_cast<OwnBuffer*>(&buffer)); // NOLINT: taken by makeBuffer
}

/// A buffer with one reference whose first `zeros` bytes are zero.
OwnBuffer& makeBuffer(std::size_t capacity, std::size_t zeros) {
    // The system gives zeros for large pieces without touching them.
    void* const memory = zeros == capacity ? std::calloc(1, sizeof(OwnBuffer) + capacity)
                                           : std::malloc(sizeof(OwnBuffer) + capacity);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    auto* const made = new (memory) OwnBuffer{{1, capacity, freeBuffer}};
    if (zeros != capacity) {
        std::memset(made->elements(), 0, zeros);
    }
    return *made;
}

} // namespace

std::size_t ArrayValue::elementBytes(ScalarKind kind) noexcept {
    constexpr std::size_t bytes[scalarKindCount] = {8, 1, 1, 2, 4, 8, 1, 2, 4, 8};
    return bytes[static_cast<std::size_t>(kind)];
}

ArrayValue::ArrayValue(ScalarKind kind, std::int64_t rows, std::int64_t cols)
    : rows_(rows), cols_(cols), kind_(kind) {
    if (numel() > 0) {
        const std::size_t bytes = static_cast<std::size_t>(numel()) * elementBytes(kind);
        OwnBuffer& buffer = makeBuffer(bytes, bytes);
        buffer_ = &buffer;
        data_ = buffer.elements();
    }
}

std::uint64_t ArrayValue::get(std::int64_t index) const noexcept {
    const std::size_t bytes = elementBytes(kind_);
    std::uint64_t bits = 0;
    std::memcpy(&bits,
                static_cast<const std::byte*>(data_) + static_cast<std::size_t>(index - 1) * bytes,
                bytes);
    return kind_ == ScalarKind::Logical ? bits : normalizeScalar(*Type::scalar(kind_), bits);
}

void ArrayValue::set(std::int64_t index, std::uint64_t bits) {
    const std::size_t bytes = elementBytes(kind_);
    auto* const data = static_cast<std::byte*>(writableData());
    std::memcpy(data + static_cast<std::size_t>(index - 1) * bytes, &bits, bytes);
}

void ArrayValue::copyElements() {
    const std::size_t bytes = static_cast<std::size_t>(numel()) * elementBytes(kind_);
    OwnBuffer& buffer = makeBuffer(bytes, 0);
    std::memcpy(buffer.elements(), data_, bytes);
    ArrayValue copy(kind_, rows_, cols_, buffer.elements(), buffer);
    swap(copy);
}

void ArrayValue::resize(std::int64_t rows, std::int64_t cols) {
    if (rows == rows_ && cols == cols_) {
        return;
    }
    const std::size_t element = elementBytes(kind_);
    const std::size_t before = static_cast<std::size_t>(numel()) * element;
    const std::size_t after = static_cast<std::size_t>(rows * cols) * element;
    // Elements that stay where they are: columns of one height, or a single column.
    const bool inPlace = rows == rows_ || (cols == 1 && cols_ == 1);
    if (inPlace && after >= before && isWritable() && after <= buffer_->capacity) {
        std::memset(static_cast<std::byte*>(data_) + before, 0, after - before);
        rows_ = rows;
        cols_ = cols;
        return;
    }
    if (after == 0) {
        *this = ArrayValue(kind_, rows, cols);
        return;
    }
    // What grows at its end once probably does so again.
    const bool grows = inPlace && before > 0 && after > before && after - before <= before;
    OwnBuffer& buffer = grows ? makeBuffer(after + after / 2, after) : makeBuffer(after, after);
    ArrayValue resized(kind_, rows, cols, buffer.elements(), buffer);
    auto* to = static_cast<std::byte*>(buffer.elements());
    const auto* from = static_cast<const std::byte*>(data_);
    if (before == 0) {
        // Nothing to keep.
    } else if (inPlace) {
        std::memcpy(to, from, std::min(before, after));
    } else if (const auto kept = static_cast<std::size_t>(std::min(rows, rows_)) * element;
               kept > 0) {
        for (std::int64_t col = 0; col < std::min(cols, cols_); ++col) {
            std::memcpy(to, from, kept);
            to += static_cast<std::size_t>(rows) * element;
            from += static_cast<std::size_t>(rows_) * element;
        }
    }
    swap(resized);
}

} // namespace QN
