// The funnel: hooks in order and in pairs, whatever happens; tags; the registry.
#include <qn/collect_statistics_service.hpp>
#include <qn/default_services.hpp>
#include <qn/ir.hpp>
#include <qn/pipeline.hpp>
#include <qn/transform.hpp>
#include <qn/transform_run.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace QN;

namespace {

std::vector<std::string> events;

class Watching : public Service {
public:
    explicit Watching(std::string name) : name_(std::move(name)) {
        DefaultServices::debugServices().addService(this);
    }
    void prepass(TransformRun& run) override {
        events.push_back(name_ + " before " + run.tag());
        if (act) {
            act(run);
        }
    }
    void postpass(TransformRun& run) override {
        const char* const how = run.failed()    ? " failed"
                                : run.changed() ? " changed"
                                                : " unchanged";
        events.push_back(name_ + " after " + run.tag() + how);
        if (actAfter) {
            actAfter(run);
        }
    }
    void sleep(bool idle) { setIdle(idle); }
    std::function<void(TransformRun&)> act;
    std::function<void(TransformRun&)> actAfter;

private:
    std::string name_;
};

bool change(Function&) {
    events.push_back("transform");
    return true;
}
bool leaveScope(Scope&) {
    return false;
}
bool failing(Function&) {
    throw std::runtime_error("no");
}

constexpr Transform changing{"change", "", change, nullptr};
constexpr Transform leaving{"leave", "", nullptr, leaveScope};
constexpr Transform throwing{"throw", "", failing, nullptr};

class Funnel : public ::testing::Test {
protected:
    void SetUp() override { events.clear(); }
    Scope scope{ScopeFlavor::Unit, "u"};
    Function& f = *scope.addFunction("f", Type::voidType());
};

using Events = std::vector<std::string>;

} // namespace

TEST_F(Funnel, WithoutServicesOnlyTheTransformRuns) {
    EXPECT_TRUE(runTransform(changing, f));
    EXPECT_FALSE(runTransform(leaving, scope));
    EXPECT_EQ(events, Events{"transform"});
}

TEST_F(Funnel, HooksNestAroundTheRun) {
    Watching a("a");
    Watching b("b");
    EXPECT_TRUE(runTransform(changing, f));
    EXPECT_FALSE(runTransform(leaving, scope));
    EXPECT_EQ(events,
              (Events{"a before change-fcn_f", "b before change-fcn_f", "transform",
                      "b after change-fcn_f changed", "a after change-fcn_f changed",
                      "a before leave-scope_u", "b before leave-scope_u",
                      "b after leave-scope_u unchanged", "a after leave-scope_u unchanged"}));
}

TEST_F(Funnel, AFailedTransformLeavesTheHooksPaired) {
    Watching a("a");
    EXPECT_THROW(runTransform(throwing, f), std::runtime_error);
    EXPECT_EQ(events, (Events{"a before throw-fcn_f", "a after throw-fcn_f failed"}));
}

TEST_F(Funnel, AFailedHookClosesTheOnesBeforeIt) {
    Watching a("a");
    Watching b("b");
    b.act = [](TransformRun&) { throw std::runtime_error("no"); };
    EXPECT_THROW(runTransform(changing, f), std::runtime_error);
    EXPECT_EQ(events, (Events{"a before change-fcn_f", "b before change-fcn_f",
                              "a after change-fcn_f failed"}));
}

TEST_F(Funnel, AServiceCanStopTheCompilation) {
    Watching a("a");
    a.act = [](TransformRun& run) { run.requestStop("enough"); };
    try {
        runTransform(changing, f);
        FAIL();
    } catch (const CompilationStopped& stopped) {
        EXPECT_STREQ(stopped.what(), "enough");
    }
    EXPECT_EQ(events, (Events{"a before change-fcn_f", "a after change-fcn_f failed"}));
    events.clear();
    a.act = nullptr;
    a.actAfter = [](TransformRun& run) { run.requestStop(""); };
    EXPECT_THROW(runTransform(changing, f), CompilationStopped);
    EXPECT_EQ(events,
              (Events{"a before change-fcn_f", "transform", "a after change-fcn_f changed"}));
}

