// The growing buffer into which printers write. Room is asked for once per line, so that each piece
// is a copy without a check.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace QN::text {

/// Writes the pieces of a line for which Writer::need() has made room. A pen is one address, so it
/// is handed on and back by value: what it writes might lie anywhere, and a pen that lies somewhere
/// itself would be read and written again with each piece.
class Pen {
public:
    /// What putQuickly() copies at least.
    static constexpr std::size_t chunk = 16;

    explicit Pen(char* at) noexcept : at_(at) {}
    [[nodiscard]] char* at() const noexcept { return at_; }

    void put(char c) noexcept { *at_++ = c; }
    void put(std::string_view piece) noexcept {
        std::memcpy(at_, piece.data(), piece.size());
        at_ += piece.size();
    }
    /// The same for a piece behind which at least `chunk` bytes can be read. Nearly all are that
    /// short, and then it is one copy of a fixed size, without a call or a branch on the length.
    void putQuickly(std::string_view piece) noexcept {
        if (piece.size() <= chunk) [[likely]] {
            std::memcpy(at_, piece.data(), chunk);
        } else {
            std::memcpy(at_, piece.data(), piece.size());
        }
        at_ += piece.size();
    }
    void putNumber(std::uint64_t number) noexcept {
        if (number < 10) {
            *at_++ = static_cast<char>('0' + number);
        } else {
            at_ = std::to_chars(at_, at_ + 20, number).ptr;
        }
    }
    void spaces(std::size_t count) noexcept {
        std::memset(at_, ' ', count);
        at_ += count;
    }

private:
    char* at_;
};

class Writer {
public:
    /// Writes behind what `out` holds. `expected` is how much will come, as far as one can tell: it
    /// spares the string copies on its way.
    Writer(std::string& out, std::size_t expected) : out_(out), used_(out.size()), step_(expected) {
        if (out.capacity() - used_ < expected) {
            out.reserve(used_ + expected);
        }
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() { out_.resize(used_); }

    /// Makes room for `bytes` more. What the pen has written counts from commit() on.
    [[nodiscard]] Pen need(std::size_t bytes) {
        bytes += Pen::chunk; // putQuickly() writes more than it keeps
        if (out_.size() - used_ < bytes) [[unlikely]] {
            grow(bytes);
        }
        return Pen(out_.data() + used_);
    }
    void commit(Pen pen) noexcept { used_ = static_cast<std::size_t>(pen.at() - out_.data()); }

    /// A piece by itself.
    void write(std::string_view piece) {
        Pen pen = need(piece.size());
        pen.put(piece);
        commit(pen);
    }

private:
    [[gnu::cold, gnu::noinline]] void grow(std::size_t bytes) {
        // The string doubles its capacity by itself; its size grows in steps, because every byte of
        // it is cleared on the way and again cut off at the end.
        const std::size_t step = std::min(step_, std::size_t{64} << 10);
        out_.resize(used_ + std::max(bytes, step));
    }

    std::string& out_;
    std::size_t used_;
    std::size_t step_;
};

} // namespace QN::text
