// The groups `print` and `verify`: IR as text and as graphs, and whether it is valid. LLVM has IR
// of the same shape and size.
#include "groups.hpp"
#include "ir_workload.hpp"
#include "peers/llvm.hpp"

#include <qn/dominators.hpp>
#include <qn/ir.hpp>
#include <qn/pages.hpp>
#include <qn/text.hpp>
#include <qn/verify.hpp>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

constexpr std::size_t largeFunction = 100'000;
constexpr std::size_t manyFunctions = 10'000;

/// One piece of IR and its peer.
struct Input {
    explicit Input(std::unique_ptr<QN::Scope> made)
        : scope(std::move(made)), peer(*scope), nodes(static_cast<double>(nodesOf(*scope))),
          blocks(static_cast<double>(blocksOf(*scope))),
          peerNodes(static_cast<double>(peer.instructions())),
          peerBlocks(static_cast<double>(peer.blocks())) {}
    std::unique_ptr<QN::Scope> scope;
    LlvmModule peer;
    double nodes;
    double blocks;
    double peerNodes;
    double peerBlocks;
};
using InputPtr = std::shared_ptr<const Input>;

template <typename Print>
LoopMaker prints(InputPtr input, Print print) {
    return [input, print] {
        return repeat([input, print] {
            std::string text;
            print(*input->scope, text);
            keep(text.data());
        });
    };
}

LoopMaker peerDoes(InputPtr input, void (LlvmModule::*act)() const) {
    return [input, act] { return repeat([input, act] { (input->peer.*act)(); }); };
}

template <typename Print>
double bytesOf(const InputPtr& input, Print print) {
    std::string text;
    print(*input->scope, text);
    return static_cast<double>(text.size());
}

void asText(const QN::Scope& scope, std::string& out) {
    printText(scope, out);
}
void asQnel(const QN::Scope& scope, std::string& out) {
    printQnel(scope, out);
}
void asDot(const QN::Scope& scope, std::string& out) {
    printDot(scope, out);
}
void asHtml(const QN::Scope& scope, std::string& out) {
    printHtml(scope, out);
}
/// The last function, whatever else is in its scope.
void lastFunctionAsText(const QN::Scope& scope, std::string& out) {
    printText(*scope.functions().back(), out);
}
void oneNodeAsText(const QN::Scope& scope, std::string& out) {
    printText(*scope.functions().back()->cfg().lastBlock()->last(), out);
}

template <typename Print>
void addPrinting(Group& group, const std::string& what, const std::string& form,
                 const InputPtr& input, Print print) {
    const auto peer = peerDoes(input, &LlvmModule::print);
    group.rows.push_back({.operation = form + " of " + what + ", per node",
                          .makers = {prints(input, print), peer},
                          .instructionRepetitions = 2,
                          .unitsOfEach = {input->nodes, input->peerNodes}});
    group.rows.push_back({.operation = form + " of " + what + ", per kilobyte",
                          .makers = {prints(input, print), peer},
                          .instructionRepetitions = 2,
                          .unitsOfEach = {bytesOf(input, print) / 1e3,
                                          static_cast<double>(input->peer.printedBytes()) / 1e3}});
}

void verifyOurs(const QN::Scope& scope) {
    const QN::Verification found = verify(scope, {.unreachableBlocks = true});
    if (!found.ok()) {
        throw std::runtime_error("the IR is not valid: " + toString(found.failures().front()));
    }
}

void addVerifying(Group& group, const std::string& what, const InputPtr& input) {
    group.rows.push_back(
        {.operation = "verify " + what + ", per node",
         .makers = {[input] { return repeat([input] { verifyOurs(*input->scope); }); },
                    peerDoes(input, &LlvmModule::verify)},
         .instructionRepetitions = 2,
         .unitsOfEach = {input->nodes, input->peerNodes}});
}

void addDominators(Group& group, const std::string& what, const InputPtr& input) {
    group.rows.push_back({.operation = "dominators of " + what + ", per block",
                          .makers = {[input] {
                                         return repeat([input] {
                                             for (const auto& function :
                                                  input->scope->functions()) {
                                                 const QN::Dominators found(function->cfg());
                                                 keep(found.order().data());
                                             }
                                         });
                                     },
                                     peerDoes(input, &LlvmModule::findDominators)},
                          .instructionRepetitions = 2,
                          .unitsOfEach = {input->blocks, input->peerBlocks}});
}

/// `count` blocks, each of which may leave to one block at the end.
std::unique_ptr<QN::Scope> makeFan(std::size_t count) {
    auto scope = std::make_unique<QN::Scope>(QN::ScopeFlavor::Unit, "fan");
    QN::Cfg& g = scope->addFunction("f", QN::Type::voidType())->cfg();
    QN::Block* const exit = g.addBlock();
    QN::Block* block = g.addBlock();
    g.moveBlock(exit, block);
    for (std::size_t i = 0; i < count; ++i) {
        QN::Block* const next = g.addBlock();
        QN::Builder(g, block).branch(g.constantLogical(true), exit, next);
        block = next;
    }
    QN::Builder(g, block).jump(exit);
    QN::Builder(g, exit).ret();
    return scope;
}

