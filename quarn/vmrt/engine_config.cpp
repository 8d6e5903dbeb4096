// The one prototype of engine settings.
#include <qn/vmrt/engine_config.hpp>

namespace QN::VMRT {

VMEngineConfig& VMEngineConfig::prototype() noexcept {
    static constinit VMEngineConfig config;
    return config;
}

} // namespace QN::VMRT
