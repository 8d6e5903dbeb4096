// A module that makes LLVM's code generator refuse functions: while it is loaded, one whose name
// holds "fatal" ends in a fatal error, one whose name holds "unsupported" in a diagnostic, as for
// an instruction that a processor does not have. For tests of what becomes of such functions.
#include "entry_points.hpp"

#include <llvm/CodeGen/MachineFunction.h>
#include <llvm/CodeGen/SchedulerRegistry.h>
#include <llvm/CodeGen/SelectionDAGISel.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/Support/CommandLine.h>
#include <llvm/Support/ErrorHandling.h>

namespace {

llvm::ScheduleDAGSDNodes* refuseOrSchedule(llvm::SelectionDAGISel* selector,
                                           llvm::CodeGenOptLevel level) {
    const llvm::StringRef name = selector->MF->getName();
    if (name.contains("fatal"))
        llvm::report_fatal_error("no way to schedule this");
    if (name.contains("unsupported"))
        selector->MF->getFunction().getContext().emitError("no such instruction");
    return llvm::createDefaultScheduler(selector, level);
}

void initialize() {
    static llvm::RegisterScheduler choice("refuse", "refuses by name", refuseOrSchedule);
    llvm::cl::getRegisteredOptions()["pre-RA-sched"]->addOccurrence(0, "pre-RA-sched", "refuse");
}
void terminate() {
    llvm::cl::getRegisteredOptions()["pre-RA-sched"]->reset();
}

} // namespace

MODULE_ENTRY_POINTS(refuse, initialize, terminate)
