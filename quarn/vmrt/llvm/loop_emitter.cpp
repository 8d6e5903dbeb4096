// What is done once before a loop instead of in each turn.
#include "vmrt/llvm/function_emitter.hpp"

namespace QN::VMRT {

/// Arrays are made writable before a loop that stores into them in each turn and shares them with
/// nobody; the outermost such loop does it.
void FunctionEmitter::findHoists() {
    const std::span<const Loop> loops = loops_.all();
    hoists_.resize(loops.size());
    // Per loop, by variable: whether the loop or one inside it copies or assigns the array.
    std::vector<std::vector<bool>> unsettled(loops.size());
    for (std::size_t i = loops.size(); i-- > 0;) {
        std::vector<bool>& vars = unsettled[i];
        vars.resize(cfg_.varIdLimit());
        for (const Block* const block : loops[i].ownBlocks) {
            for (const Node& node : block->nodes()) {
                const Var* const var = node.numOperands() > 0 ? asVar(node.operand(0)) : nullptr;
                if (var != nullptr && var->isAggregate() &&
                    (node.op() == Op::Load || node.op() == Op::Store)) {
                    vars[var->id()] = true;
                }
            }
        }
        for (std::size_t inner = i + 1; inner < loops.size(); ++inner) {
            if (loops[inner].parent == i) {
                for (std::size_t v = 0; v < vars.size(); ++v) {
                    vars[v] = vars[v] || unsettled[inner][v];
                }
            }
        }
    }
    const auto isInEveryTurn = [&](const Block& block, const Loop& loop) {
        bool always = true;
        loop.header->forEachPredecessor([&](const Block& before) {
            if (order_.isReachable(before) && order_.dominates(*loop.header, before)) {
                always = always && order_.dominates(block, before);
            }
        });
        return always;
    };
    for (const Block* const block : order_.order()) {
        for (const Node& node : block->nodes()) {
            const Var* const var = node.op() == Op::StElem || node.op() == Op::StElem2
                                       ? asVar(node.operand(0))
                                       : nullptr;
            if (var == nullptr || arrayUses_.hasAddress(*var)) {
                continue;
            }
            // A loop inside is expected to have turns.
            const Block* inside = block;
            std::uint32_t best = Loop::none;
            for (std::uint32_t at = loops_.innermost(*block);
                 at != Loop::none && !unsettled[at][var->id()] && isInEveryTurn(*inside, loops[at]);
                 at = loops[at].parent) {
                best = at;
                inside = loops[at].header;
            }
            if (best == Loop::none) {
                continue;
            }
            isWritable_[node.id()] = true;
            bool known = false;
            for (const Node* const other : hoists_[best]) {
                known = known || other->operand(0) == var;
            }
            if (!known) {
                hoists_[best].push_back(&node);
            }
        }
    }
    for (std::size_t i = 0; i < loops.size(); ++i) {
        if (!hoists_[i].empty()) {
            preheaders_[loops[i].header->id()] = newBlock("before");
        }
    }
}

void FunctionEmitter::emitPreheader(const Loop& loop) {
    llvm::BasicBlock* const preheader = preheaders_[loop.header->id()];
    if (preheader == nullptr) {
        return;
    }
    ir_.SetInsertPoint(preheader);
    if (subprogram_ != nullptr) {
        ir_.SetCurrentDebugLocation(llvm::DILocation::get(unit_.context(), 0, 0, subprogram_));
    }
    for (const Node* const node : hoists_[static_cast<std::size_t>(&loop - loops_.all().data())]) {
        makeWritable(*arrayVars_[asVar(node->operand(0))->id()], node->line());
    }
    ir_.CreateBr(blocks_[loop.header->id()]);
}

} // namespace QN::VMRT
