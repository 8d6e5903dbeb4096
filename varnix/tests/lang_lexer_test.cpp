// The lexer: what becomes a token, with which value, and where.
#include "lang/lexer.hpp"

#include <objsys/error.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace varnix;
using testing::ElementsAre;
using testing::HasSubstr;

struct Lexed {
    explicit Lexed(std::string text)
        : source{.name = "<test>", .folder = {}, .text = std::move(text)},
          list(tokenize(source, arena)) {}
    std::pmr::monotonic_buffer_resource arena;
    Source source;
    TokenList list;

    [[nodiscard]] std::vector<TokenKind> kinds() const {
        std::vector<TokenKind> result;
        for (const Token& token : list.tokens)
            result.push_back(token.kind);
        return result;
    }
};

std::string errorIn(const std::string& text) {
    try {
        const Lexed lexed(text);
    } catch (const objsys::COSError& error) {
        return error.identifier() + " " + std::to_string(error.stack().at(0).line) + ":" +
               std::to_string(error.stack().at(0).column) + " " + error.message();
    }
    return "";
}

TEST(Lexer, KnowsEveryOperator) {
    using enum TokenKind;
    EXPECT_THAT(Lexed("|| && | & == != < <= > >= + - * / .* ./ ^ .^ ! = : . , ;").kinds(),
                ElementsAre(OrElse, AndAlso, Or, And, Equal, NotEqual, Less, LessEqual, Greater,
                            GreaterEqual, Plus, Minus, Star, Slash, DotStar, DotSlash, Caret,
                            DotCaret, Not, Assign, Colon, Dot, Comma, Semicolon, EndOfInput));
}

TEST(Lexer, ReadsNumbers) {
    EXPECT_EQ(Lexed("1.5e3").list.tokens[0].number, 1500);
    EXPECT_EQ(Lexed(".5").list.tokens[0].number, 0.5);
    EXPECT_EQ(Lexed("0x1F").list.tokens[0].number, 31);
    EXPECT_EQ(Lexed("1e-400").list.tokens[0].number, 0);
    EXPECT_EQ(Lexed("18446744073709551615u64").list.tokens[0].magnitude, ~std::uint64_t{0});
    EXPECT_EQ(Lexed("0xFFu8").list.tokens[0].tag, Tag::UInt8);
    EXPECT_EQ(Lexed("5i16").list.tokens[0].tag, Tag::Int16);
}

TEST(Lexer, ElementwiseOperatorsAreNoFractions) {
    using enum TokenKind;
    EXPECT_THAT(Lexed("2.*3").kinds(), ElementsAre(Number, DotStar, Number, EndOfInput));
    EXPECT_THAT(Lexed("x.^2").kinds(), ElementsAre(Name, DotCaret, Number, EndOfInput));
}

TEST(Lexer, RefusesBadNumbers) {
    EXPECT_EQ(errorIn("5x"), "varnix:syntax 1:2 'x' cannot follow a number");
    EXPECT_EQ(errorIn("x = 1.5u8"),
              "varnix:syntax 1:5 an integer literal has no fraction and no exponent");
    EXPECT_THAT(errorIn("5u7"), HasSubstr("1:2 'u7' is no class suffix"));
    EXPECT_EQ(errorIn("0x"), "varnix:syntax 1:3 expected hexadecimal digits after '0x'");
    EXPECT_THAT(errorIn("99999999999999999999u64"), HasSubstr("too large for any integer class"));
}

TEST(Lexer, ReadsTexts) {
    EXPECT_EQ(Lexed(R"("a\tb\"\\\x41\n")").list.tokens[0].text, "a\tb\"\\A\n");
    EXPECT_EQ(Lexed("'it''s \\n'").list.tokens[0].text, "it's \\n");
    EXPECT_EQ(Lexed("\"\"").list.tokens[0].text, "");
}

TEST(Lexer, RefusesBadTexts) {
    EXPECT_EQ(errorIn("a = \"abc\nb"),
              "varnix:syntax 1:5 the text that starts here has no closing '\"' on its line");
    EXPECT_EQ(errorIn("'abc"), "varnix:syntax 1:1 the text that starts here has no closing ''' on "
                               "its line");
    EXPECT_THAT(errorIn(R"("ab\q")"), HasSubstr("1:4 unknown escape '\\q'"));
    EXPECT_THAT(errorIn(R"("\x4")"), HasSubstr("'\\x' takes two hexadecimal digits"));
}

TEST(Lexer, LineEndsInsideBracketsAreBlanks) {
    using enum TokenKind;
    EXPECT_THAT(
        Lexed("[1,\n2]\nx").kinds(),
        ElementsAre(LeftBracket, Number, Comma, Number, RightBracket, EndOfLine, Name, EndOfInput));
}

TEST(Lexer, JoinsLinesAndDropsComments) {
    using enum TokenKind;
    EXPECT_THAT(Lexed("a + ... # more\n b # done\n").kinds(),
                ElementsAre(Name, Plus, Name, EndOfLine, EndOfInput));
    EXPECT_THAT(errorIn("a ... b"), HasSubstr("1:7 expected end of line after '...'"));
    EXPECT_TRUE(Lexed("a + ...").list.endsInJoin);
    EXPECT_TRUE(Lexed("a + ...\n").list.endsInJoin);
    EXPECT_FALSE(Lexed("a + ...\n b").list.endsInJoin);
}

TEST(Lexer, KeepsCommentsThatStandAlone) {
    const Lexed lexed("# one\nx # two\n  #  three\n");
    ASSERT_EQ(lexed.list.comments.size(), 2u);
    EXPECT_EQ(lexed.list.comments[0].text, "one");
    EXPECT_EQ(lexed.list.comments[1].text, " three");
    EXPECT_EQ(lexed.list.comments[1].line, 3u);
}

TEST(Lexer, ColumnsCountCharacters) {
    const Lexed lexed("x = \"\xC3\xA4\xC3\xB6\" + y");
    EXPECT_EQ(lexed.list.tokens[4].place.column, 12u);
}

TEST(Lexer, NamesUnknownCharacters) {
    EXPECT_EQ(errorIn("x = 3 $ 4"), "varnix:syntax 1:7 unexpected character '$'");
    EXPECT_EQ(errorIn("\n  \xE2\x82\xAC"), "varnix:syntax 2:3 unexpected character '\xE2\x82\xAC'");
    EXPECT_THAT(errorIn("~x"), HasSubstr("'not' is written '!'"));
    EXPECT_THAT(errorIn("% x"), HasSubstr("a comment starts with '#'"));
    EXPECT_THAT(errorIn(std::string("a\0b", 3)), HasSubstr("1:2 unexpected character with code 0"));
}

TEST(Lexer, SkipsByteOrderMarkAndInterpreterLine) {
    using enum TokenKind;
    EXPECT_THAT(Lexed("\xEF\xBB\xBF#! /usr/bin/env varnix\nx").kinds(),
                ElementsAre(EndOfLine, Name, EndOfInput));
}

} // namespace
