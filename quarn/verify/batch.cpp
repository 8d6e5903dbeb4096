// Looking up what is known of the nodes of a batch. The one hot loop of the verifier besides the
// walks of the survey.
#include "verify/batch.hpp"

#include <cstring>

namespace QN::verification {

namespace {

constexpr std::uint8_t bit(EntityKind kind) {
    return static_cast<std::uint8_t>(1U << static_cast<unsigned>(kind));
}

constexpr OperandRule ruleOf(const OpInfo& info) {
    OperandRule rule = {};
    constexpr std::uint8_t value = bit(EntityKind::Node) | bit(EntityKind::Const);
    for (const char letter : info.operands) {
        if (letter == '*') {
            rule.most = Node::maxOperands;
            for (std::size_t i = rule.least; i < rule.kinds.size(); ++i) {
                rule.kinds[i] = value;
            }
            rule.otherKinds = value;
            return rule;
        }
        std::uint8_t kinds = value;
        switch (letter) {
        case 'V':
            kinds = bit(EntityKind::Var);
            break;
        case 'a':
            kinds = bit(EntityKind::Var) | bit(EntityKind::Node);
            break;
        case 'B':
            kinds = bit(EntityKind::Block);
            break;
        case 'C':
            kinds = bit(EntityKind::Callee);
            break;
        case 'K':
            kinds = bit(EntityKind::Const);
            break;
        default: // v and ?
            break;
        }
        rule.kinds[rule.most++] = kinds;
        rule.least = static_cast<std::uint8_t>(rule.least + (letter == '?' ? 0 : 1));
    }
    return rule;
}

constexpr unsigned flagIf(unsigned flag, bool condition) {
    return condition ? flag : 0;
}

constexpr std::array<OperandRule, opCount> rules = [] {
    std::array<OperandRule, opCount> table = {};
    for (std::size_t i = 0; i < opCount; ++i) {
        table[i] = ruleOf(detail::opTable[i]);
    }
    return table;
}();

} // namespace

const OperandRule& operandRuleOf(Op op) noexcept {
    return rules[static_cast<std::size_t>(op)];
}

namespace {

/// What nodes, constants and variables have in common behind the head of every entity. Other
/// entities have other things there, but are never smaller.
struct TypedHead {
    Ref<const Type> type;
    std::uint32_t id;
};

TypedHead typedHeadOf(const Entity& entity) noexcept {
    TypedHead head;
    static_assert(sizeof(Entity) == 8 && sizeof head == 8);
    static_assert(sizeof(Block) >= 16 && sizeof(Callee) >= 16);
    std::memcpy(&head, reinterpret_cast<const std::byte*>(&entity) + sizeof(Entity), sizeof head);
    return head;
}

} // namespace

// Nodes differ so much that a processor can foresee few branches on what it finds in them, and each
// that it gets wrong costs more than looking at an operand. So this goes in steps over all nodes
// and then over all operands, and computes flags where one would rather branch.

inline void Batch::takeUp(const Node& node, std::uint32_t number, std::uint32_t blockStart) {
    static constexpr OperandRule takesNothing = {};
    const auto place = static_cast<std::uint8_t>(count_);
    NodeFacts& facts = nodes_[count_++];
    const Op op = node.op();
    const bool exists = static_cast<std::size_t>(op) < opCount;
    const OperandRule& rule = exists ? operandRuleOf(op) : takesNothing;
    const std::size_t count = node.numOperands();
    const Ref<const Type> type = typedHeadOf(node).type;
    const bool isKnownType = types_->contains(type);

    facts.node = &node;
    facts.type = isKnownType ? &*type : nullptr;
    facts.number = number;
    facts.block = block_;
    facts.blockStart = blockStart;
    facts.operands = {operands_.data() + operandCount_, count};
    facts.op = op;
    const bool isMiscounted = (count < rule.least) | (count > rule.most);
    facts.flags = static_cast<std::uint8_t>(
        flagIf(NodeFacts::Malformed, !exists | !isKnownType | isMiscounted) |
        flagIf(NodeFacts::HasMode, node.mode().bits() != 0));

    // There is room for what is written too much.
    const Operand* const first = node.operands().data();
    for (std::size_t i = 0; i < atOnce; ++i) {
        sources_[operandCount_ + i] = first + i;
        takenKinds_[operandCount_ + i] = rule.kinds[i];
        owners_[operandCount_ + i] = place;
    }
    for (std::size_t i = atOnce; i < count; ++i) {
        sources_[operandCount_ + i] = first + i;
        takenKinds_[operandCount_ + i] = rule.otherKinds;
        owners_[operandCount_ + i] = place;
    }
    operandCount_ += count;
}

// `numberOf(id, isNode, value)` gives a node's number; for what is no node, anything.
template <typename NumberOf>
inline void Batch::lookAtOperands(NumberOf numberOf) {
    constexpr unsigned typedKinds =
        bit(EntityKind::Node) | bit(EntityKind::Const) | bit(EntityKind::Var);
    const MemoryMap::Listed listed = survey_->memory().listed();
    const TypeTable& types = *types_;
    const Type* const voidType = void_;
    const std::size_t count = operandCount_;
    std::size_t unlisted = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Operand& operand = *sources_[i];
        NodeFacts& owner = nodes_[owners_[i]];
        OperandFacts& out = operands_[i];
        const Ref<Entity> reference = operand.valueRef();
        const unsigned wrongUser =
            flagIf(NodeFacts::WrongUser, operand.userRef() != Ref<Node>(owner.node));
        if (!listed.contains(reference)) [[unlikely]] {
            out = {reference.get(), nullptr, noIndex,
                   reference ? OperandFacts::Link::Unlisted : OperandFacts::Link::Empty,
                   EntityKind::Other};
            owner.flags = static_cast<std::uint8_t>(owner.flags | NodeFacts::Malformed | wrongUser);
            ++unlisted;
            continue;
        }
        const Entity& value = *reference;
        const EntityKind kind = value.kind(); // of a damaged entity, any number
        const unsigned number = static_cast<unsigned>(kind);
        const unsigned kindBit = number < 8 ? 1U << number : 0;
        const bool isTyped = (kindBit & typedKinds) != 0;
        const bool isNode = kind == EntityKind::Node;
        const TypedHead head = typedHeadOf(value);
        const Type* const type = (isTyped & types.contains(head.type)) ? &*head.type : nullptr;
        const bool isMalformed = ((kindBit & takenKinds_[i]) == 0) |
                                 (isTyped & ((type == nullptr) | (type == voidType)));
        const std::uint32_t found = numberOf(head.id, isNode, value);
        const std::uint32_t definition = isNode ? found : noIndex;
        // Unsigned, so that what comes from before the block is far too.
        const bool isFar =
            isNode & (definition - owner.blockStart >= owner.number - owner.blockStart);
        out = {&value, type, definition, OperandFacts::Link::Listed, kind};
        owner.flags =
            static_cast<std::uint8_t>(owner.flags | flagIf(NodeFacts::Malformed, isMalformed) |
                                      flagIf(NodeFacts::Far, isFar) | wrongUser);
    }
    survey_->countLinked(count - unlisted);
}

