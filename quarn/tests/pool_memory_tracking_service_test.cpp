// Pool tracking: the high-water mark names the place, statistics by level, planted leaks and
// planted damage are told once.
#include "tests/service_support.hpp"

#include <qn/pool_memory_tracking_service.hpp>
#include <qn/testing_hooks.hpp>

#include <cstring>
#include <gmock/gmock.h>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

// A testing hook that is on for the life of the object.
class HookOn {
public:
    explicit HookOn(TsTestingHook* hook) : hook_(hook), old_(hook->setHookValFromC(1)) {}
    ~HookOn() { hook_->setHookValFromC(old_); }
    HookOn(const HookOn&) = delete;
    HookOn& operator=(const HookOn&) = delete;

private:
    TsTestingHook* hook_;
    int old_;
};

class PoolTracking : public ServiceTest {
protected:
    Function& makeFunction(Scope& scope, const char* name) {
        Function& function = *scope.addFunction(name, Type::f64());
        Builder b(function.cfg(), function.cfg().addBlock());
        b.ret(function.cfg().constantDouble(0));
        return function;
    }
    static bool fill(Function& function, int nodes) {
        Builder b(function.cfg(), *function.cfg().entry()->last());
        for (int i = 0; i < nodes; ++i) {
            b.toIndex(function.cfg().constantDouble(1));
        }
        return true;
    }
    PoolMemoryTrackingService service{false, false};
};

} // namespace

TEST_F(PoolTracking, Defaults) {
    EXPECT_EQ(service.poolStatsLevel(), 1);
    EXPECT_FALSE(service.collectPoolStats());
    EXPECT_FALSE(service.poolInternalLeakDetection());
    const PoolHighWaterMark mark;
    EXPECT_EQ(mark.when(), "");
    EXPECT_EQ(mark.scopeFlavor(), "");
    EXPECT_EQ(mark.transformName(), "");
    EXPECT_EQ(mark.functionName(), "");
    EXPECT_EQ(mark.poolMaxAllocated(), 0U);
}

TEST_F(PoolTracking, HighWaterMarkNamesThePlace) {
    Scope unit(ScopeFlavor::Session, "s");
    Function& f = makeFunction(unit, "small");
    Function& g = makeFunction(unit, "large");
    service.setRequestedAfter(true);
    service.resetPoolHighWaterMark();
    run("first", f, [] { return false; });
    EXPECT_EQ(service.poolHighWaterMark().when(), "before run 1");
    EXPECT_EQ(service.poolHighWaterMark().poolMaxAllocated(), Pool::totalReserved());
    run("second", g, [&] { return fill(g, 20000); });
    const PoolHighWaterMark mark = service.poolHighWaterMark();
    EXPECT_EQ(mark.when(), "after run 2");
    EXPECT_EQ(mark.scopeFlavor(), "session");
    EXPECT_EQ(mark.transformName(), "second");
    EXPECT_EQ(mark.functionName(), "large");
    EXPECT_EQ(mark.poolMaxAllocated(), Pool::totalReserved());
    run("third", f, [] { return false; });
    EXPECT_EQ(service.poolHighWaterMark().when(), "after run 2");
}

TEST_F(PoolTracking, HighWaterMarkSeesWhatARunHeldInBetween) {
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    service.setRequestedAfter(true);
    service.resetPoolHighWaterMark();
    run("first", f, [] {
        Scope passing(ScopeFlavor::Unit, "passing");
        Function& g = *passing.addFunction("g", Type::f64());
        Builder b(g.cfg(), g.cfg().addBlock());
        b.ret(g.cfg().constantDouble(0));
        return fill(g, 20000);
    });
    EXPECT_EQ(service.poolHighWaterMark().when(), "during run 1");
    EXPECT_GT(service.poolHighWaterMark().poolMaxAllocated(), Pool::totalReserved());
    service.resetPoolHighWaterMark();
    EXPECT_EQ(service.poolHighWaterMark().when(), "");
    run("second", f, [] { return false; });
    EXPECT_EQ(service.poolHighWaterMark().poolMaxAllocated(), Pool::totalReserved());
}

