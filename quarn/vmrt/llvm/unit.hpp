// What the translation of a unit gives beside LLVM's module: the places at which it may trap, and
// its counters. No LLVM here.
#pragma once

#include <qn/trap.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace QN::VMRT {

/// A place at which the program may end early. Code comes back with its number, from 1 on.
struct Site {
    TrapCode code;
    std::uint32_t function; // in UnitFacts::functions
    std::uint32_t line;
    std::string detail;
};

/// The counters of one function, which lie one behind the other.
struct CounterRange {
    std::uint32_t function;
    std::uint32_t first;
    std::uint32_t count;
};

struct UnitFacts {
    std::vector<std::string> functions;
    std::vector<Site> sites;
    std::vector<CounterRange> counters;
    std::uint32_t counterCount = 0;
};

} // namespace QN::VMRT
