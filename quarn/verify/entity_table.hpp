// What a quick look knows of the memory of a graph: which of it the pool holds, which entities have
// been listed, with a word of facts for each, and which operands belong to listed nodes.
//
// Tables by address instead of by id: whether an operand refers to a listed entity, and what that
// is, takes one look that does not touch the entity. References count units of 8 bytes from the
// start of the region of pools; an entity has 32 bytes at least, so each has a slot of four units
// for itself. Tables begin at the pool's lowest chunk, so those of small graphs stay in the
// processor's first cache from one graph to the next.
//
// Owner: the QuickLook.
#pragma once

#include <qn/block.hpp>
#include <qn/pool.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace QN::verification {

class EntityTable {
public:
    static constexpr std::uint32_t unitBytes = 8;
    static constexpr std::uint32_t unitsPerSlot = 4;
    static_assert(sizeof(Node) >= unitsPerSlot * unitBytes &&
                  sizeof(Block) >= unitsPerSlot * unitBytes &&
                  sizeof(Var) >= unitsPerSlot * unitBytes &&
                  sizeof(Const) >= unitsPerSlot * unitBytes &&
                  sizeof(Callee) >= unitsPerSlot * unitBytes);
    static constexpr std::uint32_t operandUnits = sizeof(Operand) / unitBytes;
    static constexpr std::uint32_t nodeUnits = sizeof(Node) / unitBytes;

    /// Memory of the pool that lies together.
    struct Range {
        std::uint32_t first = 0; // reference
        std::uint32_t units = 0;
        [[nodiscard]] bool contains(std::uint32_t reference, std::uint32_t count) const noexcept {
            const std::uint32_t offset = reference - first;
            return offset < units && count <= units - offset;
        }
    };

    /// Describes the pool as it is now; nothing is listed. False if there are no tables for a pool
    /// that large, or whose chunks lie that far apart.
    [[nodiscard]] bool reset(const Pool& pool);

    /// Number of slots at most taken by listed entities.
    [[nodiscard]] std::uint32_t slotsHeld() const noexcept { return heldUnits_ / unitsPerSlot + 1; }
    [[nodiscard]] std::size_t bytes() const noexcept {
        return std::size_t{capacity_} / unitsPerSlot * sizeof(Entry);
    }

    [[nodiscard]] const std::vector<Range>& ranges() const noexcept { return ranges_; }
    /// The range that a reference leads into; an empty one if it leads out of the pool.
    [[nodiscard]] Range rangeOf(std::uint32_t reference) const noexcept;
    /// Whether the pool holds so many units from there on, so that they can be read.
    [[nodiscard]] bool holds(std::uint32_t reference, std::uint32_t units) const noexcept {
        return ranges_.front().contains(reference, units) ||
               rangeOf(reference).contains(reference, units);
    }

    /// The tables, and the start of the region, to be copied into variables by who works with them
    /// in a loop: marks are bytes, and for all the compiler knows, setting one could change
    /// whatever it would have to load. All but the look-ups take only references into memory that
    /// the pool holds.
    class View {
    public:
        template <typename T>
        [[nodiscard]] const T& at(Ref<T> reference) const noexcept {
            return *reinterpret_cast<const T*>(region_ + std::size_t{reference.bits()} * unitBytes);
        }
        template <typename T>
        [[nodiscard]] const T& at(std::uint32_t reference) const noexcept {
            return at(Ref<T>::fromBits(reference));
        }

        /// False if another entity had the slot.
        [[nodiscard]] bool list(std::uint32_t reference, std::uint32_t facts) const noexcept {
            Entry& entry = entries_[(reference - first_) / unitsPerSlot];
            const bool wasFree = entry.reference == 0;
            entry = {reference, facts};
            return wasFree;
        }
        /// What was said of a listed entity, null if it is none.
        [[nodiscard]] const std::uint32_t* find(std::uint32_t reference) const noexcept {
            const std::uint32_t index = reference - first_;
            if (index >= units_) [[unlikely]] {
                return nullptr;
            }
            const Entry& entry = entries_[index / unitsPerSlot];
            return entry.reference == reference ? &entry.facts : nullptr;
        }

        /// Marks `count` operands that lie one behind the other.
        void markOperands(std::uint32_t first, std::uint32_t count) const noexcept {
            // Words may begin at any byte, so that one is enough.
            constexpr std::uint32_t most = (bitsPerWord - 8) / operandUnits;
            for (; count > most; count -= most, first += most * operandUnits)
                [[unlikely]] {
                    markFew(first, most);
                }
            markFew(first, count);
        }
        void unmark(std::uint32_t operand) const noexcept {
            const std::uint32_t index = operand - first_;
            marks_[index / 8] = static_cast<std::uint8_t>(marks_[index / 8] & ~(1U << (index % 8)));
        }
        [[nodiscard]] bool isMarked(std::uint32_t operand) const noexcept {
            const std::uint32_t index = operand - first_;
            return index < units_ && ((marks_[index / 8] >> (index % 8)) & 1) != 0;
        }

    private:
        friend class EntityTable;
        struct Entry {
            std::uint32_t reference;
            std::uint32_t facts;
        };
        static constexpr std::uint32_t bitsPerWord = 64;

        void markFew(std::uint32_t first, std::uint32_t count) const noexcept {
            static_assert(operandUnits == 2);
            constexpr std::uint64_t everySecond = 0x5555555555555555;
            const std::uint32_t index = first - first_;
            const std::uint64_t bits =
                everySecond & ((std::uint64_t{1} << (operandUnits * count)) - 1);
            std::uint64_t word;
            std::memcpy(&word, &marks_[index / 8], sizeof word);
            word |= bits << (index % 8);
            std::memcpy(&marks_[index / 8], &word, sizeof word);
        }

        const std::byte* region_;
        Entry* entries_;
        std::uint8_t* marks_; // a bit for each unit
        std::uint32_t first_; // reference
        std::uint32_t units_;
    };
    [[nodiscard]] View view() const noexcept {
        View view;
        view.region_ = detail::regionBase;
        view.entries_ = entries_.get();
        view.marks_ = marks_.get();
        view.first_ = first_;
        view.units_ = units_;
        return view;
    }

private:
    using Entry = View::Entry;
    struct Free {
        void operator()(void* memory) const noexcept { std::free(memory); }
    };

    void clear() noexcept;
    void addRange(Range range);
    [[nodiscard]] bool makeRoom();

    std::vector<Range> ranges_; // by address, none touching the next
    std::uint32_t first_ = 0;
    std::uint32_t units_ = 0; // from the first to behind the last that is held
    std::uint32_t heldUnits_ = 0;
    std::uint32_t capacity_ = 0; // units
    // Zero but for what was set since reset(). From calloc, which takes memory of this size fresh
    // from the system, so that what is never touched costs nothing.
    std::unique_ptr<Entry[], Free> entries_;
    std::unique_ptr<std::uint8_t[], Free> marks_;
};

} // namespace QN::verification
