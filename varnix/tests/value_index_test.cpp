// Indexing, assignment by index, joining.
#include "tests/value_helpers.hpp"

#include <limits>

namespace varnix::testing {
namespace {

Value grid() { // 1 3 5; 2 4 6
    return matrix<double>(hvDOUBLE_CLASS, 2, 3, {1, 2, 3, 4, 5, 6});
}
Value read(const Value& x, std::vector<Index> indices) {
    return indexValue(x, indices);
}
Value assigned(Value x, std::vector<Index> indices, const Value& e) {
    assignIndex(x, indices, e);
    return x;
}
std::string assignError(Value x, std::vector<Index> indices, const Value& e) {
    const Value before = x;
    const std::string error = errorOf([&] {
        assignIndex(x, indices, e);
        return 0;
    });
    EXPECT_TRUE(same(x, before)) << "x was changed";
    return error;
}

TEST(IndexRead, Elements) {
    EXPECT_TRUE(same(read(grid(), at({number(3)})), number(3)));
    EXPECT_TRUE(same(read(grid(), at({number(2), number(3)})), number(6)));
    EXPECT_TRUE(same(read(int32s({7, 8}), at({Value::ofInt32(2)})), Value::ofInt32(8)));
    EXPECT_TRUE(same(read(text("abc"), at({number(2)})), text("b")));
    EXPECT_TRUE(same(read(number(5), at({number(1)})), number(5)));
    EXPECT_TRUE(same(read(cellRow({text("a"), number(2)}), at({number(2)})), cellRow({number(2)})));
    EXPECT_TRUE(same(read(mask({true, false}), at({number(2)})), Value::ofLogical(false)));
}

TEST(IndexRead, ShapesOfResults) {
    EXPECT_TRUE(same(read(row({1, 2, 3}), at({column({3, 1})})), row({3, 1})));
    EXPECT_TRUE(same(read(column({1, 2, 3}), at({row({3, 1})})), column({3, 1})));
    EXPECT_TRUE(same(read(grid(), at({row({1, 6})})), row({1, 6})));
    EXPECT_TRUE(same(read(grid(), at({column({1, 6})})), column({1, 6})));
    EXPECT_TRUE(same(read(row({7, 8}), at({matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 2, 2, 1})})),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {7, 8, 8, 7})));
    EXPECT_TRUE(same(read(number(7), at({row({1, 1, 1})})), row({7, 7, 7})));
    EXPECT_TRUE(same(read(grid(), {colon()}), column({1, 2, 3, 4, 5, 6})));
    EXPECT_TRUE(same(read(row({1, 2}), {colon()}), column({1, 2})));
    EXPECT_TRUE(same(read(grid(), {colon(), {false, number(2)}}), column({3, 4})));
    EXPECT_TRUE(same(read(grid(), {{false, number(1)}, colon()}), row({1, 3, 5})));
    EXPECT_TRUE(same(read(row({1, 2}), at({empty()})), empty()));
}

TEST(IndexRead, Masks) {
    EXPECT_TRUE(same(read(row({5, 6, 7}), at({mask({true, false, true})})), row({5, 7})));
    EXPECT_TRUE(
        same(read(grid(), at({binary(BinaryOp::Greater, grid(), number(4))})), column({5, 6})));
    EXPECT_TRUE(same(read(row({5, 6, 7}), at({mask({true})})), number(5)));
    EXPECT_EQ(read(row({5, 6}), at({mask({false, false})})).rows(), 1u);
    EXPECT_EQ(errorOf([] {
                  return read(row({5}), at({mask({false, true})}));
              }),
              "varnix:badIndex: index 2 is outside: there is 1 element");
}