TEST_F(PoolTracking, StatisticsByLevel) {
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    f.cfg().addVar(VarKind::User, Type::f64(), "xyz");
    service.setRequestedBefore(true);
    run("first", f, [] { return false; });
    EXPECT_EQ(service.logFile(), "");
    service.setCollectPoolStats(true);
    run("first", f, [] { return false; });
    const std::string totals = " first-fcn_f: [0-9]+ bytes allocated, [0-9]+ of them released, "
                               "[0-9]+ reserved; all pools [0-9]+";
    EXPECT_THAT(linesOf(contentsOf(service.logFile())),
                ElementsAre(MatchesRegex(" +2 before" + totals)));
    service.setPoolStatsLevel(2);
    EXPECT_EQ(service.poolStatsLevel(), 2);
    service.setRequestedBefore(false);
    service.setRequestedAfter(true);
    run("first", f, [] { return false; });
    const std::vector<std::string> lines = linesOf(contentsOf(service.logFile()));
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_THAT(lines[1], MatchesRegex(" +3 after " + totals));
    EXPECT_THAT(lines[2], MatchesRegex(" +const +1 alive +32 bytes"));
    EXPECT_THAT(lines[3], MatchesRegex(" +var +1 alive +[0-9]+ bytes"));
    EXPECT_THAT(lines[4], MatchesRegex(" +node +1 alive +48 bytes"));
    EXPECT_THAT(lines[5], MatchesRegex(" +block +1 alive +[0-9]+ bytes"));
    EXPECT_THAT(lines[6], MatchesRegex(" +name +1 alive +3 bytes"));
}

TEST_F(PoolTracking, StatisticsAreThoseOfThePools) {
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    Function& g = makeFunction(unit, "g");
    fill(f, 300);
    fill(g, 50);
    f.cfg().remove(f.cfg().entry()->first());
    service.setRequestedAfter(true);
    service.setCollectPoolStats(true);
    const auto sumOf = [&](auto number) {
        return std::to_string(number(unit.pool()) + number(f.cfg().pool()) +
                              number(g.cfg().pool()));
    };
    runOnScope("first", unit, [] { return false; });
    EXPECT_THAT(linesOf(contentsOf(service.logFile())).at(0),
                HasSubstr("after  first-scope_u: " +
                          sumOf([](const Pool& pool) { return pool.bytesAllocated(); }) +
                          " bytes allocated, 48 of them released, " +
                          sumOf([](const Pool& pool) { return pool.bytesReserved(); }) +
                          " reserved; all pools " + std::to_string(Pool::totalReserved())));
}

TEST_F(PoolTracking, LostNodesAreReportedWhereTheyWereLost) {
    const HookOn records(TSFEAT_QUARNCfgPoolInternalLeakDetection);
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    service.setRequestedAfter(true);
    run("clean", f, [&] { return fill(f, 3); });
    EXPECT_EQ(console, "");
    run("leaky", f, [&] {
        Cfg& g = f.cfg();
        g.makeNode(Op::ToIndex, {}, Type::i64(), std::vector<Entity*>{g.constantDouble(2)});
        Node* const unlinked = g.entry()->first();
        g.unlink(unlinked);
        return true;
    });
    EXPECT_EQ(console, "Pool leaks in leaky-fcn_f:\n"
                       "  node %2 (toindex) in function 'f' is allocated but unreachable\n"
                       "  node %5 (toindex) in function 'f' is allocated but unreachable\n");
    console.clear();
    run("clean", f, [&] { return fill(f, 1); });
    EXPECT_EQ(console, "");
}

TEST_F(PoolTracking, OfManyLostNodesAFewAreNamed) {
    const HookOn records(TSFEAT_QUARNCfgPoolInternalLeakDetection);
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    service.setRequestedBefore(true);
    const auto lose = [&](int count) {
        run("leaky", f, [&] {
            for (int i = 0; i < count; ++i) {
                f.cfg().makeNode(Op::ToIndex, {}, Type::i64(),
                                 std::vector<Entity*>{f.cfg().constantDouble(2)});
            }
            return true;
        });
    };
    lose(10);
    EXPECT_EQ(linesOf(console).size(), 11U);
    console.clear();
    lose(13);
    ASSERT_EQ(linesOf(console).size(), 12U);
    EXPECT_EQ(linesOf(console).back(), "  and 3 more");
}

