// The tables; see report.hpp.
#include "report.hpp"

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

struct Unit {
    const char* name;
    double scale; ///< nanoseconds in one
};

/// The unit in which the row's smallest time is a comfortable number.
Unit unitOf(const TableRow& row) {
    double smallest = 0;
    for (const auto& cell : row.cells) {
        if (cell && (smallest == 0 || cell->first < smallest)) {
            smallest = cell->first;
        }
    }
    if (smallest >= 1e6) {
        return {"ms", 1e6};
    }
    if (smallest >= 1e3) {
        return {"us", 1e3};
    }
    return {"ns", 1};
}

/// Three significant digits where there are fewer, whole numbers beyond.
std::string format(double value) {
    char text[32];
    const int decimals = value < 10 ? 2 : value < 100 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string format(const Cell& cell, double scale) {
    return format(cell.first / scale) + " (" + format(cell.second / scale) + ")";
}

} // namespace

void print(std::ostream& out, const Table& table) {
    std::vector<std::vector<std::string>> lines;
    std::vector<std::string> header = {"operation"};
    if (table.isTime) {
        header.emplace_back("unit");
    }
    const bool hasReference =
        std::any_of(table.rows.begin(), table.rows.end(), [](const auto& row) {
            return !row.cells.empty() && row.cells.front().has_value();
        });
    for (std::size_t i = 0; i < table.subjects.size(); ++i) {
        header.push_back(table.subjects[i]);
        if (hasReference && i != 0) {
            header.emplace_back("ratio");
        }
    }
    lines.push_back(header);

    for (const TableRow& row : table.rows) {
        const Unit unit = table.isTime ? unitOf(row) : Unit{"", 1};
        std::vector<std::string> line = {row.operation};
        if (table.isTime) {
            line.emplace_back(unit.name);
        }
        const std::optional<Cell> reference = row.cells.empty() ? std::nullopt : row.cells.front();
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            const auto& cell = row.cells[i];
            line.push_back(cell ? format(*cell, unit.scale) : "-");
            if (hasReference && i != 0) {
                line.push_back(cell && reference && reference->first > 0
                                   ? "x" + format(cell->first / reference->first)
                                   : "");
            }
        }
        lines.push_back(std::move(line));
    }

    std::vector<std::size_t> widths(header.size(), 0);
    for (const auto& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    out << "\n== " << table.title << "\n   " << table.legend << "\n\n";
    for (std::size_t number = 0; number < lines.size(); ++number) {
        const auto& line = lines[number];
        for (std::size_t i = 0; i < line.size(); ++i) {
            const auto width = static_cast<int>(widths[i]);
            out << (i == 0 ? "" : "  ") << std::setw(width) << (i == 0 ? std::left : std::right)
                << line[i];
        }
        out << '\n';
        if (number == 0) {
            std::size_t total = 0;
            for (const std::size_t width : widths) {
                total += width + 2;
            }
            out << std::string(total - 2, '-') << '\n';
        }
    }
    for (const std::string& note : table.notes) {
        out << "   " << note << '\n';
    }
    out.flush();
}

nlohmann::json toJson(const Table& table) {
    nlohmann::json rows = nlohmann::json::array();
    for (const TableRow& row : table.rows) {
        nlohmann::json results = nlohmann::json::object();
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            if (row.cells[i]) {
                results[table.subjects[i]] = {{table.firstKey, row.cells[i]->first},
                                              {table.secondKey, row.cells[i]->second}};
            }
        }
        rows.push_back({{"operation", row.operation}, {"results", results}});
    }
    return {{"title", table.title},
            {"subjects", table.subjects},
            {"rows", rows},
            {"notes", table.notes}};
}

} // namespace bench
