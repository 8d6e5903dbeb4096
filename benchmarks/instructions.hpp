// Instruction counts: the same rows under callgrind instead of the clock.
//
// Why it exists: instructions are the same on a quiet and on a busy machine, so they decide where
// nanoseconds only inform.
// How it works: the program runs itself under `valgrind --tool=callgrind`. In there it performs
// each operation a few and then some more times, and has callgrind write a profile after each; the
// difference of two profiles, divided by the difference of the repetitions, is what one operation
// takes, without anything that surrounds it.
// To extend: another memory allocator to be shown apart is one row of the table in
// instructions.cpp.
#pragma once

#include "group.hpp"
#include "report.hpp"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

/// One operation, found by name.
struct OperationId {
    std::string group;
    std::string subject;
    std::string operation;
};

/// Counts the instructions of every row of `entry` in a child process under callgrind. `program` is
/// this program's own path. A cell's first number is instructions per operation outside the memory
/// allocator, its second those inside. Throws std::runtime_error when valgrind is missing or fails.
Table countInstructions(const GroupEntry& entry, const std::filesystem::path& program);

/// The child's part: performs every row of the group and has callgrind write the profiles.
void runUnderCallgrind(const GroupEntry& entry);

/// Runs one operation `count` times between callgrind's start and stop of instrumentation, for
/// looking into it: valgrind --tool=callgrind --instr-atstart=no bench --instructions-op ...
void runOne(const GroupEntry& entry, const OperationId& id, std::size_t count);

/// What one callgrind profile holds: all instructions, and those in calls of a memory allocator
/// from outside of it.
struct ProfileCost {
    std::string label;
    double total = 0;
    double allocator = 0;
};

/// Reads a profile that callgrind wrote. Throws std::runtime_error when it is none.
ProfileCost readProfile(const std::filesystem::path& file);

} // namespace bench
