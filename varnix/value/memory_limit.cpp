#include "value/memory_limit.hpp"

#include "value/errors.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <sstream>

namespace varnix {
namespace {

[[nodiscard]] std::string contentsOf(const char* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

/// What the machine can give without ending anybody.
[[nodiscard]] std::size_t availableOnMachine() {
    const std::string memory = contentsOf("/proc/meminfo");
    const auto available = detail::numberAfter(memory, "MemAvailable:");
    const auto swap = detail::numberAfter(memory, "SwapFree:");
    return available ? (*available + swap.value_or(0)) * 1024 : unlimited;
}

/// What the control group leaves; memory that only caches files can be taken back and does not
/// count as used.
[[nodiscard]] std::size_t availableInGroup() {
    const auto limit = detail::numberAfter(contentsOf("/sys/fs/cgroup/memory.max"), "");
    const auto used = detail::numberAfter(contentsOf("/sys/fs/cgroup/memory.stat"), "anon ");
    if (!limit || !used)
        return unlimited;
    return *limit - std::min(*limit, *used);
}

} // namespace

std::optional<std::size_t> detail::numberAfter(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1);
        std::string_view line = text.substr(0, end + 1);
        text.remove_prefix(end + 1);
        if (!line.starts_with(name))
            continue;
        line.remove_prefix(std::min(line.find_first_not_of(' ', name.size()), line.size()));
        std::size_t number = 0;
        if (std::from_chars(line.data(), line.data() + line.size(), number).ec == std::errc())
            return number;
        return {};
    }
    return {};
}

void requireMemoryFor(std::size_t bytes) {
    if (bytes < checkedFromBytes)
        return;
    const std::size_t available = std::min(availableOnMachine(), availableInGroup());
    if (bytes > available)
        fail(id::outOfMemory, "there is no memory for {} million bytes; {} million are free",
             bytes / 1000000, available / 1000000);
}

} // namespace varnix
