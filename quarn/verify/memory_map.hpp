// Which memory a graph's pool has handed out, which of it is an entity that a list of the graph
// leads to, and which an operand of such an entity. This is what lets the verifier read broken IR:
// a link is followed only to memory that the pool holds, and an operand only to what is listed.
//
// Owner: the Survey of one graph. All questions take constant time, and any address may be asked
// for, null too. What is asked for at every operand is kept to a few instructions: the tables begin
// at the pool's lowest chunk and have an entry for all that lies between that and the highest, also
// where that is another pool's. Only entries of the pool's own memory are ever set, and those are
// cleared before the next pool's turn, so a pool whose chunks lie far apart costs no more.
#pragma once

#include <qn/node.hpp>
#include <qn/pool.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QN::verification {

class MemoryMap {
    struct Marks { // one bit for each unit
        std::uint64_t entities;
        std::uint64_t operands;
    };

public:
    /// Describes the pool as it is now; nothing is listed.
    void reset(const Pool& pool);

    /// Whether the pool holds all of these bytes, so that they can be read.
    [[nodiscard]] bool holds(const void* at, std::size_t bytes) const noexcept {
        const std::uint32_t unit = unitOf(at);
        return ownsGranuleOf(unit) && unit - frontier_ >= behindFrontier_ &&
               (fitsGranule(unit, bytes) || holdsRest(at, bytes));
    }
    /// Marks an entity that the pool holds; false if it was marked already.
    bool list(const void* entity) noexcept {
        const std::uint32_t index = unitOf(entity) - firstUnit_;
        std::uint64_t& word = marks_[index / bitsPerWord].entities;
        const std::uint64_t mask = std::uint64_t{1} << (index % bitsPerWord);
        const bool isNew = (word & mask) == 0;
        word |= mask;
        return isNew;
    }
    /// Whether list() was called with this address.
    [[nodiscard]] bool isListed(const void* address) const noexcept {
        return listed().contains(Ref<const std::byte>(static_cast<const std::byte*>(address)));
    }

    /// What isListed() tells, for a loop that asks it of many and calls list() of none.
    class Listed {
    public:
        template <typename T>
        [[nodiscard]] bool contains(Ref<T> reference) const noexcept {
            const std::uint32_t index = reference.bits() - firstUnit_;
            return index < unitLimit_ &&
                   ((marks_[index / bitsPerWord].entities >> (index % bitsPerWord)) & 1) != 0;
        }

    private:
        friend class MemoryMap;
        explicit Listed(const MemoryMap& map) noexcept
            : firstUnit_(map.firstUnit_), unitLimit_(map.unitLimit_), marks_(map.marks_.data()) {}
        std::uint32_t firstUnit_;
        std::uint32_t unitLimit_;
        const Marks* marks_;
    };
    [[nodiscard]] Listed listed() const noexcept { return Listed(*this); }

    /// Marks the operands of a listed node, which the pool holds.
    void listOperandsOf(const Node& node) noexcept {
        static_assert(sizeof(Operand) == 2 * unitBytes);
        constexpr std::size_t most = bitsPerWord / 4; // so that two words are enough
        const std::size_t count = node.numOperands();
        const std::uint32_t index = unitOf(&node + 1) - firstUnit_;
        if (count > most) [[unlikely]] {
            for (const Operand& operand : node.operands()) {
                const std::uint32_t at = unitOf(&operand) - firstUnit_;
                marks_[at / bitsPerWord].operands |= std::uint64_t{1} << (at % bitsPerWord);
            }
            return;
        }
        constexpr std::uint64_t everySecond = 0x5555555555555555;
        const std::uint64_t bits = everySecond & ((std::uint64_t{1} << (2 * count)) - 1);
        const std::uint32_t shift = index % bitsPerWord;
        Marks* const word = &marks_[index / bitsPerWord];
        word[0].operands |= bits << shift;
        // Shifted in two steps, for a shift by nothing.
        word[1].operands |= bits >> 1 >> (bitsPerWord - 1 - shift);
    }
    void unlistOperand(const void* operand) noexcept {
        const std::uint32_t index = unitOf(operand) - firstUnit_;
        marks_[index / bitsPerWord].operands &= ~(std::uint64_t{1} << (index % bitsPerWord));
    }
    /// Whether it is one of an argument of listOperandsOf().
    template <typename T>
    [[nodiscard]] bool isListedOperand(Ref<T> reference) const noexcept {
        const std::uint32_t index = reference.bits() - firstUnit_;
        return index < unitLimit_ &&
               ((marks_[index / bitsPerWord].operands >> (index % bitsPerWord)) & 1) != 0;
    }

    /// Bytes that the pool holds, a little more at most.
    [[nodiscard]] std::size_t bytes() const noexcept { return heldBytes_; }
    /// Bytes of the tables.
    [[nodiscard]] std::size_t tableBytes() const noexcept {
        return owned_.capacity() + marks_.capacity() * sizeof(Marks);
    }

private:
    static constexpr std::size_t unitBytes = 8; // the alignment of allocations
    static constexpr std::size_t granuleBytes = 1024;
    static constexpr std::uint32_t granuleUnits = granuleBytes / unitBytes;
    static constexpr std::uint32_t bitsPerWord = 64;

    struct Granules { // from the first to before the end, counted from the start of the region
        std::uint32_t first;
        std::uint32_t end;
    };

    /// Units are counted from the start of the region, as references do.
    [[nodiscard]] static std::uint32_t unitOf(const void* address) noexcept {
        return Ref<const std::byte>(static_cast<const std::byte*>(address)).bits();
    }
    [[nodiscard]] bool ownsGranuleOf(std::uint32_t unit) const noexcept {
        const std::uint32_t index = unit - firstUnit_;
        return index < unitLimit_ && owned_[index / granuleUnits] != 0;
    }
    [[nodiscard]] static bool fitsGranule(std::uint32_t unit, std::size_t bytes) noexcept {
        return unit % granuleUnits * unitBytes + bytes <= granuleBytes;
    }
    [[nodiscard]] bool holdsRest(const void* at, std::size_t bytes) const noexcept;
    void clear() noexcept;

    std::uint32_t firstUnit_ = 0;
    std::uint32_t unitLimit_ = 0;      // units from the first to behind the last granule
    std::uint32_t frontier_ = 0;       // unit behind all that the newest chunk has handed out
    std::uint32_t behindFrontier_ = 0; // units from there to the end of the granule
    std::size_t heldBytes_ = 0;
    std::vector<Granules> held_;
    // From the first unit on; zero wherever the pool holds nothing.
    std::vector<std::uint8_t> owned_; // for each granule
    std::vector<Marks> marks_;
};

} // namespace QN::verification
