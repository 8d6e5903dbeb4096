// The invariants of the IR, and the verifier that checks them all.
//
// QN_VERIFY_CHECKS below is the list: each row is one check with its id and what must hold. The
// verifier collects the failures of all checks with their places, and never stops at the first. A
// graph on which none can fail is told by a quick look, on all others every check is run. It takes
// nothing on trust: no link is followed before it is known to lead into the graph's own pool, so it
// may be let loose on IR in any state.
//
// To add a check: a row here, a function of that name in the file of its family in quarn/verify/,
// and, if it is about graphs or nodes, the doubt in quick_look.cpp or node_rules.cpp that goes with
// it. The catalogue of ids that is installed is made from these rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace QN {

class Function;
class Scope;
class Verifier;

// row(SUBJECT, FUNCTION, ID, WHAT MUST HOLD). The subject says how often the check is called: once
// for each Graph, Function or Scope, or for each batch of Nodes. Where a row is about a list,
// the list must also end at what its owner takes for the last, hold nothing twice, and lead to
// nothing but entities of the right kind in the graph's own pool.
// clang-format off
#define QN_VERIFY_CHECKS(row) \
    /* Lists of the graph: lists.cpp */ \
    row(Graph, blockList, "block.list", "the blocks of the layout are linked both ways") \
    row(Graph, blockCount, "block.count", "the graph counts its blocks rightly") \
    row(Graph, blockIdUnique, "block.id-unique", "no two blocks have the same id") \
    row(Graph, blockIdLimit, "block.id-limit", "block ids lie below the limit that the graph names") \
    row(Graph, blockOwner, "block.owner", "a block names the graph that it lies in") \
    row(Graph, nodeList, "node.list", "the nodes of a block are linked both ways") \
    row(Graph, nodeCount, "node.count", "a block counts its nodes rightly") \
    row(Graph, nodeTotal, "node.total", "the graph counts its nodes rightly") \
    row(Nodes, nodeBlock, "node.block", "a node names the block that it lies in") \
    row(Graph, nodeIdUnique, "node.id-unique", "no two nodes have the same id") \
    row(Graph, nodeIdLimit, "node.id-limit", "node ids lie below the limit that the graph names") \
    row(Graph, varList, "var.list", "the variables are linked both ways") \
    row(Graph, varCount, "var.count", "the graph counts its variables rightly") \
    row(Graph, varIdUnique, "var.id-unique", "no two variables have the same id") \
    row(Graph, varIdLimit, "var.id-limit", "variable ids lie below the limit that the graph names") \
    row(Graph, constList, "const.list", "the list of constants runs to the last one") \
    row(Graph, constCount, "const.count", "the graph counts its constants rightly") \
    row(Graph, constId, "const.id", "the id of a constant is its place in the list") \
    row(Graph, calleeList, "callee.list", "the list of callees runs to the last one") \
    row(Graph, graphReleased, "graph.released", "nothing that is in a list has been given back to the pool") \
    row(Graph, graphCanaries, "graph.canaries", "nothing was written around allocations or into released ones") \
    row(Graph, graphCompact, "graph.compact", "after a compaction, ids count without gaps") \
    /* Variables and the signature: variables.cpp */ \
    row(Graph, varParamsFirst, "var.params-first", "the parameters are declared before all other variables") \
    row(Graph, varParamCount, "var.param-count", "signature, graph and list agree on the number of parameters") \
    row(Graph, varParamTypes, "var.param-types", "parameters have the types of the signature, in its order") \
    row(Graph, varParamNames, "var.param-names", "no two parameters have the same name") \
    row(Graph, varKind, "var.kind", "a variable is a parameter, a user's variable or a temporary") \
    row(Graph, varName, "var.name", "all but temporaries have a name, and it lies in the graph's pool") \
    row(Graph, varType, "var.type", "a variable has one of the process's types, other than void") \
    row(Graph, varLine, "var.line", "the source line of a variable is below 2^24") \
    /* Constants and callees: constants.cpp */ \
    row(Graph, constType, "const.type", "a constant has one of the process's scalar types") \
    row(Graph, constValue, "const.value", "a constant's bits are a value of its type, extended by it") \
    row(Graph, constUnique, "const.unique", "no two constants have the same type and bits") \
    row(Graph, calleeName, "callee.name", "a callee has a name, and it lies in the graph's pool") \
    row(Graph, calleeUnique, "callee.unique", "no two callees have the same name") \
    /* The form of nodes: operands.cpp */ \
    row(Nodes, nodeOperation, "node.operation", "the operation of a node is one that exists") \
    row(Nodes, nodeType, "node.type", "the type of a node is one of the process's types") \
    row(Nodes, nodeLine, "node.line", "the source line of a node is below 2^24") \
    row(Nodes, operandCount, "operand.count", "a node has as many operands as its operation takes") \
    row(Nodes, operandMissing, "operand.missing", "no operand is empty") \
    row(Nodes, operandKind, "operand.kind", "an operand is of the kind that the operation takes there") \
    row(Nodes, operandVoid, "operand.void", "a node that is used as a value gives one") \
    row(Nodes, operandDangling, "operand.dangling", "values, constants and callees that are used are in the graph") \
    row(Nodes, varDangling, "var.dangling", "a variable that is used is declared in the same graph") \
    row(Nodes, blockTarget, "block.target", "a branch leads to a block in the layout of the same graph") \
    /* Edges between values and uses: edges.cpp */ \
    row(Nodes, edgeUser, "edge.user", "an operand names the node that it belongs to") \
    row(Graph, edgeUses, "edge.uses", "the uses of a value or variable are linked both ways and refer to it") \
    row(Graph, edgeListed, "edge.listed", "an operand is in the list of uses of what it refers to") \
    row(Graph, edgeDetached, "edge.detached", "no node outside all blocks uses what is in the graph") \
    /* Control flow: flow.cpp */ \
    row(Graph, blockTerminator, "block.terminator", "the last node of a block is a terminator") \
    row(Nodes, blockTerminatorLast, "block.terminator-last", "only the last node of a block is a terminator") \
    row(Graph, flowPredecessors, "flow.predecessors", "the uses of a block are the terminators that lead to it") \
    row(Graph, flowUnreachable, "flow.unreachable", "every block can be reached from the entry") \
    row(Graph, flowDominators, "flow.dominators", "the dominators that the graph keeps are those of its edges") \
    row(Nodes, flowDominance, "flow.dominance", "a value is defined on every way to its use") \
    /* Modes: modes.cpp */ \
    row(Nodes, modeArithmetic, "mode.arithmetic", "only arithmetic says how to round and to overflow") \
    row(Nodes, modeBounds, "mode.bounds", "only an element access says that its index is in bounds") \
    row(Nodes, modeValue, "mode.value", "a mode is one that exists") \
    /* Types of variables and pointers: types_memory.cpp */ \
    row(Nodes, typeLoad, "type.load", "a load has the type of its variable") \
    row(Nodes, typeStore, "type.store", "what is stored has the type of the variable") \
    row(Nodes, typeAddress, "type.address", "an address is a pointer to the type of its variable") \
    row(Nodes, typePointer, "type.pointer", "access goes through a pointer, with the type that it points to") \
    row(Nodes, typeEffect, "type.effect", "an operation without a result has the type void") \
    /* Types of scalar operations: types_scalar.cpp */ \
    row(Nodes, typeArithmetic, "type.arithmetic", "arithmetic is on doubles or integers of the type of the result") \
    row(Nodes, typeReal, "type.real", "functions of doubles take doubles and give one") \
    row(Nodes, typeCompare, "type.compare", "a comparison takes scalars of one type and gives a logical") \
    row(Nodes, typeLogical, "type.logical", "logical operations take logicals and give one") \
    row(Nodes, typeSelect, "type.select", "a selection has a logical and two values of the type of the result") \
    row(Nodes, typeConvert, "type.convert", "a conversion is from a scalar to a scalar") \
    row(Nodes, typeToIndex, "type.toindex", "an index is made from a double or integer and is an i64") \
    row(Nodes, typeCheck, "type.check", "a check takes the scalars that it compares") \
    /* Types of array operations: types_array.cpp */ \
    row(Nodes, typeAggregate, "type.aggregate", "array operations act on an array variable or a pointer to an array") \
    row(Nodes, typeIndex, "type.index", "sizes and indices that are given are i64") \
    row(Nodes, typeSize, "type.size", "sizes that are asked for are i64") \
    row(Nodes, typeNewArray, "type.newarray", "a new array has an array type") \
    row(Nodes, typeElement, "type.element", "an element has the element type of its array") \
    /* Calls and ends of blocks: types_control.cpp */ \
    row(Nodes, callSignature, "call.signature", "a call agrees with the signature of the function that its name finds") \
    row(Nodes, typeCondition, "type.condition", "a branch decides by a logical") \
    row(Nodes, typeReturn, "type.return", "what is returned has the result type of the function") \
    row(Nodes, typeCode, "type.code", "counter numbers and error codes are integers") \
    /* Functions and scopes: scopes.cpp */ \
    row(Graph, functionGraph, "function.graph", "a graph names the function that owns it") \
    row(Function, functionResult, "function.result", "the result type of a function is one of the process's types") \
    row(Function, functionParams, "function.params", "parameter types are types of the process other than void") \
    row(Function, functionLine, "function.line", "the source line of a function is below 2^24") \
    row(Scope, functionScope, "function.scope", "a function names the scope that owns it") \
    row(Scope, functionName, "function.name", "a function has a name that no other in its scope has, and is found by it") \
    row(Scope, scopeParent, "scope.parent", "a scope names the scope that owns it as its parent") \
    row(Scope, scopeFlavor, "scope.flavor", "no scope lives longer than the one around it, by their flavors")
