// The catalogue of groups, one row each. To add one: a function here, a row in groups.cpp, a file.
#pragma once

#include "group.hpp"

#include <span>

namespace bench {

/// door.cpp: the operations of subject.hpp.
Group buildDoor();   ///< from C++, names resolved beforehand
Group buildScript(); ///< from a loop of each subject's own language

/// start.cpp: starting the host, and the module's share of it.
Group buildStart();

/// vmrt.cpp: compiling functions to machine code, and calling them.
Group buildVmrt();

/// All groups, in the order in which `./bench` runs them.
std::span<const GroupEntry> groups();

} // namespace bench
