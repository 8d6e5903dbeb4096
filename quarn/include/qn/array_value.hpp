// An array while the program runs: what every engine computes with, and what goes in and out of
// one.
//
// Copies share their elements until one of them is written to. The elements lie in an ArrayBuffer,
// which is counted (one thread only) and may belong to somebody else: a host lends the elements of
// its own arrays without copying them.
//
// The layout of ArrayValue is fixed, since machine code reads `data`, `rows` and `cols` in place.
#pragma once

#include <qn/type.hpp>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace QN {

/// Who the elements of arrays belong to.
struct ArrayBuffer {
    /// Frees the buffer and what it refers to; called when `references` gets 0.
    using Release = void (*)(ArrayBuffer&) noexcept;

    std::uint64_t references;
    /// Bytes that may be written to; 0 if nothing may, as in a buffer that was lent.
    std::size_t capacity;
    Release release;
};

class ArrayValue {
public:
    static constexpr std::int64_t maxElements = std::int64_t{1} << 40;
    /// The most rows or columns, also of an array without elements: machine code relies on it.
    static constexpr std::int64_t maxExtent = std::int64_t{1} << 47;
    /// Whether there may be an array of that size.
    [[nodiscard]] static constexpr bool isPossibleSize(std::int64_t rows,
                                                       std::int64_t cols) noexcept {
        return rows >= 0 && cols >= 0 && rows <= maxExtent && cols <= maxExtent &&
               (cols == 0 || rows <= maxElements / cols);
    }

    /// 0 by 0 doubles.
    ArrayValue() noexcept = default;
    /// Zeros. The size must be a possible one. Throws std::bad_alloc.
    ArrayValue(ScalarKind kind, std::int64_t rows, std::int64_t cols);
    /// Elements that were lent: `data` stays as it is while `buffer` has references, of which this
    /// takes over one. They are copied before the first write.
    ArrayValue(ScalarKind kind, std::int64_t rows, std::int64_t cols, const void* data,
               ArrayBuffer& buffer) noexcept
        : data_(const_cast<void*>(data)), rows_(rows), cols_(cols), buffer_(&buffer), kind_(kind) {}

    ArrayValue(const ArrayValue& other) noexcept
        : data_(other.data_), rows_(other.rows_), cols_(other.cols_), buffer_(other.buffer_),
          kind_(other.kind_) {
        if (buffer_ != nullptr) {
            ++buffer_->references;
        }
    }
    ArrayValue(ArrayValue&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), rows_(std::exchange(other.rows_, 0)),
          cols_(std::exchange(other.cols_, 0)), buffer_(std::exchange(other.buffer_, nullptr)),
          kind_(other.kind_) {}
    ArrayValue& operator=(ArrayValue other) noexcept {
        swap(other);
        return *this;
    }
    ~ArrayValue() {
        if (buffer_ != nullptr && --buffer_->references == 0) {
            buffer_->release(*buffer_);
        }
    }
    void swap(ArrayValue& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(rows_, other.rows_);
        std::swap(cols_, other.cols_);
        std::swap(buffer_, other.buffer_);
        std::swap(kind_, other.kind_);
    }

    [[nodiscard]] ScalarKind kind() const noexcept { return kind_; }
    [[nodiscard]] std::int64_t rows() const noexcept { return rows_; }
    [[nodiscard]] std::int64_t cols() const noexcept { return cols_; }
    [[nodiscard]] std::int64_t numel() const noexcept { return rows_ * cols_; }

    /// Element `index`, counted from 1 column by column, as the bits of a scalar. Inside the
    /// bounds.
    [[nodiscard]] std::uint64_t get(std::int64_t index) const noexcept;
    void set(std::int64_t index, std::uint64_t bits);
    /// Keeps the elements that have a place in the new size; new ones are zero. Growing by a column
    /// (or, of a column, by a row) at a time takes constant time for each element on average.
    /// Throws std::bad_alloc and changes nothing then.
    void resize(std::int64_t rows, std::int64_t cols);

    /// The elements, column by column: doubles; one byte per logical; integers of their width. Null
    /// if there are none. The writable form first makes sure that nobody shares them.
    [[nodiscard]] const void* data() const noexcept { return data_; }
    [[nodiscard]] void* writableData() {
        if (data_ != nullptr && !isWritable()) [[unlikely]] {
            copyElements();
        }
        return data_;
    }
    /// Whether the elements belong to this array alone and may be written to.
    [[nodiscard]] bool isWritable() const noexcept {
        return buffer_ != nullptr && buffer_->references == 1 && buffer_->capacity != 0;
    }

    /// Bytes of one element.
    [[nodiscard]] static std::size_t elementBytes(ScalarKind kind) noexcept;

private:
    friend struct ArrayLayout;
    void copyElements();

    void* data_ = nullptr;
    std::int64_t rows_ = 0;
    std::int64_t cols_ = 0;
    ArrayBuffer* buffer_ = nullptr; // null if there are no elements
    ScalarKind kind_ = ScalarKind::Double;
};

/// Where machine code finds the parts of an ArrayValue, in bytes from its start.
struct ArrayLayout {
    static constexpr std::size_t data = offsetof(ArrayValue, data_);
    static constexpr std::size_t rows = offsetof(ArrayValue, rows_);
    static constexpr std::size_t cols = offsetof(ArrayValue, cols_);
    static constexpr std::size_t buffer = offsetof(ArrayValue, buffer_);
    static constexpr std::size_t kind = offsetof(ArrayValue, kind_);
    static constexpr std::size_t bytes = sizeof(ArrayValue);
};

} // namespace QN
