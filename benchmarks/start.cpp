// The group `start`: how long a person waits before the first line of a script runs, and what the
// module adds to it. Whole processes are started; the peers' own interpreters stand beside ours.
#include "groups.hpp"
#include "process.hpp"
#include "shell/modules.hpp"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

/// The root of the tree that this program was built or installed in: the folder above bin/.
std::filesystem::path root() {
    return std::filesystem::canonical("/proc/self/exe").parent_path().parent_path();
}

LoopMaker starts(std::vector<std::string> command) {
    return [command = std::move(command)] {
        return repeat([command] {
            if (runProgram(command) != 0) {
                throw std::runtime_error("this does not start: " + command.front());
            }
        });
    };
}

/// The loader's work alone, in a host that runs already: finding the library, resolving and
/// checking its entry points, publishing its package; and taking all that back.
LoopMaker loadsModule(std::string file) {
    return [file = std::move(file)] {
        return repeat([file, loader = std::make_shared<varnix::ModuleLoader>()] {
            const std::string name = loader->load(file).name;
            loader->unload(name);
        });
    };
}

} // namespace

Group buildStart() {
    const std::string host = (root() / "bin/varnix").string();
    const std::string module = (root() / "lib/varnix/modules/quarn_vi.so").string();
    Group group;
    group.clock = Clock::wall;
    group.subjects = {"varnix", "CPython", "Lua"};
    group.rows = {
        {.operation = "start, run nothing, leave",
         .makers = {starts({host, "--no-modules", "-e", ""}),
                    starts({"/usr/bin/python3", "-I", "-S", "-c", ""}),
                    starts({"/usr/bin/lua5.4", "-e", ""})}},
        {.operation = "the same with the module loaded",
         .makers = {starts({host, "-e", ""}), LoopMaker(), LoopMaker()}},
        {.operation = "load and unload the module",
         .makers = {loadsModule(module), LoopMaker(), LoopMaker()}},
    };
    return group;
}

} // namespace bench
