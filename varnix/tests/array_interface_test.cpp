// The array interface that modules see: making, reading, sharing and releasing arrays, and
// printing.

#include "object/package_tree.hpp"
#include "shell/console.hpp"
#include "value/array.hpp"

#include <hv/array.hpp>
#include <objsys/error.hpp>
#include <ut/ut.hpp>

#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

using varnix::Value;

template <class Action>
std::string identifierOf(Action&& action) {
    try {
        action();
    } catch (const objsys::COSError& error) {
        return error.identifier();
    }
    return "no error";
}

constexpr hvClassID plainClasses[] = {hvDOUBLE_CLASS, hvLOGICAL_CLASS, hvCHAR_CLASS,  hvINT8_CLASS,
                                      hvINT16_CLASS,  hvINT32_CLASS,   hvINT64_CLASS, hvUINT8_CLASS,
                                      hvUINT16_CLASS, hvUINT32_CLASS,  hvUINT64_CLASS};

TEST(ArrayInterface, ClassIdentifiersAreFixed) {
    EXPECT_EQ(hvCELL_CLASS, 1);
    EXPECT_EQ(hvCHAR_CLASS, 4);
}

TEST(ArrayInterface, NewArraysAreZeroAndOwnedOnce) {
    for (const hvClassID id : plainClasses) {
        // Dirty memory of the same size first, so that zeros are made and not found.
        hvArray* const dirty = hvCreateArray(id, 2, 3);
        std::memset(hvGetData(dirty), 0xff, 6 * varnix::elementSize(id));
        hvDestroyArray(dirty);

        hvArray* const array = hvCreateArray(id, 2, 3);
        EXPECT_EQ(hvGetClassID(array), id);
        EXPECT_EQ(hvGetM(array), 2u);
        EXPECT_EQ(hvGetN(array), 3u);
        EXPECT_EQ(hvGetNumberOfElements(array), 6u);
        EXPECT_EQ(array->refs, 1u);
        const auto* const bytes = static_cast<const unsigned char*>(hvGetData(array));
        for (std::size_t i = 0; i < 6 * varnix::elementSize(id); ++i)
            EXPECT_EQ(bytes[i], 0) << varnix::className(id);
        hvDestroyArray(array);
    }
}

TEST(ArrayInterface, NullIsAnArrayOfNothing) {
    EXPECT_EQ(hvGetClassID(nullptr), hvUNKNOWN_CLASS);
    EXPECT_EQ(hvGetNumberOfElements(nullptr), 0u);
    EXPECT_EQ(hvGetM(nullptr), 0u);
    EXPECT_EQ(hvGetN(nullptr), 0u);
    EXPECT_EQ(hvGetData(static_cast<hvArray*>(nullptr)), nullptr);
    EXPECT_EQ(hvShareArray(nullptr), nullptr);
    EXPECT_EQ(hvGetCell(nullptr, 0), nullptr);
    hvDestroyArray(nullptr);
    hvFree(nullptr);
    hvFreeEx(nullptr);
    utFree(nullptr);
}

TEST(ArrayInterface, TooLargeIsAnError) {
    constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(identifierOf([] { (void)hvCreateArray(hvDOUBLE_CLASS, huge, huge); }),
              "varnix:tooLarge");
    EXPECT_EQ(identifierOf([] { (void)hvCreateArray(hvDOUBLE_CLASS, huge / 8 + 1, 8); }),
              "varnix:tooLarge");
    EXPECT_EQ(identifierOf([] { (void)hvCreateArray(hvCHAR_CLASS, varnix::maxArrayBytes, 2); }),
              "varnix:tooLarge");
    EXPECT_EQ(identifierOf([] { (void)hvCreateCellMatrix(std::size_t{1} << 62, 4); }),
              "varnix:tooLarge");
    hvArray* const none = hvCreateArray(hvDOUBLE_CLASS, 0, huge);
    EXPECT_EQ(hvGetNumberOfElements(none), 0u);
    hvDestroyArray(none);
}

TEST(ArrayInterface, ReferencesAreCounted) {
    hvArray* const array = hvCreateDoubleScalar(2.5);
    EXPECT_EQ(hvShareArray(array), array);
    EXPECT_EQ(array->refs, 2u);
    hvDestroyArray(array);
    EXPECT_EQ(*static_cast<const double*>(hvGetData(array)), 2.5);
    hvDestroyArray(array);
}

