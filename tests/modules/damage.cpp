// A module that plays a broken transform: while it is loaded, each function that dead-code is about
// to clean up finds its first nodes with an impossible source line. The code that becomes of
// it is right all the same. For tests of what the sanity checker tells of a real compilation.
//
// DAMAGED_NODES in the environment says how many nodes at most; 1 if it is not set.
#include "entry_points.hpp"

#include <qn/cfg.hpp>
#include <qn/default_services.hpp>
#include <qn/function.hpp>
#include <qn/service.hpp>
#include <qn/transform_run.hpp>

#include <cstdlib>

namespace {

class Damage final : public QN::Service {
public:
    void prepass(QN::TransformRun& run) override {
        if (run.transformName() != "dead-code" || run.function() == nullptr)
            return;
        const char* const wanted = std::getenv("DAMAGED_NODES");
        int left = wanted != nullptr ? std::atoi(wanted) : 1;
        for (QN::Block& block : run.function()->cfg().blocks())
            for (QN::Node& node : block.nodes())
                if (left-- > 0)
                    node.setLine(1U << 24);
    }
};

void initialize() {
    static Damage damage;
    QN::DefaultServices::debugServices().addService(&damage);
}
void terminate() {}

} // namespace

MODULE_ENTRY_POINTS(damage, initialize, terminate)
