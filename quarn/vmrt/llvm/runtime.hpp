// What machine code finds around it while it runs: the state of a run, and the functions of the
// host that it calls. No LLVM here.
//
// The functions are named in symbols.def. They never throw, since machine code has no tables for
// unwinding: what goes wrong comes back as an Outcome. Owner: the run.
#pragma once

#include <qn/array_value.hpp>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>

namespace QN::VMRT {

/// What machine code is given a pointer to, beside its arguments. Its layout is known to the code.
struct RunState {
    const volatile std::sig_atomic_t* interrupt; // never null
    std::uintptr_t stackLimit;                   // calls that may recurse go no deeper than this
    std::uint64_t* counters;                     // of `count` nodes, by their place in the unit
};

/// What compiled functions return beside their result: 0, the number of a trap's site (from 1
/// on), or outOfMemory.
using Status = std::int32_t;
inline constexpr Status outOfMemory = -1;

/// The entry of a unit: the words of Executable::call(), the state, the calls that are still
/// allowed.
using EntryFunction = Status (*)(std::uint64_t* slots, RunState* state, std::int64_t depthLeft);

/// What a helper comes back with.
enum Outcome : std::int32_t { Fine = 0, OutOfMemory = 1, BadSize = 2 };

/// The address of a host function by the name under which code refers to it; null if there is
/// none. `soft` asks for the form that takes and gives doubles as 64-bit integers.
[[nodiscard]] const void* hostSymbol(std::string_view name, bool soft) noexcept;

} // namespace QN::VMRT