// Every length around the sizes at which copying and allocation change their ways.
TEST(ArrayInterface, TextsOfEveryLengthComeBack) {
    for (const std::size_t length :
         {0u,   1u,   2u,   7u,   8u,   9u,   15u,  16u,  17u,  31u,  32u,  100u,  191u,
          192u, 193u, 207u, 208u, 209u, 239u, 240u, 241u, 255u, 256u, 257u, 1000u, 100000u}) {
        std::string text(length, ' ');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<char>('!' + i % 90);
        hvArray* const array = hvCreateString(text.c_str());
        EXPECT_EQ(hvGetClassID(array), hvCHAR_CLASS);
        EXPECT_EQ(hvGetM(array), 1u);
        ASSERT_EQ(hvGetN(array), length);
        EXPECT_EQ(std::memcmp(hvGetData(array), text.data(), length), 0) << length;
        char* const back = hvArray2String(array);
        EXPECT_STREQ(back, text.c_str());
        hvFree(back);
        char* const element = hvArrayToString(array);
        EXPECT_STREQ(element, text.c_str());
        hvFreeEx(element);
        hvDestroyArray(array);
    }
}

TEST(ArrayInterface, TextsMayHoldNul) {
    hvArray* const array = hvCreateStringN("ab\0cd", 5);
    EXPECT_EQ(hvGetN(array), 5u);
    char* const text = hvArray2String(array);
    EXPECT_EQ(std::memcmp(text, "ab\0cd", 6), 0);
    hvFree(text);
    hvDestroyArray(array);
    hvArray* const up = hvCreateString("ab\0cd");
    EXPECT_EQ(hvGetN(up), 2u);
    hvDestroyArray(up);
}

TEST(ArrayInterface, ShortTextsHaveNulsBehindThem) {
    for (std::size_t length = 0; length < hvShortText; ++length) {
        // What was in the memory before must not show.
        hvDestroyArray(hvCreateStringN("xxxxxxxxxxxxxxxx", hvShortText - 1));
        hvArray* const array = hvCreateStringN("aaaaaaaaaaaaaaaa", length);
        EXPECT_EQ(hvIsShortText(array), length != 0) << length;
        char* const text = hvArray2String(array);
        EXPECT_EQ(std::string(text, hvShortText),
                  std::string(length, 'a') + std::string(hvShortText - length, '\0'));
        hvFree(text);
        hvDestroyArray(array);
    }
}

TEST(ArrayInterface, OnlyTextsOfAFewCharactersAreShort) {
    EXPECT_FALSE(hvIsShortText(nullptr));
    hvArray* const longer = hvCreateStringN("aaaaaaaaaaaaaaaa", hvShortText);
    EXPECT_FALSE(hvIsShortText(longer));
    hvArray* const numbers = hvCreateArray(hvUINT8_CLASS, 1, 3);
    EXPECT_FALSE(hvIsShortText(numbers));
    hvArray* const matrix = hvCreateArray(hvCHAR_CLASS, 5, 3);
    EXPECT_TRUE(hvIsShortText(matrix));
    for (hvArray* const array : {longer, numbers, matrix})
        hvDestroyArray(array);
}

// Texts in use at the same time, of all lengths and released in any order, do not share memory.
TEST(ArrayInterface, TextsHaveMemoryOfTheirOwn) {
    hvArray* const array = hvCreateStringN("aaaaaaaaaaaaaaaaaaaaaaaa", 24);
    std::vector<char*> texts;
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < 100; ++i) {
            array->columns = i % 25;
            texts.push_back(hvArray2String(array));
            texts.back()[0] = static_cast<char>('A' + i % 26);
        }
        for (std::size_t i = 0; i < texts.size(); ++i)
            EXPECT_EQ(texts[i][0], static_cast<char>('A' + i % 26)) << i;
        for (std::size_t i = 0; i < texts.size(); i += 2)
            hvFree(texts[i]);
        for (std::size_t i = texts.size() - 1; i < texts.size(); i -= 2)
            hvFree(texts[i]);
        texts.clear();
    }
    array->columns = 24;
    hvDestroyArray(array);
}

TEST(ArrayInterface, MemoryForTexts) {
    auto* const memory = static_cast<char*>(hvMalloc(0));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 16, 0u);
    std::memset(memory, 'x', hvShortText);
    hvFree(memory);
    EXPECT_EQ(identifierOf([] { (void)hvMalloc(std::numeric_limits<std::size_t>::max() / 2); }),
              "varnix:outOfMemory");
}

TEST(ArrayInterface, NoTextIsTheEmptyRow) {
    hvArray* const array = hvCreateString(nullptr);
    EXPECT_EQ(hvGetM(array), 1u);
    EXPECT_EQ(hvGetN(array), 0u);
    hvDestroyArray(array);
}

