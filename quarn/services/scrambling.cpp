// See scrambling.hpp.
//
// What depends on what inside a block: a value comes before its uses; accesses to one variable keep
// their order if one of them writes; so do accesses through pointers, which may reach any variable
// whose address is taken, and calls among them; nodes that may trap keep their order. An element
// access whose index is known to be inside the bounds knows it from a check before it, so it stays
// behind whatever may trap.
#include "services/scrambling.hpp"

#include <qn/builder.hpp>
#include <qn/function.hpp>

#include <algorithm>
#include <unordered_map>

namespace QN::detail {

namespace {

/// A partial order of the nodes of one block, by their places in it.
class Dependences {
public:
    Dependences(const Block& block, const std::vector<bool>& addressTaken)
        : addressTaken_(addressTaken) {
        for (Node& node : block.nodes()) {
            if (!node.isTerminator()) {
                placeOf_.emplace(&node, static_cast<std::uint32_t>(nodes_.size()));
                nodes_.push_back(&node);
            }
        }
        followers_.resize(nodes_.size());
        numBefore_.resize(nodes_.size());
        for (std::uint32_t place = 0; place < nodes_.size(); ++place) {
            add(place, *nodes_[place]);
        }
    }

    /// A random order that respects the dependences.
    std::vector<Node*> shuffled(Random& random) {
        std::vector<std::uint32_t> ready;
        for (std::uint32_t place = 0; place < nodes_.size(); ++place) {
            if (numBefore_[place] == 0) {
                ready.push_back(place);
            }
        }
        std::vector<Node*> order;
        while (!ready.empty()) {
            std::swap(ready[random.below(ready.size())], ready.back());
            const std::uint32_t place = ready.back();
            ready.pop_back();
            order.push_back(nodes_[place]);
            for (const std::uint32_t follower : followers_[place]) {
                if (--numBefore_[follower] == 0) {
                    ready.push_back(follower);
                }
            }
        }
        return order;
    }

    [[nodiscard]] const std::vector<Node*>& nodes() const noexcept { return nodes_; }

private:
    // A thing that is read and written: a variable by its id, or one of these.
    static constexpr std::uint64_t memory = std::uint64_t{1} << 32;
    static constexpr std::uint64_t traps = memory + 1;

    struct Accesses {
        bool written = false;
        std::uint32_t lastWrite = 0;
        std::vector<std::uint32_t> readsSince;
    };

    void add(std::uint32_t place, const Node& node) {
        for (const Operand& operand : node.operands()) {
            if (const auto found = placeOf_.find(operand.value()); found != placeOf_.end()) {
                order(found->second, place);
            }
        }
        const bool writes = node.has(OpFlag::Writes);
        if (writes || node.has(OpFlag::Reads)) {
            access(place, locationOf(node), writes);
        }
        if (node.mayTrap() || node.op() == Op::Count) {
            access(place, traps, true);
        } else if (node.has(OpFlag::Indexes)) {
            access(place, traps, false);
        }
    }

    std::uint64_t locationOf(const Node& node) const {
        const Var* const var = node.numOperands() > 0 ? asVar(node.operand(0)) : nullptr;
        return var != nullptr && !addressTaken_[var->id()] ? var->id() : memory;
    }

    void access(std::uint32_t place, std::uint64_t location, bool writes) {
        Accesses& accesses = accesses_[location];
        if (accesses.written) {
            order(accesses.lastWrite, place);
        }
        if (!writes) {
            accesses.readsSince.push_back(place);
            return;
        }
        for (const std::uint32_t read : accesses.readsSince) {
            if (read != place) {
                order(read, place);
            }
        }
        accesses.readsSince.clear();
        accesses.written = true;
        accesses.lastWrite = place;
    }

    void order(std::uint32_t before, std::uint32_t after) {
        followers_[before].push_back(after);
        ++numBefore_[after];
    }

    const std::vector<bool>& addressTaken_;
    std::vector<Node*> nodes_;
    std::unordered_map<const Entity*, std::uint32_t> placeOf_;
    std::unordered_map<std::uint64_t, Accesses> accesses_;
    std::vector<std::vector<std::uint32_t>> followers_;
    std::vector<std::uint32_t> numBefore_;
};

} // namespace

bool reorderNodes(Cfg& cfg, Block& block, const std::vector<bool>& addressTaken, Random& random) {
    Node* const end = block.terminator();
    if (end == nullptr || block.numNodes() < 3) {
        return false;
    }
    Dependences dependences(block, addressTaken);
    const std::vector<Node*> order = dependences.shuffled(random);
    if (order == dependences.nodes()) {
        return false;
    }
    for (Node* const node : order) {
        cfg.unlink(node);
        cfg.insertBefore(end, node);
    }
    return true;
}

bool permuteLocals(Cfg& cfg, Random& random) {
    std::vector<Var*> order;
    for (Var& var : cfg.vars()) {
        if (var.varKind() != VarKind::Param) {
            order.push_back(&var);
        }
    }
    const std::vector<Var*> before = order;
    for (std::size_t i = order.size(); i > 1; --i) {
        std::swap(order[i - 1], order[random.below(i)]);
    }
    if (order == before) {
        return false;
    }
    cfg.reorderLocals(order);
    return true;
}

std::vector<bool> findAddressTaken(const Cfg& cfg) {
    std::vector<bool> taken(cfg.varIdLimit(), false);
    for (const Var& var : cfg.vars()) {
        for (const Operand& use : var.uses()) {
            if (use.user()->op() == Op::AddrOf) {
                taken[var.id()] = true;
                break;
            }
        }
    }
    return taken;
}

bool canIntroducePointer(const Var& var) {
    if (var.type()->isPointer()) {
        return false;
    }
    for (const Operand& use : var.uses()) {
        if (use.user()->op() != Op::AddrOf) {
            return true;
        }
    }
    return false;
}

void introducePointer(Cfg& cfg, Var& var) {
    std::vector<Node*> accesses;
    for (const Operand& use : var.uses()) {
        if (use.user()->op() != Op::AddrOf && use.user()->block() != nullptr) {
            accesses.push_back(use.user());
        }
    }
    Var* const pointer = cfg.addVar(VarKind::Temp, Type::pointer(var.type()), {}, var.line());
    for (Node* const node : accesses) {
        Builder here(cfg, *node);
        Node* const address = here.load(pointer);
        switch (node->op()) {
        case Op::Load:
            cfg.replaceUses(node, here.loadThrough(address));
            cfg.remove(node);
            break;
        case Op::Store:
            here.storeThrough(address, node->operand(1));
            cfg.remove(node);
            break;
        default: // an array operation takes a pointer to the array as well
            node->setOperand(0, address);
        }
    }
    Builder start(cfg, *cfg.entry()->first());
    start.setLine(0);
    start.store(pointer, start.addressOf(&var));
}

} // namespace QN::detail
