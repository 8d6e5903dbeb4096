// Local value numbering: inside a block, and on through blocks with one predecessor, computes each
// value once, takes what was stored instead of loading it again, and drops checks that have been
// made.
//
// Requires: valid IR. Keeps: blocks and edges, the order of effects. Invalidates: use lists of the
// values that it replaces. What it leaves unused, dead-code removes.
//
// Two nodes are equal if they do the same to the same operands in the same state. The state is a
// number per variable that grows when the variable may change: one for its value, one for the size
// of an array, which a store of an element does not change. Variables whose address is taken share
// the state of memory.
#include "transform/transforms.hpp"

#include <qn/function.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>
#include <vector>

namespace QN::transforms {

namespace {

/// What makes a value what it is.
struct Key {
    Op op;
    std::uint8_t mode;
    std::uint8_t numOperands;
    std::uint32_t type;
    std::uint32_t state;
    std::array<std::uint32_t, 3> operands;
    friend bool operator==(const Key&, const Key&) = default;
};

struct KeyHash {
    std::size_t operator()(const Key& key) const noexcept {
        std::uint64_t hash = static_cast<std::uint64_t>(key.op) | (std::uint64_t{key.mode} << 8) |
                             (std::uint64_t{key.type} << 16);
        const auto mix = [&](std::uint64_t part) {
            hash = (hash ^ part) * 0x9E3779B97F4A7C15;
            hash ^= hash >> 29;
        };
        mix(key.state);
        for (const std::uint32_t operand : key.operands) {
            mix(operand);
        }
        return static_cast<std::size_t>(hash);
    }
};

class Numbering {
public:
    explicit Numbering(Cfg& cfg)
        : cfg_(cfg), addressTaken_(cfg.varIdLimit(), false), value_(cfg.varIdLimit(), 0),
          size_(cfg.varIdLimit(), 0) {
        for (const Var& var : cfg.vars()) {
            for (const Operand& use : var.uses()) {
                if (use.user()->op() == Op::AddrOf) {
                    addressTaken_[var.id()] = true;
                }
            }
        }
    }

    bool run() {
        // A chain of blocks, each the only predecessor of the next, shares one table. In reverse
        // postorder a block comes behind its predecessor, and the chain is walked from its head.
        const std::vector<Block*> order(cfg_.dominators().order().begin(),
                                        cfg_.dominators().order().end());
        std::vector<bool> done(cfg_.blockIdLimit(), false);
        for (Block* const head : order) {
            if (done[head->id()]) {
                continue;
            }
            known_.clear();
            for (Block* block = head; block != nullptr; block = follower(*block, done)) {
                done[block->id()] = true;
                walk(*block);
            }
        }
        return changed_;
    }

private:
    /// The next block of a chain: one that only this block leads to, and that was not visited yet.
    static Block* follower(const Block& block, const std::vector<bool>& done) {
        for (std::size_t i = 0; i < block.numSuccessors(); ++i) {
            Block* const next = block.successor(i);
            if (!done[next->id()] && next->singlePredecessor() == &block) {
                return next;
            }
        }
        return nullptr;
    }

    void walk(Block& block) {
        for (Node* node = block.first(); node != nullptr;) {
            Node* const next = node->next();
            visit(*node);
            node = next;
        }
    }

    void visit(Node& node) {
        if (std::optional<Key> key = keyOf(node)) {
            const auto [entry, isNew] = known_.try_emplace(*key, &node);
            if (!isNew) {
                if (node.hasValue()) {
                    cfg_.replaceUses(&node, entry->second);
                }
                cfg_.remove(&node);
                changed_ = true;
            }
            return;
        }
        noteEffects(node);
    }

    Key makeKey(Op op, Mode mode, const Type* type) {
        Key key{};
        key.op = op;
        key.mode = mode.bits();
        key.type = Ref<const Type>(type).bits();
        return key;
    }

    /// The key of a node that may be shared; nothing for one that acts.
    std::optional<Key> keyOf(Node& node) {
        const bool check =
            node.op() == Op::ChkBounds || node.op() == Op::ChkZero || node.op() == Op::ChkLossy;
        const bool reads = node.has(OpFlag::Reads) && !node.has(OpFlag::Calls);
        if (!node.has(OpFlag::Pure) && !reads && !check && node.op() != Op::ToIndex) {
            return std::nullopt;
        }
        Key key = makeKey(node.op(), node.mode(), node.type());
        key.numOperands = static_cast<std::uint8_t>(node.numOperands());
        for (std::size_t i = 0; i < node.numOperands(); ++i) {
            key.operands[i] = Ref<Entity>(node.operand(i)).bits();
        }
        if (node.has(OpFlag::Commutes) && key.operands[0] > key.operands[1]) {
            std::swap(key.operands[0], key.operands[1]);
        }
        if (reads) {
            const bool sizes =
                node.op() == Op::Rows || node.op() == Op::Cols || node.op() == Op::Numel;
            key.state = stateOf(node.operand(0), sizes);
        }
        return key;
    }

    std::uint32_t stateOf(Entity* aggregate, bool size) const {
        const Var* const var = asVar(aggregate);
        if (var == nullptr || addressTaken_[var->id()]) {
            // The two kinds of numbers come from one counter, so they never meet by chance.
            return size ? memorySize_ : memory_;
        }
        return size ? size_[var->id()] : value_[var->id()];
    }

    void change(Entity* target, bool size) {
        const Var* const var = asVar(target);
        if (var == nullptr || addressTaken_[var->id()]) {
            memory_ = ++counter_;
            memorySize_ = size ? ++counter_ : memorySize_;
            return;
        }
        value_[var->id()] = ++counter_;
        if (size) {
            size_[var->id()] = ++counter_;
        }
    }

    void noteEffects(Node& node) {
        switch (node.op()) {
        case Op::Store: {
            Var* const var = asVar(node.operand(0));
            change(var, true);
            // A load that follows finds what was stored. Arrays are copied by a load, so their
            // stored value would live on beside the variable's; they are loaded again.
            if (!var->isAggregate()) {
                Key key = makeKey(Op::Load, Mode(), var->type());
                key.numOperands = 1;
                key.operands[0] = Ref<Entity>(var).bits();
                key.state = stateOf(var, false);
                known_.insert_or_assign(key, node.operand(1));
            }
            break;
        }
        case Op::StElem:
        case Op::StElem2:
            change(node.operand(0), false);
            break;
        case Op::Resize:
            change(node.operand(0), true);
            break;
        case Op::StoreP:
        case Op::Call:
            change(nullptr, true);
            break;
        default:
            break;
        }
    }

    Cfg& cfg_;
    std::vector<bool> addressTaken_;
    std::vector<std::uint32_t> value_; // by variable id
    std::vector<std::uint32_t> size_;  // by variable id
    std::uint32_t memory_ = 0;         // of variables whose address is taken, and of all pointers
    std::uint32_t memorySize_ = 0;
    std::uint32_t counter_ = 0;
    std::unordered_map<Key, Entity*, KeyHash> known_;
    bool changed_ = false;
};

} // namespace

bool numberValues(Function& function) {
    return Numbering(function.cfg()).run();
}

} // namespace QN::transforms
