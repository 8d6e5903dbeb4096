// See slabs.hpp. The free space of a slab is a map from offset to length; neighbours are joined.
#include "vmrt/llvm/slabs.hpp"

#include <algorithm>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace QN::VMRT {

struct Slabs::Slab {
    Slab(std::size_t size, Breakpoints breakpoints) : bytes(size), free{{0, size}} {
        const int file = memfd_create("quarn-code", MFD_CLOEXEC);
        if (file < 0) {
            throw std::bad_alloc();
        }
        if (ftruncate(file, static_cast<off_t>(size)) == 0) {
            writable = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            // A private page shows what is written to the file until it gets a copy of its own.
            const int sharing = breakpoints == Breakpoints::Yes ? MAP_PRIVATE : MAP_SHARED;
            executable = mmap(nullptr, size, PROT_READ | PROT_EXEC, sharing, file, 0);
        }
        close(file);
        if (writable == MAP_FAILED || executable == MAP_FAILED) {
            unmap();
            throw std::bad_alloc();
        }
    }
    Slab(const Slab&) = delete;
    Slab& operator=(const Slab&) = delete;
    ~Slab() { unmap(); }

    void unmap() noexcept {
        for (void* const at : {writable, executable}) {
            if (at != MAP_FAILED) {
                munmap(at, bytes);
            }
        }
    }

    [[nodiscard]] bool isEmpty() const noexcept {
        return free.size() == 1 && free.begin()->second == bytes;
    }

    /// The first place that is large enough; `bytes` if there is none.
    std::size_t take(std::size_t size) {
        const auto found = std::find_if(free.begin(), free.end(),
                                        [size](const auto& hole) { return hole.second >= size; });
        if (found == free.end()) {
            return bytes;
        }
        const auto [offset, length] = *found;
        free.erase(found);
        if (length > size) {
            free.emplace(offset + size, length - size);
        }
        return offset;
    }

    void giveBack(std::size_t offset, std::size_t size) {
        const auto next = free.lower_bound(offset);
        if (next != free.end() && next->first == offset + size) {
            size += next->second;
            free.erase(next);
        }
        const auto behind = free.lower_bound(offset);
        if (behind != free.begin()) {
            const auto before = std::prev(behind);
            if (before->first + before->second == offset) {
                before->second += size;
                return;
            }
        }
        free.emplace(offset, size);
    }

    std::size_t bytes;
    void* writable = MAP_FAILED;
    void* executable = MAP_FAILED;
    std::map<std::size_t, std::size_t> free;
};

namespace {

std::size_t roundedUp(std::size_t bytes, std::size_t unit) {
    if (bytes > SIZE_MAX - unit) {
        throw std::bad_alloc();
    }
    return std::max(unit, (bytes + unit - 1) / unit * unit);
}

std::size_t pageBytes() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

Slabs::Slabs(std::uint64_t slabBytes, Breakpoints breakpoints)
    : slabBytes_(roundedUp(slabBytes, pageBytes())), breakpoints_(breakpoints) {}
Slabs::~Slabs() = default;

Slabs::Slab& Slabs::addSlab(std::size_t bytes) {
    auto slab = std::make_unique<Slab>(bytes, breakpoints_);
    Slab& made = *slab;
    slabs_.emplace(static_cast<const char*>(made.executable), std::move(slab));
    return made;
}

CodePiece Slabs::take(std::size_t bytes) {
    const std::size_t size =
        roundedUp(bytes, breakpoints_ == Breakpoints::Yes ? pageBytes() : alignment);
    const auto placed = [&](Slab& slab, std::size_t offset) -> CodePiece {
        used_ += size;
        return {static_cast<char*>(slab.writable) + offset,
                static_cast<const char*>(slab.executable) + offset, size};
    };
    if (size > slabBytes_) {
        Slab& own = addSlab(roundedUp(size, pageBytes()));
        return placed(own, own.take(size));
    }
    if (current_ != nullptr) {
        if (const std::size_t offset = current_->take(size); offset != current_->bytes) {
            return placed(*current_, offset);
        }
    }
    for (const auto& [address, slab] : slabs_) {
        if (const std::size_t offset = slab->take(size); offset != slab->bytes) {
            current_ = slab.get();
            return placed(*slab, offset);
        }
    }
    current_ = &addSlab(slabBytes_);
    return placed(*current_, current_->take(size));
}

void Slabs::giveBack(const CodePiece& piece) noexcept {
    const auto found = std::prev(slabs_.upper_bound(piece.executable));
    Slab& slab = *found->second;
    if (breakpoints_ == Breakpoints::Yes) { // no breakpoint stays for the next one there
        madvise(const_cast<char*>(piece.executable), piece.bytes, MADV_DONTNEED);
    }
    slab.giveBack(static_cast<std::size_t>(piece.executable - found->first), piece.bytes);
    used_ -= piece.bytes;
    // The one that serves at the moment stays, so that one function that comes and goes does not
    // map and unmap.
    if (slab.isEmpty() && &slab != current_) {
        slabs_.erase(found);
    }
}

CodeMemory Slabs::use() const noexcept {
    CodeMemory memory{slabs_.size(), 0, used_};
    for (const auto& [address, slab] : slabs_) {
        memory.reservedBytes += slab->bytes;
    }
    return memory;
}

} // namespace QN::VMRT
