// Values as text: numbers, display, echo, brief forms, printf.
#include "tests/value_helpers.hpp"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace varnix::testing {
namespace {

TEST(FormatNumber, ShortestThatReadsBack) {
    const std::pair<double, const char*> cases[] = {
        {0, "0"},
        {-0.0, "-0"},
        {0.1, "0.1"},
        {65536, "65536"},
        {1e-7, "1e-07"},
        {0.00001, "0.00001"},
        {0.000009, "9e-06"},
        {1e15, "1000000000000000"},
        {1e16, "1e+16"},
        {123456789012345678, "1.2345678901234568e+17"},
        {-2.5, "-2.5"},
        {1.0 / 3, "0.3333333333333333"},
        {1e300, "1e+300"},
        {1.5e-300, "1.5e-300"},
        {9007199254740993.0, "9007199254740992"},
        {5e-324, "5e-324"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"},
        {std::numeric_limits<double>::quiet_NaN(), "nan"},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(formatNumber(value), expected);
}

TEST(FormatNumber, ReadsBackTheSame) {
    std::uint64_t bits = 88172645463325252u;
    for (int i = 0; i < 20000; ++i) {
        bits ^= bits << 13;
        bits ^= bits >> 7;
        bits ^= bits << 17;
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) {
            ASSERT_EQ(std::strtod(formatNumber(value).c_str(), nullptr), value);
        }
    }
}

TEST(FormatScalar, EveryClass) {
    EXPECT_EQ(formatScalar(Value::ofLogical(true)), "true");
    EXPECT_EQ(formatScalar(Value::ofInt64(std::numeric_limits<std::int64_t>::min())),
              "-9223372036854775808");
    EXPECT_EQ(formatScalar(Value::ofUInt64(~std::uint64_t{0})), "18446744073709551615");
    EXPECT_EQ(formatScalar(text("a")), "a");
}

TEST(FormatDisplay, ScalarsTextsMatrices) {
    EXPECT_EQ(formatDisplay(number(0.1)), "0.1\n");
    EXPECT_EQ(formatDisplay(text("hello")), "hello\n");
    EXPECT_EQ(formatDisplay(text("")), "\n");
    EXPECT_EQ(formatDisplay(empty()), "[]\n");
    EXPECT_EQ(formatDisplay(Value::fromArray(newArray(hvDOUBLE_CLASS, 0, 3))), "0 by 3 double\n");
    EXPECT_EQ(formatDisplay(row({1, 22.5, -3})), "1  22.5  -3\n");
    EXPECT_EQ(formatDisplay(matrix<double>(hvDOUBLE_CLASS, 2, 2, {1, 100, -2.5, 3})),
              "  1  -2.5\n100     3\n");
    EXPECT_EQ(formatDisplay(mask({true, false})), "true  false\n");
    EXPECT_EQ(formatDisplay(joinVertically(std::vector{text("ab"), text("cd")})), "ab\ncd\n");
}

TEST(FormatDisplay, CellsAndStructs) {
    Value s = newStruct();
    structOf(s.array()).place(objsys::COSNameID("name")) = text("x");
    structOf(s.array()).place(objsys::COSNameID("size")) = row({1, 2});
    EXPECT_EQ(formatDisplay(cellRow({number(1), text("a\"b"), cellRow({number(2)}), s, empty()})),
              "{1}: 1\n"
              "{2}: \"a\\\"b\"\n"
              "{3}: 1 by 1 cell\n"
              "  {1}: 2\n"
              "{4}: struct\n"
              "  name: \"x\"\n"
              "  size: [1, 2]\n"
              "{5}: []\n");
    EXPECT_EQ(formatDisplay(cells(2, 2, {number(1), number(2), number(3), number(4)})),
              "{1, 1}: 1\n{2, 1}: 2\n{1, 2}: 3\n{2, 2}: 4\n");
    EXPECT_EQ(formatDisplay(s), "name: \"x\"\nsize: [1, 2]\n");
    EXPECT_EQ(formatDisplay(newStruct()), "struct without fields\n");
    EXPECT_EQ(formatDisplay(empty(hvCELL_CLASS)), "{}\n");
}

TEST(FormatDisplay, DeepNestingIsCut) {
    Value v = number(1);
    for (int i = 0; i < 100000; ++i)
        v = cellRow({v});
    const std::string shown = formatDisplay(v);
    EXPECT_NE(shown.find("{1}: ...\n"), std::string::npos);
    EXPECT_LT(shown.size(), 1000u);
}

TEST(FormatEcho, NamesTheValue) {
    EXPECT_EQ(formatEcho("x", number(5)), "x = 5\n");
    EXPECT_EQ(formatEcho("t", text("a\nb")), "t = \"a\\nb\"\n");
    EXPECT_EQ(formatEcho("e", empty()), "e = []\n");
    EXPECT_EQ(formatEcho("m", row({1, 2})), "m =\n  1  2\n");
    EXPECT_EQ(formatEcho("c", cellRow({number(1)})), "c =\n  {1}: 1\n");
    EXPECT_EQ(formatEcho("s", newStruct()), "s = struct without fields\n");
}

TEST(FormatBrief, OneLine) {
    EXPECT_EQ(formatBrief(row({1, 2, 3})), "[1, 2, 3]");
    EXPECT_EQ(formatBrief(column({1, 2, 3})), "3 by 1 double");
    EXPECT_EQ(formatBrief(text("hi")), "\"hi\"");
    EXPECT_EQ(formatBrief(text(std::string(100, 'x'))), "\"" + std::string(60, 'x') + "\"...");
    EXPECT_EQ(formatBrief(cells(2, 1, {number(1), number(2)})), "{2 by 1 cell}");
    EXPECT_EQ(formatBrief(newStruct()), "struct");
    EXPECT_EQ(formatBrief(int32s({})), "1 by 0 int32");
}

std::string print(std::string_view format, std::vector<Value> arguments) {
    return formatPrintf(format, arguments);
}

TEST(FormatPrintf, Conversions) {
    EXPECT_EQ(print("%d|%5d|%-5d|%05d|%+d", {row({1, 2, 3, 4, 5})}), "1|    2|3    |00004|+5");
    EXPECT_EQ(print("%i %u", {number(-3), number(7)}), "-3 7");
    EXPECT_EQ(print("%x %X %o %#x", {number(255), number(255), number(8), number(16)}),
              "ff FF 10 0x10");
    EXPECT_EQ(print("%x", {Value::ofInt32(-1)}), "ffffffff");
    EXPECT_EQ(print("%.2f %e %g %G", {number(3.14159), number(1234.5), number(1e-5), number(1e-5)}),
              "3.14 1.234500e+03 1e-05 1E-05");
    EXPECT_EQ(print("%s %s %s", {text("a"), number(0.5), Value::ofLogical(true)}), "a 0.5 true");
    EXPECT_EQ(print("%d", {Value::ofLogical(true)}), "1");
    EXPECT_EQ(print("%5s|%-5s|%.2s", {text("ab"), text("cd"), text("efgh")}), "   ab|cd   |ef");
    EXPECT_EQ(print("%c%c", {text("xy")}), "xy");
    EXPECT_EQ(print("%c|%s", {text("xyz")}), "x|yz");
    EXPECT_EQ(print("%c", {number(65)}), "A");
    EXPECT_EQ(print("%%", {}), "%");
    EXPECT_EQ(print("%*d|%-*d|%.*f",
                    {number(4), number(1), number(3), number(2), number(1), number(2.55)}),
              "   1|2  |2.5");
    EXPECT_EQ(print("%ld %llu", {number(1), number(2)}), "1 2");
}

TEST(FormatPrintf, WholeConversionsNeverCutANumber) {
    EXPECT_EQ(print("%d", {number(1.5)}), "1.5");
    EXPECT_EQ(print("%d", {number(1e300)}), "1e+300");
    EXPECT_EQ(print("%d %f", {number(std::numeric_limits<double>::infinity()),
                              number(std::numeric_limits<double>::quiet_NaN())}),
              "inf nan");
    EXPECT_EQ(print("%d", {Value::ofUInt64(~std::uint64_t{0})}), "18446744073709551615");
    EXPECT_EQ(print("%d", {Value::ofInt64(std::numeric_limits<std::int64_t>::min())}),
              "-9223372036854775808");
}

TEST(FormatPrintf, TheFormatIsReused) {
    EXPECT_EQ(print("%d,", {row({1, 2, 3})}), "1,2,3,");
    EXPECT_EQ(print("%d-%d;", {row({1, 2, 3})}), "1-2;3-");
    EXPECT_EQ(print("%s=%d\n", {text("a"), number(1), text("b"), number(2)}), "a=1\nb=2\n");
    EXPECT_EQ(print("%s ", {cellRow({text("a"), text("b")})}), "a b ");
    EXPECT_EQ(print("a%db", {}), "ab");
    EXPECT_EQ(print("a%db", {empty()}), "ab");
    EXPECT_EQ(print("plain", {}), "plain");
}

TEST(FormatPrintf, Errors) {
    const auto error = [](std::string_view format, std::vector<Value> arguments) {
        return errorOf([&] { return print(format, arguments); });
    };
    EXPECT_EQ(error("%", {}), "varnix:badArgument: format \"%\": it ends within a conversion");
    EXPECT_EQ(error("%5.", {number(1)}),
              "varnix:badArgument: format \"%5.\": it ends within a conversion");
    EXPECT_EQ(error("%q", {number(1)}),
              "varnix:badArgument: format \"%q\": there is no conversion %q");
    EXPECT_EQ(error("%d %q", {number(1)}),
              "varnix:badArgument: format \"%d %q\": there is no conversion %q");
    EXPECT_EQ(error("%n", {number(1)}),
              "varnix:badArgument: format \"%n\": there is no conversion %n");
    EXPECT_EQ(error("%d", {text("a")}),
              "varnix:badArgument: format \"%d\": a number is needed, not a text");
    EXPECT_EQ(error("%x", {number(-1)}), "varnix:badArgument: format \"%x\": %x needs a whole "
                                         "number from 0 to 2^64 - 1, not -1");
    EXPECT_EQ(error("plain", {number(1)}),
              "varnix:badArgument: format \"plain\": it takes no arguments, but there are some");
    EXPECT_EQ(error("%99999999d", {number(1)}),
              "varnix:badArgument: format \"%99999999d\": a width or precision is too large");
    EXPECT_EQ(error("%s", {newStruct()}),
              "varnix:badArgument: struct cannot be printed by a format; use disp");
}

} // namespace
} // namespace varnix::testing
