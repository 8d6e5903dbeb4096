// Built-in functions on the workspace, objects, files, other programs and time.
#include "tests/builtins_helpers.hpp"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnix::testing {
namespace {

namespace fs = std::filesystem;

/// A folder of its own for each test, removed at the end; `folder` in the workspace.
class BuiltinsFiles : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/varnix-test-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        folder_ = name;
        interpreter().setGlobal("folder", text(folder_.string()));
    }
    void TearDown() override { fs::remove_all(folder_); }

    fs::path folder_;
};

TEST_F(BuiltinsFiles, WriteReadAppendRemove) {
    interpreter().runCode("f = [folder, \"/a.txt\"]; writefile(f, \"one\\n\"); appendfile(f, "
                          "\"two\"); was = readfile(f); writefile(f, \"\"); "
                          "now_ = readfile(f); there = isfile(f); removefile(f); gone = isfile(f);",
                          "<test>");
    EXPECT_TRUE(same(evaluate("was"), text("one\ntwo")));
    EXPECT_TRUE(same(evaluate("now_"), text("")));
    EXPECT_TRUE(same(evaluate("[there, gone]"), mask({true, false})));
    EXPECT_TRUE(fs::is_empty(folder_)); // nothing temporary is left
}

TEST_F(BuiltinsFiles, WritingKeepsModeAndLinks) {
    const fs::path file = folder_ / "file";
    interpreter().runCode("writefile([folder, \"/file\"], \"a\");", "<test>");
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    fs::create_symlink("file", folder_ / "link");
    interpreter().runCode("writefile([folder, \"/link\"], \"b\");", "<test>");
    struct stat status = {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_TRUE(fs::is_symlink(folder_ / "link"));
    EXPECT_TRUE(same(evaluate("readfile([folder, \"/file\"])"), text("b")));
}

TEST_F(BuiltinsFiles, AWriteThatFailsLeavesTheFile) {
    interpreter().runCode("writefile([folder, \"/a\"], \"kept\");", "<test>");
    // No file may grow beyond 1000 bytes: the write fails half-way.
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit little = {1000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
    const std::string error = errorOfCode("writefile([folder, \"/a\"], repmat(\"new\", 1, 1000))");
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(error,
              "varnix:ioError: writefile: cannot write " + folder_.string() + "/a: File too large");
    EXPECT_TRUE(same(evaluate("size(ls(folder))"), row({1, 1}))); // nothing half-written is left
    EXPECT_TRUE(same(evaluate("readfile([folder, \"/a\"])"), text("kept")));
}

TEST_F(BuiltinsFiles, AnyBytes) {
    interpreter().runCode("t = char(0:255); f = [folder, \"/b\"]; writefile(f, t);", "<test>");
    EXPECT_TRUE(same(evaluate("isequal(readfile(f), t)"), Value::ofLogical(true)));
}

TEST_F(BuiltinsFiles, Folders) {
    interpreter().runCode("back = pwd; cd(folder); makefolder(\"x/y\"); writefile(\"b.vx\", \"\"); "
                          "writefile(\"a.vx\", \"\"); names = ls; some = ls(\"*.vx\"); "
                          "inside = ls(\"x\"); here = pwd; cd(back);",
                          "<test>");
    EXPECT_TRUE(same(evaluate("names"), cells(3, 1, {text("a.vx"), text("b.vx"), text("x")})));
    EXPECT_TRUE(same(evaluate("some"), cells(2, 1, {text("a.vx"), text("b.vx")})));
    EXPECT_TRUE(same(evaluate("inside"), cells(1, 1, {text("y")})));
    EXPECT_EQ(fs::canonical(std::string(evaluate("here").textView())), fs::canonical(folder_));
    EXPECT_TRUE(same(evaluate("isfolder([folder, \"/x/y\"])"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("size(ls([folder, \"/x/y\"]))"), row({0, 1})));
}

TEST_F(BuiltinsFiles, RunsFilesAndFindsFunctions) {
    interpreter().runCode("writefile([folder, \"/twice_of.vx\"], "
                          "\"function twice_of(x)\\n  return 2 * x\\nend\\n\"); "
                          "writefile([folder, \"/job.vx\"], \"from_job = 7;\\n\"); "
                          "addpath(folder); run([folder, \"/job.vx\"]);",
                          "<test>");
    EXPECT_TRUE(same(evaluate("twice_of(4)"), number(8)));
    EXPECT_TRUE(same(evaluate("from_job"), number(7)));
}

TEST(BuiltinsFilesNames, TempnameIsNew) {
    EXPECT_TRUE(same(evaluate("isequal(tempname, tempname)"), Value::ofLogical(false)));
    EXPECT_TRUE(same(evaluate("exists(\"tempname\")"), Value::ofLogical(true)));
}

TEST(BuiltinsSystem, Shell) {
    EXPECT_TRUE(same(evaluate("shell(\"exit 3\")"), number(3)));
    EXPECT_TRUE(same(evaluate("shell(\"kill -9 $$\")"), number(137)));
    interpreter().runCode("s, out = shell(\"printf 'a b'\");", "<test>");
    EXPECT_TRUE(same(evaluate("out"), text("a b")));
    EXPECT_EQ(printed("shell(\"echo to the console\")"), "to the console\n");
}

TEST(BuiltinsSystem, Environment) {
    interpreter().runCode("setenv(\"VARNIX_TEST\", \"x=y\")", "<test>");
    EXPECT_TRUE(same(evaluate("getenv(\"VARNIX_TEST\")"), text("x=y")));
    EXPECT_TRUE(same(evaluate("getenv(\"VARNIX_NOT_SET\")"), text("")));
}

TEST(BuiltinsSystem, Time) {
    expectRows(std::vector<GoodRow>{
        {"toc() >= 0", "true"},
        {"now - 1.6e9 > 0", "true"},
        {"matches(timestamp, '^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d$')", "true"},
        {"isequal(timestamp(0), timestamp(0.5))", "true"},
    });
    interpreter().runCode("tic; t = tic; pause(0.001); e = toc(t);", "<test>");
    EXPECT_TRUE(same(evaluate("e >= 0.001"), Value::ofLogical(true)));
}

TEST(BuiltinsWorkspace, EvalAndCapture) {
    interpreter().runCode("v = 5; eval(\"w = v + 1;\"); c = capture(\"disp(v); u = 9;\");",
                          "<test>");
    EXPECT_TRUE(same(evaluate("w"), number(6)));
    EXPECT_TRUE(same(evaluate("c"), text("5\n")));
    EXPECT_TRUE(same(evaluate("u"), number(9)));
    EXPECT_TRUE(same(evaluate("eval(\"v * 2\")"), number(10)));
    EXPECT_NE(errorOfCode("eval(\"1 +\")").find("varnix:syntax"), std::string::npos);
    EXPECT_EQ(errorOfCode("capture(\"error(\\\"inside\\\")\")"), "varnix:error: inside");
    EXPECT_EQ(printed("disp(1)"), "1\n"); // the capture that failed has ended
}

TEST(BuiltinsWorkspace, CaptureWorksOnTheCallersVariables) {
    EXPECT_EQ(
        printed(
            "function capturing()\n inner = 3; t = capture(\"disp(inner)\");\n printf(\"%s\", t)\n"
            "end\ncapturing()"),
        "3\n");
}

TEST(BuiltinsWorkspace, VariablesComeAndGo) {
    interpreter().runCode("clear; one = 1; two = 2;", "<test>");
    EXPECT_TRUE(same(evaluate("variables"), cells(2, 1, {text("one"), text("two")})));
    interpreter().runCode("is, kind = exists(\"one\"); clear(\"one\", \"never\");", "<test>");
    EXPECT_TRUE(same(evaluate("kind"), text("variable")));
    EXPECT_TRUE(same(evaluate("exists(\"one\")"), Value::ofLogical(false)));
    interpreter().runCode("a, kinds = exists(\"sin\"); b, kindp = exists(\"varnix.mixin\"); "
                          "c, kindn = exists(\"no.such\");",
                          "<test>");
    EXPECT_TRUE(same(evaluate("{kinds, kindp, kindn}"),
                     cellRow({text("builtin"), text("package"), text("")})));
}

TEST(BuiltinsWorkspace, ArgumentsHelpExit) {
    EXPECT_TRUE(same(evaluate("args"), cellRow({text("first"), text("second")})));
    EXPECT_NE(printed("help(\"mod\")").find("mod(x, y)"), std::string::npos);
    EXPECT_TRUE(same(evaluate("contains(help(fn mod), \"mod(x, y)\")"), Value::ofLogical(true)));
    try {
        interpreter().runCode("try\n exit(7)\ncatch err\n disp(err.message)\nend", "<test>");
        ADD_FAILURE() << "exit came back";
    } catch (const ExitRequest& request) {
        EXPECT_EQ(request.status, 7);
    }
}

TEST(BuiltinsObjects, ClassesOfTheHost) {
    EXPECT_TRUE(same(evaluate("classes(\"varnix.mixin\")"),
                     cells(1, 1, {text("varnix.mixin.Heterogeneous")})));
    EXPECT_TRUE(same(evaluate("size(properties(\"varnix.mixin.Heterogeneous\"))"), row({0, 1})));
    EXPECT_TRUE(same(evaluate("size(methods(\"varnix.mixin.Heterogeneous\"))"), row({0, 1})));
    EXPECT_TRUE(same(evaluate("size(superclasses(\"varnix.mixin.Heterogeneous\"))"), row({0, 1})));
}

} // namespace
} // namespace varnix::testing
