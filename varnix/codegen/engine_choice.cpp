// Which engine runs compiled functions: the one place that knows them by name.
#include "codegen/just_in_time.hpp"

#include <qn/vmrt/engine.hpp>

namespace varnix::codegen {

std::unique_ptr<QN::Engine> makeEngine(EngineChoice choice) {
    if (choice == EngineChoice::Evaluator)
        return QN::makeEvaluatorEngine();
    return QN::VMRT::makeEngine();
}

} // namespace varnix::codegen