// clang-format on

/// One check; its number is its place in the list.
enum class Check : std::uint8_t {
#define QN_CHECK(subject, function, id, meaning) function,
    QN_VERIFY_CHECKS(QN_CHECK)
#undef QN_CHECK
};

struct CheckInfo {
    std::string_view id;
    std::string_view meaning;
};

/// All checks in the order of the list.
[[nodiscard]] std::span<const CheckInfo> allChecks() noexcept;
[[nodiscard]] const CheckInfo& infoOf(Check check) noexcept;

/// Where something is wrong; what does not apply is left out.
struct Place {
    std::string function;               // the name of the function; empty for a scope
    std::string scope;                  // the name of the scope, if it is the scope that is wrong
    std::optional<std::uint32_t> block; // its id
    std::optional<std::uint32_t> node;  // its place in the block, from 0 on
    std::optional<std::uint32_t> nodeId;
    std::uint32_t line = 0; // of the source; 0 if unknown
};

/// "f: block 2: node 5 (id 17): line 12"
[[nodiscard]] std::string toString(const Place& place);

/// One thing for which one check does not hold.
struct Failure {
    Check check;
    std::string message; // what was found, in one line
    Place place;
};

/// "PLACE: MESSAGE [ID]"
[[nodiscard]] std::string toString(const Failure& failure);