TEST_F(Funnel, ServicesMayLeaveAndComeDuringARun) {
    auto a = std::make_unique<Watching>("a");
    Watching b("b");
    std::unique_ptr<Watching> late;
    b.act = [&](TransformRun&) {
        a.reset();
        late = std::make_unique<Watching>("late");
    };
    runTransform(changing, f);
    // The late one is registered while the services are being told, so it is told too.
    EXPECT_EQ(events, (Events{"a before change-fcn_f", "b before change-fcn_f",
                              "late before change-fcn_f", "transform",
                              "late after change-fcn_f changed", "b after change-fcn_f changed"}));
}

TEST_F(Funnel, AServiceThatComesBackWaitsForTheNextRun) {
    Watching a("a");
    Watching b("b");
    Watching* which = nullptr;
    const auto leaveAndComeBack = [&](TransformRun&) {
        DebugServices& services = DefaultServices::debugServices();
        services.removeService(which);
        services.addService(which);
        services.removeService(which);
        services.addService(which);
        EXPECT_TRUE(services.isRegistered(which));
        EXPECT_TRUE(services.holds(which));
        EXPECT_EQ(services.size(), 2U);
    };
    const auto sleepAndWake = [&](TransformRun&) {
        which->sleep(true);
        which->sleep(false);
        which->sleep(true);
        which->sleep(false);
        EXPECT_FALSE(which->isIdle());
        EXPECT_TRUE(DefaultServices::debugServices().holds(which));
    };
    for (const std::function<void(TransformRun&)>& act :
         {std::function<void(TransformRun&)>(leaveAndComeBack),
          std::function<void(TransformRun&)>(sleepAndWake)}) {
        // Of its own accord it moves behind the other one, and is told by the next run again.
        events.clear();
        which = &a;
        a.act = act;
        runTransform(changing, f);
        EXPECT_EQ(events, (Events{"a before change-fcn_f", "b before change-fcn_f", "transform",
                                  "b after change-fcn_f changed"}));
        a.act = nullptr;
        events.clear();
        runTransform(changing, f);
        EXPECT_EQ(events, (Events{"b before change-fcn_f", "a before change-fcn_f", "transform",
                                  "a after change-fcn_f changed", "b after change-fcn_f changed"}));
        // The other one is told of a run before this one moves it, so it is not told of the end.
        events.clear();
        which = &b;
        a.act = act;
        runTransform(changing, f);
        EXPECT_EQ(events, (Events{"b before change-fcn_f", "a before change-fcn_f", "transform",
                                  "a after change-fcn_f changed"}));
        // And if it is its turn after this one, it is told of neither.
        events.clear();
        runTransform(changing, f);
        EXPECT_EQ(events,
                  (Events{"a before change-fcn_f", "transform", "a after change-fcn_f changed"}));
        a.act = nullptr;
        events.clear();
        runTransform(changing, f);
        EXPECT_EQ(events, (Events{"a before change-fcn_f", "b before change-fcn_f", "transform",
                                  "b after change-fcn_f changed", "a after change-fcn_f changed"}));
    }
}

TEST_F(Funnel, AServiceThatComesBackAloneWaitsForTheNextRun) {
    Watching a("a");
    a.act = [&](TransformRun&) {
        a.sleep(true);
        a.sleep(false);
        runTransform(changing, f); // nobody is told of a run inside
    };
    runTransform(changing, f);
    EXPECT_EQ(events, (Events{"a before change-fcn_f", "transform", "transform"}));
    a.act = nullptr;
    events.clear();
    a.actAfter = [&](TransformRun&) {
        a.sleep(true);
        a.sleep(false);
    };
    runTransform(changing, f);
    runTransform(changing, f);
    EXPECT_EQ(events,
              (Events{"a before change-fcn_f", "transform", "a after change-fcn_f changed",
                      "a before change-fcn_f", "transform", "a after change-fcn_f changed"}));
}

