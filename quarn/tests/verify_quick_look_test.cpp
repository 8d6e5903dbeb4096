// A quick look doubts every graph on which a check fails, and hardly any other: on graphs damaged
// at random, in one place or several, a verification says the same as when every check looks at
// everything.
#include "tests/verify_surgeon.hpp"
#include "tools/generate.hpp"

#include <qn/pipeline.hpp>
#include <qn/transform.hpp>
#include <qn/verify.hpp>

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace QN;
using namespace QN::surgeon;

namespace {

std::string textOf(const Verification& found) {
    std::string text;
    for (const Failure& failure : found.failures()) {
        text += toString(failure) + "\n";
    }
    return text;
}

/// Words of 32 bits that were changed, with what stood there.
class Damage {
public:
    void put(std::uint32_t* word, std::uint32_t value) {
        old_.emplace_back(word, *word);
        *word = value;
    }
    void putByte(std::uint32_t* word, unsigned byte, std::uint32_t value) {
        const std::uint32_t mask = 0xFFU << (8 * byte);
        put(word, (*word & ~mask) | (value << (8 * byte) & mask));
    }
    void repair() {
        for (; !old_.empty(); old_.pop_back()) {
            *old_.back().first = old_.back().second;
        }
    }

private:
    std::vector<std::pair<std::uint32_t*, std::uint32_t>> old_;
};

/// Damages one graph in ways that nearly fit: what stands in one place is taken to another of the
/// same kind.
class Surgeon {
public:
    Surgeon(Cfg& graph, std::mt19937& random) : random_(random) {
        for (Block& block : graph.blocks()) {
            entities_.push_back(&block);
            blocks_.push_back(&block);
            for (Node& node : block.nodes()) {
                entities_.push_back(&node);
                nodes_.push_back(&node);
                for (Operand& operand : node.operands()) {
                    operands_.push_back(&operand);
                }
            }
        }
        for (Var& var : graph.vars()) {
            entities_.push_back(&var);
        }
        for (Const& constant : graph.constants()) {
            entities_.push_back(&constant);
        }
        for (Callee& callee : graph.callees()) {
            entities_.push_back(&callee);
        }
        for (const std::span<const std::byte> extent : graph.pool().extents()) {
            auto* const first =
                reinterpret_cast<std::uint32_t*>(const_cast<std::byte*>(extent.data()));
            for (std::size_t i = 0; i < extent.size() / sizeof *first; ++i) {
                words_.push_back(first + i);
            }
        }
        const Type* const elements[] = {Type::f64(), Type::logical(), Type::i32(), Type::i64(),
                                        Type::named("u8")};
        types_.push_back(Type::voidType());
        for (const Type* const element : elements) {
            const Type* const array = Type::array(element->scalarKind());
            types_.insert(types_.end(),
                          {element, array, Type::pointer(element), Type::pointer(array)});
        }
    }

