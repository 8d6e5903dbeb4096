// Which engine runs compiled functions: the one place that knows them by name.
#include "codegen/just_in_time.hpp"

#include <stdexcept>

namespace varnix::codegen {

std::unique_ptr<QN::Engine> makeEngine(EngineChoice choice) {
    if (choice == EngineChoice::Llvm)
        throw std::runtime_error("there is no engine for machine code in this build");
    return QN::makeEvaluatorEngine();
}

} // namespace varnix::codegen
