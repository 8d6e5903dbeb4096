// Looking up what is known of the nodes of a batch. The one hot loop of the verifier besides the
// walks of the survey.
#include "verify/batch.hpp"

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

inline unsigned Batch::lookAt(const Node& node, std::uint32_t number, std::uint32_t blockStart,
                              NodeFacts& facts) {
    static constexpr OperandRule takesNothing = {};
    const Op op = node.op();
    const bool exists = static_cast<std::size_t>(op) < opCount;
    const OperandRule& rule = exists ? operandRuleOf(op) : takesNothing;
    const std::span<const Operand> operands = node.operands();
    const MemoryMap& memory = survey_->memory();
    const Type* const ownType = types_->contains(node.type()) ? node.type() : nullptr;
    const Type* knownType = ownType; // one that has been looked up
    OperandFacts* const out = operands_.data() + operandCount_;
    bool isMalformed = !exists || ownType == nullptr || operands.size() < rule.least ||
                       operands.size() > rule.most;
    bool isFar = false;
    bool isWrongUser = false;
    std::size_t linked = 0;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        const Entity* const value = operands[i].value();
        isWrongUser |= operands[i].user() != &node;
        if (!memory.isListed(value)) [[unlikely]] {
            out[i] = {value, nullptr, noIndex,
                      value == nullptr ? OperandFacts::Link::Empty : OperandFacts::Link::Unlisted,
                      EntityKind::Other};
            isMalformed = true;
            continue;
        }
        ++linked;
        const EntityKind kind = value->kind();
        isMalformed |= !rule.takes(i, kind);
        const Type* type = nullptr;
        std::uint32_t definition = noIndex;
        if (kind == EntityKind::Node) {
            type = static_cast<const Node*>(value)->type();
            definition = survey_->nodeNumbers()[static_cast<const Node*>(value)];
            // Unsigned, so that what comes from before the block is far too.
            isFar |= definition - blockStart >= number - blockStart;
        } else if (kind == EntityKind::Const) {
            type = static_cast<const Const*>(value)->type();
        } else if (kind == EntityKind::Var) {
            type = static_cast<const Var*>(value)->type();
        } else { // blocks and callees have no type
            out[i] = {value, nullptr, noIndex, OperandFacts::Link::Listed, kind};
            continue;
        }
        if (type != knownType) {
            type = types_->contains(type) ? type : nullptr;
            knownType = type;
        }
        isMalformed |= type == nullptr || type == void_;
        out[i] = {value, type, definition, OperandFacts::Link::Listed, kind};
    }
    operandCount_ += operands.size();
    survey_->countLinked(linked);
    facts.node = &node;
    facts.type = ownType;
    facts.number = number;
    facts.block = block_;
    facts.operands = {out, operands.size()};
    facts.op = op;
    return flagIf(NodeFacts::Malformed, isMalformed) | flagIf(NodeFacts::Far, isFar) |
           flagIf(NodeFacts::WrongUser, isWrongUser);
}

std::uint32_t Batch::fill(std::uint32_t first) {
    count_ = 0;
    operandCount_ = 0;
    block_ = first == 0 ? 0 : block_;
    unsigned anyFlags = 0;
    std::uint32_t anyLines = 0;
    const auto size = static_cast<std::uint32_t>(survey_->nodes().size());
    std::uint32_t number = first;
    while (number < size && count_ < mostNodes && operandCount_ < mostOperands) {
        while (survey_->endNode(block_) <= number) {
            ++block_;
        }
        const Block* const block = survey_->blocks()[block_];
        const std::uint32_t blockStart = survey_->firstNode(block_);
        const std::uint32_t blockEnd = survey_->endNode(block_);
        for (; number < blockEnd && count_ < mostNodes && operandCount_ < mostOperands; ++number) {
            constexpr std::uint32_t ahead = 10;
            const Node* const later = survey_->nodes()[number + ahead < size ? number + ahead : 0];
            __builtin_prefetch(later);
            __builtin_prefetch(later + 1); // its operands
            const Node& node = *survey_->nodes()[number];
            NodeFacts& facts = nodes_[count_++];
            unsigned flags = lookAt(node, number, blockStart, facts);
            flags |= flagIf(NodeFacts::WrongBlock, node.block() != block) |
                     flagIf(NodeFacts::HasMode, node.mode().bits() != 0) |
                     flagIf(NodeFacts::EndsBlock, number + 1 == blockEnd);
            facts.flags = static_cast<std::uint8_t>(flags);
            anyFlags |= flags;
            anyLines |= node.line();
            survey_->followUses(node, Where::atNode(number));
        }
    }
    survey_->finishUses();
    flags_ = static_cast<std::uint8_t>(anyFlags);
    lines_ = anyLines;
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
