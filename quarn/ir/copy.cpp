// See qn/copy.hpp.
#include <qn/copy.hpp>
#include <qn/function.hpp>
#include <qn/stack_trace_tag.hpp>
#include <qn/text.hpp>

#include <array>

namespace QN {

namespace {

void copyTag(const Entity& from, Cfg& cfg, const Entity& to) {
    if (StackTraceTag::anyExist()) {
        StackTraceTag::copy(from, cfg, to);
    }
}

} // namespace

GraphCopier::GraphCopier(const Cfg& from, Cfg& to)
    : from_(from), to_(to), vars_(from.varIdLimit()), blocks_(from.blockIdLimit()),
      nodes_(from.nodeIdLimit()) {}

Var& GraphCopier::copyVar(const Var& original, VarKind kind) {
    Var* const copy = to_.addVar(kind, original.type(), original.name(), original.line());
    copyTag(original, to_, *copy);
    map(original, *copy);
    return *copy;
}

Entity* GraphCopier::copied(Entity* original) {
    if (original == nullptr) {
        return nullptr;
    }
    switch (original->kind()) {
    case EntityKind::Node:
        return nodes_[static_cast<const Node*>(original)->id()];
    case EntityKind::Block:
        return blocks_[static_cast<const Block*>(original)->id()];
    case EntityKind::Var:
        return vars_[static_cast<const Var*>(original)->id()];
    case EntityKind::Const: {
        const auto& constant = *static_cast<const Const*>(original);
        const std::size_t before = to_.numConstants();
        Const* const copy = to_.constant(constant.type(), constant.bits());
        if (to_.numConstants() != before) { // one that was there has an origin of its own
            copyTag(constant, to_, *copy);
        }
        return copy;
    }
    case EntityKind::Callee:
        return to_.callee(static_cast<const Callee*>(original)->name());
    default:
        return nullptr;
    }
}

void GraphCopier::copyBlocks() {
    std::vector<Block*> originals; // the target may be the source, and grow meanwhile
    for (Block& block : from_.blocks()) {
        originals.push_back(&block);
    }
    for (Block* const block : originals) {
        blocks_[block->id()] = to_.addBlock();
    }
    std::array<Entity*, Node::maxOperands> operands;
    std::vector<const Node*> forward; // nodes with a value further down the layout
    for (const Block* const block : originals) {
        for (const Node& node : block->nodes()) {
            bool complete = true;
            for (std::size_t i = 0; i < node.numOperands(); ++i) {
                operands[i] = copied(node.operand(i));
                complete = complete && (operands[i] != nullptr || node.operand(i) == nullptr);
            }
            Node* const copy = to_.makeNode(node.op(), node.mode(), node.type(),
                                            {operands.data(), node.numOperands()}, node.line());
            to_.append(blocks_[block->id()], copy);
            copyTag(node, to_, *copy);
            nodes_[node.id()] = copy;
            if (!complete) {
                forward.push_back(&node);
            }
        }
    }
    for (const Node* const node : forward) {
        for (std::size_t i = 0; i < node->numOperands(); ++i) {
            if (asNode(node->operand(i)) != nullptr) {
                nodes_[node->id()]->setOperand(i, copied(node->operand(i)));
            }
        }
    }
}

std::unique_ptr<Cfg> copyOf(const Cfg& original, Function& owner) {
    auto copy = std::make_unique<Cfg>(owner);
    GraphCopier copier(original, *copy);
    for (const Var& var : original.vars()) {
        copier.copyVar(var, var.varKind());
    }
    copier.copyBlocks();
    return copy;
}

namespace {

class Comparison {
public:
    Comparison(const Cfg& a, const Cfg& b)
        : a_(a), b_(b), nodes_(a.nodeIdLimit()), blocks_(a.blockIdLimit()), vars_(a.varIdLimit()) {}

    std::string run() {
        if (a_.numVars() != b_.numVars() || a_.numParams() != b_.numParams()) {
            return "the number of variables differs";
        }
        const Var* otherVar = b_.firstVar();
        for (const Var& var : a_.vars()) {
            if (var.varKind() != otherVar->varKind() || var.type() != otherVar->type() ||
                var.name() != otherVar->name() || var.line() != otherVar->line()) {
                return "variable '" + std::string(var.name()) + "' differs";
            }
            vars_[var.id()] = otherVar;
            otherVar = otherVar->next();
        }
        if (a_.numBlocks() != b_.numBlocks()) {
            return "the number of blocks differs";
        }
        const Block* otherBlock = b_.entry();
        for (const Block& block : a_.blocks()) {
            if (std::string difference = pair(block, *otherBlock); !difference.empty()) {
                return difference;
            }
            otherBlock = otherBlock->next();
        }
        for (const Block& block : a_.blocks()) {
            for (const Node& node : block.nodes()) {
                for (std::size_t i = 0; i < node.numOperands(); ++i) {
                    if (!same(node.operand(i), nodes_[node.id()]->operand(i))) {
                        return describe(node) + ": operand " + std::to_string(i) + " differs";
                    }
                }
            }
        }
        return {};
    }

private:
    static std::string describe(const Node& node) {
        std::string text = "'";
        printText(node, text);
        return text + "'";
    }

    std::string pair(const Block& block, const Block& other) {
        blocks_[block.id()] = &other;
        if (block.numNodes() != other.numNodes()) {
            return "the number of nodes of block b" + std::to_string(block.id()) + " differs";
        }
        const Node* otherNode = other.first();
        for (const Node& node : block.nodes()) {
            if (node.op() != otherNode->op() || node.mode() != otherNode->mode() ||
                node.type() != otherNode->type() || node.line() != otherNode->line() ||
                node.numOperands() != otherNode->numOperands()) {
                return describe(node) + " differs";
            }
            nodes_[node.id()] = otherNode;
            otherNode = otherNode->next();
        }
        return {};
    }

    bool same(const Entity* a, const Entity* b) const {
        if (a == nullptr || b == nullptr || a->kind() != b->kind()) {
            return a == b;
        }
        switch (a->kind()) {
        case EntityKind::Node:
            return nodes_[static_cast<const Node*>(a)->id()] == b;
        case EntityKind::Block:
            return blocks_[static_cast<const Block*>(a)->id()] == b;
        case EntityKind::Var:
            return vars_[static_cast<const Var*>(a)->id()] == b;
        case EntityKind::Callee:
            return static_cast<const Callee*>(a)->name() == static_cast<const Callee*>(b)->name();
        case EntityKind::Const:
            return static_cast<const Const*>(a)->type() == static_cast<const Const*>(b)->type() &&
                   static_cast<const Const*>(a)->bits() == static_cast<const Const*>(b)->bits();
        default:
            return false;
        }
    }

    const Cfg& a_;
    const Cfg& b_;
    std::vector<const Node*> nodes_;   // by id in a: the node of b
    std::vector<const Block*> blocks_; // the same for blocks
    std::vector<const Var*> vars_;     // and variables
};

} // namespace

std::string differenceOf(const Cfg& a, const Cfg& b) {
    return Comparison(a, b).run();
}

} // namespace QN
