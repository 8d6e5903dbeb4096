// Stack-trace tags: which entities get one, what it says, and when it goes.
#include <qn/copy.hpp>
#include <qn/ir.hpp>
#include <qn/stack_trace_tag.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace QN;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Not static: a function needs a name in the symbol table to be named in a trace.
__attribute__((noinline)) Node* makeNegation(Cfg& g, Entity* x) {
    Node* const made = Builder(g, g.entry()).unary(Op::Neg, x);
    EXPECT_NE(made, nullptr); // work behind the call, so that it is no tail call
    return made;
}

namespace {

class StackTraces : public ::testing::Test {
protected:
    ~StackTraces() override {
        StackTraceTagHandler::setHandlesNodes(false);
        StackTraceTagHandler::setHandlesConsts(false);
        StackTraceTagHandler::setHandlesVars(false);
        StackTraceTagHandler::setHandlesTypes(false);
        StackTraceTag::setTrackDerivedNodes(false);
    }

    Scope unit{ScopeFlavor::Unit, "u"};
    Function& f = *unit.addFunction("f", Type::f64());
    Cfg& g = f.cfg();
    Block* block = g.addBlock();
    Entity* one = g.constantDouble(1);
};

} // namespace

TEST_F(StackTraces, NothingIsTaggedAtTheStart) {
    EXPECT_FALSE(StackTraceTagHandler::handlesNodes());
    EXPECT_FALSE(StackTraceTagHandler::handlesConsts());
    EXPECT_FALSE(StackTraceTagHandler::handlesVars());
    EXPECT_FALSE(StackTraceTagHandler::handlesTypes());
    EXPECT_FALSE(StackTraceTag::trackDerivedNodes());
    EXPECT_EQ(StackTraceTag::describe(*makeNegation(g, one)), "");
    EXPECT_FALSE(StackTraceTag::anyExist());
}

TEST_F(StackTraces, NodesNameTheFunctionsThatMadeThem) {
    StackTraceTagHandler::setHandlesNodes(true);
    EXPECT_TRUE(StackTraceTagHandler::handlesNodes());
    const Node* const node = makeNegation(g, one);
    EXPECT_TRUE(StackTraceTag::anyExist());
    EXPECT_THAT(StackTraceTag::describe(*node), HasSubstr(" < "));
    EXPECT_EQ(StackTraceTag::describe(*one), "");
    EXPECT_EQ(StackTraceTag::describe(*g.constantDouble(7)), "");
}

TEST_F(StackTraces, EachKindHasItsSwitch) {
    StackTraceTagHandler::setHandlesConsts(true);
    EXPECT_FALSE(StackTraceTagHandler::handlesNodes());
    EXPECT_NE(StackTraceTag::describe(*g.constantDouble(8)), "");
    EXPECT_EQ(StackTraceTag::describe(*g.addVar(VarKind::User, Type::f64(), "x")), "");
    EXPECT_EQ(StackTraceTag::describe(*makeNegation(g, one)), "");
    StackTraceTagHandler::setHandlesConsts(false);
    StackTraceTagHandler::setHandlesVars(true);
    EXPECT_NE(StackTraceTag::describe(*g.addVar(VarKind::User, Type::f64(), "x")), "");
    EXPECT_EQ(StackTraceTag::describe(*g.constantDouble(9)), "");
    StackTraceTagHandler::setHandlesTypes(true);
    EXPECT_TRUE(StackTraceTagHandler::handlesTypes());
}

TEST_F(StackTraces, DerivedNodesTakeOverTheOriginOnlyWhenAsked) {
    StackTraceTagHandler::setHandlesNodes(true);
    Node* const older = makeNegation(g, one);
    Node* const original = makeNegation(g, older);
    Builder(g, block).ret(original);
    // By another way through the builder: without optimization the tags may not reach further up.
    Node* const plain = Builder(g, *block->last()).binary(Op::Add, one, one);
    const std::string place = StackTraceTag::describe(*original);
    ASSERT_NE(StackTraceTag::describe(*plain), place);
    g.replaceUses(original, plain);
    EXPECT_NE(StackTraceTag::describe(*plain), place);

    StackTraceTag::setTrackDerivedNodes(true);
    Node* const derived = Builder(g, *block->last()).unary(Op::Abs, one);
    g.replaceUses(plain, original);
    g.replaceUses(original, derived);
    EXPECT_EQ(StackTraceTag::describe(*derived), place);
    // A node that was there before keeps its own.
    const std::string olderPlace = StackTraceTag::describe(*older);
    g.replaceUses(derived, older);
    EXPECT_EQ(StackTraceTag::describe(*older), olderPlace);
}

TEST_F(StackTraces, CopiesAreTaggedByHand) {
    StackTraceTagHandler::setHandlesNodes(true);
    const Node* const node = makeNegation(g, one);
    StackTraceTagHandler::setHandlesNodes(false);
    const Node* const copy = makeNegation(g, one);
    EXPECT_EQ(StackTraceTag::describe(*copy), "");
    StackTraceTag::copy(*node, g, *copy);
    EXPECT_EQ(StackTraceTag::describe(*copy), StackTraceTag::describe(*node));
}

TEST_F(StackTraces, ACopiedGraphKeepsTheOriginsOfAllKinds) {
    StackTraceTagHandler::setHandlesNodes(true);
    StackTraceTagHandler::setHandlesConsts(true);
    StackTraceTagHandler::setHandlesVars(true);
    Const* const made = g.constantDouble(8);
    Var* const x = g.addVar(VarKind::User, Type::f64(), "x");
    Node* const node = makeNegation(g, made);
    Builder(g, block).store(x, node);
    Builder(g, block).ret(one);
    const std::unique_ptr<Cfg> copy = copyOf(g, f);
    const Node* const copied = copy->entry()->first();
    EXPECT_EQ(StackTraceTag::describe(*copied), StackTraceTag::describe(*node));
    EXPECT_EQ(StackTraceTag::describe(*copied->operand(0)), StackTraceTag::describe(*made));
    EXPECT_EQ(StackTraceTag::describe(*copied->next()->operand(0)), StackTraceTag::describe(*x));
}

TEST_F(StackTraces, ACopyLeavesTheOriginsOfConstantsThatWereThere) {
    StackTraceTagHandler::setHandlesConsts(true);
    Function& h = *unit.addFunction("h", Type::f64());
    Cfg& target = h.cfg();
    Const* const there = target.constantDouble(8);
    const std::string place = StackTraceTag::describe(*there);
    const auto fromElsewhere = [this] { return g.constantDouble(8); };
    Const* const other = fromElsewhere();
    ASSERT_NE(StackTraceTag::describe(*other), place);
    Builder(g, block).ret(other);
    GraphCopier(g, target).copyBlocks();
    EXPECT_EQ(StackTraceTag::describe(*there), place);
}

TEST_F(StackTraces, TagsGoWithTheirGraph) {
    StackTraceTagHandler::setHandlesNodes(true);
    makeNegation(g, one);
    ASSERT_TRUE(StackTraceTag::anyExist());
    f.deleteCfg();
    EXPECT_FALSE(StackTraceTag::anyExist());
}
