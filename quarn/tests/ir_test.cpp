// The graph: lists, edges both ways, constants, variables, dominance, scopes.
#include <qn/ir.hpp>

#include <gtest/gtest.h>
#include <vector>

using namespace QN;

namespace {

class IrTest : public ::testing::Test {
protected:
    Scope scope{ScopeFlavor::Unit, "test"};
    Function& f = *scope.addFunction("f", Type::f64());
    Cfg& g = f.cfg();
};

std::vector<const Node*> nodesOf(const Block& block) {
    std::vector<const Node*> nodes;
    for (const Node& node : block.nodes()) {
        nodes.push_back(&node);
    }
    return nodes;
}

std::vector<std::string_view> varNames(const Cfg& cfg) {
    std::vector<std::string_view> names;
    for (const Var& var : cfg.vars()) {
        names.push_back(var.name());
    }
    return names;
}

} // namespace

TEST(Type, ExistsOnceAndKnowsItsName) {
    EXPECT_EQ(Type::named("i32"), Type::i32());
    EXPECT_EQ(Type::named("f64[]"), Type::array(ScalarKind::Double));
    EXPECT_EQ(Type::named("logical*"), Type::pointer(Type::logical()));
    EXPECT_EQ(Type::named("u8[]*"), Type::pointer(Type::array(ScalarKind::Uint8)));
    EXPECT_EQ(Type::named("u8[]*")->name(), "u8[]*");
    EXPECT_EQ(Type::named("u8[]*")->element(), Type::array(ScalarKind::Uint8));
    EXPECT_EQ(Type::named("void"), Type::voidType());
    for (const char* wrong : {"", "*", "[]", "void*", "f32", "f64**", "f64[][]", "f64*[]"}) {
        EXPECT_EQ(Type::named(wrong), nullptr) << wrong;
    }
    EXPECT_TRUE(Type::named("i8")->isSigned());
    EXPECT_FALSE(Type::named("u8")->isSigned());
    EXPECT_EQ(Type::named("u16")->bits(), 16);
}

TEST(Opcode, NamesAreFound) {
    for (std::size_t i = 0; i < opCount; ++i) {
        EXPECT_EQ(opNamed(infoOf(static_cast<Op>(i)).text), static_cast<Op>(i));
    }
    EXPECT_EQ(opNamed("nothing"), std::nullopt);
}

TEST_F(IrTest, NodesAreSmall) {
    Builder b(g, g.addBlock());
    Var* const x = f.addParam(Type::f64(), "x");
    Node* const load = b.load(x);
    EXPECT_LE(b.binary(Op::Add, load, g.constantDouble(1))->bytes(), 64U);
}

TEST_F(IrTest, EdgesGoBothWays) {
    Var* const x = f.addParam(Type::f64(), "x");
    Builder b(g, g.addBlock());
    Node* const load = b.load(x);
    Node* const sum = b.binary(Op::Add, load, load);
    b.ret(sum);
    EXPECT_EQ(x->countUses(), 1U);
    EXPECT_EQ(load->countUses(), 2U);
    EXPECT_TRUE(sum->hasOneUse());
    for (const Operand& use : load->uses()) {
        EXPECT_EQ(use.user(), sum);
        EXPECT_EQ(use.value(), load);
    }
    sum->setOperand(0, g.constantDouble(2));
    EXPECT_EQ(load->countUses(), 1U);
    sum->setOperand(1, sum->operand(0));
    EXPECT_FALSE(load->hasUses());
    g.remove(load);
    EXPECT_FALSE(x->hasUses());
    EXPECT_EQ(g.numNodes(), 2U);
}

TEST_F(IrTest, ReplacingUsesMovesAllOfThem) {
    Builder b(g, g.addBlock());
    Var* const x = f.addParam(Type::f64(), "x");
    Node* const first = b.load(x);
    Node* const second = b.load(x);
    Node* const product = b.binary(Op::Mul, first, first);
    g.replaceUses(first, second);
    EXPECT_FALSE(first->hasUses());
    EXPECT_EQ(second->countUses(), 2U);
    EXPECT_EQ(product->operand(0), second);
    EXPECT_EQ(product->operand(1), second);
}

TEST_F(IrTest, NodesAreInsertedAndMoved) {
    Block* const block = g.addBlock();
    Builder b(g, block);
    Node* const ret = b.ret(g.constantDouble(1));
    Var* const x = f.addParam(Type::f64(), "x");
    Builder before(g, *ret);
    Node* const a = before.load(x);
    Node* const c = before.load(x);
    EXPECT_EQ(nodesOf(*block), (std::vector<const Node*>{a, c, ret}));
    g.unlink(a);
    EXPECT_EQ(a->block(), nullptr);
    g.insertAfter(c, a);
    EXPECT_EQ(nodesOf(*block), (std::vector<const Node*>{c, a, ret}));
    EXPECT_EQ(block->numNodes(), 3U);
    EXPECT_EQ(block->terminator(), ret);
    EXPECT_EQ(ret->previous(), a);
}

TEST_F(IrTest, ConstantsExistOnce) {
    EXPECT_EQ(g.constantDouble(1.5), g.constantDouble(1.5));
    EXPECT_NE(g.constantDouble(0.0), g.constantDouble(-0.0));
    EXPECT_NE(static_cast<Entity*>(g.constantInt(Type::i32(), 1)),
              static_cast<Entity*>(g.constantInt(Type::i64(), 1)));
    std::vector<Const*> many;
    for (int i = 0; i < 1000; ++i) {
        many.push_back(g.constantInt(Type::i32(), i));
    }
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(g.constantInt(Type::i32(), i), many[static_cast<std::size_t>(i)]);
        EXPECT_EQ(many[static_cast<std::size_t>(i)]->asInt(), i);
    }
    EXPECT_EQ(g.callee("h"), g.callee("h"));
}

