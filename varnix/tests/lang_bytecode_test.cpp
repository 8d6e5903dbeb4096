// The compiler's code: that the instructions which make loops fast are the ones it chooses.
#include "lang/compiler.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace varnix;
using testing::HasSubstr;
using testing::Not;

std::string codeOf(const std::string& text) {
    const auto unit = compile({.name = "<test>", .folder = {}, .text = text}, {});
    return disassemble(unit->body);
}

TEST(Bytecode, AnEmptyLoopIsOneInstructionATurn) {
    EXPECT_EQ(codeOf("for i = 1:10 end"), "   0 LoadConstant r1 1\n"
                                          "   1 LoadConstant r2 1\n"
                                          "   2 LoadConstant r3 10\n"
                                          "   3 ForRange r1 @4\n"
                                          "   4 ForRangeStep r1 i 0\n"
                                          "   5 Jump i @4\n"
                                          "   6 Clear r1 5\n"
                                          "   7 Return i 0\n");
}

TEST(Bytecode, PropertiesAndMethodsAreOneInstruction) {
    const std::string code = codeOf("h = 1; for i = 1:3\nx = h.Enabled;\nh.Enabled = x;\n"
                                    "h.void()\nend");
    EXPECT_THAT(code, HasSubstr("GetMember x h.Enabled\n"));
    EXPECT_THAT(code, HasSubstr("SetMember h.Enabled x\n"));
    EXPECT_THAT(code, HasSubstr("CallMember h.void (0 from r8) -> - x0\n"));
    EXPECT_THAT(code, Not(HasSubstr("Copy")));
    EXPECT_THAT(code, Not(HasSubstr("Move")));
}

TEST(Bytecode, ArithmeticGoesStraightIntoVariables) {
    EXPECT_THAT(codeOf("x = 1; y = 2; z = x + y * 3;"), HasSubstr("MultiplyConstant r3 y 3\n"
                                                                  "   3 Add z x 3\n"));
    EXPECT_THAT(codeOf("x = -5; x = x - 1;"), HasSubstr("LoadConstant x -5\n"
                                                        "   1 SubtractConstant x x 1\n"));
}

TEST(Bytecode, ComparisonsBranchDirectly) {
    const std::string code = codeOf("x = 1; y = 2; while x < y && y != 3 x = x + 1; end");
    EXPECT_THAT(code, HasSubstr("TestLess x y 0\n"));
    EXPECT_THAT(code, HasSubstr("TestNotEqualConstant y 3 0\n"));
    EXPECT_THAT(code, Not(HasSubstr("JumpIf")));
}

TEST(Bytecode, ConstantsAreMadeOnce) {
    EXPECT_THAT(codeOf("x = [1, 2; 3, -4];"), HasSubstr("LoadConstant x 2 by 2 double\n"));
    const auto unit = compile(
        {.name = "<test>", .folder = {}, .text = "x = 5; y = 5; z = \"a\"; w = \"a\";"}, {});
    EXPECT_EQ(unit->body.constants.size(), 2u);
}

TEST(Bytecode, ElementsAreOneInstruction) {
    EXPECT_THAT(codeOf("x = 1; i = 1; x[i] = 3; y = x[2];"), HasSubstr("StoreIndex x i"));
    EXPECT_THAT(codeOf("x = 1; y = x[2];"), HasSubstr("IndexConstant y x 2\n"));
}

TEST(Bytecode, EveryOperationHasItsName) {
    EXPECT_STREQ(nameOf(Op::LoadConstant), "LoadConstant");
    EXPECT_STREQ(nameOf(Op::CatchError), "CatchError");
}

} // namespace