/// `count` blocks that each lead to two others anywhere.
std::unique_ptr<QN::Scope> makeTangle(std::size_t count) {
    auto scope = std::make_unique<QN::Scope>(QN::ScopeFlavor::Unit, "tangle");
    QN::Cfg& g = scope->addFunction("f", QN::Type::voidType())->cfg();
    std::vector<QN::Block*> blocks;
    for (std::size_t i = 0; i < count; ++i) {
        blocks.push_back(g.addBlock());
    }
    std::uint64_t state = 1;
    const auto any = [&] {
        state = state * 6364136223846793005U + 1442695040888963407U;
        return blocks[1 + (state >> 33) % (count - 1)]; // LLVM wants none to lead to the entry
    };
    for (QN::Block* const block : blocks) {
        QN::Builder(g, block).branch(g.constantLogical(true), any(), any());
    }
    return scope;
}

std::string inText(const char* format, double value) {
    char text[160];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

} // namespace

Group buildPrint() {
    Group group;
    group.subjects = {"quarn", "LLVM 19"};
    const auto large = std::make_shared<const Input>(makeOneFunction(largeFunction));
    const auto many = std::make_shared<const Input>(makeManyFunctions(manyFunctions));
    addPrinting(group, "one function", "text", large, asText);
    addPrinting(group, "10,000 functions", "text", many, asText);
    addPrinting(group, "one function", "QNEL", large, asQnel);
    addPrinting(group, "10,000 functions", "QNEL", many, asQnel);
    group.rows.push_back(
        {.operation = "one function in a scope of 10,000, per node",
         .makers = {prints(many, lastFunctionAsText), LoopMaker()},
         .units = static_cast<double>(many->scope->functions().back()->cfg().numNodes())});
    group.rows.push_back(
        {.operation = "one node by itself",
         .makers = {prints(many, oneNodeAsText), peerDoes(many, &LlvmModule::printOneInstruction)},
         .instructionRepetitions = 20});
    group.rows.push_back({.operation = "dot, per block",
                          .makers = {prints(large, asDot), LoopMaker()},
                          .instructionRepetitions = 2,
                          .units = large->blocks});
    group.rows.push_back({.operation = "the same nodes as text, per block",
                          .makers = {prints(large, asText), LoopMaker()},
                          .instructionRepetitions = 2,
                          .units = large->blocks});
    // LLVM needs far too long for graphs of a hundred thousand instructions.
    const auto small = std::make_shared<const Input>(makeOneFunction(1'000));
    group.rows.push_back(
        {.operation = "dot of a function of 1,000 nodes, per block",
         .makers = {prints(small, asDot), peerDoes(small, &LlvmModule::printGraphs)},
         .instructionRepetitions = 2,
         .unitsOfEach = {small->blocks, small->peerBlocks}});
    group.rows.push_back({.operation = "html of one function, per node",
                          .makers = {prints(large, asHtml), LoopMaker()},
                          .instructionRepetitions = 2,
                          .units = large->nodes});
    group.notes = {
        inText("one function: %.0f nodes", large->nodes) +
            inText(" in %.0f blocks", large->blocks) +
            inText(" (LLVM: %.0f instructions)", large->peerNodes),
        inText("10,000 functions: %.0f nodes", many->nodes) +
            inText(" (LLVM: %.0f instructions)", many->peerNodes),
        "a kilobyte in 1,000 ns is a gigabyte in a second; 2.2 us are 450 MB/s",
    };
    return group;
}

Group buildVerify() {
    Group group;
    group.subjects = {"quarn", "LLVM 19"};
    const auto input = [](std::unique_ptr<QN::Scope> scope) {
        return std::make_shared<const Input>(std::move(scope));
    };
    addVerifying(group, "a function of 1,000 nodes", input(makeOneFunction(1'000)));
    addVerifying(group, "a function of 10,000 nodes", input(makeOneFunction(10'000)));
    const auto large = input(makeOneFunction(largeFunction));
    addVerifying(group, "a function of 100,000 nodes", large);
    addVerifying(group, "a function of 150,000 nodes", input(makeOneFunction(150'000)));
    const auto many = input(makeManyFunctions(manyFunctions));
    addVerifying(group, "10,000 functions of 40 nodes", many);
    addDominators(group, "a function of 100,000 nodes", large);
    addDominators(group, "10,000 functions", many);
    for (const std::size_t count : {1'000U, 10'000U, 100'000U}) {
        addDominators(group, std::to_string(count) + " blocks that share an exit",
                      input(makeFan(count)));
    }
    for (const std::size_t count : {1'000U, 10'000U, 100'000U}) {
        addDominators(group, std::to_string(count) + " blocks at random", input(makeTangle(count)));
    }
    return group;
}

} // namespace bench
