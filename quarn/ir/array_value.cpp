// The elements of arrays: making, copying, growing.
#include "ir/large_pages.hpp"

#include <qn/arithmetic.hpp>
#include <qn/array_value.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace QN {
namespace {

/// A buffer and its elements in one piece of memory.
struct alignas(16) OwnBuffer : ArrayBuffer {
    [[nodiscard]] void* elements() noexcept { return this + 1; }
};

#if defined(__SANITIZE_ADDRESS__)
constexpr bool keepsBuffers = false; // so that it sees what is used after it was freed
#else
constexpr bool keepsBuffers = true;
#endif

/// Small buffers that were freed, for the next ones of their size: a loop that copies a short array
/// in each turn takes the same one again and again. A list for each 32 bytes, with at most eight
/// buffers in it: about 40 KB in all, for each thread.
class KeptBuffers {
public:
    static constexpr std::size_t largest = 512;

    /// Whether buffers of this capacity are kept. One without elements has no room for nextOf().
    [[nodiscard]] static constexpr bool isFor(std::size_t capacity) noexcept {
        return keepsBuffers && capacity != 0 && capacity <= largest;
    }
    /// The bytes that the elements of such a buffer take.
    [[nodiscard]] static constexpr std::size_t roundedUp(std::size_t capacity) noexcept {
        return listOf(capacity) * grain;
    }
    /// A buffer of at least this capacity that was given back; null if there is none.
    [[nodiscard]] OwnBuffer* take(std::size_t capacity) noexcept {
        List& list = lists_[listOf(capacity)];
        OwnBuffer* const taken = list.first;
        if (taken != nullptr) {
            list.first = nextOf(*taken);
            ++list.room;
        }
        return taken;
    }
    void give(OwnBuffer& buffer) noexcept {
        List& list = lists_[listOf(buffer.capacity)];
        if (list.room == 0 && !makeRoom(list)) [[unlikely]] {
            std::free(&buffer); // NOLINT: taken by makeBuffer
            return;
        }
        nextOf(buffer) = list.first;
        list.first = &buffer;
        --list.room;
    }

private:
    static constexpr std::size_t grain = 32;
    static constexpr std::size_t most = 8;

    struct List {
        OwnBuffer* first = nullptr;
        std::size_t room = 0; // for so many more, once somebody empties them in the end
    };
    [[nodiscard]] static constexpr std::size_t listOf(std::size_t capacity) noexcept {
        return (capacity + grain - 1) / grain;
    }
    /// Where a buffer that is kept says which one comes behind it.
    [[nodiscard]] static OwnBuffer*& nextOf(OwnBuffer& buffer) noexcept {
        return *static_cast<OwnBuffer**>(buffer.elements());
    }
    /// False: the list is full. The first time, gives all of them room, and has them emptied when
    /// the thread ends; from then on nothing is kept.
    bool makeRoom(const List& list) noexcept;

    std::array<List, largest / grain + 1> lists_{};
    bool isWatched_ = false;
};

// Without a destructor of its own it is reached without asking whether it is there yet.
[[gnu::tls_model("initial-exec")]] constinit thread_local KeptBuffers kept;

bool KeptBuffers::makeRoom(const List& list) noexcept {
    struct AtEnd {
        ~AtEnd() {
            for (List& each : kept.lists_) {
                while (each.first != nullptr) {
                    std::free(std::exchange(each.first, nextOf(*each.first))); // NOLINT
                }
                each.room = 0;
            }
        }
    };
    if (!isWatched_) {
        static thread_local const AtEnd atEnd;
        isWatched_ = true;
        for (List& each : lists_) {
            each.room = most;
        }
    }
    return list.room != 0;
}

void freeBuffer(ArrayBuffer& buffer) noexcept {
    auto& own = static_cast<OwnBuffer&>(buffer);
    if (KeptBuffers::isFor(own.capacity)) {
        kept.give(own);
    } else {
        std::free(&own); // NOLINT: taken by makeBuffer
    }
}

constexpr std::size_t largeCapacity = 4 * detail::largePage;

/// Memory for a buffer and elements of that capacity, all of them zeros where `zeros` says so.
void* newMemoryFor(std::size_t capacity, bool zeros) {
    // The system gives zeros for large pieces without touching them.
    const std::size_t elements =
        KeptBuffers::isFor(capacity) ? KeptBuffers::roundedUp(capacity) : capacity;
    void* const memory = zeros ? std::calloc(1, sizeof(OwnBuffer) + elements)
                               : std::malloc(sizeof(OwnBuffer) + elements);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    if (capacity >= largeCapacity) {
        detail::wishForLargePages(memory, sizeof(OwnBuffer) + capacity);
    }
    return memory;
}

/// The same, from those that are kept if there is one.
[[gnu::always_inline]] inline void* memoryFor(std::size_t capacity, bool zeros) {
    OwnBuffer* const taken = KeptBuffers::isFor(capacity) ? kept.take(capacity) : nullptr;
    if (taken == nullptr) [[unlikely]] {
        return newMemoryFor(capacity, zeros);
    }
    if (zeros) {
        std::memset(taken->elements(), 0, capacity);
    }
    return taken;
}

/// A buffer with one reference whose first `zeros` bytes are zero.
[[gnu::always_inline]] inline OwnBuffer& makeBuffer(std::size_t capacity, std::size_t zeros) {
    auto* const made =
        new (memoryFor(capacity, zeros == capacity)) OwnBuffer{{1, capacity, freeBuffer}};
    if (zeros != capacity && zeros != 0) {
        std::memset(made->elements(), 0, zeros);
    }
    return *made;
}

} // namespace

std::size_t ArrayValue::elementBytes(ScalarKind kind) noexcept {
    static constexpr std::size_t bytes[scalarKindCount] = {8, 1, 1, 2, 4, 8, 1, 2, 4, 8};
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
    data_ = buffer.elements();
    ArrayBuffer& shared = *std::exchange(buffer_, &buffer);
    if (--shared.references == 0) {
        shared.release(shared);
    }
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
    } else if (const auto keptOfEach = static_cast<std::size_t>(std::min(rows, rows_)) * element;
               keptOfEach > 0) {
        for (std::int64_t col = 0; col < std::min(cols, cols_); ++col) {
            std::memcpy(to, from, keptOfEach);
            to += static_cast<std::size_t>(rows) * element;
            from += static_cast<std::size_t>(rows_) * element;
        }
    }
    swap(resized);
}

} // namespace QN
