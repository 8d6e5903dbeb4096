// Objects among values: identity, arrays of handles, display.
#include "tests/object_samples.hpp"

namespace varnix::testing {
namespace {

class ValueObjects : public ::testing::Test {
protected:
    Item one;
    Item two;
    Item three;
    Value a = handleOf(one, "Plain");
    Value b = handleOf(two, "Plain");
    Value left = handleOf(three, "Left");

    static Value joined(std::vector<Value> parts) { return joinHorizontally(parts); }
    static Value read(const Value& x, std::vector<Index> indices) { return indexValue(x, indices); }
};

TEST_F(ValueObjects, CompareByIdentity) {
    EXPECT_TRUE(same(binary(BinaryOp::Equal, a, a), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::NotEqual, a, b), Value::ofLogical(true)));
    EXPECT_TRUE(same(binary(BinaryOp::Equal, joined({a, b, a}), a), mask({true, false, true})));
    EXPECT_TRUE(isEqual(joined({a, b}), joined({a, b})));
    EXPECT_FALSE(isEqual(joined({a, b}), joined({b, a})));
    EXPECT_EQ(errorOf([&] { return binary(BinaryOp::Less, a, b); }),
              "varnix:wrongType: < does not compare varnix.samples.Plain with "
              "varnix.samples.Plain");
    EXPECT_EQ(errorOf([&] { return binary(BinaryOp::Equal, a, number(1)); }),
              "varnix:wrongType: == does not compare varnix.samples.Plain with double");
    EXPECT_EQ(errorOf([&] { return isTrue(a); }),
              "varnix:wrongType: a condition must be a number, a logical or a text, not "
              "varnix.samples.Plain");
}

TEST_F(ValueObjects, JoinIntoArrays) {
    const Value both = joined({a, b});
    EXPECT_EQ(className(both), "varnix.samples.Plain");
    EXPECT_EQ(both.columns(), 2u);
    EXPECT_EQ(joinVertically(std::vector{a, b}).rows(), 2u);
    EXPECT_TRUE(joined({a}).isHandle());
    EXPECT_TRUE(joined({empty(), a}).isHandle());
    EXPECT_EQ(errorOf([&] {
                  return joined({a, left});
              }),
              "varnix:wrongType: varnix.samples.Plain and varnix.samples.Left cannot be joined");
    EXPECT_EQ(errorOf([&] {
                  return joined({a, number(1)});
              }),
              "varnix:wrongType: varnix.samples.Plain and double cannot be joined");
}

TEST_F(ValueObjects, HeterogeneousArraysHaveTheCommonClass) {
    Item other;
    const Value right = handleOf(other, "Right");
    const Value both = joined({left, right});
    EXPECT_EQ(className(both), "varnix.mixin.Heterogeneous");
    EXPECT_EQ(className(read(both, at({number(2)}))), "varnix.samples.Right");
    EXPECT_EQ(className(read(both, at({row({1, 1})}))), "varnix.samples.Left");
    EXPECT_EQ(className(joined({both, left})), "varnix.mixin.Heterogeneous");
    Value x = left;
    assignIndex(x, at({number(2)}), right);
    EXPECT_EQ(className(x), "varnix.mixin.Heterogeneous");
    EXPECT_EQ(x.columns(), 2u);
}

TEST_F(ValueObjects, IndexGivesHandles) {
    const Value both = joined({a, b});
    EXPECT_TRUE(isEqual(read(both, at({number(2)})), b));
    EXPECT_TRUE(read(both, at({number(2)})).isHandle());
    EXPECT_TRUE(isEqual(read(both, at({row({2, 1, 2})})), joined({b, a, b})));
    EXPECT_TRUE(isEqual(read(a, at({number(1)})), a));
    EXPECT_TRUE(isEqual(read(a, {colon()}), a));
    EXPECT_TRUE(isEqual(read(both, at({mask({false, true})})), b));
    EXPECT_EQ(className(read(both, at({empty()}))), "varnix.samples.Plain");
    EXPECT_EQ(read(both, at({empty()})).count(), 0u);
}

TEST_F(ValueObjects, AssignAndGrowWithoutGaps) {
    Value x;
    assignIndex(x, at({number(1)}), a);
    EXPECT_TRUE(x.isHandle());
    assignIndex(x, at({number(2)}), b);
    EXPECT_TRUE(isEqual(x, joined({a, b})));
    for (int i = 3; i <= 50; ++i)
        assignIndex(x, at({number(i)}), a);
    EXPECT_EQ(x.columns(), 50u);
    const Value before = x;
    EXPECT_EQ(errorOf([&] {
                  assignIndex(x, at({number(52)}), a);
                  return 0;
              }),
              "varnix:badIndex: an object array cannot grow with a gap");
    EXPECT_TRUE(isEqual(x, before));
    EXPECT_EQ(errorOf([&] {
                  assignIndex(x, at({number(1)}), left);
                  return 0;
              }),
              "varnix:wrongType: varnix.samples.Left cannot stand in an array of "
              "varnix.samples.Plain");
    EXPECT_EQ(errorOf([&] {
                  assignIndex(x, at({number(1)}), number(5));
                  return 0;
              }),
              "varnix:wrongType: double cannot be assigned to an element of varnix.samples.Plain");
    Value y = a;
    assignIndex(y, at({number(1)}), b);
    EXPECT_TRUE(isEqual(y, b));
    EXPECT_TRUE(same(binary(BinaryOp::Equal, a, y), Value::ofLogical(false))); // a is as it was
}

TEST_F(ValueObjects, DisplayShowsPropertiesAndSurvivesBrokenOnes) {
    one.name = "it\"s";
    EXPECT_EQ(formatDisplay(a), "varnix.samples.Plain\n"
                                "  Name    \"it\\\"s\"\n"
                                "  Broken  error: it is broken\n");
    EXPECT_EQ(formatEcho("h", a), "h = varnix.samples.Plain\n"
                                  "  Name    \"it\\\"s\"\n"
                                  "  Broken  error: it is broken\n");
    EXPECT_EQ(formatBrief(a), "varnix.samples.Plain object");
    EXPECT_EQ(formatBrief(joined({a, b})), "1 by 2 varnix.samples.Plain");
    EXPECT_EQ(formatDisplay(joined({a, b})), "1 by 2 varnix.samples.Plain\n");
    EXPECT_EQ(formatDisplay(cellRow({a})), "{1}: varnix.samples.Plain object\n");
}

TEST_F(ValueObjects, DisplayOfAHandleWhoseObjectIsGone) {
    Value handle;
    {
        Item shortLived;
        handle = handleOf(shortLived, "Plain");
    }
    EXPECT_EQ(formatDisplay(handle), "invalid varnix.samples.Plain object\n");
    EXPECT_EQ(formatEcho("h", handle), "h = invalid varnix.samples.Plain object\n");
    EXPECT_TRUE(same(binary(BinaryOp::Equal, handle, handle), Value::ofLogical(true)));
}

} // namespace
} // namespace varnix::testing