std::uint32_t Batch::fill(std::uint32_t first) {
    count_ = 0;
    operandCount_ = 0;
    block_ = first == 0 ? 0 : block_;
    const auto size = static_cast<std::uint32_t>(survey_->nodes().size());
    std::uint32_t number = first;
    while (number < size && count_ < mostNodes && operandCount_ < mostOperands) {
        while (survey_->endNode(block_) <= number) {
            ++block_;
        }
        const std::uint32_t blockStart = survey_->firstNode(block_);
        const std::uint32_t blockEnd = survey_->endNode(block_);
        for (; number < blockEnd && count_ < mostNodes && operandCount_ < mostOperands; ++number) {
            constexpr std::uint32_t ahead = 10;
            const Node* const later = survey_->nodes()[number + ahead < size ? number + ahead : 0];
            __builtin_prefetch(later);
            __builtin_prefetch(later + 1); // its operands
            takeUp(*survey_->nodes()[number], number, blockStart);
        }
    }
    if (const std::uint32_t* const table = survey_->nodeNumbers().table(); table != nullptr) {
        lookAtOperands([table](std::uint32_t id, bool isNode, const Entity&) {
            return table[isNode ? id : 0];
        });
    } else {
        lookAtOperands([this](std::uint32_t, bool isNode, const Entity& value) {
            return isNode ? survey_->nodeNumbers()[static_cast<const Node*>(&value)] : noIndex;
        });
    }

    unsigned anyFlags = 0;
    std::uint32_t anyLines = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        NodeFacts& facts = nodes_[i];
        const Block* const block = survey_->blocks()[facts.block];
        facts.flags = static_cast<std::uint8_t>(
            facts.flags | flagIf(NodeFacts::WrongBlock, facts.node->block() != block) |
            flagIf(NodeFacts::EndsBlock, facts.number + 1 == survey_->endNode(facts.block)));
        anyFlags |= facts.flags;
        anyLines |= facts.node->line();
    }
    flags_ = static_cast<std::uint8_t>(anyFlags);
    lines_ = anyLines;
    if (any(NodeFacts::WrongUser)) {
        survey_->denyUsers();
    }
    survey_->followUsesOfNodes(first, number);
    sortByOperation();
    return number;
}

void Batch::sortByOperation() {
    firstOf_.fill(none);
    for (std::size_t i = count_; i-- > 0;) {
        if (!nodes_[i].is(NodeFacts::Malformed)) {
            std::uint8_t& head = firstOf_[static_cast<std::size_t>(nodes_[i].op)];
            nextOfSameOp_[i] = head;
            head = static_cast<std::uint8_t>(i);
        }
    }
}

} // namespace QN::verification
