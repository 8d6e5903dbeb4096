// The debug log: its folder and mode, the form of its file names, its counter.
#include <ts/debug_log.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

using tssv::debug::DebugLog;

namespace {

class DebugLogTest : public ::testing::Test {
protected:
    void SetUp() override { DebugLog::resetCounter(); }
    void TearDown() override { DebugLog::resetCounter(); }
};

} // namespace

TEST_F(DebugLogTest, AutoUntilADirectoryIsSet) {
    DebugLog log;
    EXPECT_EQ(log.mode(), DebugLog::Mode::Auto);
    log.setLogDirectory("/some/where");
    EXPECT_EQ(log.mode(), DebugLog::Mode::Manual);
    EXPECT_EQ(log.logDirectory(), "/some/where");
    log.setLogDirectory("");
    EXPECT_EQ(log.mode(), DebugLog::Mode::Auto);
}

TEST_F(DebugLogTest, AutoDirectoryFollowsTheTemporaryFolder) {
    const char* old = std::getenv("TMPDIR");
    const std::string saved = old != nullptr ? old : "";
    ::setenv("TMPDIR", "/somewhere/else", 1);
    EXPECT_EQ(DebugLog().logDirectory(), "/somewhere/else/quarn-debug");
    ::unsetenv("TMPDIR");
    EXPECT_EQ(DebugLog().logDirectory(), "/tmp/quarn-debug");
    if (old != nullptr) {
        ::setenv("TMPDIR", saved.c_str(), 1);
    }
}

TEST_F(DebugLogTest, NamesCountUpAndEndAsAsked) {
    DebugLog log;
    log.setLogDirectory("/d");
    log.setUsePIDInName(false);
    EXPECT_EQ(log.logFilePath("dump", "txt"), "/d/dump-0001.txt");
    EXPECT_EQ(log.logFilePath("dump", ".txt"), "/d/dump-0002.txt");
    EXPECT_EQ(log.logFilePath("dump", ""), "/d/dump-0003");
    log.setLogDirectory("/d/");
    EXPECT_EQ(log.logFilePath("dump", "txt"), "/d/dump-0004.txt");
}

TEST_F(DebugLogTest, NamesStayInsideTheFolder) {
    DebugLog log;
    log.setLogDirectory("/d");
    log.setUsePIDInName(false);
    EXPECT_EQ(log.logFilePath("../x", "a/b"), "/d/.._x-0001.a_b");
}

TEST_F(DebugLogTest, ProcessIdIsInTheNameByDefault) {
    DebugLog log;
    EXPECT_TRUE(log.usePIDInName());
    log.setLogDirectory("/d");
    EXPECT_EQ(log.logFilePath("x", "y"), "/d/x-" + std::to_string(::getpid()) + "-0001.y");
}

TEST_F(DebugLogTest, CounterIsSharedAndStartsAgainAtOne) {
    DebugLog first;
    DebugLog second;
    EXPECT_EQ(DebugLog::nextNumber(), 1U);
    (void)first.logFilePath("a", "");
    (void)second.logFilePath("b", "");
    EXPECT_EQ(DebugLog::nextNumber(), 3U);
    DebugLog::resetCounter();
    EXPECT_EQ(DebugLog::nextNumber(), 1U);
}

TEST_F(DebugLogTest, MakesItsFolderOrSaysWhyNot) {
    char folder[] = "/tmp/debug_log_test_XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    DebugLog log;
    log.setLogDirectory(std::string(folder) + "/a/b");
    EXPECT_EQ(log.makeLogDirectory(), "");
    EXPECT_TRUE(std::filesystem::is_directory(log.logDirectory()));
    EXPECT_EQ(log.makeLogDirectory(), "");

    std::ofstream(std::string(folder) + "/file") << "x";
    log.setLogDirectory(std::string(folder) + "/file");
    EXPECT_NE(log.makeLogDirectory(), "");
    log.setLogDirectory(std::string(folder) + "/file/below");
    EXPECT_NE(log.makeLogDirectory(), "");
    std::filesystem::remove_all(folder);
}
