// Dead code: removes values that nobody uses, stores to variables that nobody reads, stores that
// the same block overwrites, and variables without uses.
//
// Requires: valid IR. Keeps: blocks and edges, everything that may trap. Invalidates: variables,
// whose number may shrink; parameters stay.
#include "transform/transforms.hpp"

#include <qn/function.hpp>

#include <vector>

namespace QN::transforms {

namespace {

class DeadCode {
public:
    explicit DeadCode(Cfg& cfg) : cfg_(cfg), readers_(cfg.varIdLimit(), 0) {
        for (const Var& var : cfg.vars()) {
            for (const Operand& use : var.uses()) {
                readers_[var.id()] += onlyWrites(*use.user(), var) ? 0 : 1;
            }
        }
        for (Var& var : cfg.vars()) {
            noteUnread(var);
        }
    }

    bool run() {
        // A load that nobody needs must not keep an earlier store alive, so unused values go first.
        bool changed = removeUnusedValues();
        changed = removeOverwrittenStores() || changed;
        return removeUnreadVariables() || changed;
    }

private:
    /// Whether removing the node loses nothing but what it writes into `var`, its first operand.
    static bool onlyWrites(const Node& user, const Var& var) {
        const bool writes =
            user.op() == Op::Store || user.op() == Op::StElem || user.op() == Op::StElem2;
        return writes && user.operand(0) == &var && !user.mayTrap();
    }

    void noteUnread(Var& var) {
        if (readers_[var.id()] == 0) {
            unread_.push_back(&var);
        }
    }

    /// Removes `node` and then whatever lived only for it.
    void removeWithOperands(Node* node) {
        dying_.push_back(node);
        while (!dying_.empty()) {
            Node* const dead = dying_.back();
            dying_.pop_back();
            if (Var* const var = dead->numOperands() > 0 ? asVar(dead->operand(0)) : nullptr;
                var != nullptr && !onlyWrites(*dead, *var)) {
                --readers_[var->id()];
                noteUnread(*var);
            }
            // Each operand is let go before it is looked at, so that one used twice here is seen as
            // unused.
            for (Operand& operand : dead->operands()) {
                Node* const value = asNode(operand.value());
                operand.set(nullptr);
                if (value != nullptr && !value->hasUses() && !value->hasEffect()) {
                    dying_.push_back(value);
                }
            }
            cfg_.remove(dead);
        }
    }

    bool removeUnusedValues() {
        const std::size_t before = cfg_.numNodes();
        for (Block& block : cfg_.blocks()) {
            // Backwards, so that what dies with a later node lies ahead and not under the cursor.
            for (Node* node = block.last(); node != nullptr;) {
                if (node->hasUses() || node->hasEffect()) {
                    node = node->previous();
                    continue;
                }
                // Operands of this node may go with it, among them its predecessor; its successor
                // is no operand of anything that dies here and stays.
                Node* const next = node->next();
                removeWithOperands(node);
                node = next != nullptr ? next->previous() : block.last();
            }
        }
        return cfg_.numNodes() != before;
    }

    bool removeUnreadVariables() {
        bool changed = false;
        while (!unread_.empty()) {
            Var* const var = unread_.back();
            unread_.pop_back();
            while (Operand* const use = var->firstUse()) {
                removeWithOperands(use->user());
                changed = true;
            }
            if (var->varKind() != VarKind::Param) {
                cfg_.removeVar(var);
                changed = true;
            }
        }
        return changed;
    }

    /// A store is dead if the same block stores the whole variable again before anything can read
    /// it.
    bool removeOverwrittenStores() {
        std::vector<bool> addressTaken(cfg_.varIdLimit(), false);
        for (const Var& var : cfg_.vars()) {
            for (const Operand& use : var.uses()) {
                if (use.user()->op() == Op::AddrOf) {
                    addressTaken[var.id()] = true;
                }
            }
        }
        // For each variable the block that overwrites it further down, as far as is known. Ids of
        // blocks are unique, so nothing is to be cleared between blocks.
        std::vector<std::uint32_t> overwrittenIn(cfg_.varIdLimit(), UINT32_MAX);
        bool changed = false;
        for (Block& block : cfg_.blocks()) {
            for (Node* node = block.last(); node != nullptr;) {
                Var* const var = node->numOperands() > 0 ? asVar(node->operand(0)) : nullptr;
                if (var != nullptr && !addressTaken[var->id()]) {
                    if (node->op() != Op::Store) {
                        overwrittenIn[var->id()] = UINT32_MAX;
                    } else if (overwrittenIn[var->id()] == block.id()) {
                        Node* const next = node->next(); // there is one: the later store
                        removeWithOperands(node);
                        node = next->previous();
                        changed = true;
                        continue;
                    } else {
                        overwrittenIn[var->id()] = block.id();
                    }
                }
                node = node->previous();
            }
        }
        return changed;
    }

    Cfg& cfg_;
    std::vector<std::uint32_t> readers_; // by variable id: uses that are no mere writes
    std::vector<Var*> unread_;
    std::vector<Node*> dying_;
};

} // namespace

bool removeDeadCode(Function& function) {
    return DeadCode(function.cfg()).run();
}

} // namespace QN::transforms
