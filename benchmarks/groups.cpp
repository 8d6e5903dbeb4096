// The rows of the catalogue.
#include "groups.hpp"

#include <array>

namespace bench {

std::span<const GroupEntry> groups() {
    static const std::array<GroupEntry, 4> entries = {{
        {"door", "the door from C++, names resolved beforehand", true, buildDoor},
        {"script", "the door from a loop of the subject's own language, the loop included", true,
         buildScript},
        {"start", "starting the host, and the module's share of it", false, buildStart},
        {"vmrt", "compiling functions to machine code, and calling them", false, buildVmrt},
    }};
    return entries;
}

} // namespace bench