TEST(IndexRead, Errors) {
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({number(3)}));
              }),
              "varnix:badIndex: index 3 is outside: there are 2 elements");
    EXPECT_EQ(errorOf([] {
                  return read(grid(), at({number(3), number(1)}));
              }),
              "varnix:badIndex: index 3 is outside: there are 2 rows");
    EXPECT_EQ(errorOf([] {
                  return read(grid(), at({number(1), row({1, 4})}));
              }),
              "varnix:badIndex: index 4 is outside: there are 3 columns");
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({number(0)}));
              }),
              "varnix:badIndex: index 0 is no whole number from 1 up");
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({number(1.5)}));
              }),
              "varnix:badIndex: index 1.5 is no whole number from 1 up");
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({Value::ofInt32(-1)}));
              }),
              "varnix:badIndex: index -1 is no whole number from 1 up");
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({number(std::numeric_limits<double>::quiet_NaN())}));
              }),
              "varnix:badIndex: index nan is no whole number from 1 up");
    EXPECT_EQ(errorOf([] {
                  return read(row({1, 2}), at({text("a")}));
              }),
              "varnix:wrongType: an index must be a number, a logical or a colon, not a text");
    EXPECT_EQ(errorOf([] {
                  return read(row({1}), at({number(1), number(1), number(1)}));
              }),
              "varnix:badIndex: arrays take one or two indices, not 3");
    EXPECT_EQ(errorOf([] { return read(empty(), at({number(1)})); }),
              "varnix:badIndex: index 1 is outside: there are no elements");
    EXPECT_EQ(errorOf([] { return read(newStruct(), at({number(2)})); }),
              "varnix:badIndex: index 2 is outside: there is 1 element");
}

TEST(IndexRead, Cells) {
    const Value c = cells(2, 2, {number(1), text("b"), row({1, 2}), Value()});
    EXPECT_TRUE(same(indexCell(c, at({number(2)})), text("b")));
    EXPECT_TRUE(same(indexCell(c, at({number(1), number(2)})), row({1, 2})));
    EXPECT_TRUE(same(indexCell(c, at({number(4)})), empty()));
    EXPECT_TRUE(same(indexCell(c, at({mask({false, true})})), text("b")));
    EXPECT_EQ(errorOf([&] {
                  return indexCell(c, at({row({1, 2})}));
              }),
              "varnix:badIndex: an index in braces must name one cell, not 2");
    EXPECT_EQ(errorOf([&] { return indexCell(c, at({number(5)})); }),
              "varnix:badIndex: index 5 is outside: there are 4 cells");
    EXPECT_EQ(errorOf([&] { return indexCell(number(1), at({number(1)})); }),
              "varnix:wrongType: only a cell array takes an index in braces, not double");
}

TEST(IndexAssign, ReplacesElements) {
    EXPECT_TRUE(same(assigned(row({1, 2, 3}), at({number(2)}), number(9)), row({1, 9, 3})));
    EXPECT_TRUE(same(assigned(row({1, 2, 3}), at({row({3, 1})}), row({7, 8})), row({8, 2, 7})));
    EXPECT_TRUE(same(assigned(row({1, 2, 3}), {colon()}, number(0)), row({0, 0, 0})));
    EXPECT_TRUE(same(assigned(grid(), {colon(), {false, number(1)}}, row({8, 9})),
                     matrix<double>(hvDOUBLE_CLASS, 2, 3, {8, 9, 3, 4, 5, 6})));
    EXPECT_TRUE(same(assigned(text("abc"), at({number(1)}), text("X")), text("Xbc")));
    EXPECT_TRUE(same(assigned(row({1, -2}), at({mask({false, true})}), number(5)), row({1, 5})));
    EXPECT_TRUE(same(assigned(number(1), at({number(1)}), number(2)), number(2)));
}

TEST(IndexAssign, TheArrayKeepsItsClass) {
    EXPECT_TRUE(same(assigned(row({1, 2}), at({number(1)}), Value::ofInt32(5)), row({5, 2})));
    EXPECT_TRUE(same(assigned(int32s({1, 2}), at({number(1)}), number(2.5)), int32s({3, 2})));
    EXPECT_TRUE(
        same(assigned(mask({false, false}), at({number(1)}), number(7)), mask({true, false})));
    EXPECT_EQ(assignError(int32s({1, 2}), at({number(1)}), Value::ofInt64(1)),
              "varnix:wrongType: int64 cannot be assigned to an element of int32");
    EXPECT_EQ(assignError(row({1, 2}), at({number(1)}), text("a")),
              "varnix:wrongType: char cannot be assigned to an element of double");
    EXPECT_EQ(assignError(cellRow({number(1)}), at({number(1)}), number(2)),
              "varnix:wrongType: double cannot be assigned to an element of cell; braces { } set "
              "what a cell holds");
}

