// The services that write lines: names, the transform log, user variables; and what happens when
// the disk does not take them.
#include "tests/service_support.hpp"

#include <qn/name_printing_service.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/user_var_logging_service.hpp>

#include <gmock/gmock.h>
#include <unistd.h>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

class LogServices : public ServiceTest {
protected:
    LogServices() {
        Builder b(f.cfg(), f.cfg().addBlock());
        x = f.cfg().addVar(VarKind::User, Type::f64(), "x", 3);
        y = f.cfg().addVar(VarKind::User, Type::f64(), "y", 4);
        f.cfg().addVar(VarKind::Temp, Type::f64(), "t");
        store = b.store(y, b.load(x));
        b.ret(f.cfg().constantDouble(0));
    }
    bool removeStore() {
        Cfg& g = f.cfg();
        Node* const load = store->previous();
        g.remove(store);
        g.remove(load);
        return true;
    }

    Scope unit{ScopeFlavor::Unit, "u"};
    Function& f = *unit.addFunction("fun", Type::f64());
    Var* x;
    Var* y;
    Node* store;
};

} // namespace

TEST_F(LogServices, NamePrinterPrintsEveryTag) {
    std::ostringstream stream;
    NamePrintingService names(stream);
    DefaultServices::debugServices().addService(&names);
    run("dead-code", f, [] { return false; });
    runOnScope("inline", unit, [] { return true; });
    EXPECT_EQ(stream.str(), "dead-code-fcn_fun\ninline-scope_u\n");
}

TEST_F(LogServices, TransformLogHasALinePerRunWhileItIsOn) {
    TransformLogService service;
    run("folding", f, [] { return false; });
    EXPECT_EQ(service.logFile(), "");
    EXPECT_FALSE(service.getEnable());
    service.setEnable(true);
    EXPECT_TRUE(service.getEnable());
    run("folding", f, [] { return false; });
    run("dead-code", f, [this] { return removeStore(); });
    runOnScope("inline", unit, [] { return false; });
    service.setEnable(false);
    run("folding", f, [] { return false; });
    EXPECT_EQ(filesIn(folder), std::vector<std::string>{"transform-log-0001.txt"});
    EXPECT_THAT(linesOf(contentsOf(service.logFile())),
                ElementsAre(MatchesRegex(" +2 folding-fcn_fun +[0-9.]+ us +3 -> +3 unchanged"),
                            MatchesRegex(" +3 dead-code-fcn_fun +[0-9.]+ us +3 -> +1 changed"),
                            MatchesRegex(" +4 inline-scope_u +[0-9.]+ us +1 -> +1 unchanged")));
}

TEST_F(LogServices, TransformLogTellsOfRunsThatFail) {
    TransformLogService service;
    service.setEnable(true);
    TransformRun failing(7, "dead-code", unit, f, f.name());
    service.prepass(failing);
    failing.setOutcome(RunOutcome::Failed);
    service.postpass(failing);
    EXPECT_THAT(linesOf(contentsOf(service.logFile())),
                ElementsAre(MatchesRegex(" +7 dead-code-fcn_fun +[0-9.]+ us +3 -> +3 failed")));
}

TEST_F(LogServices, TransformLogTellsOfNestedRuns) {
    TransformLogService service;
    service.setEnable(true);
    runOnScope("outer", unit, [this] {
        run("inner", f, [this] { return removeStore(); });
        return true;
    });
    EXPECT_THAT(
        linesOf(contentsOf(service.logFile())),
        ElementsAre(HasSubstr("inner-fcn_fun"), MatchesRegex(" +1 outer.* 3 -> +1 changed")));
}

TEST_F(LogServices, TransformLogFollowsTheDebugLogsFolder) {
    TransformLogService service;
    service.setEnable(true);
    run("folding", f, [] { return false; });
    const std::string first = service.logFile();
    log.setLogDirectory(folder + "/deeper/still");
    run("folding", f, [] { return false; });
    EXPECT_NE(service.logFile(), first);
    EXPECT_EQ(filesIn(folder + "/deeper/still").size(), 1U);
    EXPECT_EQ(linesOf(contentsOf(first)).size(), 1U);
}

TEST_F(LogServices, TransformLogIsWatchingFromTheStartAndCoversTheGlobalScope) {
    TransformLogService service;
    DebugServices& services = DefaultServices::debugServices();
    EXPECT_TRUE(services.isRegistered(&service));
    EXPECT_TRUE(services.isQuiet()); // while it is off, it costs nothing
    service.setEnable(true);
    EXPECT_FALSE(services.isQuiet());
    service.setEnable(false);
    EXPECT_TRUE(services.isRegistered(&service));
    EXPECT_TRUE(services.isQuiet());
    service.setEnable(true);
    Scope global(ScopeFlavor::Global, "g");
    runOnScope("inline", global, [] { return false; });
    EXPECT_THAT(contentsOf(service.logFile()), HasSubstr("inline-scope_g"));
}