TEST(ArrayInterface, OnlyCharacterArraysAreTexts) {
    EXPECT_EQ(hvArray2String(nullptr), nullptr);
    for (const hvClassID id : plainClasses) {
        hvArray* const array = hvCreateArray(id, 1, 2);
        char* const text = hvArray2String(array);
        EXPECT_EQ(text != nullptr, id == hvCHAR_CLASS) << varnix::className(id);
        hvFree(text);
        hvDestroyArray(array);
    }
    // Any shape of character array is one, in linear order.
    hvArray* const matrix = hvCreateArray(hvCHAR_CLASS, 2, 2);
    std::memcpy(hvGetData(matrix), "abcd", 4);
    char* const text = hvArrayToString(matrix);
    EXPECT_STREQ(text, "abcd");
    hvFreeEx(text);
    hvDestroyArray(matrix);
}

TEST(ArrayInterface, DataIsThereForPlainClassesOnly) {
    hvArray* const cell = hvCreateCellMatrix(1, 1);
    EXPECT_EQ(hvGetData(cell), nullptr);
    hvDestroyArray(cell);
    const Value record = varnix::newStruct();
    EXPECT_EQ(hvGetData(record.array()), nullptr);
}

// ---- cells

TEST(ArrayCells, StartAbsent) {
    hvArray* const cell = hvCreateCellMatrix(2, 2);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(hvGetCell(cell, i), nullptr);
    EXPECT_EQ(hvGetCell(cell, 4), nullptr);
    hvDestroyArray(cell);
}

TEST(ArrayCells, TakeOverWhatTheyAreGiven) {
    hvArray* const first = hvCreateString("first");
    hvArray* const second = hvCreateString("second");
    hvArray* const cell = hvCreateCellMatrix(1, 1);
    hvSetCell(cell, 0, hvShareArray(first));
    EXPECT_EQ(hvGetCell(cell, 0), first);
    EXPECT_EQ(first->refs, 2u);
    hvSetCell(cell, 0, hvShareArray(second));
    EXPECT_EQ(first->refs, 1u);
    EXPECT_EQ(second->refs, 2u);
    hvSetCell(cell, 0, nullptr);
    EXPECT_EQ(second->refs, 1u);
    EXPECT_EQ(hvGetCell(cell, 0), nullptr);
    hvSetCell(cell, 0, hvShareArray(first));
    hvDestroyArray(cell);
    EXPECT_EQ(first->refs, 1u);
    hvDestroyArray(first);
    hvDestroyArray(second);
}

TEST(ArrayCells, OutsideAreErrorsThatReleaseTheValue) {
    hvArray* const value = hvCreateString("value");
    hvArray* const cell = hvCreateCellMatrix(1, 2);
    hvArray* const numbers = hvCreateArray(hvDOUBLE_CLASS, 1, 2);
    EXPECT_EQ(identifierOf([&] { hvSetCell(cell, 2, hvShareArray(value)); }), "varnix:badIndex");
    EXPECT_EQ(identifierOf([&] { hvSetCell(numbers, 0, hvShareArray(value)); }), "varnix:badIndex");
    EXPECT_EQ(identifierOf([&] { hvSetCell(nullptr, 0, hvShareArray(value)); }), "varnix:badIndex");
    EXPECT_EQ(value->refs, 1u);
    hvDestroyArray(numbers);
    hvDestroyArray(cell);
    hvDestroyArray(value);
}

// Freed in a loop: the machine's own stack would not hold a million nested calls.
TEST(ArrayCells, NestedAMillionDeepAreFreed) {
    hvArray* whole = hvCreateString("innermost");
    hvArray* const innermost = hvShareArray(whole);
    for (int depth = 0; depth < 1'000'000; ++depth) {
        hvArray* const around = hvCreateCellMatrix(1, 1);
        hvSetCell(around, 0, whole);
        whole = around;
    }
    hvDestroyArray(whole);
    EXPECT_EQ(innermost->refs, 1u);
    hvDestroyArray(innermost);
}

TEST(ArrayCells, NestedThroughStructsAreFreedToo) {
    Value whole = Value::text("innermost");
    const Value innermost = whole;
    const objsys::COSNameID field("inside");
    for (int depth = 0; depth < 300'000; ++depth) {
        Value record = varnix::newStruct();
        varnix::structOf(record.array()).place(field) = std::move(whole);
        hvArray* const cell = hvCreateCellMatrix(1, 1);
        varnix::setCell(cell, 0, record);
        whole = Value::fromArray(cell);
    }
    whole = {};
    EXPECT_EQ(innermost.array()->refs, 1u);
}

TEST(ArrayCells, SharedByManyAreFreedOnce) {
    hvArray* const shared = hvCreateString("shared");
    hvArray* const cell = hvCreateCellMatrix(1, 3);
    for (std::size_t i = 0; i < 3; ++i)
        hvSetCell(cell, i, hvShareArray(shared));
    hvArray* const outer = hvCreateCellMatrix(1, 2);
    hvSetCell(outer, 0, hvShareArray(cell));
    hvSetCell(outer, 1, cell);
    EXPECT_EQ(shared->refs, 4u);
    hvDestroyArray(outer);
    EXPECT_EQ(shared->refs, 1u);
    hvDestroyArray(shared);
}

