// A quick look at a graph, which tells whether any check could fail on it: nearly all graphs that
// are verified are sound, and for those nothing has to be gathered for messages.
//
// It goes over every list once, in order. What it finds is compared with what must hold without
// saying what is wrong; at the first doubt it gives up, and the checks look at the graph one by
// one. It trusts nothing either: no link is followed before it is known to lead into the graph's
// own pool.
//
// To be right, it has to doubt wherever a check would fail. Uses are an example. Each operand of a
// listed node is looked at together with the one behind it in its list, never along whole lists:
//   - An operand without one before it is what its value calls its first use, and as many operands
//     are like that as there are entities that have uses. So each list starts at one of them.
//   - Where an operand names a next one, that is an operand of a listed node too, refers to the
//     same, and names it in return. As many operands have none before them as have none behind
//     them, so each that has one before it is some other's next.
//   - So the operands fall into chains from the entities' first uses, and rings. Most links lead to
//     lower addresses, since an operand is put in front of those that are there. A ring must
//     have one that does not; those are few, and from each the way must lead to an end.
//
// Owner: the verifier's tools; a quick look is used for one graph after another to keep its memory.
// It refers to nothing between them.
#pragma once

#include "ir/fetch_ahead.hpp"
#include "verify/entity_table.hpp"
#include "verify/flow_graph.hpp"
#include "verify/node_rules.hpp"
#include "verify/type_table.hpp"

#include <qn/scope.hpp>
#include <qn/verify.hpp>

#include <cstdint>
#include <string_view>
#include <vector>

namespace QN::verification {

class QuickLook {
public:
    QuickLook();

    /// Whether no check of functions, graphs and nodes can fail on the function, which has a graph.
    /// Names of callees are looked up from `scope` on; null if nothing is to be looked up. Fetches
    /// from `upcoming` on the way.
    [[nodiscard]] bool findsNothing(const Function& function, const Scope* scope,
                                    const VerifyOptions& options, detail::Upcoming& upcoming);

    /// Whether no check of scopes can fail on this one, whatever is in its functions and scopes.
    [[nodiscard]] static bool findsNothing(const Scope& scope);

    /// Bytes of the largest tables.
    [[nodiscard]] std::size_t tableBytes() const noexcept { return table_.bytes(); }

private:
    // A word of facts of each listed entity: its number, and what it is as an operand. Nodes are
    // numbered from 1 in layout order; all else has higher numbers, so nodes that lie before a
    // block have smaller facts than its first node and nothing else has.
    static constexpr unsigned numberShift = 8;
    static constexpr std::uint32_t largestNumber = (1U << (32 - numberShift)) - 1;
    static std::uint32_t factsOf(std::uint32_t number, std::uint32_t operandByte) {
        return number << numberShift | operandByte;
    }
    /// Of what is a value. Constants have the largest number, which no node has.
    static bool isNode(std::uint32_t facts) {
        return (facts & OperandByte::variable) == 0 && facts < factsOf(largestNumber, 0);
    }
    /// Blocks and callees are numbered from the largest number down.
    static std::uint32_t placeIn(std::uint32_t facts) {
        return largestNumber - (facts >> numberShift);
    }

    static std::uint32_t unitsWith(std::size_t operands) {
        return EntityTable::nodeUnits +
               static_cast<std::uint32_t>(operands) * EntityTable::operandUnits;
    }
    static constexpr std::uint32_t unitsOfFew =
        EntityTable::nodeUnits + Signature::mostOperands * EntityTable::operandUnits;

    /// All three come to the same.
    struct Ends {
        std::size_t lists = 0;  // entities that have uses
        std::size_t starts = 0; // operands with none before them
        std::size_t ends = 0;   // operands with none behind them
    };
    /// A value defined in one block and used in another, both by reference.
    struct Far {
        std::uint32_t definition;
        std::uint32_t use;
        friend bool operator==(const Far&, const Far&) = default;
    };
    /// A node with an operand that was not listed when the node was looked at.
    struct Late {
        std::uint32_t node;
        std::uint32_t number;    // as in facts
        std::uint32_t firstOpen; // operands before that have been counted
    };

    bool start();
    bool isSeen(std::size_t id) noexcept;
    bool holds(std::uint32_t at, std::uint32_t units);
    bool holdsText(std::string_view text);
    bool listVars();
    bool nameIsRight(const Var& var);
    bool paramsAreRight();
    bool listConstants();
    void clearConstants(std::size_t expected);
    bool isNewConstant(const Const& constant, std::uint32_t reference);
    bool listCallees(const Scope* scope);
    void fetchSignatures() const;
    bool namesDiffer();
    bool listBlocks();
    template <bool fetchesOthers>
    bool lookAtNodes(const Block& block, detail::Upcoming& upcoming);
    bool lookAtLate(const Late& late);
    bool findNode(std::uint32_t at, EntityTable::Range& held);
    bool linksAreRight(const EntityTable::View& view, const Operand& operand, std::uint32_t place,
                       Ends& ends);
    // Not in line, for the sake of the loop that calls them now and then.
    [[gnu::noinline]] void noteLate(const Late& late);
    [[gnu::noinline]] void noteOddLink(std::uint32_t place);
    [[gnu::noinline]] void noteFar(Ref<Entity> definition, std::uint32_t facts, std::uint32_t use);
    bool isRight(const Node& node, Signature signature);
    /// The first operand is known to be a value.
    [[nodiscard]] bool takesConstant(const Node& node) const;
    [[nodiscard]] bool callIsRight(const Node& node, std::uint32_t type) const;
    bool usesAreRight();
    bool noRings();
    bool leadsToAnEnd(std::uint32_t place) const;
    bool flowIsRight(const VerifyOptions& options);
    void buildFlow();
    [[nodiscard]] bool keptDominatorsAreRight(const Dominators& kept) const;

    TypeTable types_; // a copy, at a fixed distance
    KnownSignatures known_;
    const Function* function_ = nullptr;
    const Cfg* graph_ = nullptr;
    EntityTable table_;
    std::vector<std::uint8_t> seen_; // ids, of nodes and then of blocks and variables
    std::vector<const Var*> params_;
    std::vector<const Block*> blocks_;
    std::vector<const Function*> targets_;     // of callees, null where none is found
    std::vector<std::string_view> names_;      // of namesDiffer()
    std::vector<std::uint32_t> constantSlots_; // references
    int constantShift_ = 0;
    EntityTable::Range range_; // what holds() was asked for last
    EntityTable::Range held_;  // where the last node lay; see findNode()
    std::uint32_t numNodes_ = 0;
    Ends ends_;
    std::uint32_t result_ = TypeCode::none; // of the function
    std::vector<Far> far_;
    std::vector<Late> late_;
    std::vector<std::uint32_t> oddLinks_; // operands whose next use is not known to lie lower
    std::vector<FlowGraph::Successors> successors_;
    FlowGraph flow_;
};

} // namespace QN::verification
