// The benchmark program: chooses groups, measures them by the clock or by callgrind, prints.
// `./bench` builds and runs it; a new group needs no change here.
#include "groups.hpp"
#include "instructions.hpp"
#include "measure.hpp"
#include "report.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace bench;

constexpr const char* usage =
    R"(usage: bench [OPTION...] [GROUP...]

Runs the groups named, or all of them, and prints a table of each.

  --list                 names the groups
  --instructions         counts instructions under callgrind instead of nanoseconds
  --json FILE            also writes the results as JSON
  --samples N            batches timed of every operation (default 15, at least 7)
  --batch-ms N           length of a batch in milliseconds (default 2)
  --instructions-op GROUP/SUBJECT/OPERATION --count N
                         runs one operation N times between callgrind's start and stop of
                         instrumentation, to look into it:
                           valgrind --tool=callgrind --instr-atstart=no bench --instructions-op ...
  --help                 prints this
)";

/// A mistake in the command line; the program ends with status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Arguments {
    std::vector<std::string> groups;
    bool list = false;
    bool help = false;
    bool instructions = false;
    std::string json;
    std::string underCallgrind;
    std::vector<std::string> firstCompilation;
    std::string one;
    std::size_t count = 1000;
    Effort effort;
};

std::size_t toNumber(const std::string& option, const std::string& text, std::size_t least) {
    std::size_t value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end || value < least) {
        throw UsageError(option + " needs a whole number of at least " + std::to_string(least) +
                         ", not '" + text + "'");
    }
    return value;
}

Arguments parse(const std::vector<std::string>& words) {
    Arguments arguments;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const auto value = [&]() -> const std::string& {
            if (++i == words.size()) {
                throw UsageError(word + " needs a value");
            }
            return words[i];
        };
        if (word == "--help") {
            arguments.help = true;
        } else if (word == "--list") {
            arguments.list = true;
        } else if (word == "--instructions") {
            arguments.instructions = true;
        } else if (word == "--json") {
            arguments.json = value();
        } else if (word == "--samples") {
            arguments.effort.samples = toNumber(word, value(), 7);
        } else if (word == "--batch-ms") {
            arguments.effort.batchNanoseconds =
                1e6 * static_cast<double>(toNumber(word, value(), 1));
        } else if (word == "--under-callgrind") { // what --instructions starts
            arguments.underCallgrind = value();
        } else if (word == "--first-compilation") { // what the group vmrt-first starts
            arguments.firstCompilation = {value(), value(), value()};
        } else if (word == "--instructions-op") {
            arguments.one = value();
        } else if (word == "--count") {
            arguments.count = toNumber(word, value(), 1);
        } else if (word.starts_with("-")) {
            throw UsageError("unknown option " + word);
        } else {
            arguments.groups.push_back(word);
        }
    }
    return arguments;
}

const GroupEntry& find(const std::string& name) {
    const auto all = groups();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.name == name; });
    if (found == all.end()) {
        throw UsageError("no group '" + name + "'; --list names them");
    }
    return *found;
}

Table measure(const GroupEntry& entry, Effort effort) {
    const Group group = entry.build();
    effort.clock = group.clock;
    effort.rowNanoseconds = group.rowNanoseconds;
    Table table;
    table.title = entry.name + ": " + entry.title;
    table.legend = std::string(group.clock == Clock::wall ? "wall" : "processor") +
                   " time, median (minimum) of " + std::to_string(effort.samples) +
                   " interleaved samples" +
                   (group.rowNanoseconds < 1e18 ? " (of long rows fewer, at least 3)" : "") +
                   "; ratio: the subject's median to the first column's";
    table.isTime = true;
    table.notes = group.notes;
    table.subjects = group.subjects;
    table.firstKey = "median_ns";
    table.secondKey = "minimum_ns";
    for (const Row& row : group.rows) {
        std::vector<Loop> loops;
        for (const LoopMaker& make : row.makers) {
            loops.push_back(make ? make() : Loop());
        }
        TableRow result;
        result.operation = row.operation;
        for (const Timing& timing : measureInterleaved(loops, effort)) {
            const double units = row.unitsOf(result.cells.size());
            result.cells.push_back(
                timing.samples == 0
                    ? std::nullopt
                    : std::optional(Cell{timing.median / units, timing.minimum / units}));
        }
        table.rows.push_back(std::move(result));
    }
    return table;
}

/// Splits GROUP/SUBJECT/OPERATION.
OperationId toOperationId(const std::string& text) {
    const std::size_t first = text.find('/');
    const std::size_t second = first == std::string::npos ? first : text.find('/', first + 1);
    if (second == std::string::npos) {
        throw UsageError("--instructions-op needs GROUP/SUBJECT/OPERATION, not '" + text + "'");
    }
    return {text.substr(0, first), text.substr(first + 1, second - first - 1),
            text.substr(second + 1)};
}

void run(const Arguments& arguments) {
    if (arguments.help) {
        std::cout << usage;
        return;
    }
    if (arguments.list) {
        for (const GroupEntry& entry : groups()) {
            std::cout << entry.name << "  " << entry.title << '\n';
        }
        return;
    }
    if (!arguments.underCallgrind.empty()) {
        runUnderCallgrind(find(arguments.underCallgrind));
        return;
    }
    if (!arguments.firstCompilation.empty()) {
        std::cout << firstCompilation(arguments.firstCompilation) << '\n';
        return;
    }
    if (!arguments.one.empty()) {
        const OperationId id = toOperationId(arguments.one);
        runOne(find(id.group), id, arguments.count);
        return;
    }

    std::vector<const GroupEntry*> chosen;
    for (const std::string& name : arguments.groups) {
        chosen.push_back(&find(name));
        if (arguments.instructions && !chosen.back()->countsInstructions) {
            throw UsageError("group '" + name +
                             "' works in other processes; its instructions "
                             "are not counted");
        }
    }
    if (chosen.empty()) {
        for (const GroupEntry& entry : groups()) {
            if (!arguments.instructions || entry.countsInstructions) {
                chosen.push_back(&entry);
            }
        }
    }
    nlohmann::json results = nlohmann::json::array();
    for (const GroupEntry* entry : chosen) {
        const Table table =
            arguments.instructions
                ? countInstructions(*entry, std::filesystem::canonical("/proc/self/exe"))
                : measure(*entry, arguments.effort);
        print(std::cout, table);
        nlohmann::json result = toJson(table);
        result["group"] = entry->name;
        results.push_back(std::move(result));
    }
    if (!arguments.json.empty()) {
        std::ofstream out(arguments.json);
        out << results.dump(2) << '\n';
        if (!out.flush()) {
            throw std::runtime_error("cannot write " + arguments.json);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        run(parse(std::vector<std::string>(argv + 1, argv + argc)));
        return 0;
    } catch (const UsageError& error) {
        std::cerr << "bench: " << error.what() << " (bench --help says more)\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n';
        return 1;
    }
}
