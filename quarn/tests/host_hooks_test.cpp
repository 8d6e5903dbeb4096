// What a host installs: the assertion handler and the console sink.
#include <qn/assertion.hpp>
#include <qn/console.hpp>

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

std::string reported;

void report(const char* file, int line, const char* message) {
    reported = std::string(file) + "|" + std::to_string(line) + "|" + message;
}

void throwing(const char*, int, const char* message) {
    throw std::runtime_error(message);
}

void append(void* context, std::string_view text) {
    static_cast<std::string*>(context)->append(text);
}

} // namespace

TEST(Assertion, GoesToTheInstalledHandlerAndReturns) {
    const auto old = QN::setAssertionHandler(report);
    client_assertion_failed("file", 47, "This code should be unreachable!");
    EXPECT_EQ(reported, "file|47|This code should be unreachable!");
    client_assertion_failed(nullptr, 1, nullptr);
    EXPECT_EQ(reported, "|1|");
    EXPECT_EQ(QN::setAssertionHandler(old), report);
}

TEST(Assertion, ByDefaultPrintsOneLineAndReturns) {
    const auto old = QN::setAssertionHandler(nullptr);
    ::testing::internal::CaptureStderr();
    client_assertion_failed("file", 3, "x != 0");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "file:3: assertion failed: x != 0\n");
    QN::setAssertionHandler(old);
}

TEST(Assertion, AHandlerMayThrow) {
    const auto old = QN::setAssertionHandler(throwing);
    EXPECT_THROW(client_assertion_failed("file", 3, "x != 0"), std::runtime_error);
    QN::setAssertionHandler(old);
}

TEST(Console, GoesToTheInstalledSinkElseToStandardOutput) {
    std::string text;
    QN::setConsoleSink(append, &text);
    QN::consoleWrite("a\n");
    QN::consoleWrite("b");
    QN::setConsoleSink(nullptr, nullptr);
    EXPECT_EQ(text, "a\nb");
    ::testing::internal::CaptureStdout();
    QN::consoleWrite("c\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "c\n");
}
