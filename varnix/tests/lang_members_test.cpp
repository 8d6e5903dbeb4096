// Members of objects from scripts: properties, methods, classes by name, and the inline caches that
// remember them.
#include "tests/lang_helpers.hpp"

namespace {

using namespace varnix;
using namespace varnix::test;
using testing::HasSubstr;

class Members : public testing::Test {
protected:
    std::string shown(const std::string& code) {
        return printed("p = internal.langtest.Probe;" + code);
    }
    objsys::COSError raised(const std::string& code) {
        return errorOf("p = internal.langtest.Probe;" + code);
    }
    ProbePackage package;
};

TEST_F(Members, ReadAndAssignProperties) {
    EXPECT_EQ(shown("disp(p.Enabled); p.Enabled = true; disp(p.Enabled)"), "false\ntrue\n");
    EXPECT_EQ(shown("p.Level = 2.5; disp(p.Level); p.Level = 3u8; disp(p.Level)"), "2.5\n3\n");
    EXPECT_EQ(shown("p.Enabled = 1; disp(p.Enabled); disp(class(p.Calls))"), "true\nint32\n");
    EXPECT_EQ(raised("p.Enabled = \"x\"").identifier(), "varnix:wrongType");
    EXPECT_EQ(raised("p.Calls = 1").identifier(), "varnix:readOnlyProperty");
    EXPECT_THAT(raised("p.Enabld").message(), HasSubstr("did you mean 'Enabled'?"));
    EXPECT_EQ(raised("p.Enabld = true").identifier(), "varnix:noSuchMember");
    EXPECT_EQ(raised("p.touch = 1").identifier(), "varnix:noSuchMember");
}

TEST_F(Members, CallMethodsInEveryForm) {
    EXPECT_EQ(shown("p.touch(); p.touch; touch(p); disp(p.Calls)"), "3\n");
    EXPECT_EQ(shown("p.Level = 1; disp(p.plus(2)); disp(plus(p, 3))"), "3\n4\n");
    EXPECT_EQ(shown("f = fn plus; disp(f(p, 5)); g = fn(x) x.plus(1); disp(g(p))"), "5\n1\n");
    EXPECT_EQ(raised("p.plus()").identifier(), "varnix:notEnoughInputs");
    EXPECT_EQ(raised("p.plus(1, 2)").identifier(), "varnix:tooManyInputs");
    EXPECT_EQ(raised("p.plus(\"x\")").identifier(), "varnix:wrongType");
    EXPECT_EQ(raised("x = p.touch()").identifier(), "varnix:tooManyOutputs");
    EXPECT_EQ(raised("x = p.touch").identifier(), "varnix:tooManyOutputs");
    EXPECT_EQ(raised("p.nothing()").identifier(), "varnix:noSuchMember");
    EXPECT_EQ(raised("p.Level(1)").identifier(), "varnix:wrongType");
}

TEST_F(Members, AMethodComesBeforeABuiltIn) {
    EXPECT_EQ(shown("disp(upper(p)); disp(upper(\"ab\")); disp(p.upper)"), "PROBE\nAB\nPROBE\n");
}

TEST_F(Members, ChainsReachThroughHandles) {
    EXPECT_EQ(shown("p.Child.Level = 7; disp(p.Child.Level); p.Child.Child.Enabled = true; "
                    "disp(p.Child.Child.Enabled)"),
              "7\ntrue\n");
    EXPECT_EQ(shown("s.p = p; s.p.Level = 4; disp(p.Level); c = {p}; c{1}.Level = 5; "
                    "disp(p.Level); c{1}.Child.Level = 6; disp(p.Child.Level)"),
              "4\n5\n6\n");
    EXPECT_EQ(shown("a = [p, p.Child]; a[2].Level = 3; disp(p.Child.Level)"), "3\n");
    EXPECT_EQ(shown("disp(p.Child == p.Child); disp(isequal(p, p.Child))"), "true\nfalse\n");
}

TEST_F(Members, ArraysOfObjects) {
    EXPECT_EQ(shown("a = [p, p.Child]; disp(a.howMany); disp(howMany(a)); disp(howMany(p))"),
              "2\n2\n1\n");
    EXPECT_EQ(shown("a = [p, p.Child]; for o = a o.Level = 8; end; disp(p.Child.Level)"), "8\n");
    EXPECT_THAT(raised("a = [p, p.Child]; a.Level").message(), HasSubstr("name one with [i]"));
    EXPECT_EQ(raised("a = [p, p.Child]; a.Level = 3").identifier(), "varnix:wrongType");
    EXPECT_EQ(raised("a = [p, p.Child]; a.touch()").identifier(), "varnix:wrongType");
    EXPECT_EQ(raised("p.Nobody.Level").identifier(), "varnix:nullSelf");
    EXPECT_EQ(raised("p.Nobody.Level = 1").identifier(), "varnix:nullSelf");
}

TEST_F(Members, ClassesByName) {
    EXPECT_EQ(shown("q = internal.langtest.Probe(); disp(q == p); disp(class(q))"),
              "false\ninternal.langtest.Probe\n");
    EXPECT_EQ(shown("disp(internal.langtest.Probe.answer); disp(internal.langtest.Probe.answer() + "
                    "1); disp(p.answer)"),
              "42\n43\n42\n");
    EXPECT_EQ(shown("f = fn internal.langtest.Probe.answer; disp(f()); "
                    "g = fn internal.langtest.Probe; disp(class(g()))"),
              "42\ninternal.langtest.Probe\n");
    EXPECT_EQ(raised("internal.langtest.Probe(1)").identifier(), "varnix:tooManyInputs");
    EXPECT_THAT(raised("internal.langtest.Prob").message(), HasSubstr("did you mean 'Probe'?"));
    EXPECT_EQ(raised("internal.langtest").identifier(), "varnix:undefined");
    EXPECT_THAT(raised("internal.langtest.Probe.touch").message(),
                HasSubstr("member of objects of class internal.langtest.Probe"));
    EXPECT_THAT(raised("internal.langtest.Probe.answr").message(),
                HasSubstr("did you mean 'answer'?"));
}

TEST_F(Members, OfPlainValuesAreErrors) {
    EXPECT_EQ(raised("x = 3; x.a").identifier(), "varnix:noSuchMember");
    EXPECT_EQ(raised("x = 3; x.a = 1").identifier(), "varnix:noSuchMember");
    EXPECT_EQ(raised("x = int8(3); x.a()").message(), "an int8 has no members such as 'a'");
    EXPECT_THAT(raised("s.alpha = 1; s.alpa").message(), HasSubstr("did you mean 'alpha'?"));
}

TEST_F(Members, ForeignExceptionsBecomeHostErrors) {
    EXPECT_EQ(raised("x = p.Broken").identifier(), "varnix:native");
    EXPECT_EQ(raised("x = p.Broken").message(), "a native failure");
    EXPECT_EQ(shown("try x = p.Broken; catch e disp(e.identifier) end"), "varnix:native\n");
}

TEST_F(Members, DroppedValuesDoNotKeepObjectsAlive) {
    EXPECT_EQ(shown("c = p.Child; internal.langtest.Probe; delete(p); disp(isvalid(p))"),
              "false\n");
    EXPECT_EQ(raised("delete(p); p.Level").identifier(), "varnix:invalidHandle");
    EXPECT_EQ(raised("delete(p); p.touch()").identifier(), "varnix:invalidHandle");
}

// ---- caches

TEST_F(Members, ASiteServesEveryClassItMeets) {
    // One site sees an object, a struct, and the object again.
    EXPECT_EQ(shown("s.Level = 5; p.Level = 6; for x = {p, p, s, p, s} printf(\"%g \", x.Level); "
                    "end"),
              "6 6 5 6 5 ");
    EXPECT_EQ(shown("s.Level = 5; for x = {p, p, s} x.Level = 9; printf(\"%g \", x.Level); end"),
              "9 9 9 ");
    EXPECT_EQ(shown("for x = {p, p, 3, p} try x.touch(); catch e printf(\"%s \", e.identifier); "
                    "end; end; disp(p.Calls)"),
              "varnix:noSuchMember 3\n");
}

TEST_F(Members, ACachedSiteStillChecksTheHandle) {
    EXPECT_EQ(shown("for i = 1:3 if i == 3 delete(p); end; try p.Level; p.Level = i; p.touch(); "
                    "disp(i); catch e disp(e.identifier); end; end"),
              "1\n2\nvarnix:invalidHandle\n");
}

TEST_F(Members, ACachedSiteStillConverts) {
    EXPECT_EQ(shown("for v = {true, 1, 0u8, \"x\"} try p.Enabled = v; disp(p.Enabled); "
                    "catch e disp(e.identifier); end; end"),
              "true\ntrue\nfalse\nvarnix:wrongType\n");
}

// What a site hands to the setter without going through all conversions, and what it must not.
TEST_F(Members, ACachedSiteConvertsNumbersAndTexts) {
    EXPECT_EQ(shown("for v = {7, 0, 2.5, -1, 1e10, nan, 3u8, true, \"x\", {1}, 4294967295} "
                    "try p.Count = v; printf(\"%d \", p.Count); "
                    "catch e printf(\"%s \", e.identifier); end; end"),
              "7 0 varnix:wrongType varnix:wrongType varnix:wrongType varnix:wrongType 3 1 "
              "varnix:wrongType varnix:wrongType 4294967295 ");
    EXPECT_EQ(
        shown(
            "for v = {\"ab\", \"\", 3, {\"x\"}, p, [\"ab\"; \"cd\"], \"a longer text than most\"} "
            "try p.Label = v; printf(\"[%s] \", p.Label); "
            "catch e printf(\"%s \", e.identifier); end; end"),
        "[ab] [] varnix:wrongType varnix:wrongType varnix:wrongType varnix:wrongType "
        "[a longer text than most] ");
    EXPECT_EQ(shown("for i = 1:2 try p.Count = unknown_name; catch e disp(e.identifier); end; end; "
                    "for i = 1:3 try if i == 2 delete(p); end; p.Label = \"z\"; p.Count = i; "
                    "catch e disp(e.identifier); end; end"),
              "varnix:undefined\nvarnix:undefined\nvarnix:invalidHandle\nvarnix:invalidHandle\n");
}

TEST_F(Members, ACachedSiteStillRefusesReadOnlyProperties) {
    EXPECT_EQ(shown("for i = 1:3 try p.Calls = i; catch e disp(e.identifier); end; end"),
              "varnix:readOnlyProperty\nvarnix:readOnlyProperty\nvarnix:readOnlyProperty\n");
}

TEST_F(Members, SitesForgetAClassThatIsWithdrawn) {
    Interpreter interpreter;
    interpreter.runCode("function make\nreturn internal.langtest.Probe\nend\n"
                        "function read(x)\nreturn x.Level\nend\n"
                        "function call(x)\ntouch(x)\nend\n"
                        "p = make(); read(p); read(p); call(p); a = [p, p.Child];",
                        "<test>");
    package.withdraw();
    EXPECT_EQ(errorOf(interpreter, "make()").identifier(), "varnix:undefined");
    EXPECT_EQ(errorOf(interpreter, "read(p)").identifier(), "varnix:invalidHandle");
    EXPECT_NE(errorOf(interpreter, "call(p)").identifier(), "");
    EXPECT_NE(errorOf(interpreter, "call(a)").identifier(), "");
    EXPECT_NE(errorOf(interpreter, "a.howMany").identifier(), "");
    const ProbePackage again;
    EXPECT_EQ(errorOf(interpreter, "p = make(); read(p); call(p);").identifier(), "");
}

} // namespace