TEST_F(LogServices, FolderThatCannotBeMadeIsToldOnce) {
    TransformLogService service;
    service.setEnable(true);
    log.setLogDirectory("/dev/null/folder");
    run("folding", f, [] { return false; });
    run("folding", f, [] { return false; });
    EXPECT_EQ(console, "Cannot write the transform-log: cannot make the folder "
                       "'/dev/null/folder': Not a directory.\n");
    log.setLogDirectory(folder);
    run("folding", f, [] { return false; });
    EXPECT_EQ(linesOf(contentsOf(service.logFile())).size(), 1U);
}

TEST_F(LogServices, FullDiskLeavesWholeLinesAndIsToldOnce) {
    TransformLogService service;
    service.setEnable(true);
    run("folding", f, [] { return false; });
    const std::string whole = contentsOf(service.logFile());

    // A limit on the size of files acts as a disk that is full in the middle of a line.
    {
        const FullDisk full(whole.size() + 20);
        run("folding", f, [] { return false; });
        run("folding", f, [] { return false; });
    }

    EXPECT_EQ(contentsOf(service.logFile()), whole);
    EXPECT_EQ(console, "Cannot write to '" + service.logFile() + "': File too large.\n");
    run("folding", f, [] { return false; });
    EXPECT_EQ(linesOf(contentsOf(service.logFile())).size(), 2U);
}

TEST_F(LogServices, FileThatCannotBeOpenedIsToldOnceAndTriedAgainUnderItsName) {
    TransformLogService service;
    service.setEnable(true);
    const std::string path = folder + "/transform-log-0001.txt";
    std::filesystem::create_directories(path);
    run("folding", f, [] { return false; });
    run("folding", f, [] { return false; });
    EXPECT_EQ(console, "Cannot open '" + path + "': Is a directory.\n");
    std::filesystem::remove(path);
    run("folding", f, [] { return false; });
    EXPECT_EQ(filesIn(folder), std::vector<std::string>{"transform-log-0001.txt"});
}

TEST_F(LogServices, LogThatSomebodyRemovesIsBegunAnew) {
    TransformLogService service;
    service.setEnable(true);
    run("folding", f, [] { return false; });
    std::filesystem::remove_all(folder);
    run("dead-code", f, [] { return false; });
    EXPECT_EQ(filesIn(folder), std::vector<std::string>{"transform-log-0001.txt"});
    EXPECT_THAT(linesOf(contentsOf(service.logFile())), ElementsAre(HasSubstr("dead-code")));
    std::filesystem::rename(service.logFile(), folder + "/mine.txt");
    run("inline", f, [] { return false; });
    EXPECT_THAT(linesOf(contentsOf(service.logFile())), ElementsAre(HasSubstr("inline")));
    EXPECT_THAT(linesOf(contentsOf(folder + "/mine.txt")), ElementsAre(HasSubstr("dead-code")));
}

TEST_F(LogServices, LogGetsANameWithTheProcessIdWhenThatIsAskedFor) {
    TransformLogService service;
    service.setEnable(true);
    run("folding", f, [] { return false; });
    log.setUsePIDInName(true);
    run("dead-code", f, [] { return false; });
    EXPECT_EQ(service.logFile(),
              folder + "/transform-log-" + std::to_string(::getpid()) + "-0002.txt");
    EXPECT_THAT(linesOf(contentsOf(service.logFile())), ElementsAre(HasSubstr("dead-code")));
}

TEST_F(LogServices, UserVariablesThatAreAliveAreListed) {
    UserVarLoggingService service(true, true);
    run("dead-code", f, [this] { return removeStore(); });
    EXPECT_EQ(contentsOf(service.logFile()),
              "       1 before dead-code-fcn_fun: x y\n"
              "       1 after  dead-code-fcn_fun: none\n"
              "       1 dead-code has optimized away x (line 3) of fun\n"
              "       1 dead-code has optimized away y (line 4) of fun\n");
}

TEST_F(LogServices, UserVariablesOfAScopeNameTheirFunctions) {
    UserVarLoggingService service(false, true);
    runOnScope("inline", unit, [] { return true; });
    EXPECT_EQ(contentsOf(service.logFile()), "       1 after  inline-scope_u: fun.x fun.y\n");
    service.setFilter("nothing");
    runOnScope("inline", unit, [] { return true; });
    EXPECT_EQ(linesOf(contentsOf(service.logFile())).size(), 1U);
}

TEST_F(LogServices, ParametersAndTemporariesAreNoUserVariables) {
    Function& h = *unit.addFunction("h", Type::f64());
    Var* const parameter = h.addParam(Type::f64(), "parameter");
    Var* const temporary = h.cfg().addVar(VarKind::Temp, Type::f64(), "temporary");
    Var* const users = h.cfg().addVar(VarKind::User, Type::f64(), "users");
    Builder b(h.cfg(), h.cfg().addBlock());
    b.store(temporary, b.load(parameter));
    b.store(users, b.load(temporary));
    b.ret(h.cfg().constantDouble(0));
    UserVarLoggingService service(true, false);
    run("dead-code", h, [] { return false; });
    EXPECT_EQ(contentsOf(service.logFile()), "       1 before dead-code-fcn_h: users\n");
}
