// The rows of the catalogue.
#include "groups.hpp"

#include <array>

namespace bench {

std::span<const GroupEntry> groups() {
    static const std::array<GroupEntry, 13> entries = {{
        {"door", "the door from C++, names resolved beforehand", true, buildDoor},
        {"script", "the door from a loop of the subject's own language, the loop included", true,
         buildScript},
        {"start", "starting the host, and the module's share of it", false, buildStart},
        {"vmrt", "compiling functions to machine code, and calling them", false, buildVmrt},
        {"vmrt-first", "the first compilation of a process, in processes of their own", false,
         buildVmrtFirst},
        {"hooks", "what stands around each run of a transform", true, buildHooks},
        {"timers", "a timer's start and stop", true, buildTimers},
        {"print", "IR as text and as graphs", true, buildPrint},
        {"verify", "all checks of the verifier, and dominators", true, buildVerify},
        {"pools", "memory of the IR, and counting what is in it", true, buildPools},
        {"scale-nodes", "every transform and service on one function of three sizes, per node",
         true, buildScaleNodes},
        {"scale-functions", "the same on scopes of three numbers of functions, per node", true,
         buildScaleFunctions},
        {"programs", "the numeric examples, whole processes", false, buildPrograms},
    }};
    return entries;
}

} // namespace bench
