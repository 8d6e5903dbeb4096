// Loop-invariant motion: computes what does not change inside a loop once, before it.
//
// Requires: valid IR. Keeps: everything that may trap or acts stays where it is. Invalidates:
// blocks, as a loop without a block of its own before it gets one.
//
// A node moves if it may run although it was not its turn, its operands are made outside, and what
// it reads is not written inside; so accesses of elements stay behind their checks. Loops are
// worked on from the inside out. What an outer loop could give away, the inner one gives away
// first, to the block before it, which is the outer one's own; so each loop looks at its own blocks
// only.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>
#include <qn/loops.hpp>

#include <algorithm>
#include <vector>

namespace QN::transforms {

namespace {

class Motion {
public:
    explicit Motion(Cfg& cfg)
        : cfg_(cfg), found_(cfg), loops_(found_.all().begin(), found_.all().end()),
          written_(cfg.varIdLimit(), Loop::none), resized_(cfg.varIdLimit(), Loop::none),
          addressTaken_(cfg.varIdLimit(), false), memoryWritten_(loops_.size(), false),
          changes_(loops_.size()), innermost_(cfg.blockIdLimit()), rank_(cfg.blockIdLimit()) {
        for (const Block& block : cfg.blocks()) {
            innermost_[block.id()] = found_.innermost(block);
            rank_[block.id()] =
                cfg.dominators().isReachable(block) ? 2 * cfg.dominators().indexOf(block) + 1 : 0;
        }
        for (const Var& var : cfg.vars()) {
            for (const Operand& use : var.uses()) {
                if (use.user()->op() == Op::AddrOf) {
                    addressTaken_[var.id()] = true;
                }
            }
        }
        collectChanges();
    }

    bool run() {
        bool changed = false;
        // From the inside out: what leaves an inner loop is then in the way of the outer one.
        for (std::size_t i = loops_.size(); i-- > 0;) {
            changed = hoistFrom(static_cast<std::uint32_t>(i)) || changed;
        }
        return changed;
    }

private:
    struct Change {
        std::uint32_t var;
        bool size;
    };

    /// Notes for each loop what its own blocks write.
    void collectChanges() {
        for (std::uint32_t i = 0; i < loops_.size(); ++i) {
            for (const Block* const block : loops_[i].ownBlocks) {
                for (const Node& node : block->nodes()) {
                    noteChange(node, i);
                }
            }
        }
        // What an inner loop writes, the outer one writes too. Inner ones come behind outer ones.
        for (std::size_t i = loops_.size(); i-- > 0;) {
            if (const std::uint32_t parent = loops_[i].parent; parent != Loop::none) {
                memoryWritten_[parent] = memoryWritten_[parent] || memoryWritten_[i];
                // Each variable once per level, so that deep nests stay small.
                std::sort(changes_[i].begin(), changes_[i].end(), [](Change a, Change b) {
                    return a.var != b.var ? a.var < b.var : a.size > b.size;
                });
                changes_[i].erase(std::unique(changes_[i].begin(), changes_[i].end(),
                                              [](Change a, Change b) { return a.var == b.var; }),
                                  changes_[i].end());
                changes_[parent].insert(changes_[parent].end(), changes_[i].begin(),
                                        changes_[i].end());
            }
        }
    }

    void noteChange(const Node& node, std::uint32_t loop) {
        if (!node.has(OpFlag::Writes) || node.op() == Op::Count) {
            return;
        }
        const Var* const var = node.numOperands() > 0 ? asVar(node.operand(0)) : nullptr;
        if (var == nullptr) {
            memoryWritten_[loop] = true;
            return;
        }
        if (addressTaken_[var->id()]) {
            memoryWritten_[loop] = true;
        }
        changes_[loop].push_back({var->id(), node.op() == Op::Store || node.op() == Op::Resize});
    }

    /// Marks what the loop writes; marks of other loops have other numbers.
    void mark(std::uint32_t loop) {
        for (const Change change : changes_[loop]) {
            written_[change.var] = loop;
            if (change.size) {
                resized_[change.var] = loop;
            }
        }
    }

