// Pools: bump allocation for the entities of the IR, and the 32-bit references between them.
//
// A pool owns everything allocated from it and frees it whole; single allocations are never reused
// before that, so a stale pointer never meets a new entity. Memory comes in chunks from one
// reserved region of address space, which is what lets a Ref be 32 bits wide: it is the distance
// from the region's start in units of 8 bytes. The region holds 32 GB at most.
//
// What lives in a pool has no destructor that matters and points to nothing on the heap that it
// owns. One thread only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace QN {

/// What an allocation is for; also the kind of an entity.
enum class EntityKind : std::uint8_t { Type, Const, Var, Callee, Node, Block, Name, Other };
inline constexpr std::size_t entityKindCount = 8;

/// "node", "const" and so on.
[[nodiscard]] std::string_view toString(EntityKind kind) noexcept;

namespace detail {
extern std::byte* regionBase;
extern std::size_t reservedNow; // bytes of the chunks of all pools
} // namespace detail

/// A 32-bit pointer to something in a pool; null by default.
template <typename T>
class Ref {
public:
    constexpr Ref() noexcept = default;
    constexpr Ref(std::nullptr_t) noexcept {}
    Ref(const T* object) noexcept
        : bits_(object == nullptr
                    ? 0
                    : static_cast<std::uint32_t>(
                          (reinterpret_cast<const std::byte*>(object) - detail::regionBase) >> 3)) {
    }

    [[nodiscard]] T* get() const noexcept { return bits_ == 0 ? nullptr : address(); }
    operator T*() const noexcept { return get(); }
    T* operator->() const noexcept { return address(); }
    T& operator*() const noexcept { return *address(); }
    explicit operator bool() const noexcept { return bits_ != 0; }

    /// The object of which bits() gave these.
    [[nodiscard]] static Ref fromBits(std::uint32_t bits) noexcept {
        Ref reference;
        reference.bits_ = bits;
        return reference;
    }
    /// Identity without going through the address: equal bits are the same object. Objects are 8
    /// bytes apart for each 1 in the difference of their bits.
    [[nodiscard]] std::uint32_t bits() const noexcept { return bits_; }
    friend bool operator==(Ref a, Ref b) noexcept { return a.bits_ == b.bits_; }

private:
    [[nodiscard]] T* address() const noexcept {
        return reinterpret_cast<T*>(detail::regionBase + (static_cast<std::size_t>(bits_) << 3));
    }
    std::uint32_t bits_ = 0;
};

/// Which of the two pools of the IR a pool is; decides which testing hook turns its records on.
enum class PoolKind : std::uint8_t { Scope, Graph };

class Pool {
public:
    /// What is known of one allocation in a pool that keeps records.
    struct Record {
        void* address;
        std::size_t bytes;
        EntityKind kind;
        bool released;
    };

    /// What checkCanaries() found wrong with one allocation.
    struct Damage {
        enum class What : std::uint8_t { Underrun, Overrun, UseAfterRelease };
        What what;
        Record record;
    };

    /// An empty pool; the first chunk is fetched at the first allocation. The testing hooks decide
    /// whether the pool keeps records and canaries.
    explicit Pool(PoolKind kind = PoolKind::Scope);
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    /// Frees all memory of the pool. References into it are dead from here on.
    ~Pool();

    /// `bytes` of uninitialized memory aligned to 8 bytes. Throws std::bad_alloc when the region is
    /// used up.
    [[nodiscard]] void* allocate(std::size_t bytes, EntityKind kind = EntityKind::Other) {
        bytes = (bytes + 7) & ~std::size_t{7};
        std::byte* const result = next_;
        if (bytesTo(limit_) >= static_cast<std::intptr_t>(bytes)) [[likely]] {
            next_ += bytes;
            return result;
        }
        // In line as well: a call would cost three times what there is to do.
        if (bytes != 0 && bytesTo(recordLimit_) >= static_cast<std::intptr_t>(bytes)) {
            next_ += bytes;
            *nextRecord_++ = recordOf(bytes, kind);
            return result;
        }
        return allocateSlowly(bytes, kind);
    }