    /// `isSound`: nothing is damaged yet.
    void hurt(Damage& damage, bool isSound) {
        const auto wordOf = [](void* object, std::size_t index) {
            return static_cast<std::uint32_t*>(object) + index;
        };
        Node* const node = any(nodes_);
        Operand* const operand = any(operands_);
        Entity* const entity = any(entities_);
        switch (random_() % 16) {
        case 0: // operation, mode or number of operands
        case 1:
            damage.putByte(wordOf(node, 0), 1,
                           static_cast<std::uint32_t>(random_() % (opCount + 1)));
            break;
        case 2:
            damage.putByte(wordOf(node, 0), 2, 1U << random_() % 8);
            break;
        case 3:
            damage.putByte(wordOf(node, 0), 3,
                           static_cast<std::uint32_t>(node->numOperands() + random_() % 3 - 1));
            break;
        case 4: // the type of anything
        case 5:
            damage.put(wordOf(entity, 2), Ref<const Type>(any(types_)).bits());
            break;
        case 6: // what an operand refers to
            damage.put(wordOf(operand, 0), Ref<Entity>(entity).bits());
            break;
        case 7: { // its user or a link of a list of uses
            std::uint32_t* const place = wordOf(operand, 1 + random_() % 3);
            Operand* const other = any(operands_);
            damage.put(place, *wordOf(other, 1 + random_() % 3));
            break;
        }
        case 8: {
            std::uint32_t* const place = wordOf(operand, 2 + random_() % 2);
            damage.put(place, Ref<Operand>(any(operands_)).bits());
            break;
        }
        case 9:
            damage.put(wordOf(entity, 1), Ref<Operand>(operand).bits());
            break;
        case 10: { // the order and the place of nodes
            std::uint32_t* const place = wordOf(node, 5 + random_() % 3);
            Node* const other = any(nodes_);
            damage.put(place, *wordOf(other, 5 + random_() % 3));
            break;
        }
        case 11: { // ids and lines
            std::uint32_t* const place = wordOf(entity, 2 + random_() % 3);
            Entity* const other = any(entities_);
            damage.put(place, *wordOf(other, 2 + random_() % 3));
            break;
        }
        case 12: { // two values change places, with their lists of uses
            if (!isSound) {
                break;
            }
            Operand* const other = any(operands_);
            Entity* const value = operand->value();
            Entity* const otherValue = other->value();
            exchanges_.push_back({operand, value});
            exchanges_.push_back({other, otherValue});
            operand->set(otherValue);
            other->set(value);
            break;
        }
        default: { // any word
            std::uint32_t* const place = any(words_);
            damage.put(place, random_() % 2 == 0 ? *any(words_)
                                                 : static_cast<std::uint32_t>(random_() % 64));
        }
        }
    }

    /// Puts exchanged values back; the rest must have been repaired.
    void repair() {
        for (; !exchanges_.empty(); exchanges_.pop_back()) {
            exchanges_.back().first->set(exchanges_.back().second);
        }
    }

private:
    template <typename T>
    T any(const std::vector<T>& all) {
        return all[random_() % all.size()];
    }

    std::mt19937& random_;
    std::vector<Entity*> entities_;
    std::vector<Block*> blocks_;
    std::vector<Node*> nodes_;
    std::vector<Operand*> operands_;
    std::vector<std::uint32_t*> words_;
    std::vector<const Type*> types_;
    std::vector<std::pair<Operand*, Entity*>> exchanges_;
};

} // namespace

TEST(QuickLook, SaysTheSameOfDamagedGraphs) {
    std::mt19937 random(1);
    std::size_t graphs = 0;
    std::size_t broken = 0;
    std::size_t doubtedInVain = 0;
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        const auto scope = tools::generate({seed});
        if (seed % 3 == 0) { // with lists of uses in any order
            for (const std::string_view stage : pipeline()) {
                if (stage != "compaction") {
                    runTransformOnAll(*transformNamed(stage), *scope);
                }
            }
        }
        for (const auto& function : scope->functions()) {
            if (function->cfg().entry() == nullptr) {
                continue;
            }
            if (seed % 2 == 0) {
                (void)function->cfg().dominators();
            }
            Surgeon surgeon(function->cfg(), random);
            for (int i = 0; i < 250; ++i) {
                Damage damage;
                const std::size_t changes = i % 5 == 0 ? 1 + random() % 4 : 1;
                for (std::size_t k = 0; k < changes; ++k) {
                    surgeon.hurt(damage, k == 0);
                }
                VerifyOptions options;
                options.unreachableBlocks = random() % 2 == 0;
                options.compacted = random() % 8 == 0;
                const Verification quick = verify(*function, options);
                options.thorough = true;
                const Verification thorough = verify(*function, options);
                ASSERT_EQ(textOf(quick), textOf(thorough)) << "seed " << seed << ", change " << i;
                ++graphs;
                broken += thorough.ok() ? 0 : 1;
                doubtedInVain += thorough.ok() ? quick.numDoubted() : 0;
                damage.repair();
                surgeon.repair();
            }
        }
    }
    EXPECT_GE(graphs, 20'000U);
    EXPECT_GT(broken, graphs / 2);
    EXPECT_LT(broken, graphs);
    EXPECT_LT(doubtedInVain, graphs / 50);
}