// ---- copies

TEST(ArrayCopies, HaveTheirOwnElementsAndShareCells) {
    hvArray* const cell = hvCreateCellMatrix(1, 2);
    hvSetCell(cell, 0, hvCreateString("held"));
    hvArray* const copy = varnix::copyArray(cell);
    EXPECT_EQ(copy->refs, 1u);
    EXPECT_EQ(hvGetCell(copy, 0), hvGetCell(cell, 0));
    EXPECT_EQ(hvGetCell(copy, 0)->refs, 2u);
    EXPECT_EQ(hvGetCell(copy, 1), nullptr);
    hvSetCell(copy, 0, nullptr);
    EXPECT_NE(hvGetCell(cell, 0), nullptr);
    hvDestroyArray(copy);
    hvDestroyArray(cell);

    hvArray* const numbers = hvCreateDoubleScalar(1);
    hvArray* const other = varnix::copyArray(numbers);
    *varnix::elements<double>(other) = 2;
    EXPECT_EQ(*varnix::elements<double>(numbers), 1);
    hvDestroyArray(numbers);
    hvDestroyArray(other);
}

TEST(ArrayCopies, AreMadeOnlyWhereAnArrayIsShared) {
    Value value = Value::text("abc");
    hvArray* const alone = value.array();
    EXPECT_EQ(value.unshare(), alone);
    const Value other = value;
    hvArray* const own = value.unshare();
    EXPECT_NE(own, other.array());
    varnix::elements<char>(own)[0] = 'X';
    EXPECT_EQ(other.textView(), "abc");
    EXPECT_EQ(value.textView(), "Xbc");
    EXPECT_EQ(other.array()->refs, 1u);
}

// ---- printing

std::string printed(const std::function<void()>& print) {
    const varnix::console::Capture capture;
    print();
    return capture.text();
}

TEST(ArrayInterfacePrinting, FollowsPrintf) {
    EXPECT_EQ(printed([] { hvxPrintf("plain\n"); }), "plain\n");
    EXPECT_EQ(printed([] { hvxPrintf("%s %d %5.2f %c 100%%", "text", -3, 2.5, 'x'); }),
              "text -3  2.50 x 100%");
    EXPECT_EQ(printed([] { utPrintf("[%-8s|%8s]", "left", "right"); }), "[left    |   right]");
    EXPECT_EQ(printed([] { utPrintf("%*d %.*f", 5, 42, 1, 2.25); }), "   42 2.2");
    EXPECT_EQ(printed([] { hvxPrintf("%lu %lld %x", 18446744073709551615ul, -1ll, 255u); }),
              "18446744073709551615 -1 ff");
    EXPECT_EQ(printed([] { hvxPrintf("%s", ""); }), "");
}

TEST(ArrayInterfacePrinting, TakesUnsigned64BitDecimals) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    for (int (*print)(const char*, ...) : {&hvxPrintf, &utPrintf}) {
        EXPECT_EQ(printed([&] { print("%Iu", most); }), "18446744073709551615");
        EXPECT_EQ(printed([&] { print("%Iu bytes", std::uint64_t{0}); }), "0 bytes");
        EXPECT_EQ(printed([&] { print("[%12Iu]", std::uint64_t{7}); }), "[           7]");
        EXPECT_EQ(printed([&] { print("[%-12Iu]", std::uint64_t{7}); }), "[7           ]");
        EXPECT_EQ(printed([&] { print("[%05Iu]", std::uint64_t{42}); }), "[00042]");
        EXPECT_EQ(printed([&] { print("[%*Iu]", 4, std::uint64_t{9}); }), "[   9]");
        EXPECT_EQ(printed([&] { print("%Iu %s %Iu %d", most, "and", std::uint64_t{1}, 2); }),
                  "18446744073709551615 and 1 2");
        EXPECT_EQ(printed([&] { print("%%Iu %Iu%%", std::uint64_t{5}); }), "%Iu 5%");
    }
}

TEST(ArrayInterfacePrinting, GivesTheNumberOfCharacters) {
    int length = 0;
    (void)printed([&] { length = hvxPrintf("%Iu!", std::uint64_t{12345}); });
    EXPECT_EQ(length, 6);
    (void)printed([&] { length = utPrintf("%s", ""); });
    EXPECT_EQ(length, 0);
}

TEST(ArrayInterfacePrinting, TextsOfAnyLength) {
    for (const std::size_t length : {510u, 511u, 512u, 513u, 100000u}) {
        const std::string text(length, 'x');
        int reported = 0;
        EXPECT_EQ(printed([&] { reported = hvxPrintf("%s", text.c_str()); }), text);
        EXPECT_EQ(reported, static_cast<int>(length));
    }
}

} // namespace