TEST_F(IrTest, ParametersComeFirst) {
    g.addVar(VarKind::User, Type::f64(), "a");
    f.addParam(Type::f64(), "x");
    g.addVar(VarKind::Temp, Type::f64(), "b");
    f.addParam(Type::i32(), "y");
    EXPECT_EQ(varNames(g), (std::vector<std::string_view>{"x", "y", "a", "b"}));
    EXPECT_EQ(f.paramTypes(), (std::vector<const Type*>{Type::f64(), Type::i32()}));

    std::vector<Var*> locals;
    for (Var& var : g.vars()) {
        if (var.varKind() != VarKind::Param) {
            locals.insert(locals.begin(), &var);
        }
    }
    g.reorderLocals(locals);
    EXPECT_EQ(varNames(g), (std::vector<std::string_view>{"x", "y", "b", "a"}));
    g.removeVar(locals[0]);
    EXPECT_EQ(varNames(g), (std::vector<std::string_view>{"x", "y", "a"}));
    g.addVar(VarKind::User, Type::f64(), "c");
    EXPECT_EQ(varNames(g), (std::vector<std::string_view>{"x", "y", "a", "c"}));
}

TEST_F(IrTest, DominanceOfALoopWithABranch) {
    Block* const entry = g.addBlock();
    Block* const head = g.addBlock();
    Block* const left = g.addBlock();
    Block* const right = g.addBlock();
    Block* const latch = g.addBlock();
    Block* const exit = g.addBlock();
    Block* const dead = g.addBlock();
    Const* const yes = g.constantLogical(true);
    Builder(g, entry).jump(head);
    Builder(g, head).branch(yes, left, exit);
    Builder(g, left).branch(yes, right, latch);
    Builder(g, right).jump(latch);
    Builder(g, latch).jump(head);
    Builder(g, exit).ret(g.constantDouble(0));
    Builder(g, dead).jump(exit);

    const Dominators& d = g.dominators();
    EXPECT_EQ(d.order().size(), 6U);
    EXPECT_EQ(d.order()[0], entry);
    EXPECT_EQ(d.immediate(*entry), nullptr);
    EXPECT_EQ(d.immediate(*head), entry);
    EXPECT_EQ(d.immediate(*latch), left);
    EXPECT_EQ(d.immediate(*exit), head);
    EXPECT_TRUE(d.dominates(*entry, *exit));
    EXPECT_TRUE(d.dominates(*left, *latch));
    EXPECT_TRUE(d.dominates(*left, *left));
    EXPECT_FALSE(d.dominates(*right, *latch));
    EXPECT_FALSE(d.dominates(*latch, *head));
    EXPECT_FALSE(d.isReachable(*dead));
    EXPECT_FALSE(d.dominates(*dead, *exit));

    // Dominators follow a change of edges.
    g.setSuccessor(right->terminator(), 0, exit);
    EXPECT_EQ(g.dominators().immediate(*exit), head);
    g.removeBlock(dead);
    EXPECT_EQ(g.numBlocks(), 6U);
    EXPECT_EQ(exit->countUses(), 2U);
}

TEST_F(IrTest, DeepGraphsNeedNoDeepStack) {
    Block* block = g.addBlock();
    for (int i = 0; i < 200000; ++i) {
        Block* const next = g.addBlock();
        Builder(g, block).jump(next);
        block = next;
    }
    Builder(g, block).ret(g.constantDouble(0));
    EXPECT_TRUE(g.dominators().dominates(*g.entry(), *block));
}

TEST_F(IrTest, BlocksMoveInTheLayout) {
    Block* const a = g.addBlock();
    Block* const b = g.addBlock();
    Block* const c = g.addBlock(a);
    EXPECT_EQ(a->next(), c);
    EXPECT_EQ(c->next(), b);
    g.moveBlock(b, nullptr);
    EXPECT_EQ(g.entry(), b);
    EXPECT_EQ(g.lastBlock(), c);
}

TEST(Scope, FindsFunctionsUpTheTree) {
    Scope root(ScopeFlavor::Global, "root");
    Scope& session = root.addChild(ScopeFlavor::Session, "s");
    Scope& unit = session.addChild(ScopeFlavor::Unit, "u");
    Function* const outer = root.addFunction("f", Type::voidType());
    EXPECT_EQ(unit.lookUp("f"), outer);
    EXPECT_EQ(unit.find("f"), nullptr);
    Function* const inner = session.addFunction("f", Type::voidType());
    EXPECT_EQ(unit.lookUp("f"), inner);
    EXPECT_EQ(session.addFunction("f", Type::voidType()), nullptr);
    session.removeFunction(*inner);
    EXPECT_EQ(unit.lookUp("f"), outer);
    EXPECT_EQ(unit.lookUp("g"), nullptr);
    session.removeChild(unit);
    EXPECT_TRUE(session.children().empty());
}

TEST(Scope, FreesEveryByte) {
    (void)Type::f64();
    const std::size_t before = Pool::totalReserved();
    {
        Scope scope(ScopeFlavor::Unit, "u");
        for (int i = 0; i < 100; ++i) {
            Function* const f = scope.addFunction("f" + std::to_string(i), Type::f64());
            Builder b(f->cfg(), f->cfg().addBlock());
            b.ret(f->cfg().constantDouble(i));
        }
        EXPECT_GT(Pool::totalReserved(), before);
    }
    EXPECT_EQ(Pool::totalReserved(), before);
}
