// One broken input for each check: the check fires on it, and no other check does.
//
// A new check needs a row in the table below; a test fails as long as there is none.
#include "tests/verify_surgeon.hpp"

#include <qn/testing_hooks.hpp>
#include <qn/verify.hpp>

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <ostream>
#include <set>

using namespace QN;
using namespace QN::surgeon;

namespace {

const Type* voidType() {
    return Type::voidType();
}

/// A function in which everything occurs that a check looks at, and another one that it calls.
struct Sample {
    Sample() {
        entry = g.addBlock();
        left = g.addBlock();
        right = g.addBlock();
        exit = g.addBlock();
        x = f.addParam(Type::f64(), "x");
        k = f.addParam(Type::i64(), "k");
        p = f.addParam(Type::pointer(Type::array(ScalarKind::Double)), "p");
        s = g.addVar(VarKind::User, Type::f64(), "s", 3);
        a = g.addVar(VarKind::User, Type::array(ScalarKind::Double), "a", 4);
        t = g.addVar(VarKind::Temp, Type::logical(), "");
        two = g.constantDouble(2);
        three = g.constantDouble(3);
        one = g.constantInt(Type::i64(), 1);
        yes = g.constantLogical(true);

        Builder b(g, entry);
        b.setLine(5);
        load = b.load(x);
        store = b.store(s, two);
        sum = b.binary(Op::Add, load, two, Mode(Rounding::Down, Overflow::Wrap));
        address = b.addressOf(s);
        through = b.loadThrough(address);
        b.storeThrough(address, through);
        Node* const array = b.newArray(ScalarKind::Double, one, one);
        b.store(a, array);
        index = b.toIndex(sum);
        element = b.loadElement(a, index);
        b.storeElement(a, index, element);
        Node* const stored = b.loadElement(a, index, one);
        b.storeElement(b.load(p), index, one, stored);
        b.resize(a, b.sizeOf(Op::Rows, a), one);
        Entity* const arguments[] = {sum};
        call = b.call("helper", Type::f64(), arguments);
        b.unary(Op::Sqrt, call);
        condition = b.binary(Op::And, b.compare(Op::Lt, sum, three), yes);
        b.select(condition, two, three);
        Node* const converted = b.convert(sum, Type::i32());
        b.checkBounds(index, one);
        b.node(Op::ChkZero, voidType(), {converted});
        b.node(Op::ChkLossy, voidType(), {sum, converted});
        b.node(Op::Count, voidType(), {one});
        branch = b.branch(condition, left, right);

        b.atEndOf(left);
        fromLeft = b.load(s);
        jump = b.jump(exit);
        b.atEndOf(right);
        b.store(s, sum);
        b.jump(exit);
        b.atEndOf(exit);
        b.load(s);
        ret = b.ret(sum);

        helperParam = helper.addParam(Type::f64(), "h");
        Builder h(helper.cfg(), helper.cfg().addBlock());
        h.ret(h.load(helperParam));
    }

    /// A builder at the end of the entry, with the operands' types to choose freely.
    Builder build() { return Builder(g, *branch); }

