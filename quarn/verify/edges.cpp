// Checks of the edges between operands and what they refer to.
#include "verify/checks.hpp"

#include <unordered_set>

namespace QN::verification::checks {

void edgeUser(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::WrongUser, [&](const NodeFacts& node) {
        sink.fail(batch, node, "an operand of the node names another node as its user");
    });
}

void edgeUses(const Survey& graph, Sink& sink) {
    for (const Flaw& flaw : graph.flaws()) {
        if (flaw.of == Flaw::Of::Uses) {
            sink.fail(graph, flaw.where, flaw.text);
        }
    }
}

void edgeDetached(const Survey& graph, Sink& sink) {
    for (const Flaw& flaw : graph.flaws()) {
        if (flaw.of == Flaw::Of::DetachedUse) {
            sink.fail(graph, flaw.where, flaw.text);
        }
    }
}

void edgeListed(const Survey& graph, Sink& sink) {
    if (graph.allOperandsAreListed()) {
        return;
    }
    // The counts differ, so it is worth the time to mark every use that a list leads to. A list
    // that is broken is reported as such, and what follows the break is not held against anyone.
    std::unordered_set<const Operand*> operands;
    for (const Node* const node : graph.nodes()) {
        for (const Operand& operand : node->operands()) {
            operands.insert(&operand);
        }
    }
    std::unordered_set<const Operand*> met;
    std::unordered_set<const Entity*> broken;
    const auto follow = [&](const Entity& entity, Where where) {
        const Operand* previous = nullptr;
        for (const Operand* use = entity.firstUse(); use != nullptr; use = use->nextUse()) {
            if (!graph.memory().holds(use, sizeof(Operand)) || use->previousUse() != previous ||
                use->value() != &entity) {
                broken.insert(&entity);
                return;
            }
            if (!operands.contains(use) && graph.memory().isListed(use->user())) {
                sink.fail(graph, where,
                          "a use of " + describe(graph, entity) +
                              " is an operand of no node, though it names one");
                return;
            }
            met.insert(use);
            previous = use;
        }
    };
    const auto followAll = [&](const auto& entities) {
        for (const auto* const entity : entities) {
            follow(*entity, {});
        }
    };
    followAll(graph.vars());
    followAll(graph.consts());
    followAll(graph.callees());
    for (std::size_t i = 0; i < graph.nodes().size(); ++i) {
        follow(*graph.nodes()[i], Where::atNode(i));
    }
    for (std::size_t i = 0; i < graph.nodes().size(); ++i) {
        for (const Operand& operand : graph.nodes()[i]->operands()) {
            const Entity* const value = operand.value();
            if (value != nullptr && graph.memory().isListed(value) &&
                value->kind() != EntityKind::Block && !broken.contains(value) &&
                !met.contains(&operand)) {
                sink.fail(graph, Where::atNode(i),
                          "an operand of the node is not in the list of uses of " +
                              describe(graph, *value));
                break;
            }
        }
    }
}

} // namespace QN::verification::checks
