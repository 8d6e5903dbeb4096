// Built-in functions on objects and classes.
#include "tests/builtins_helpers.hpp"
#include "tests/object_samples.hpp"

namespace varnix::testing {
namespace {

class BuiltinsOnObjects : public ::testing::Test {
protected:
    void SetUp() override {
        interpreter().setGlobal("h", handleOf(one, "Plain"));
        interpreter().setGlobal("k", handleOf(two, "Left"));
    }
    void TearDown() override {
        for (const char* name : {"h", "k", "x"})
            interpreter().setGlobal(name, number(0));
    }
    Item one;
    Item two;
};

TEST_F(BuiltinsOnObjects, ListsOfMembersAndClasses) {
    EXPECT_TRUE(same(evaluate("properties(h)"), cells(2, 1, {text("Name"), text("Broken")})));
    EXPECT_TRUE(same(evaluate("properties(\"varnix.samples.Left\")"),
                     cells(2, 1, {text("Name"), text("Broken")})));
    EXPECT_TRUE(same(evaluate("size(methods(h))"), row({0, 1})));
    EXPECT_TRUE(same(evaluate("classes(\"varnix.samples\")"),
                     cells(3, 1,
                           {text("varnix.samples.Plain"), text("varnix.samples.Left"),
                            text("varnix.samples.Right")})));
    EXPECT_TRUE(
        same(evaluate("superclasses(k)"), cells(1, 1, {text("varnix.mixin.Heterogeneous")})));
}

TEST_F(BuiltinsOnObjects, ClassAndDescent) {
    expectRows(std::vector<GoodRow>{
        {"class(h)", "\"varnix.samples.Plain\""},
        {"isobject([h, h])", "true"},
        {"isa(k, \"varnix.samples.Left\")", "true"},
        {"isa(k, \"varnix.mixin.Heterogeneous\")", "true"},
        {"isa(h, \"varnix.mixin.Heterogeneous\")", "false"},
        {"isa(h, \"no.such\")", "false"},
        {"size([h, h, h])", "[1, 3]"},
        {"length(h)", "1"},
        {"isequal(h, h)", "true"},
    });
}

TEST_F(BuiltinsOnObjects, DeleteEndsThem) {
    EXPECT_TRUE(same(evaluate("isvalid([h, h])"), mask({true, true})));
    interpreter().runCode("delete(h)", "<test>");
    EXPECT_TRUE(same(evaluate("isvalid(h)"), Value::ofLogical(false)));
    EXPECT_TRUE(same(evaluate("isvalid(k)"), Value::ofLogical(true)));
    EXPECT_NE(errorOfCode("delete(h)").find("varnix:invalidHandle"), std::string::npos);
    EXPECT_NE(errorOfCode("x = getproperty(h, \"Name\")").find("varnix:invalidHandle"),
              std::string::npos);
}

TEST_F(BuiltinsOnObjects, PropertiesByName) {
    interpreter().runCode("setproperty(h, \"Name\", \"fresh\")", "<test>");
    EXPECT_EQ(one.name, "fresh");
    EXPECT_TRUE(same(evaluate("getproperty(h, \"Name\")"), text("fresh")));
    EXPECT_EQ(errorOfCode("x = getproperty(h, \"Nam\")"),
              "varnix:noSuchMember: getproperty: varnix.samples.Plain has no property Nam");
    EXPECT_EQ(errorOfCode("x = getproperty([h, h], \"Name\")"),
              "varnix:wrongType: getproperty: argument 1 must be one object, not 1 by 2 "
              "varnix.samples.Plain");
    EXPECT_NE(errorOfCode("setproperty(h, \"Broken\", 1)").find("varnix:readOnlyProperty"),
              std::string::npos);
    EXPECT_NE(errorOfCode("setproperty(h, \"Name\", 1)").find("varnix:wrongType"),
              std::string::npos);
}

TEST_F(BuiltinsOnObjects, MapOverObjects) {
    one.name = "a";
    EXPECT_TRUE(same(evaluate("map(fn(o) o.Name, [h, h])"), cellRow({text("a"), text("a")})));
    EXPECT_TRUE(
        same(evaluate("isequal(filter(fn(o) o == h, [h, h]), [h, h])"), Value::ofLogical(true)));
    EXPECT_TRUE(same(evaluate("isequal(transpose([h, h]), [h; h])"), Value::ofLogical(true)));
}

} // namespace
} // namespace varnix::testing
