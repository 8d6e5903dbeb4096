// Checks of the form of nodes: operation, type, line, and number, presence and kind of operands.
// What is found wrong here keeps the checks of types from looking at the node.
#include "verify/checks.hpp"

#include <string>
#include <string_view>

namespace QN::verification::checks {

namespace {

using Link = OperandFacts::Link;

/// What an operation takes at a place, in words, by the letter in its row.
std::string_view takenAt(Op op, std::size_t index) {
    const std::string_view letters = infoOf(op).operands;
    switch (index < letters.size() ? letters[index] : '*') {
    case 'V':
        return "a variable";
    case 'a':
        return "a variable or a pointer value";
    case 'B':
        return "a block";
    case 'C':
        return "a callee";
    case 'K':
        return "a constant";
    default:
        return "a node or a constant";
    }
}

std::string numbered(std::size_t index) {
    return "operand " + std::to_string(index + 1);
}

bool exists(const NodeFacts& node) {
    return static_cast<std::size_t>(node.op) < opCount;
}

/// Calls `report(index)` for the first operand of each malformed node of an operation that exists
/// for which `isWrong(node, index)` holds.
template <typename Predicate, typename Report>
void forFirstWrong(const Batch& batch, Predicate isWrong, Report report) {
    batch.forEachFlagged(NodeFacts::Malformed, [&](const NodeFacts& node) {
        for (std::size_t i = 0; exists(node) && i < node.operands.size(); ++i) {
            if (isWrong(node, i)) {
                report(node, i);
                return;
            }
        }
    });
}

enum class Target : std::uint8_t { Var, Block, Other };

/// What an operand that leads to nothing known was to lead to.
Target targetOf(const Batch& batch, const NodeFacts& node, std::size_t index) {
    const Entity* const value = node.operands[index].value;
    EntityKind kind = EntityKind::Other;
    if (batch.survey().memory().holds(value, sizeof(Entity))) {
        kind = value->kind();
    }
    if (operandRuleOf(node.op).takes(index, kind)) {
        return kind == EntityKind::Var     ? Target::Var
               : kind == EntityKind::Block ? Target::Block
                                           : Target::Other;
    }
    const std::string_view letters = infoOf(node.op).operands;
    const char letter = index < letters.size() ? letters[index] : '*';
    return letter == 'V' ? Target::Var : letter == 'B' ? Target::Block : Target::Other;
}

void reportDangling(const Batch& batch, Target target, std::string_view text, Sink& sink) {
    forFirstWrong(
        batch,
        [&](const NodeFacts& node, std::size_t i) {
            return node.operands[i].link == Link::Unlisted && targetOf(batch, node, i) == target;
        },
        [&](const NodeFacts& node, std::size_t i) {
            sink.fail(batch, node, numbered(i) + std::string(text));
        });
}

} // namespace

void nodeOperation(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::Malformed, [&](const NodeFacts& node) {
        if (!exists(node)) {
            sink.fail(batch, node,
                      "there is no operation " + std::to_string(static_cast<unsigned>(node.op)));
        }
    });
}

void nodeType(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::Malformed, [&](const NodeFacts& node) {
        if (node.type == nullptr) {
            sink.fail(batch, node, "the type of the node is none of the process's");
        }
    });
}

void nodeLine(const Batch& batch, Sink& sink) {
    if (batch.lines() < lineLimit) {
        return;
    }
    for (const NodeFacts& node : batch.nodes()) {
        if (node.node->line() >= lineLimit) {
            sink.fail(batch, node,
                      "the node is said to be from line " + std::to_string(node.node->line()));
        }
    }
}

void operandCount(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::Malformed, [&](const NodeFacts& node) {
        if (!exists(node)) {
            return;
        }
        const OperandRule& rule = operandRuleOf(node.op);
        const std::size_t count = node.operands.size();
        if (count < rule.least || count > rule.most) {
            sink.fail(batch, node,
                      "takes " + std::string(rule.most > rule.least ? "at least " : "") +
                          std::to_string(count < rule.least ? rule.least : rule.most) +
                          " operands, has " + std::to_string(count));
        }
    });
}

void operandMissing(const Batch& batch, Sink& sink) {
    forFirstWrong(
        batch,
        [](const NodeFacts& node, std::size_t i) { return node.operands[i].link == Link::Empty; },
        [&](const NodeFacts& node, std::size_t i) {
            sink.fail(batch, node, numbered(i) + " is empty");
        });
}

void operandKind(const Batch& batch, Sink& sink) {
    forFirstWrong(
        batch,
        [](const NodeFacts& node, std::size_t i) {
            return node.operands[i].link == Link::Listed && i < operandRuleOf(node.op).most &&
                   !operandRuleOf(node.op).takes(i, node.operands[i].kind);
        },
        [&](const NodeFacts& node, std::size_t i) {
            sink.fail(batch, node,
                      numbered(i)
                          .append(" is a ")
                          .append(toString(node.operands[i].kind))
                          .append(" where ")
                          .append(takenAt(node.op, i))
                          .append(" is taken"));
        });
}

void operandVoid(const Batch& batch, Sink& sink) {
    forFirstWrong(
        batch,
        [](const NodeFacts& node, std::size_t i) {
            return node.operands[i].kind == EntityKind::Node && node.operands[i].type != nullptr &&
                   node.operands[i].type->isVoid() &&
                   operandRuleOf(node.op).takes(i, EntityKind::Node);
        },
        [&](const NodeFacts& node, std::size_t i) {
            sink.fail(batch, node, numbered(i) + " is a node that gives no value");
        });
}

void operandDangling(const Batch& batch, Sink& sink) {
    reportDangling(batch, Target::Other, " is a value, constant or callee that is not in the graph",
                   sink);
}

void varDangling(const Batch& batch, Sink& sink) {
    reportDangling(batch, Target::Var, " is a variable that the graph does not declare", sink);
}

void blockTarget(const Batch& batch, Sink& sink) {
    reportDangling(batch, Target::Block, " is a block that is not in the layout of the graph",
                   sink);
}

} // namespace QN::verification::checks