struct VerifyOptions {
    /// The IR comes straight out of a compaction: ids are dense.
    bool compacted = false;
    /// Blocks that nothing leads to are allowed, as they are until control flow is cleaned up.
    bool unreachableBlocks = false;
    /// At most so many failures of each check are described. All are counted.
    std::size_t detailsPerCheck = SIZE_MAX;
    /// Every check looks at every graph, also where a quick look has shown that none can fail. What
    /// is found is the same.
    bool thorough = false;
};

/// What a verification found.
class Verification {
public:
    [[nodiscard]] bool ok() const noexcept { return total_ == 0; }
    /// The failures that are described: function by function, within one by the order of checks.
    [[nodiscard]] const std::vector<Failure>& failures() const& noexcept { return failures_; }
    const std::vector<Failure>& failures() const&& = delete; // they would not live long enough
    /// On how many nodes, or other entities, a check failed; each counts once for each check.
    [[nodiscard]] std::size_t count(Check check) const noexcept {
        const auto index = static_cast<std::size_t>(check);
        return index < counts_.size() ? counts_[index] : 0;
    }
    /// The failures of all checks.
    [[nodiscard]] std::size_t total() const noexcept { return total_; }
    /// The number of graphs that a quick look was not enough for.
    [[nodiscard]] std::size_t numDoubted() const noexcept { return numDoubted_; }

private:
    friend class Sink;
    friend class Verifier;
    std::vector<Failure> failures_;
    std::vector<std::size_t> counts_; // by check; empty until the first failure
    std::size_t total_ = 0;
    std::size_t numDoubted_ = 0;
};

/// Verifies a function and, if it has one, its graph. Linear in the size of the graph but for the
/// dominators of its blocks, which are n log n. The function's scope must be alive.
[[nodiscard]] Verification verify(const Function& function, const VerifyOptions& options = {});

/// Verifies a scope with all its functions, and all scopes inside it.
[[nodiscard]] Verification verify(const Scope& scope, const VerifyOptions& options = {});

} // namespace QN
