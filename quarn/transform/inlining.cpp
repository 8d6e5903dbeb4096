// Inlining: puts the body of a small function that calls nothing itself in the place of a call to
// it.
//
// Requires: valid IR. Keeps: results and traps; a trap inside names the line of the callee, as
// before. Invalidates: blocks of the calling function; it gets the callee's variables as
// temporaries.
//
// Callees are chosen before anything is changed, so the result does not depend on the order of
// functions, and one run inlines one level. A function grows to at most `largestCaller` nodes by
// it.
#include "transform/transforms.hpp"

#include <qn/builder.hpp>
#include <qn/copy.hpp>
#include <qn/scope.hpp>

#include <unordered_set>
#include <vector>

namespace QN::transforms {

namespace {

constexpr std::size_t largestCallee = 40;
constexpr std::size_t largestCaller = 20'000;

bool isInlinable(const Function& function) {
    if (!function.hasCfg()) {
        return false;
    }
    const Cfg& cfg = function.cfg();
    // A block that leads back to the entry would meet the initialization of the variables again.
    if (cfg.entry() == nullptr || cfg.entry()->hasUses() || cfg.numNodes() > largestCallee) {
        return false;
    }
    for (const Block& block : cfg.blocks()) {
        if (block.terminator() == nullptr || !cfg.dominators().isReachable(block)) {
            return false;
        }
        for (const Node& node : block.nodes()) {
            // Counters belong to their function.
            if (node.has(OpFlag::Calls) || node.op() == Op::Count) {
                return false;
            }
        }
    }
    return true;
}

bool fits(const Node& call, const Function& callee) {
    if (call.numOperands() - 1 != callee.paramTypes().size() ||
        (call.hasValue() && call.type() != callee.resultType())) {
        return false;
    }
    for (std::size_t i = 0; i < callee.paramTypes().size(); ++i) {
        if (typeOf(call.operand(i + 1)) != callee.paramTypes()[i]) {
            return false;
        }
    }
    return true;
}

void storeZero(Builder& builder, Var& var) {
    const Type& type = *var.type();
    if (type.isArray()) {
        Const* const zero = builder.cfg().constantInt(Type::i64(), 0);
        builder.resize(&var, zero, zero);
    } else if (type.isScalar()) {
        builder.store(&var, builder.cfg().constant(&type, 0));
    }
    // A pointer is written before it is read, or reading through it is an error either way.
}

/// Splits the block of `call` behind it; returns the block that goes on. The call stays last.
Block* splitBehind(Cfg& cfg, Node& call) {
    Block* const rest = cfg.addBlock(call.block());
    while (Node* const node = call.next()) {
        cfg.unlink(node);
        cfg.append(rest, node);
    }
    return rest;
}

void inlineCall(Cfg& cfg, Node& call, const Function& callee) {
    const Cfg& body = callee.cfg();
    GraphCopier copier(body, cfg);
    Block* const block = call.block();
    Block* const rest = splitBehind(cfg, call);
    Builder builder(cfg, block);
    builder.setLine(call.line());

    std::size_t argument = 1;
    for (const Var& var : body.vars()) {
        Var& copy = copier.copyVar(var, VarKind::Temp);
        if (var.varKind() == VarKind::Param) {
            builder.store(&copy, call.operand(argument++));
        } else {
            storeZero(builder, copy);
        }
    }
    Var* const result =
        call.hasValue() ? cfg.addVar(VarKind::Temp, call.type(), "", call.line()) : nullptr;
    copier.copyBlocks();
    builder.jump(&copier.of(*body.entry()));

    Block* last = block;
    for (const Block& original : body.blocks()) {
        Block& copy = copier.of(original);
        cfg.moveBlock(&copy, last);
        last = &copy;
        Node* const end = copy.terminator();
        if (end->op() != Op::Ret) {
            continue;
        }
        Builder atEnd(cfg, &copy);
        atEnd.setLine(end->line());
        if (result != nullptr) {
            Node* const store = atEnd.store(result, end->operand(0));
            cfg.unlink(store);
            cfg.insertBefore(end, store);
        }
        cfg.remove(end);
        atEnd.jump(rest);
    }
    if (result != nullptr) {
        Builder after(cfg, *rest->first());
        after.setLine(call.line());
        cfg.replaceUses(&call, after.load(result));
    }
    cfg.remove(&call);
}

} // namespace

bool inlineCalls(Scope& scope) {
    std::unordered_set<const Function*> inlinable;
    for (const auto& function : scope.functions()) {
        if (isInlinable(*function)) {
            inlinable.insert(function.get());
        }
    }
    if (inlinable.empty()) {
        return false;
    }
    bool changed = false;
    for (const auto& function : scope.functions()) {
        if (!function->hasCfg() || inlinable.contains(function.get())) {
            continue; // what is inlinable calls nothing
        }
        Cfg& cfg = function->cfg();
        std::vector<Node*> calls;
        for (const Block& block : cfg.blocks()) {
            for (Node& node : block.nodes()) {
                if (!node.has(OpFlag::Calls)) {
                    continue;
                }
                const Function* const target = scope.find(asCallee(node.operand(0))->name());
                if (target != nullptr && inlinable.contains(target) && fits(node, *target)) {
                    calls.push_back(&node);
                }
            }
        }
        // The last call first: what is split off behind a call then holds no other, so that no node
        // is moved twice.
        for (std::size_t i = calls.size(); i-- > 0 && cfg.numNodes() < largestCaller;) {
            inlineCall(cfg, *calls[i], *scope.find(asCallee(calls[i]->operand(0))->name()));
            changed = true;
        }
    }
    return changed;
}

} // namespace QN::transforms
