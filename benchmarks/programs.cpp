// The group `programs`: the numeric programs of examples/ beside the same ones in C and in Lua.
//
// Each program is given a size and a number of rounds. What a run of one round takes holds starting
// and compiling; what more rounds take beyond it is that of compiled code. Before anything is
// measured, the three results are compared.
#include "groups.hpp"
#include "process.hpp"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

/// How often each is run beyond the first time takes about half a second in C.
struct Program {
    const char* name;
    const char* size;
    int more; // rounds beyond the first one
};
constexpr Program programs[] = {
    {"nbody", "400000", 12},  {"spectral_norm", "500", 24}, {"mandelbrot", "600", 12},
    {"sieve", "40000000", 2}, {"matrix_product", "500", 4}, {"runge_kutta", "4000000", 10},
    {"lu_solve", "500", 8},   {"coins", "2500", 6},         {"collatz", "15", 2},
    {"pancakes", "9", 12},
};
constexpr double calls = 1e7;

using Command = std::vector<std::string>;

/// The last line that a program prints.
std::string resultOf(const Command& command) {
    std::string line;
    for (const std::string& word : command) {
        line += "'" + word + "' ";
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(line.c_str(), "r"), pclose);
    std::string last;
    char text[512];
    while (pipe != nullptr && std::fgets(text, sizeof text, pipe.get()) != nullptr) {
        last = text;
    }
    if (last.empty()) {
        throw std::runtime_error("this gives no result: " + line);
    }
    return last;
}

/// The command with one more argument.
Command with(Command command, const std::string& argument) {
    command.push_back(argument);
    return command;
}

/// What a run takes.
LoopMaker wholeRun(const Command& command) {
    return [command] { return repeat([command] { reportTime(processorTimeOfProgram(command)); }); };
}

/// What `often` takes beyond `once`, if it does the same so many times more.
LoopMaker beyond(const Command& once, const Command& often, int more) {
    return [once, often, more] {
        return repeat([once, often, more] {
            const double first = processorTimeOfProgram(once);
            reportTime((processorTimeOfProgram(often) - first) / more);
        });
    };
}

} // namespace

Group buildPrograms() {
    const std::filesystem::path binaries =
        std::filesystem::canonical("/proc/self/exe").parent_path();
    const std::string host = binaries / "varnix";
    const std::filesystem::path sources = BENCH_SOURCES;
    Group group;
    group.clock = Clock::reported;
    group.subjects = {"varnix", "C, clang-19 -O2", "LuaJIT"};
    for (const Program& each : programs) {
        const std::string name = each.name;
        const Command subjects[] = {
            {host, "--no-modules", sources / "examples" / (name + ".vx"), each.size},
            {binaries / "programs" / name, each.size},
            {"luajit", sources / "benchmarks/programs" / (name + ".lua"), each.size}};
        Row round{.operation = name + ", a round", .makers = {}};
        Row first{.operation = name + ", start and first round", .makers = {}};
        std::string expected;
        for (const Command& command : subjects) {
            const Command once = with(command, "1");
            const std::string result = resultOf(once);
            if (!expected.empty() && result != expected) {
                throw std::runtime_error(name + " gives " + result + "and not " + expected);
            }
            expected = result;
            round.makers.push_back(
                beyond(once, with(command, std::to_string(1 + each.more)), each.more));
            first.makers.push_back(wholeRun(once));
        }
        group.rows.push_back(std::move(round));
        group.rows.push_back(std::move(first));
    }
    const Command script = {host, "--no-modules", sources / "benchmarks/programs/calls.vx"};
    const auto turns = [&](const char* kind) {
        Command once = with(script, std::to_string(static_cast<long>(calls)));
        Command often = with(script, std::to_string(static_cast<long>(3 * calls)));
        if (*kind != '\0') {
            once.emplace_back(kind);
            often.emplace_back(kind);
        }
        return beyond(once, often, 2);
    };
    group.rows.push_back(
        {.operation = "a turn of a script's loop with a call of a compiled function",
         .makers = {turns(""), LoopMaker(), LoopMaker()},
         .units = calls});
    group.rows.push_back({.operation = "the same turn without the call",
                          .makers = {turns("empty"), LoopMaker(), LoopMaker()},
                          .units = calls});
    return group;
}

} // namespace bench
