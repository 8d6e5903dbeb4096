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

class Writer {
public:
    static constexpr std::size_t chunk = 16;

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

    /// Makes room for `bytes` more.
    void need(std::size_t bytes) {
        bytes += chunk; // putQuickly() writes more than it keeps
        if (out_.size() - used_ < bytes) [[unlikely]] {
            grow(bytes);
        }
        at_ = out_.data() + used_;
    }
    /// Ends the pieces since need().
    void commit() noexcept { used_ = static_cast<std::size_t>(at_ - out_.data()); }

    // Pieces: between need() and commit(), which together must have asked for enough.
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

    /// A piece by itself.
    void write(std::string_view piece) {
        need(piece.size());
        put(piece);
        commit();
    }

private:
    void grow(std::size_t bytes) {
        // The string doubles its capacity by itself; its size grows in steps, because every byte of
        // it is cleared on the way and again cut off at the end.
        const std::size_t step = std::min(step_, std::size_t{64} << 10);
        out_.resize(used_ + std::max(bytes, step));
    }

    std::string& out_;
    std::size_t used_;
    std::size_t step_;
    char* at_ = nullptr;
};

} // namespace QN::text
