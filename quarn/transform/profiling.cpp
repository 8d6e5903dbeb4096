// Profiling instrumentation: makes each block count how often it runs, in the counter of its place
// in the layout.
//
// Requires: valid IR. Keeps: everything else. Invalidates: nothing. A function that has counters
// already is left as it is. The pipeline runs it only while TSFEAT_QUARNProfilingInstrumentation is
// on.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

namespace QN::transforms {

bool instrumentForProfiling(Function& function) {
    Cfg& cfg = function.cfg();
    for (const Block& block : cfg.blocks()) {
        for (const Node& node : block.nodes()) {
            if (node.op() == Op::Count) {
                return false;
            }
        }
    }
    std::int64_t number = 0;
    for (Block& block : cfg.blocks()) {
        if (!block.empty()) {
            Builder(cfg, *block.first())
                .node(Op::Count, Type::voidType(), {cfg.constantInt(Type::i64(), number)});
        }
        ++number;
    }
    return number > 0;
}

} // namespace QN::transforms