TEST(IndexAssign, Grows) {
    EXPECT_TRUE(same(assigned(Value(), at({number(3)}), number(1)), row({0, 0, 1})));
    EXPECT_TRUE(same(assigned(empty(), at({number(2)}), text("b")), text(" b")));
    EXPECT_TRUE(same(assigned(number(1), at({number(3)}), number(2)), row({1, 0, 2})));
    EXPECT_TRUE(same(assigned(column({1, 2}), at({number(3)}), number(3)), column({1, 2, 3})));
    EXPECT_TRUE(same(assigned(row({1}), at({number(2), number(2)}), number(4)),
                     matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 0, 0, 4})));
    EXPECT_TRUE(
        same(assigned(empty(), {colon(), {false, number(1)}}, column({1, 2})), column({1, 2})));
    EXPECT_TRUE(same(assigned(Value(), {colon()}, row({1, 2})), row({1, 2})));
    EXPECT_TRUE(same(assigned(cellRow({number(1)}), at({number(3)}), cellRow({number(3)})),
                     cellRow({number(1), empty(), number(3)})));
    EXPECT_EQ(assignError(grid(), at({number(7)}), number(1)),
              "varnix:badIndex: index 7 is outside 6 elements, and a matrix grows only by two "
              "indices");
}

TEST(IndexAssign, AppendingOneByOne) {
    Value x = number(0);
    for (int i = 1; i < 100000; ++i)
        assignIndex(x, at({number(i + 1)}), number(i));
    ASSERT_EQ(x.columns(), 100000u);
    EXPECT_EQ(elements<double>(x.array())[77777], 77777);
    Value y = x; // a copy keeps its elements when the original grows on
    assignIndex(x, at({number(100001)}), number(-1));
    EXPECT_EQ(y.columns(), 100000u);
    assignIndex(y, at({number(1)}), number(5));
    EXPECT_EQ(elements<double>(x.array())[0], 0);
    Value c = cellRow({text("first")});
    for (int i = 2; i <= 1000; ++i)
        assignCell(c, at({number(i)}), text("text " + std::to_string(i)));
    EXPECT_TRUE(same(indexCell(c, at({number(1)})), text("first")));
    EXPECT_TRUE(same(indexCell(c, at({number(500)})), text("text 500")));
    Value tall = column({1, 2});
    for (int i = 3; i <= 100; ++i)
        assignIndex(tall, at({number(i), number(1)}), number(i));
    EXPECT_EQ(tall.rows(), 100u);
    EXPECT_EQ(elements<double>(tall.array())[99], 100);
}

TEST(IndexAssign, ErrorsLeaveTheArrayAsItWas) {
    EXPECT_EQ(assignError(row({1, 2, 3}), at({row({1, 2})}), row({1, 2, 3})),
              "varnix:wrongSize: 3 elements cannot be assigned to 2 places");
    EXPECT_EQ(assignError(row({1, 2}), at({number(0)}), number(1)),
              "varnix:badIndex: index 0 is no whole number from 1 up");
    EXPECT_EQ(assignError(row({1, 2}), at({number(1)}), empty()),
              "varnix:wrongSize: 0 elements cannot be assigned to 1 places");
    EXPECT_EQ(assignError(row({1, 2}), at({number(1e15)}), number(1)),
              "varnix:tooLarge: an array of 1 by 1000000000000000 elements is too large");
    EXPECT_EQ(assignError(number(1), at({number(4e9), number(4e9)}), number(1)),
              "varnix:tooLarge: an array of 4000000000 by 4000000000 elements is too large");
    EXPECT_EQ(assignError(newStruct(), at({number(2)}), newStruct()),
              "varnix:wrongType: struct values do not form arrays; keep them in a cell");
}

TEST(IndexAssign, SharedArraysAreCopied) {
    Value a = row({1, 2, 3});
    const Value b = a;
    assignIndex(a, at({number(1)}), number(9));
    EXPECT_TRUE(same(b, row({1, 2, 3})));
    assignIndex(a, std::vector{colon()}, a);
    EXPECT_TRUE(same(a, row({9, 2, 3})));
}