TEST(QuickLook, SaysTheSameOfDamagedFunctionsAndScopes) {
    std::mt19937 random(3);
    std::size_t broken = 0;
    constexpr std::size_t rounds = 3000;
    for (std::size_t round = 0; round < rounds; ++round) {
        const auto scope = tools::generate({static_cast<std::uint32_t>(1 + round % 20)});
        Scope& child = scope->addChild(ScopeFlavor::Unit, "child");
        child.addFunction("inner", Type::f64())->deleteCfg();
        const auto& all = scope->functions();
        Function& function = *all[random() % all.size()];
        Function& other = *all[random() % all.size()];
        const Type* const types[] = {Type::f64(), Type::voidType(), nullptr, Type::i64(),
                                     Type::array(ScalarKind::Double)};
        const Type* const type = types[random() % std::size(types)];
        auto& params = cut(&function, FunctionParams());
        switch (random() % 9) {
        case 0:
            function.setLine(random() % 2 == 0 ? 1U << 24 : (1U << 24) - 1);
            break;
        case 1:
            cut(&function, FunctionResult()) = type;
            break;
        case 2:
            params.push_back(type);
            break;
        case 3:
            if (!params.empty()) {
                params[random() % params.size()] = type;
            }
            break;
        case 4:
            cut(&function, FunctionScope()) = random() % 2 == 0 ? &child : scope.get();
            break;
        case 5:
            cut(&function, FunctionName()) = random() % 2 == 0 ? other.name() : "nobody";
            break;
        case 6:
            cut(&function, FunctionName()) = "";
            break;
        case 7:
            cut(&child, ScopeParent()) = random() % 2 == 0 ? nullptr : &child;
            break;
        default:
            cut(random() % 2 == 0 ? &child : scope.get(), ScopeFlavorField()) =
                static_cast<ScopeFlavor>(random() % 4);
        }
        const VerifyOptions options = {.unreachableBlocks = true};
        VerifyOptions thorough = options;
        thorough.thorough = true;
        const Verification found = verify(*scope, thorough);
        ASSERT_EQ(textOf(verify(*scope, options)), textOf(found)) << "round " << round;
        broken += found.ok() ? 0 : 1;
        cut(&child, ScopeParent()) = scope.get();
    }
    EXPECT_GT(broken, rounds / 3);
    EXPECT_LT(broken, rounds);
}

TEST(QuickLook, IsEnoughForSoundGraphs) {
    for (std::uint32_t seed = 1; seed <= 100; ++seed) {
        const auto scope = tools::generate({seed});
        EXPECT_EQ(verify(*scope, {.unreachableBlocks = true}).numDoubted(), 0U);
        for (const std::string_view stage : pipeline()) {
            runTransformOnAll(*transformNamed(stage), *scope);
            const Verification found = verify(*scope);
            EXPECT_TRUE(found.ok()) << textOf(found);
            EXPECT_EQ(found.numDoubted(), 0U) << stage << ", seed " << seed;
        }
    }
}

TEST(QuickLook, TakesGraphsFromManyChunks) {
    // Two graphs that grow in turns have chunks between each other's.
    Scope scope(ScopeFlavor::Unit, "u");
    std::array<Function*, 2> functions;
    std::vector<Builder> builders;
    for (std::size_t i = 0; i < functions.size(); ++i) {
        functions[i] = scope.addFunction(i == 0 ? "f" : "g", Type::f64());
        builders.emplace_back(functions[i]->cfg(), functions[i]->cfg().addBlock());
    }
    std::array<Entity*, 2> values = {functions[0]->cfg().constantDouble(1),
                                     functions[1]->cfg().constantDouble(1)};
    for (int k = 0; k < 20'000; ++k) {
        for (std::size_t i = 0; i < functions.size(); ++i) {
            values[i] =
                builders[i].binary(Op::Add, values[i], functions[i]->cfg().constantDouble(k % 100));
        }
    }
    builders[0].ret(values[0]);
    builders[1].ret(values[1]);
    Verification found = verify(scope);
    EXPECT_TRUE(found.ok());
    EXPECT_EQ(found.numDoubted(), 0U);
    EXPECT_GT(functions[0]->cfg().pool().extents().size(), 5U);

    // A link into the other's memory is found.
    Node* const node = functions[0]->cfg().entry()->first()->next();
    cut(node, NodeNext()) = functions[1]->cfg().entry()->first();
    found = verify(*functions[0]);
    EXPECT_GE(found.count(Check::nodeList), 1U);
}