    Scope root{ScopeFlavor::Session, "root"};
    Scope& unit = root.addChild(ScopeFlavor::Unit, "unit");
    Function& f = *unit.addFunction("f", Type::f64());
    Function& helper = *unit.addFunction("helper", Type::f64());
    Cfg& g = f.cfg();
    Block *entry, *left, *right, *exit;
    Var *x, *k, *p, *s, *a, *t, *helperParam;
    Const *two, *three, *one, *yes;
    Node *load, *store, *sum, *address, *through, *index, *element, *call, *condition, *branch,
        *fromLeft, *jump, *ret;
};

/// Turns a testing hook on as long as it lives.
struct HookOn {
    explicit HookOn(TsTestingHook* which) : hook(which) { hook->setHookValFromC(1); }
    ~HookOn() { hook->setHookValFromC(0); }
    TsTestingHook* hook;
};

std::set<std::string> idsOf(const Verification& found) {
    std::set<std::string> ids;
    for (const Failure& failure : found.failures()) {
        ids.emplace(infoOf(failure.check).id);
    }
    return ids;
}

/// How a failing test shows its row.
struct Broken;
void PrintTo(const Broken& row, std::ostream* stream);

enum class Verified : std::uint8_t { Function, Compacted, Root };

struct Broken {
    Check check;
    void (*damage)(Sample& s);
    Verified verified = Verified::Function;
};

// clang-format off
const Broken table[] = {
    {Check::blockList, [](Sample& s) { cut(s.right, BlockPrevious()) = s.entry; }},
    {Check::blockCount, [](Sample& s) { ++cut(&s.g, CfgNumBlocks()); }},
    {Check::blockIdUnique, [](Sample& s) { cut(s.right, BlockId()) = s.left->id(); }},
    {Check::blockIdLimit, [](Sample& s) { cut(s.right, BlockId()) = s.g.blockIdLimit(); }},
    {Check::blockOwner, [](Sample& s) { cut(s.right, BlockCfg()) = &s.helper.cfg(); }},
    {Check::nodeList, [](Sample& s) { cut(s.through, NodePrevious()) = s.load; }},
    {Check::nodeCount, [](Sample& s) { ++cut(s.entry, BlockNumNodes()); }},
    {Check::nodeTotal, [](Sample& s) { ++cut(&s.g, CfgNumNodes()); }},
    {Check::nodeBlock, [](Sample& s) { cut(s.sum, NodeBlock()) = s.left; }},
    {Check::nodeIdUnique, [](Sample& s) { cut(s.through, NodeId()) = s.load->id(); }},
    {Check::nodeIdLimit, [](Sample& s) { cut(s.through, NodeId()) = s.g.nodeIdLimit() + 9; }},
    {Check::varList, [](Sample& s) { cut(s.a, VarPrevious()) = s.p; }},
    {Check::varCount, [](Sample& s) { ++cut(&s.g, CfgNumVars()); }},
    {Check::varIdUnique, [](Sample& s) { cut(s.s, VarId()) = s.a->id(); }},
    {Check::varIdLimit, [](Sample& s) { cut(s.s, VarId()) = s.g.varIdLimit(); }},
    {Check::constList, [](Sample& s) { cut(&s.g, CfgLastConst()) = s.two; }},
    {Check::constCount, [](Sample& s) { --cut(&s.g, CfgNumConsts()); }},
    {Check::constId, [](Sample& s) { cut(s.three, ConstId()) = 7; }},
    {Check::calleeList, [](Sample& s) { cut(&s.g, CfgLastCallee()) = nullptr; }},
    {Check::graphReleased, [](Sample& s) { s.g.pool().release(s.through, s.through->bytes()); }},
    {Check::graphCanaries, [](Sample& s) {
         reinterpret_cast<char*>(s.through)[s.through->bytes()] = 0;
     }},
    {Check::graphCompact, [](Sample& s) { s.g.remove(s.build().load(s.x)); }, Verified::Compacted},

    {Check::varParamsFirst, [](Sample& s) {
         cut(&s.g, CfgFirstVar()) = s.s;
         cut(s.s, VarPrevious()) = nullptr;
         cut(s.s, VarNext()) = s.x;
         cut(s.x, VarPrevious()) = s.s;
         cut(s.p, VarNext()) = s.a;
         cut(s.a, VarPrevious()) = s.p;
     }},
    {Check::varParamCount, [](Sample& s) { cut(&s.f, FunctionParams()).pop_back(); }},
    {Check::varParamTypes, [](Sample& s) { cut(&s.f, FunctionParams())[1] = Type::i32(); }},
    {Check::varParamNames, [](Sample& s) { cut(s.k, VarName()) = cut(s.x, VarName()); }},
    {Check::varKind, [](Sample& s) { cut(s.t, EntitySmall())[0] = 3; }},
    {Check::varName, [](Sample& s) { cut(s.s, VarNameLength()) = 0; }},
    {Check::varType, [](Sample& s) { cut(s.t, VarType()) = voidType(); }},
    {Check::varLine, [](Sample& s) { cut(s.s, VarLine()) = 1U << 24; }},
    {Check::constType, [](Sample& s) {
         cut(s.g.constantDouble(9), ConstType()) = Type::array(ScalarKind::Int8);
     }},
    {Check::constValue, [](Sample& s) { cut(s.yes, ConstBits()) = 2; }},
    {Check::constUnique, [](Sample& s) { cut(s.three, ConstBits()) = s.two->bits(); }},
    {Check::calleeName, [](Sample& s) { cut(s.g.callee("idle"), CalleeNameLength()) = 0; }},
    {Check::calleeUnique, [](Sample& s) {
         Callee* const other = s.g.callee("others");
         cut(other, CalleeNameText()) = cut(asCallee(s.call->operand(0)), CalleeNameText());
         cut(other, CalleeNameLength()) = 6; // as long as helper
     }},

    {Check::nodeOperation, [](Sample& s) { cut(s.through, EntitySmall())[0] = 200; }},
    {Check::nodeType, [](Sample& s) {
         cut(s.through, NodeType()) = reinterpret_cast<const Type*>(s.two);
     }},
    {Check::nodeLine, [](Sample& s) { s.sum->setLine(1U << 24); }},
    {Check::operandCount, [](Sample& s) {
         s.sum->setOperand(1, nullptr);
         cut(s.sum, EntitySmall())[2] = 1;
     }},
    {Check::operandMissing, [](Sample& s) { s.sum->setOperand(1, nullptr); }},
    {Check::operandKind, [](Sample& s) { s.build().node(Op::Count, voidType(), {s.index}); }},
    {Check::operandKind, [](Sample& s) { s.sum->setOperand(1, s.x); }},
    {Check::operandVoid, [](Sample& s) { s.sum->setOperand(1, s.store); }},
    {Check::operandDangling, [](Sample& s) {
         s.sum->setOperand(1, s.helper.cfg().constantDouble(2));
     }},
    {Check::varDangling, [](Sample& s) { s.load->setOperand(0, s.helperParam); }},
    {Check::blockTarget, [](Sample& s) { s.jump->setOperand(0, s.helper.cfg().entry()); }},

    {Check::edgeUser, [](Sample& s) { cut(&s.sum->operands()[1], OperandUser()) = s.load; }},
    {Check::edgeUses, [](Sample& s) {
         cut(s.two->firstUse()->nextUse(), OperandPrevious()) = nullptr;
     }},
    {Check::edgeListed, [](Sample& s) { cut(s.through, EntityFirstUse()) = nullptr; }},
    {Check::edgeDetached, [](Sample& s) {
         Entity* const operands[] = {s.sum, s.two};
         (void)s.g.makeNode(Op::Add, {}, Type::f64(), operands);
     }},

    {Check::blockTerminator, [](Sample& s) { s.g.remove(s.ret); }},
    {Check::blockTerminatorLast, [](Sample& s) { s.build().ret(s.sum); }},
    {Check::flowPredecessors, [](Sample& s) {
         Entity* const operands[] = {s.exit};
         (void)s.g.makeNode(Op::Jump, {}, voidType(), operands);
     }},
    {Check::flowUnreachable, [](Sample& s) { Builder(s.g, s.g.addBlock()).ret(s.two); }},
    {Check::flowDominators, [](Sample& s) {
         (void)s.g.dominators();
         s.jump->setOperand(0, s.right); // and nobody tells the graph
     }},
    {Check::flowDominance, [](Sample& s) {
         Builder(s.g, *s.right->terminator()).store(s.s, s.fromLeft);
     }},

    {Check::modeArithmetic, [](Sample& s) { s.load->setMode(Mode(Rounding::Up, {})); }},
    {Check::modeBounds, [](Sample& s) { s.sum->setMode(Mode().withInBounds(true)); }},
    {Check::modeValue, [](Sample& s) { s.sum->setMode(Mode::fromBits(5)); }},

    {Check::typeLoad, [](Sample& s) { s.build().node(Op::Load, Type::i32(), {s.x}); }},
    {Check::typeStore, [](Sample& s) { s.build().store(s.x, s.one); }},
    {Check::typeAddress, [](Sample& s) {
         s.build().node(Op::AddrOf, Type::pointer(Type::i32()), {s.x});
     }},
    {Check::typePointer, [](Sample& s) { s.build().storeThrough(s.address, s.one); }},
    {Check::typeEffect, [](Sample& s) { s.build().node(Op::Count, Type::i64(), {s.one}); }},
    {Check::typeArithmetic, [](Sample& s) { s.build().binary(Op::Add, s.sum, s.one); }},
    {Check::typeReal, [](Sample& s) { s.build().unary(Op::Sin, s.one); }},
    {Check::typeCompare, [](Sample& s) { s.build().compare(Op::Le, s.sum, s.one); }},
    {Check::typeLogical, [](Sample& s) { s.build().unary(Op::Not, s.one); }},
    {Check::typeSelect, [](Sample& s) { s.build().select(s.yes, s.sum, s.one); }},
    {Check::typeConvert, [](Sample& s) {
         s.build().convert(s.two, Type::array(ScalarKind::Int8));
     }},
    {Check::typeToIndex, [](Sample& s) { s.build().toIndex(s.yes); }},
    {Check::typeCheck, [](Sample& s) { s.build().checkBounds(s.sum, s.one); }},
    {Check::typeAggregate, [](Sample& s) { s.build().sizeOf(Op::Numel, s.x); }},
    {Check::typeIndex, [](Sample& s) { s.build().loadElement(s.a, s.sum); }},
    {Check::typeSize, [](Sample& s) { s.build().node(Op::Cols, Type::f64(), {s.a}); }},
    {Check::typeNewArray, [](Sample& s) {
         s.build().node(Op::NewArray, Type::f64(), {s.one, s.one});
     }},
    {Check::typeElement, [](Sample& s) { s.build().storeElement(s.a, s.index, s.yes); }},

    {Check::callSignature, [](Sample& s) { s.build().call("helper", Type::f64(), {}); }},
    {Check::typeCondition, [](Sample& s) { s.branch->setOperand(0, s.two); }},
    {Check::typeReturn, [](Sample& s) { s.ret->setOperand(0, s.yes); }},
    {Check::typeCode, [](Sample& s) { s.build().node(Op::Count, voidType(), {s.two}); }},

    {Check::functionGraph, [](Sample& s) { cut(&s.g, CfgFunction()) = &s.helper; }},
    {Check::functionResult, [](Sample& s) { cut(&s.f, FunctionResult()) = nullptr; }},
    {Check::functionParams, [](Sample& s) {
         Function& outside = *s.unit.addFunction("outside", Type::f64());
         outside.deleteCfg();
         cut(&outside, FunctionParams()).push_back(voidType());
     }, Verified::Root},
    {Check::functionLine, [](Sample& s) { s.f.setLine(1U << 24); }},
    {Check::functionScope, [](Sample& s) { cut(&s.f, FunctionScope()) = &s.root; },
     Verified::Root},
    {Check::functionName, [](Sample& s) { cut(&s.f, FunctionName()) = "helper"; }, Verified::Root},
    {Check::scopeParent, [](Sample& s) { cut(&s.unit, ScopeParent()) = nullptr; }, Verified::Root},
    {Check::scopeFlavor, [](Sample& s) { cut(&s.unit, ScopeFlavorField()) = ScopeFlavor::Global; },
     Verified::Root},

    // Other ways in which some of them fail.
    {Check::varName, [](Sample& s) { cut(s.s, VarNameLength()) = 1U << 30; }},
    {Check::constValue, [](Sample& s) { s.g.constant(Type::named("i8"), 200); }},
    {Check::constValue, [](Sample& s) { s.g.constant(Type::named("u8"), 256); }},
    {Check::operandCount, [](Sample& s) {
         s.build().node(Op::Neg, Type::f64(), {s.sum, s.two});
     }},
    {Check::operandDangling, [](Sample& s) {
         s.sum->setOperand(1, s.helper.cfg().entry()->first());
     }},
    {Check::edgeListed, [](Sample& s) {
         // A node copied byte by byte: its operands are in no list.
         Node* const first = s.build().binary(Op::Mul, s.load, s.three);
         Node* const second = s.build().binary(Op::Mul, s.load, s.three);
         second->setOperand(0, nullptr);
         second->setOperand(1, nullptr);
         const auto from = first->operands();
         std::memcpy(static_cast<void*>(second->operands().data()), from.data(),
                     from.size_bytes());
         cut(&second->operands()[0], OperandUser()) = second;
         cut(&second->operands()[1], OperandUser()) = second;
     }},
    {Check::flowPredecessors, [](Sample& s) { cut(s.left, EntityFirstUse()) = nullptr; }},
    {Check::flowDominance, [](Sample& s) { // used before it is made
         Builder(s.g, *s.sum).unary(Op::Neg, s.element);
     }},
    {Check::flowDominance, [](Sample& s) { s.sum->setOperand(1, s.sum); }},
    {Check::modeValue, [](Sample& s) { s.sum->setMode(Mode::fromBits(0x40)); }},
    {Check::typeAddress, [](Sample& s) { s.build().node(Op::AddrOf, Type::f64(), {s.x}); }},
    {Check::typePointer, [](Sample& s) { s.build().node(Op::LoadP, Type::f64(), {s.sum}); }},
    {Check::typePointer, [](Sample& s) { s.build().node(Op::LoadP, Type::i32(), {s.address}); }},
    {Check::typeArithmetic, [](Sample& s) { s.build().binary(Op::Max, s.yes, s.yes); }},
    {Check::typeReal, [](Sample& s) { s.build().node(Op::Floor, Type::i64(), {s.one}); }},
    {Check::typeCompare, [](Sample& s) { s.build().node(Op::Eq, Type::f64(), {s.two, s.two}); }},
    {Check::typeSelect, [](Sample& s) { s.build().select(s.two, s.sum, s.two); }},
    {Check::typeConvert, [](Sample& s) { s.build().convert(s.address, Type::i64()); }},
    {Check::typeToIndex, [](Sample& s) { s.build().node(Op::ToIndex, Type::i32(), {s.two}); }},
    {Check::typeCheck, [](Sample& s) { s.build().node(Op::ChkZero, voidType(), {s.yes}); }},
    {Check::typeCheck, [](Sample& s) {
         s.build().node(Op::ChkLossy, voidType(), {s.one, s.two});
     }},
    {Check::typeAggregate, [](Sample& s) { s.build().sizeOf(Op::Rows, s.address); }},
    {Check::typeAggregate, [](Sample& s) { s.build().sizeOf(Op::Rows, s.p); }}, // not its value
    {Check::typeIndex, [](Sample& s) { s.build().newArray(ScalarKind::Double, s.one, s.two); }},
    {Check::typeIndex, [](Sample& s) { s.build().resize(s.a, s.yes, s.one); }},
    {Check::typeElement, [](Sample& s) {
         s.build().node(Op::LdElem, Type::i64(), {s.a, s.index});
     }},
    {Check::callSignature, [](Sample& s) {
         Entity* const arguments[] = {s.one};
         s.build().call("helper", Type::f64(), arguments);
     }},
    {Check::callSignature, [](Sample& s) {
         Entity* const arguments[] = {s.two};
         s.build().call("helper", voidType(), arguments);
     }},
    {Check::typeReturn, [](Sample& s) {
         s.g.remove(s.ret);
         Builder(s.g, s.exit).ret();
     }},
    {Check::functionParams, [](Sample& s) {
         Function& outside = *s.unit.addFunction("outside", Type::f64());
         outside.deleteCfg();
         cut(&outside, FunctionParams()).push_back(nullptr);
     }, Verified::Root},
    {Check::scopeFlavor, [](Sample& s) {
         cut(&s.unit, ScopeFlavorField()) = static_cast<ScopeFlavor>(7);
     }, Verified::Root},
};
// clang-format on

void PrintTo(const Broken& row, std::ostream* stream) {
    *stream << infoOf(row.check).id;
}

Verification verifyAs(const Sample& sample, Verified verified) {
    switch (verified) {
    case Verified::Compacted:
        return verify(sample.f, {.compacted = true});
    case Verified::Root:
        return verify(sample.root);
    default:
        return verify(sample.f);
    }
}

class BrokenTest : public ::testing::TestWithParam<Broken> {};
class BrokenWithoutRecordsTest : public BrokenTest {};

} // namespace

