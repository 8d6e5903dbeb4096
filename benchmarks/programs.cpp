// The group `programs`: the numeric programs of examples/ beside the same ones in C and in Lua.
//
// Whole processes are timed, since that is what a person waits for. Each program is given a size
// and a number of rounds: with one round, starting and compiling count; the difference to four
// rounds is what three rounds of compiled code take. Before anything is measured, the three results
// are compared.
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

/// Sizes that take about a quarter of a second in C.
struct Program {
    const char* name;
    const char* size;
};
constexpr Program programs[] = {
    {"nbody", "4000000"},  {"spectral_norm", "2000"}, {"mandelbrot", "1600"},
    {"sieve", "40000000"}, {"matrix_product", "700"}, {"runge_kutta", "20000000"},
    {"lu_solve", "800"},   {"coins", "2500"},         {"collatz", "18"},
    {"pancakes", "10"},
};
constexpr const char* calls = "10000000";

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

/// Runs a program with its console text going nowhere.
LoopMaker runs(const Command& command) {
    return [command] {
        Command quiet = {"/bin/sh", "-c", "exec \"$@\" >/dev/null", "sh"};
        quiet.insert(quiet.end(), command.begin(), command.end());
        return repeat([quiet] {
            if (runProgram(quiet) != 0) {
                throw std::runtime_error("this fails: " + quiet.back());
            }
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
    group.clock = Clock::wall;
    group.subjects = {"varnix", "C, clang-19 -O2", "LuaJIT"};
    for (const Program& each : programs) {
        const std::string name = each.name;
        const Command subjects[] = {
            {host, "--no-modules", sources / "examples" / (name + ".vx"), each.size},
            {binaries / "programs" / name, each.size},
            {"luajit", sources / "benchmarks/programs" / (name + ".lua"), each.size}};
        for (const char* const rounds : {"1", "4"}) {
            Row row;
            row.operation = name + (rounds[0] == '1' ? ", one round" : ", four rounds");
            std::string expected;
            for (Command command : subjects) {
                command.emplace_back(rounds);
                if (rounds[0] == '1') {
                    const std::string result = resultOf(command);
                    if (!expected.empty() && result != expected) {
                        throw std::runtime_error(name + " gives " + result + "and not " + expected);
                    }
                    expected = result;
                }
                row.makers.push_back(runs(command));
            }
            group.rows.push_back(std::move(row));
        }
    }
    const std::string script = sources / "benchmarks/programs/calls.vx";
    group.rows.push_back(
        {.operation = "ten million calls of a compiled function from a script loop",
         .makers = {runs({host, "--no-modules", script, calls}), LoopMaker(), LoopMaker()}});
    group.rows.push_back({.operation = "the same loop, interpreted, without the call",
                          .makers = {runs({host, "--no-modules", script, calls, "empty"}),
                                     LoopMaker(), LoopMaker()}});
    return group;
}

} // namespace bench
