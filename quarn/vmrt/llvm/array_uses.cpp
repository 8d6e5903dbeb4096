// See array_uses.hpp.
#include "vmrt/llvm/array_uses.hpp"

namespace QN::VMRT {
namespace {

bool writesTo(const Node& node, const Entity* var) {
    return node.has(OpFlag::Writes) && !node.has(OpFlag::Calls) && node.numOperands() > 0 &&
           node.operand(0) == var;
}

} // namespace

ArrayUses::ArrayUses(const Cfg& cfg)
    : aliases_(cfg.nodeIdLimit()), lastUses_(cfg.nodeIdLimit()), inMemory_(cfg.varIdLimit()),
      changed_(cfg.varIdLimit()) {
    for (const Block& block : cfg.blocks()) {
        for (const Node& node : block.nodes()) {
            const Var* const var = node.numOperands() > 0 ? asVar(node.operand(0)) : nullptr;
            if (var != nullptr && node.op() == Op::AddrOf) {
                inMemory_[var->id()] = true;
            }
            if (var != nullptr && (node.op() == Op::AddrOf || writesTo(node, var))) {
                changed_[var->id()] = true;
            }
        }
    }
    for (const Block& block : cfg.blocks()) {
        for (const Node& node : block.nodes()) {
            if (node.type()->isArray()) {
                study(node);
            }
        }
    }
}

void ArrayUses::study(const Node& node) {
    std::size_t uses = 0;
    for (const Operand& use : node.uses()) {
        if (use.user()->block() != node.block()) {
            return;
        }
        ++uses;
    }
    const Var* var = node.op() == Op::Load ? asVar(node.operand(0)) : nullptr;
    if (var != nullptr && inMemory_[var->id()]) {
        var = nullptr;
    }
    const Node* last = &node;
    bool changes = false;
    for (const Node* at = node.next(); at != nullptr && uses > 0; at = at->next()) {
        for (const Operand& operand : at->operands()) {
            uses -= operand.value() == &node ? 1 : 0;
        }
        // What lies between two uses counts, the last use itself does not.
        last = at;
        if (uses > 0 && var != nullptr && writesTo(*at, var)) {
            changes = true;
        }
    }
    lastUses_[node.id()] = last;
    aliases_[node.id()] = changes ? nullptr : var;
}

} // namespace QN::VMRT
