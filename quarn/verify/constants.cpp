// Checks of constants and of the names of callees.
#include "verify/checks.hpp"

#include <algorithm>
#include <string_view>
#include <vector>

namespace QN::verification::checks {

namespace {

/// Whether 64 bits are a value of a type, extended by it.
bool isValueOf(const Type& type, std::uint64_t bits) {
    if (type.isDouble()) {
        return true;
    }
    if (type.isLogical()) {
        return bits <= 1;
    }
    const int unused = 64 - type.bits();
    const std::uint64_t shifted = bits << unused;
    return bits == (type.isSigned()
                        ? static_cast<std::uint64_t>(static_cast<std::int64_t>(shifted) >> unused)
                        : shifted >> unused);
}

} // namespace

void constType(const Survey& graph, Sink& sink) {
    for (const Const* const constant : graph.consts()) {
        if (!isType(constant->type()) || !constant->type()->isScalar()) {
            sink.fail(graph, {},
                      describe(graph, *constant) + (isType(constant->type())
                                                        ? " is of type " + nameOf(constant->type())
                                                        : " has none of the process's types"));
        }
    }
}

void constValue(const Survey& graph, Sink& sink) {
    for (const Const* const constant : graph.consts()) {
        if (isType(constant->type()) && constant->type()->isScalar() &&
            !isValueOf(*constant->type(), constant->bits())) {
            sink.fail(graph, {},
                      describe(graph, *constant) + " has bits that are no " +
                          nameOf(constant->type()));
        }
    }
}

void constUnique(const Survey& graph, Sink& sink) {
    // A table of numbers of constants, open addressing, at most half full.
    const std::vector<const Const*>& all = graph.consts();
    std::size_t slots = 16;
    int unusedBits = 60;
    for (; slots < 2 * all.size(); slots *= 2) {
        --unusedBits;
    }
    std::vector<std::uint32_t>& table = graph.scratch();
    table.assign(slots, noIndex);
    for (std::uint32_t i = 0; i < all.size(); ++i) {
        const std::uint64_t type = Ref<const Type>(all[i]->type()).bits();
        // Doubles differ in their high bits, integers in their low ones.
        const std::uint64_t folded = all[i]->bits() ^ (all[i]->bits() >> 32) ^ (type << 20);
        std::size_t slot = (folded * 0x9E3779B97F4A7C15) >> unusedBits;
        for (; table[slot] != noIndex; slot = (slot + 1) & (slots - 1)) {
            const Const& other = *all[table[slot]];
            if (other.bits() == all[i]->bits() && other.type() == all[i]->type()) {
                sink.fail(graph, {},
                          describe(graph, *all[i]) + " has the type and value of " +
                              describe(graph, other));
                break;
            }
        }
        if (table[slot] == noIndex) {
            table[slot] = i;
        }
    }
}

void calleeName(const Survey& graph, Sink& sink) {
    for (const Callee* const callee : graph.callees()) {
        const std::string_view name = callee->name();
        if (safeName(graph.memory(), name).empty()) {
            sink.fail(graph, {},
                      name.empty() ? "a callee has no name"
                                   : "a callee has a name outside the pool");
        }
    }
}

void calleeUnique(const Survey& graph, Sink& sink) {
    if (graph.callees().size() < 2) {
        return;
    }
    std::vector<std::string_view> names;
    for (const Callee* const callee : graph.callees()) {
        if (const std::string_view name = safeName(graph.memory(), callee->name()); !name.empty()) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    for (std::size_t i = 1; i < names.size(); ++i) {
        if (names[i] == names[i - 1]) {
            sink.fail(graph, {}, "there is more than one callee " + std::string(names[i]));
        }
    }
}

} // namespace QN::verification::checks
