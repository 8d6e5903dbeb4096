// What the system says of a piece of memory.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace QN::testing_support {

/// Whether large pages were asked for where `address` lies; nothing if the system does not tell.
inline std::optional<bool> wishesLargePages(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool isHere = false;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        if (std::istringstream(line) >> std::hex >> first >> dash >> end && dash == '-') {
            isHere = first <= wanted && wanted < end;
        } else if (isHere && line.starts_with("VmFlags:")) {
            return line.find(" hg") != std::string::npos;
        }
    }
    return std::nullopt;
}

/// Whether this kernel has large pages that can be asked for.
inline bool hasLargePages() {
    return std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled").good();
}

} // namespace QN::testing_support
