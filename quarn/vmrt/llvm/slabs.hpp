// Memory for machine code: a few large slabs that many small functions share.
//
// Every mapping of the kernel's costs one of 65,530, so functions do not get pages of their own. A
// slab is mapped twice, once to be written and once to be executed, so that no mapping is both and
// nothing has to be protected or unprotected when a function comes or goes.
//
// Owner: an engine. Pieces are given back by their owners; a slab goes when its last piece goes and
// another one has room.
#pragma once

#include <qn/vmrt/engine.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace QN::VMRT {

/// Whether debuggers can put breakpoints into the code. They write to the executable pages, which
/// the kernel allows only if those can get copies of their own, so that each function must then
/// have whole pages.
enum class Breakpoints : bool { No, Yes };

/// A piece of code memory: the same bytes at two addresses.
struct CodePiece {
    char* writable = nullptr;
    const char* executable = nullptr;
    std::size_t bytes = 0;
};

class Slabs {
public:
    static constexpr std::size_t alignment = 16;

    /// `slabBytes` is rounded up to whole pages.
    Slabs(std::uint64_t slabBytes, Breakpoints breakpoints);
    Slabs(const Slabs&) = delete;
    Slabs& operator=(const Slabs&) = delete;
    ~Slabs();

    /// A piece that begins at a multiple of `alignment`, or at a page. What does not fit into a
    /// slab gets one of its own. Throws std::bad_alloc.
    [[nodiscard]] CodePiece take(std::size_t bytes);
    void giveBack(const CodePiece& piece) noexcept;

    [[nodiscard]] CodeMemory use() const noexcept;

private:
    struct Slab;
    Slab& addSlab(std::size_t bytes);

    std::size_t slabBytes_;
    Breakpoints breakpoints_;
    std::size_t used_ = 0;
    std::map<const char*, std::unique_ptr<Slab>> slabs_; // by executable address
    Slab* current_ = nullptr;                            // where there was room last
};

} // namespace QN::VMRT
