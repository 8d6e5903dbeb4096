// A group: one table of the benchmarks, rows of operations against columns of subjects.
//
// Why it exists: timing, instruction counting, listing and printing all walk the same rows, so a
// group says once what can be run and how.
// To extend: write a function that returns a Group and add one row to the catalogue in main.cpp.
#pragma once

#include "measure.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Sets one operation of one subject up and gives the loop that runs it. An empty function, or an
/// empty loop, means that the subject has no such operation.
using LoopMaker = std::function<Loop()>;

/// One operation and, for each subject of the group in order, how to run it. Loops are made when
/// the row's turn comes and dropped after it, so a row's live objects burden no other row.
struct Row {
    std::string operation;
    std::vector<LoopMaker> makers;
    /// Repetitions counted under callgrind beyond a warm-up; few for a row that is a loop itself.
    std::size_t instructionRepetitions = 1000;
    /// What one repetition does this many of; results are given for one.
    double units = 1;
    /// The same for a subject that does another number of them, by its place; empty if all do
    /// `units`.
    std::vector<double> unitsOfEach = {};

    [[nodiscard]] double unitsOf(std::size_t subject) const {
        return unitsOfEach.empty() ? units : unitsOfEach[subject];
    }
};

/// A table. The first subject is the one that the others are compared with.
struct Group {
    std::vector<std::string> subjects;
    std::vector<Row> rows;
    Clock clock = Clock::processor;
    /// As in Effort: rows that take longer get fewer samples.
    double rowNanoseconds = 1e18;
    /// Lines printed under the table: figures that are neither times nor instructions.
    std::vector<std::string> notes = {};
};

/// What the catalogue knows of a group without building it (building starts interpreters).
struct GroupEntry {
    std::string name;
    std::string title;
    bool countsInstructions; ///< false for groups whose work happens in other processes
    Group (*build)();
};

} // namespace bench