TEST(Sample, IsValid) {
    const Sample sample;
    for (const Verified verified : {Verified::Function, Verified::Compacted, Verified::Root}) {
        const Verification found = verifyAs(sample, verified);
        EXPECT_TRUE(found.ok()) << toString(found.failures().front());
    }
    (void)sample.g.dominators(); // kept ones are right as well
    EXPECT_TRUE(verify(sample.f).ok());
}

TEST_P(BrokenTest, FiresThisCheckAndNoOther) {
    const HookOn records(TSFEAT_QUARNCfgPoolInternalLeakDetection);
    // Canaries poison what is released, which would hide who released it.
    std::unique_ptr<HookOn> canaries;
    if (GetParam().check == Check::graphCanaries) {
        canaries = std::make_unique<HookOn>(TSFEAT_QUARNPoolSanityChecks);
    }
    Sample sample;
    EXPECT_TRUE(verifyAs(sample, GetParam().verified).ok());
    GetParam().damage(sample);
    const Verification found = verifyAs(sample, GetParam().verified);
    EXPECT_EQ(idsOf(found), std::set<std::string>{std::string(infoOf(GetParam().check).id)})
        << (found.ok() ? "" : toString(found.failures().front()));
    EXPECT_GE(found.count(GetParam().check), 1U);
    EXPECT_EQ(found.count(GetParam().check), found.total());
}

