// Names of operations and modes.
#include <qn/opcode.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace QN {

namespace {

using NamedOp = std::pair<std::string_view, Op>;

// Sorted by name, so that a parser finds an operation in a few comparisons.
const std::array<NamedOp, opCount>& sortedOps() {
    static const auto table = [] {
        std::array<NamedOp, opCount> rows;
        for (std::size_t i = 0; i < opCount; ++i) {
            rows[i] = {detail::opTable[i].text, static_cast<Op>(i)};
        }
        std::sort(rows.begin(), rows.end());
        return rows;
    }();
    return table;
}

} // namespace

std::optional<Op> opNamed(std::string_view text) noexcept {
    const auto& table = sortedOps();
    const auto found = std::lower_bound(
        table.begin(), table.end(), text,
        [](const NamedOp& row, std::string_view name) { return row.first < name; });
    if (found == table.end() || found->first != text) {
        return std::nullopt;
    }
    return found->second;
}

std::string_view toString(Rounding rounding) noexcept {
    constexpr std::string_view names[] = {"away", "even", "zero", "down", "up"};
    const auto index = static_cast<std::size_t>(rounding);
    return index < std::size(names) ? names[index] : "invalid";
}

std::string_view toString(Overflow overflow) noexcept {
    return overflow == Overflow::Saturate ? "sat" : "wrap";
}

} // namespace QN
