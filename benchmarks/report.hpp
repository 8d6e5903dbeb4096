// Printing of results: aligned tables for people, JSON for programs.
//
// Why it exists: timings and instruction counts are both tables of rows against subjects, and are
// printed by the same code.
// To extend: another kind of measurement fills a Table.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace bench {

/// What one subject got in one row. `second` is shown beside `first` in parentheses.
struct Cell {
    double first = 0;
    double second = 0;
};

/// One row; a subject that has no such operation has no cell.
struct TableRow {
    std::string operation;
    std::vector<std::optional<Cell>> cells;
};

/// A table of results. Where the first subject has a cell, every other one is also given as a
/// multiple of it.
struct Table {
    std::string title;
    std::string legend;  ///< one line under the title that says what the two numbers of a cell are
    bool isTime = false; ///< cells are nanoseconds: each row is shown in the unit that suits it
    std::vector<std::string> subjects;
    std::vector<TableRow> rows;
    std::string firstKey;           ///< the name of `Cell::first` in JSON
    std::string secondKey;          ///< the name of `Cell::second` in JSON
    std::vector<std::string> notes; ///< lines under the table
};

/// Prints the table in columns.
void print(std::ostream& out, const Table& table);

/// The table as JSON: {"title", "subjects", "rows": [{"operation", "results": {SUBJECT: {...}}}]}.
/// Times are always nanoseconds there.
nlohmann::json toJson(const Table& table);

} // namespace bench
