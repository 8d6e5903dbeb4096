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
Group buildVmrtFirst(); ///< the first of a process
/// What a child of that group prints: the time that its compilation took, in nanoseconds of the
/// processor. `arguments`: the subject, the level, and the file with LLVM IR for the peer.
double firstCompilation(const std::vector<std::string>& arguments);

/// ir_hooks.cpp: what stands around each run of a transform, and timers.
Group buildHooks();
Group buildTimers();

/// ir_text.cpp: printing and verifying IR.
Group buildPrint();
Group buildVerify();

/// ir_pool.cpp: memory of the IR, and counting what is in it.
Group buildPools();

/// ir_scale.cpp: every transform and service at three sizes.
Group buildScaleNodes();
Group buildScaleFunctions();

/// programs.cpp: the numeric examples beside the same programs in C and in Lua.
Group buildPrograms();

/// All groups, in the order in which `./bench` runs them.
std::span<const GroupEntry> groups();

} // namespace bench