TEST_F(Funnel, AServiceThatWaitsMayLeaveForGood) {
    auto a = std::make_unique<Watching>("a");
    Watching b("b");
    a->act = [&](TransformRun&) {
        a->sleep(true);
        a->sleep(false);
    };
    b.act = [&](TransformRun&) { a.reset(); };
    runTransform(changing, f);
    b.act = nullptr;
    runTransform(changing, f);
    EXPECT_EQ(events, (Events{"a before change-fcn_f", "b before change-fcn_f", "transform",
                              "b after change-fcn_f changed", "b before change-fcn_f", "transform",
                              "b after change-fcn_f changed"}));
    EXPECT_EQ(DefaultServices::debugServices().size(), 1U);
}

TEST_F(Funnel, AServiceAddedAfterTheHooksWaits) {
    Watching a("a");
    std::unique_ptr<Watching> late;
    a.actAfter = [&](TransformRun&) {
        if (late == nullptr) {
            late = std::make_unique<Watching>("late");
        }
    };
    runTransform(changing, f);
    EXPECT_EQ(events.size(), 3U);
}

TEST_F(Funnel, RunsOnAllFunctionsWithAGraph) {
    scope.addFunction("g", Type::voidType())->deleteCfg();
    scope.addFunction("h", Type::voidType());
    Watching a("a");
    EXPECT_TRUE(runTransformOnAll(changing, scope));
    EXPECT_EQ(events,
              (Events{"a before change-fcn_f", "transform", "a after change-fcn_f changed",
                      "a before change-fcn_h", "transform", "a after change-fcn_h changed"}));
}

TEST_F(Funnel, StatisticsCountRunsAndEntities) {
    Builder b(f.cfg(), f.cfg().addBlock());
    b.store(f.cfg().addVar(VarKind::User, Type::f64(), "x"), f.cfg().constantDouble(1));
    b.ret();
    CollectStatisticsService statistics;
    DefaultServices::debugServices().addService(&statistics);
    EXPECT_EQ(statistics.table(), "");
    runTransform(*transformNamed("dead-code"), f);
    runTransform(leaving, scope);
    runTransform(leaving, scope);
    const std::string table = statistics.table();
    EXPECT_EQ(
        table,
        "transform                    runs  changed   failed                nodes               "
        "blocks                 vars               consts            functions\n"
        "dead-code                       1        1        0                2 > 1                "
        "1 > 1                1 > 0                1 > 1                1 > 1\n"
        "leave                           2        0        0                2 > 2                "
        "2 > 2                0 > 0                2 > 2                2 > 2\n");
    ::testing::internal::CaptureStdout();
    DefaultServices::debugServices().removeService(&statistics);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), table);
    DefaultServices::debugServices().addService(&statistics);
    EXPECT_EQ(statistics.table(), "") << "it starts anew";
}

TEST_F(Funnel, StatisticsCountRunsThatFail) {
    CollectStatisticsService statistics;
    TransformRun failing(1, "dead-code", scope, f, f.name());
    statistics.prepass(failing);
    failing.setOutcome(RunOutcome::Failed);
    statistics.postpass(failing);
    EXPECT_NE(statistics.table().find("\ndead-code                       1        0        1 "),
              std::string::npos)
        << statistics.table();
}

TEST(Registry, NamesAreUniqueAndKinded) {
    std::set<std::string_view> names;
    for (const Transform& transform : allTransforms()) {
        EXPECT_TRUE(names.insert(transform.name).second) << transform.name;
        EXPECT_NE(transform.onFunction == nullptr, transform.onScope == nullptr);
        EXPECT_FALSE(transform.summary.empty());
        EXPECT_EQ(transformNamed(transform.name), &transform);
    }
    EXPECT_EQ(transformNamed("nothing"), nullptr);
    for (const std::string_view stage : pipeline()) {
        EXPECT_NE(transformNamed(stage), nullptr) << stage;
    }
}