TEST(IndexAssign, Cells) {
    Value c;
    assignCell(c, at({number(2)}), text("b"));
    EXPECT_TRUE(same(c, cellRow({empty(), text("b")})));
    assignCell(c, at({number(1), number(1)}), number(1));
    EXPECT_TRUE(same(c, cellRow({number(1), text("b")})));
    assignCell(c, at({number(1)}), c); // holds what it was, not itself
    EXPECT_TRUE(same(c, cellRow({cellRow({number(1), text("b")}), text("b")})));
    EXPECT_EQ(errorOf([&] {
                  assignCell(c, at({row({1, 2})}), number(1));
                  return 0;
              }),
              "varnix:badIndex: an index in braces must name one cell, not 2");
    Value n = number(1);
    EXPECT_EQ(errorOf([&] {
                  assignCell(n, at({number(1)}), number(1));
                  return 0;
              }),
              "varnix:wrongType: only a cell array takes an index in braces, not double");
}

TEST(IndexEnd, StandsForTheExtent) {
    EXPECT_EQ(endOf(grid(), 0, 1), 6u);
    EXPECT_EQ(endOf(grid(), 0, 2), 2u);
    EXPECT_EQ(endOf(grid(), 1, 2), 3u);
    EXPECT_EQ(endOf(number(1), 0, 1), 1u);
}

TEST(Join, NumbersAndClasses) {
    const auto h = [](std::vector<Value> parts) { return joinHorizontally(parts); };
    const auto v = [](std::vector<Value> parts) { return joinVertically(parts); };
    EXPECT_TRUE(same(h({}), empty()));
    EXPECT_TRUE(same(h({number(1), number(2)}), row({1, 2})));
    EXPECT_TRUE(same(v({number(1), number(2)}), column({1, 2})));
    EXPECT_TRUE(same(v({row({1, 3, 5}), row({2, 4, 6})}), grid()));
    EXPECT_TRUE(same(h({column({1, 2}), column({3, 4}), column({5, 6})}), grid()));
    EXPECT_TRUE(same(h({Value::ofLogical(true), number(2)}), row({1, 2})));
    EXPECT_TRUE(same(h({Value::ofLogical(true), Value::ofLogical(false)}), mask({true, false})));
    EXPECT_TRUE(
        same(h({number(1.5), Value::ofInt32(2), Value::ofLogical(true)}), int32s({2, 2, 1})));
    EXPECT_TRUE(same(h({empty(), number(1), empty()}), number(1)));
    EXPECT_TRUE(same(h({Value::ofInt32(1), empty()}), Value::ofInt32(1)));
    EXPECT_EQ(errorOf([&] {
                  return h({Value::ofInt32(1), Value::ofInt64(1)});
              }),
              "varnix:wrongType: two different integer types, int32 and int64, cannot be joined");
    EXPECT_EQ(errorOf([&] {
                  return h({row({1, 2}), column({1, 2})});
              }),
              "varnix:wrongSize: 1 by 2 and 2 by 1 cannot be joined side by side");
    EXPECT_EQ(errorOf([&] {
                  return v({row({1, 2}), row({1, 2, 3})});
              }),
              "varnix:wrongSize: 1 by 2 and 1 by 3 cannot be joined below each other");
}

TEST(Join, TextsCellsAndOthers) {
    const auto h = [](std::vector<Value> parts) { return joinHorizontally(parts); };
    const auto v = [](std::vector<Value> parts) { return joinVertically(parts); };
    EXPECT_TRUE(same(h({text("ab"), text(""), text("c")}), text("abc")));
    EXPECT_EQ(v({text("ab"), text("cd")}).rows(), 2u);
    EXPECT_EQ(errorOf([&] {
                  return v({text("ab"), text("c")});
              }),
              "varnix:wrongSize: texts below each other need the same length, not 2 and 1");
    EXPECT_EQ(errorOf([&] {
                  return h({text("a"), number(1)});
              }),
              "varnix:wrongType: char and double cannot be joined");
    EXPECT_TRUE(
        same(h({cellRow({number(1)}), cellRow({text("b")})}), cellRow({number(1), text("b")})));
    EXPECT_TRUE(same(h({empty(hvCELL_CLASS), cellRow({text("b")})}), cellRow({text("b")})));
    EXPECT_EQ(errorOf([&] {
                  return h({empty(hvCELL_CLASS), number(1)});
              }),
              "varnix:wrongType: cell and double cannot be joined");
    EXPECT_EQ(errorOf([&] {
                  return h({newStruct(), newStruct()});
              }),
              "varnix:wrongType: struct values do not form arrays; keep them in a cell");
    EXPECT_TRUE(same(h({newStruct()}), newStruct()));
}

} // namespace
} // namespace varnix::testing