// Records keep a quick look from being enough, so the same again without.
TEST_P(BrokenWithoutRecordsTest, IsDoubtedAtAQuickLook) {
    Sample sample;
    EXPECT_EQ(verifyAs(sample, GetParam().verified).numDoubted(), 0U);
    GetParam().damage(sample);
    const Verification found = verifyAs(sample, GetParam().verified);
    EXPECT_EQ(idsOf(found), std::set<std::string>{std::string(infoOf(GetParam().check).id)});
    EXPECT_EQ(found.count(GetParam().check), found.total());
}

static std::string nameOf(const ::testing::TestParamInfo<Broken>& test) {
    std::string name(infoOf(test.param.check).id);
    for (char& c : name) {
        c = c == '.' || c == '-' ? '_' : c;
    }
    return name + "_" + std::to_string(test.index);
}

/// What two of the checks look for is only known from records.
static std::vector<Broken> withoutRecords() {
    std::vector<Broken> rows;
    std::copy_if(std::begin(table), std::end(table), std::back_inserter(rows),
                 [](const Broken& row) {
                     return row.check != Check::graphReleased && row.check != Check::graphCanaries;
                 });
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Checks, BrokenTest, ::testing::ValuesIn(table), nameOf);
INSTANTIATE_TEST_SUITE_P(Checks, BrokenWithoutRecordsTest, ::testing::ValuesIn(withoutRecords()),
                         nameOf);

TEST(BrokenInputs, CoverEveryCheck) {
    std::set<std::string_view> covered;
    for (const Broken& row : table) {
        covered.insert(infoOf(row.check).id);
    }
    for (const CheckInfo& check : allChecks()) {
        EXPECT_TRUE(covered.contains(check.id)) << check.id;
    }
}
