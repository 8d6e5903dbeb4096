// See frame.hpp. The head is 32 bytes, so that the payload keeps its alignment:
//   0  8 magic bytes    8  version, 4 bytes    12  zero    16  bytes of payload    24  checksum
//
// The magic ends in bytes that a transfer as text would change.
#include "services/serial/frame.hpp"

#include <cstdint>

namespace QN::serial {

namespace {

constexpr std::string_view magic("QUARN\r\n\x1A", 8);
constexpr std::size_t headBytes = 32;
constexpr std::uint64_t version = 1;

// Each step is reversible, so a change of one word always changes the sum; words at a time, because
// dumps are large.
std::uint64_t checksumOf(std::string_view bytes) noexcept {
    std::uint64_t sum = 0x9E3779B97F4A7C15 ^ bytes.size();
    const auto add = [&sum](std::uint64_t word) {
        sum = (sum ^ word) * 0xBF58476D1CE4E5B9;
        sum ^= sum >> 32;
    };
    while (!bytes.empty()) {
        const std::size_t count = bytes.size() < 8 ? bytes.size() : 8;
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < count; ++i) {
            word |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
        }
        add(word);
        bytes.remove_prefix(count);
    }
    return sum;
}

void put(std::string& out, std::uint64_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out += static_cast<char>(number >> (8 * i));
    }
}

std::uint64_t get(std::string_view file, std::size_t at, std::size_t bytes) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        number |= static_cast<std::uint64_t>(static_cast<unsigned char>(file[at + i])) << (8 * i);
    }
    return number;
}

std::uint64_t sumOf(std::string_view head, std::string_view payload) noexcept {
    return checksumOf(payload) ^ checksumOf(head.substr(0, 24));
}

} // namespace

std::string frame(std::string_view payload) {
    std::string file(magic);
    file.reserve(headBytes + payload.size());
    put(file, version, 4);
    put(file, 0, 4);
    put(file, payload.size(), 8);
    put(file, sumOf(file, payload), 8);
    return file.append(payload);
}

bool hasFrame(std::string_view file) noexcept {
    return file.starts_with(magic);
}

std::string_view unframe(std::string_view file, std::string& error) {
    const auto refuse = [&error](std::string why) {
        error = std::move(why);
        return std::string_view();
    };
    if (!hasFrame(file)) {
        return refuse("this is no file of serialized IR");
    }
    if (file.size() < headBytes) {
        return refuse("the file is cut short in its head");
    }
    const std::uint64_t found = get(file, 8, 4);
    if (found != version) {
        return refuse("the file has version " + std::to_string(found) + " of the form; version " +
                      std::to_string(version) + " is understood");
    }
    const std::string_view payload = file.substr(headBytes);
    const std::uint64_t promised = get(file, 16, 8);
    if (payload.size() != promised) {
        return refuse("the file has " + std::to_string(payload.size()) +
                      " bytes behind its head, not " + std::to_string(promised) +
                      ": it is cut short or altered");
    }
    if (get(file, 24, 8) != sumOf(file, payload)) {
        return refuse("the checksum does not agree: the file has been altered");
    }
    return payload;
}

} // namespace QN::serial