TEST(QuickLook, FindsUsesInARing) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::voidType());
    Cfg& g = f.cfg();
    Builder b(g, g.addBlock());
    Const* const two = g.constantDouble(2);
    std::array<Operand*, 4> uses;
    for (Operand*& use : uses) {
        use = &b.unary(Op::Sqrt, two)->operands()[0];
    }
    b.ret();
    ASSERT_EQ(verify(f).numDoubted(), 0U);

    // The list leads from the last to the first; the two in the middle come to lead to each other,
    // and then each to itself.
    cut(uses[3], OperandNext()) = uses[0];
    cut(uses[0], OperandPrevious()) = uses[3];
    for (const std::size_t step : {1U, 0U}) {
        cut(uses[1], OperandNext()) = uses[1 + step];
        cut(uses[1], OperandPrevious()) = uses[1 + step];
        cut(uses[2], OperandNext()) = uses[2 - step];
        cut(uses[2], OperandPrevious()) = uses[2 - step];
        const Verification found = verify(f);
        EXPECT_EQ(found.numDoubted(), 1U);
        EXPECT_GE(found.count(Check::edgeListed), 1U);
    }
}

TEST(QuickLook, FindsNodesWithoutTypesThatGiveEachOther) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::voidType());
    Cfg& g = f.cfg();
    Builder(g, g.addBlock()).ret();
    std::array<Node*, 2> nodes; // where nothing leads, each may use the other
    for (Node*& node : nodes) {
        Builder b(g, g.addBlock());
        node = b.select(g.constantLogical(true), g.constantDouble(1), g.constantDouble(1));
        b.ret();
    }
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        nodes[i]->setOperand(1, nodes[1 - i]);
        nodes[i]->setOperand(2, nodes[1 - i]);
    }
    EXPECT_EQ(verify(f, {.unreachableBlocks = true}).numDoubted(), 0U);
    cut(nodes[0], NodeType()) = nullptr;
    cut(nodes[1], NodeType()) = nullptr;
    EXPECT_EQ(verify(f, {.unreachableBlocks = true}).count(Check::nodeType), 2U);
}

TEST(QuickLook, TakesUsesInAnyOrder) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::voidType());
    Cfg& g = f.cfg();
    Builder b(g, g.addBlock());
    std::vector<Operand*> uses;
    for (int i = 0; i < 100; ++i) {
        uses.push_back(&b.unary(Op::Sqrt, g.constantDouble(i % 3))->operands()[0]);
    }
    b.ret();
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        uses[random() % uses.size()]->set(g.constantDouble(static_cast<int>(random() % 3)));
        const Verification found = verify(f);
        ASSERT_TRUE(found.ok());
        ASSERT_EQ(found.numDoubted(), 0U);
    }
}

TEST(QuickLook, TakesValuesThatAreDefinedFurtherDownTheLayout) {
    Scope scope(ScopeFlavor::Unit, "u");
    Function& f = *scope.addFunction("f", Type::f64());
    Cfg& g = f.cfg();
    Block* const entry = g.addBlock();
    Block* const user = g.addBlock();
    Block* const definer = g.addBlock();
    Builder(g, entry).jump(definer);
    Builder d(g, definer);
    Node* const value = d.unary(Op::Sqrt, g.constantDouble(2));
    d.jump(user);
    Builder u(g, user);
    Node* const sum = u.binary(Op::Add, value, value);
    u.ret(sum);
    Verification found = verify(f);
    EXPECT_TRUE(found.ok());
    EXPECT_EQ(found.numDoubted(), 0U);

    // Not before it in the same block, or where a way does not lead through it.
    sum->setOperand(0, sum);
    EXPECT_EQ(verify(f).count(Check::flowDominance), 1U);
    sum->setOperand(0, value);
    g.setSuccessor(entry->last(), 0, user);
    found = verify(f, {.unreachableBlocks = true});
    EXPECT_EQ(found.count(Check::flowDominance), 1U);
}