TEST_F(PoolTracking, RemovedNodesAreNoLeaks) {
    const HookOn records(TSFEAT_QUARNCfgPoolInternalLeakDetection);
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    fill(f, 5);
    service.setRequestedAfter(true);
    run("dead-code", f, [&] {
        while (f.cfg().numNodes() > 1) {
            f.cfg().remove(f.cfg().entry()->first());
        }
        return true;
    });
    EXPECT_EQ(console, "");
}

TEST_F(PoolTracking, NamesOfRemovedFunctionsAreNoLeaks) {
    const HookOn records(TSFEAT_QUARNPoolInternalLeakDetection);
    Scope unit(ScopeFlavor::Unit, "u");
    makeFunction(unit, "kept");
    Function& gone = makeFunction(unit, "gone");
    service.setRequestedAfter(true);
    service.setPoolInternalLeakDetection(true);
    EXPECT_TRUE(service.poolInternalLeakDetection());
    runOnScope("unused-functions", unit, [&] {
        unit.removeFunction(gone);
        return true;
    });
    EXPECT_EQ(console, "");
    EXPECT_EQ(unit.pool().bytesReleased(), 8U);
}

TEST_F(PoolTracking, NamesThatNothingHasAreLeaksOfTheScope) {
    const HookOn records(TSFEAT_QUARNPoolInternalLeakDetection);
    Scope unit(ScopeFlavor::Unit, "u");
    makeFunction(unit, "kept");
    service.setRequestedAfter(true);
    service.setPoolInternalLeakDetection(true);
    runOnScope("careless", unit, [&] {
        static_cast<void>(unit.pool().copy("lost"));
        return true;
    });
    EXPECT_EQ(console, "Pool leaks in careless-scope_u:\n"
                       "  name of 8 bytes in scope 'u' is allocated but unreachable\n");
}

TEST_F(PoolTracking, OverrunAndUseAfterReleaseAreFoundOnce) {
    const HookOn canaries(TSFEAT_QUARNPoolSanityChecks);
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    fill(f, 2);
    service.setRequestedAfter(true);
    run("clean", f, [] { return false; });
    EXPECT_EQ(console, "");
    run("careless", f, [&] {
        Node* const node = f.cfg().entry()->first();
        std::memset(reinterpret_cast<char*>(node) + node->bytes(), 0, 4);
        return true;
    });
    EXPECT_EQ(console,
              "Pool damage found after careless-fcn_f:\n"
              "  node of 48 bytes in function 'f': the bytes behind it have been written to\n");
    console.clear();
    run("careless", f, [&] {
        Node* const node = f.cfg().entry()->first();
        f.cfg().remove(node);
        std::memset(static_cast<void*>(node), 1, 8);
        return true;
    });
    EXPECT_EQ(console,
              "Pool damage found after careless-fcn_f:\n"
              "  node of 48 bytes in function 'f': it has been written to after its release\n");
    console.clear();
    run("clean", f, [] { return false; });
    EXPECT_EQ(console, "");
}

TEST_F(PoolTracking, DamageBetweenTwoRunsIsFoundBeforeTheSecond) {
    const HookOn canaries(TSFEAT_QUARNPoolSanityChecks);
    Scope unit(ScopeFlavor::Unit, "u");
    Function& f = makeFunction(unit, "f");
    fill(f, 2);
    service.setRequestedAfter(true);
    Node* const node = f.cfg().entry()->first();
    std::memset(reinterpret_cast<char*>(node) - 4, 0, 4);
    run("innocent", f, [] { return false; });
    EXPECT_EQ(console,
              "Pool damage found before innocent-fcn_f:\n"
              "  node of 48 bytes in function 'f': the bytes before it have been written to\n");
}

// Each compilation has a scope of its own, which often lies where an earlier one lay.
TEST_F(PoolTracking, DamageInALaterScopeIsToldAgain) {
    const HookOn canaries(TSFEAT_QUARNPoolSanityChecks);
    service.setRequestedAfter(true);
    int told = 0;
    for (int i = 0; i < 20; ++i) {
        Scope unit(ScopeFlavor::Unit, "u");
        Function& f = makeFunction(unit, "f");
        fill(f, 2);
        run("careless", f, [&] {
            Node* const node = f.cfg().entry()->first();
            std::memset(reinterpret_cast<char*>(node) + node->bytes(), 0, 4);
            return true;
        });
        told += console.empty() ? 0 : 1;
        console.clear();
    }
    EXPECT_EQ(told, 20);
}