    bool mayMove(const Node& node, std::uint32_t loop) const {
        const bool reads = node.has(OpFlag::Reads) && !node.has(OpFlag::Calls);
        // An access that is in bounds is so because of a check before it.
        if (node.mayTrap() || node.has(OpFlag::Indexes) || !(node.has(OpFlag::Pure) || reads)) {
            return false;
        }
        for (const Operand& operand : node.operands()) {
            const Node* const value = asNode(operand.value());
            if (value != nullptr && found_.isInside(innermost_[value->block()->id()], loop)) {
                return false;
            }
        }
        if (!reads) {
            return true;
        }
        const Var* const var = asVar(node.operand(0));
        if (var == nullptr || addressTaken_[var->id()]) {
            return !memoryWritten_[loop];
        }
        // A load of a whole array copies it; that is no work to do before it is needed.
        if (node.op() == Op::Load && var->isAggregate()) {
            return false;
        }
        const bool sizes = node.op() == Op::Rows || node.op() == Op::Cols || node.op() == Op::Numel;
        return (sizes ? resized_ : written_)[var->id()] != loop;
    }

    /// The place in front of the loop: the end of the only block outside that leads to the header,
    /// which leads nowhere else; made if there is none.
    Node* placeBefore(std::uint32_t index) {
        Block* const header = loops_[index].header;
        std::vector<Operand*> entries;
        for (Operand& use : header->uses()) {
            const Block* const from = use.user()->block();
            if (from == nullptr || !found_.isInside(innermost_[from->id()], index)) {
                entries.push_back(&use);
            }
        }
        if (entries.size() == 1 && entries[0]->user()->op() == Op::Jump) {
            return entries[0]->user();
        }
        const bool wasEntry = header == cfg_.entry();
        Block* const before = cfg_.addBlock(header->previous());
        if (wasEntry) {
            cfg_.moveBlock(before, nullptr);
        }
        for (Operand* const entry : entries) {
            entry->set(before);
        }
        cfg_.edgesChanged();
        const std::uint32_t parent = loops_[index].parent;
        innermost_.push_back(parent);
        rank_.push_back(rank_[header->id()] - 1);
        if (parent != Loop::none) {
            loops_[parent].ownBlocks.push_back(before);
        }
        Builder builder(cfg_, before);
        builder.setLine(header->first()->line());
        return builder.jump(header);
    }

    /// The blocks of a loop that are in no inner one, in an order in which definitions come before
    /// uses.
    std::vector<Block*> ownBlocksOf(std::uint32_t index) const {
        std::vector<Block*> blocks = loops_[index].ownBlocks;
        std::sort(blocks.begin(), blocks.end(), [this](const Block* a, const Block* b) {
            return rank_[a->id()] < rank_[b->id()];
        });
        return blocks;
    }

    bool hoistFrom(std::uint32_t index) {
        mark(index);
        Node* place = nullptr;
        bool changed = false;
        for (Block* const block : ownBlocksOf(index)) {
            for (Node* node = block->first(); node != nullptr;) {
                Node* const next = node->next();
                if (mayMove(*node, index)) {
                    if (place == nullptr) {
                        place = placeBefore(index);
                    }
                    cfg_.unlink(node);
                    cfg_.insertBefore(place, node);
                    changed = true;
                }
                node = next;
            }
        }
        return changed;
    }

    Cfg& cfg_;
    Loops found_;
    std::vector<Loop> loops_;            // with the blocks that are made on the way
    std::vector<std::uint32_t> written_; // by variable id: the last loop for which it was marked
    std::vector<std::uint32_t> resized_;
    std::vector<bool> addressTaken_;
    std::vector<bool> memoryWritten_;          // by loop
    std::vector<std::vector<Change>> changes_; // by loop
    std::vector<std::uint32_t> innermost_;     // by block id
    std::vector<std::uint32_t> rank_;          // by block id; grows along reverse postorder
};

} // namespace

bool moveLoopInvariants(Function& function) {
    return function.cfg().entry() != nullptr && Motion(function.cfg()).run();
}

} // namespace QN::transforms