    /// A new T, made from `arguments`.
    template <typename T, typename... Arguments>
    [[nodiscard]] T* make(EntityKind kind, Arguments&&... arguments) {
        static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= 8);
        return ::new (allocate(sizeof(T), kind)) T(std::forward<Arguments>(arguments)...);
    }

    /// A copy of `text` in the pool.
    [[nodiscard]] std::string_view copy(std::string_view text);

    /// Tells the pool that an allocation of `bytes` is dead. Its memory is not used again; with
    /// sanity checks on it is poisoned.
    void release(void* address, std::size_t bytes) noexcept;

    [[nodiscard]] PoolKind kind() const noexcept { return kind_; }
    /// Bytes handed out since the pool was made, released ones and padding included.
    [[nodiscard]] std::size_t bytesAllocated() const noexcept;
    [[nodiscard]] std::size_t bytesReleased() const noexcept { return released_; }
    /// Bytes of the chunks that the pool holds.
    [[nodiscard]] std::size_t bytesReserved() const noexcept { return reserved_; }

    /// Whether `address` was handed out by this pool. Linear in the number of chunks, of which a
    /// pool has few.
    [[nodiscard]] bool owns(const void* address) const noexcept;
    /// The memory handed out so far, one range for each chunk, newest first. A chunk starts at a
    /// multiple of 1 KB, a few bytes before its range.
    [[nodiscard]] std::vector<std::span<const std::byte>> extents() const;
    /// Calls `visit(std::span<const std::byte>)` for each of them, in the same order.
    template <typename Visitor>
    void forEachExtent(Visitor&& visit) const {
        for (const Chunk* chunk = chunk_; chunk != nullptr; chunk = chunk->previous) {
            const auto* const start = reinterpret_cast<const std::byte*>(chunk);
            visit(std::span<const std::byte>(start + sizeof(Chunk),
                                             chunk == chunk_ ? next_ : start + chunk->bytes));
        }
    }

    /// The chunks that came first, as far as memory was handed out, oldest first. Nothing of them
    /// is read, so it takes no time if they are not in the processor's caches; of more than
    /// `mostFirst` chunks the others are not known in this way.
    static constexpr std::size_t mostFirst = 6;
    [[nodiscard]] std::size_t numFirst() const noexcept { return numFirst_; }
    [[nodiscard]] std::span<const std::byte> first(std::size_t i) const noexcept {
        const std::byte* const start =
            detail::regionBase + std::size_t{first_[i] >> firstSizeBits} * smallestChunk;
        const std::byte* const end =
            start == reinterpret_cast<const std::byte*>(chunk_)
                ? next_
                : start + (smallestChunk << (first_[i] & ((1U << firstSizeBits) - 1)));
        return {start, end};
    }

    [[nodiscard]] bool keepsRecords() const noexcept { return checks_ != nullptr; }
    [[nodiscard]] bool hasCanaries() const noexcept;
    /// The records in order of allocation; empty if the pool keeps none. They are put together at
    /// each call from what was noted: linear in the allocations, n log n in the released ones.
    [[nodiscard]] std::vector<Record> records() const;
    /// Allocations whose surroundings, or whose remains after release, have been written to. Empty
    /// if the pool has no canaries.
    [[nodiscard]] std::vector<Damage> checkCanaries() const;

    /// Bytes of the chunks of all pools of the process, now and at the highest since resetPeak().
    [[nodiscard]] static std::size_t totalReserved() noexcept { return detail::reservedNow; }
    [[nodiscard]] static std::size_t peakReserved() noexcept;
    static void resetPeak() noexcept;

private:
    struct Chunk {
        Chunk* previous;
        std::size_t bytes; // with this header
    };
    struct Checks;
    /// What is noted of an allocation: its size and, in the three bits that a multiple of 8 leaves
    /// free, its kind.
    using RecordWord = std::uint64_t;
    static_assert(entityKindCount <= 8);
    [[nodiscard]] static RecordWord recordOf(std::size_t bytes, EntityKind kind) noexcept {
        return bytes | static_cast<RecordWord>(kind);
    }

    void* allocateSlowly(std::size_t bytes, EntityKind kind);
    void* allocateChecked(std::size_t bytes, EntityKind kind);
    /// Less than 0 if `limit` is null.
    [[nodiscard]] std::intptr_t bytesTo(const std::byte* limit) const noexcept {
        return reinterpret_cast<std::intptr_t>(limit) - reinterpret_cast<std::intptr_t>(next_);
    }
    void addChunk(std::size_t atLeast);
    void noteFirst(const void* chunk, std::size_t bytes) noexcept;
    void limitRecords() noexcept;
    [[nodiscard]] std::size_t recordCount() const noexcept;

    // A pool without records allocates up to limit_, one with records up to recordLimit_, before
    // which there is also room for the records; the other limit is null.
    std::byte* next_ = nullptr;
    std::byte* limit_ = nullptr;
    std::byte* recordLimit_ = nullptr;
    RecordWord* nextRecord_ = nullptr;
    Chunk* chunk_ = nullptr;
    std::size_t reserved_ = 0;
    std::size_t inFullChunks_ = 0;
    std::size_t released_ = 0;
    Checks* checks_ = nullptr; // owned
    // Place in the region, in units of the smallest chunk, and the logarithm of how many it has.
    static constexpr std::size_t smallestChunk = 1024;
    static constexpr unsigned firstSizeBits = 5;
    std::array<std::uint32_t, mostFirst> first_;
    std::uint8_t numFirst_ = 0;
    PoolKind kind_;
};

} // namespace QN
