// Nodes as the checks see them: some at a time, with everything that a check may rely on already
// looked up. A batch fits into the processor's first cache, so that all checks run over it while it
// is there.
//
// Owner: the driver in verify.cpp. A check that needs another fact of a node adds it here.
#pragma once

#include "verify/survey.hpp"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace QN::verification {

/// One operand. `value` may be read only if the link is Listed.
struct OperandFacts {
    enum class Link : std::uint8_t {
        Empty,
        Unlisted, // refers to nothing that the graph's lists lead to
        Listed
    };
    const Entity* value;
    const Type* type; // of a listed node, constant or variable, if it is one of the process's
    std::uint32_t node = noIndex; // the number of a listed node
    Link link = Link::Empty;
    EntityKind kind = EntityKind::Other; // of what is listed
};

struct NodeFacts {
    /// What the checks should have a closer look at.
    enum : std::uint8_t {
        Malformed = 1, // operation, type, or number, kind or links of operands are not as required
        Far = 2,       // uses a value from another block, or from behind
        WrongUser = 4,
        WrongBlock = 8,
        HasMode = 16,
        EndsBlock = 32, // the last of its block
    };
    const Node* node;
    const Type* type; // null if it is not one of the process's
    std::uint32_t number;
    std::uint32_t block;
    std::uint32_t blockStart; // the number of the block's first node
    std::span<const OperandFacts> operands;
    Op op; // may be none that exists, if malformed
    std::uint8_t flags;

    [[nodiscard]] bool is(std::uint8_t flag) const noexcept { return (flags & flag) != 0; }
};

/// How many operands an operation takes, and of which kinds.
struct OperandRule {
    std::uint8_t least;
    std::uint8_t most;
    std::array<std::uint8_t, 4> kinds; // of the first four: bit N for entities of kind N
    std::uint8_t otherKinds;           // of all further ones

    [[nodiscard]] constexpr bool takes(std::size_t index, EntityKind kind) const noexcept {
        const std::uint8_t mask = index < kinds.size() ? kinds[index] : otherKinds;
        const auto bit = static_cast<unsigned>(kind); // of a damaged entity, any number
        return bit < 8 && ((mask >> bit) & 1) != 0;
    }
};

[[nodiscard]] const OperandRule& operandRuleOf(Op op) noexcept;

class Batch {
public:
    explicit Batch(Survey& survey)
        : survey_(&survey), types_(&typeTable()), void_(Type::voidType()) {}

    /// Takes up nodes of the survey from number `first` on and returns the number behind the last.
    std::uint32_t fill(std::uint32_t first);

    [[nodiscard]] const Survey& survey() const noexcept { return *survey_; }
    [[nodiscard]] std::span<const NodeFacts> nodes() const noexcept {
        return {nodes_.data(), count_};
    }
    /// Whether any node has one of these flags.
    [[nodiscard]] bool any(std::uint8_t flags) const noexcept { return (flags_ & flags) != 0; }
    /// All source lines, put together by or.
    [[nodiscard]] std::uint32_t lines() const noexcept { return lines_; }

    /// Calls `visit(const NodeFacts&)` for each node that has one of these flags.
    template <typename Visitor>
    void forEachFlagged(std::uint8_t flags, Visitor&& visit) const {
        if (!any(flags)) {
            return;
        }
        for (const NodeFacts& node : nodes()) {
            if (node.is(flags)) {
                visit(node);
            }
        }
    }

    /// Calls `visit(const NodeFacts&)` for each well-formed node of one of these operations. Its
    /// operands are as many as the operation takes, of the right kinds and, where they are values
    /// or variables, have types.
    template <typename Visitor>
    void forEach(std::initializer_list<Op> ops, Visitor&& visit) const {
        for (const Op op : ops) {
            for (std::uint8_t i = firstOf_[static_cast<std::size_t>(op)]; i != none;
                 i = nextOfSameOp_[i]) {
                visit(nodes_[i]);
            }
        }
    }

private:
    static constexpr std::size_t mostNodes = 128;
    static constexpr std::size_t mostOperands = 512;
    static constexpr std::size_t atOnce = 4; // operands of a node that are taken up in one go
    static constexpr std::size_t roomForOperands = mostOperands + Node::maxOperands + atOnce;
    static constexpr std::uint8_t none = 255;

    void takeUp(const Node& node, std::uint32_t number, std::uint32_t blockStart);
    template <typename NumberOf>
    void lookAtOperands(NumberOf numberOf);
    void sortByOperation();

    Survey* survey_;
    const TypeTable* types_;
    const Type* void_;
    std::uint32_t block_ = 0; // of the node taken up last
    std::size_t count_ = 0;
    std::size_t operandCount_ = 0;
    std::uint8_t flags_ = 0;
    std::uint32_t lines_ = 0;
    std::array<NodeFacts, mostNodes> nodes_;
    std::array<OperandFacts, roomForOperands> operands_;
    // Of each operand: itself, what may stand there, and the place of its node.
    std::array<const Operand*, roomForOperands> sources_;
    std::array<std::uint8_t, roomForOperands> takenKinds_;
    std::array<std::uint8_t, roomForOperands> owners_;
    std::array<std::uint8_t, opCount> firstOf_;
    std::array<std::uint8_t, mostNodes> nextOfSameOp_;
};

} // namespace QN::verification
