// Compaction: packs a function into a fresh pool and numbers its nodes, blocks and variables anew,
// without gaps. What earlier transforms have removed gives back its memory here.
//
// Requires: valid IR. Keeps: what the function says, and the order of everything. Invalidates:
// every pointer into the graph, every id.
//
// With the hook TSFEAT_QUARNCompactionCheckInDataAgainstOutData on, what was given is compared with
// what was made; a difference is a failed assertion, and the function stays as it was.
#include "transform/transforms.hpp"

#include <qn/assertion.hpp>
#include <qn/copy.hpp>
#include <qn/function.hpp>
#include <qn/testing_hooks.hpp>

namespace QN::transforms {

namespace {

bool isCompact(const Cfg& cfg) {
    if (cfg.numBlocks() != cfg.blockIdLimit() || cfg.numVars() != cfg.varIdLimit() ||
        cfg.numNodes() + 1 != cfg.nodeIdLimit() || cfg.pool().bytesReleased() != 0) {
        return false;
    }
    std::uint32_t blockId = 0;
    std::uint32_t nodeId = 1;
    for (const Block& block : cfg.blocks()) {
        if (block.id() != blockId++) {
            return false;
        }
        for (const Node& node : block.nodes()) {
            if (node.id() != nodeId++) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

bool compact(Function& function) {
    if (isCompact(function.cfg())) {
        return false;
    }
    std::unique_ptr<Cfg> packed = copyOf(function.cfg(), function);
    if (TSFEAT_QUARNCompactionCheckInDataAgainstOutData->isOn()) {
        if (const std::string difference = differenceOf(function.cfg(), *packed);
            !difference.empty()) {
            client_assertion_failed(__FILE__, __LINE__, ("compaction: " + difference).c_str());
            return false;
        }
    }
    function.replaceCfg(std::move(packed));
    return true;
}

} // namespace QN::transforms
