// Bounds checks: puts a check in front of each element access whose index is not known to be inside
// the bounds, and marks the access as safe.
//
// Requires: valid IR. Keeps: blocks and edges; an access that would have trapped traps at its
// check, with the same code and line. Invalidates: nothing. Checks that repeat each other,
// value-numbering removes.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

namespace QN::transforms {

bool insertBoundsChecks(Function& function) {
    Cfg& cfg = function.cfg();
    bool changed = false;
    for (Block& block : cfg.blocks()) {
        for (Node& node : block.nodes()) {
            if (!node.has(OpFlag::Indexes) || node.mode().inBounds()) {
                continue;
            }
            Builder before(cfg, node);
            Entity* const aggregate = node.operand(0);
            if (node.op() == Op::LdElem || node.op() == Op::StElem) {
                before.checkBounds(node.operand(1), before.sizeOf(Op::Numel, aggregate));
            } else {
                before.checkBounds(node.operand(1), before.sizeOf(Op::Rows, aggregate));
                before.checkBounds(node.operand(2), before.sizeOf(Op::Cols, aggregate));
            }
            node.setMode(node.mode().withInBounds(true));
            changed = true;
        }
    }
    return changed;
}

} // namespace QN::transforms
