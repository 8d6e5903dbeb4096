// The one exception type that crosses the seam between the host and its modules.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace objsys {

/// One line of a script error's stack: where execution was.
struct StackFrame {
    std::string function; ///< name of the function, empty for the body of a script
    std::string file;     ///< path as given, or a name in angle brackets such as <prompt>
    int line = 0;         ///< counts from 1
    int column = 0;       ///< counts from 1
};

/// A host error: an identifier such as "varnix:wrongType", a message for a person, and, once it
/// has passed through script code, the places it passed, innermost first.
class COSError : public std::exception {
public:
    COSError(std::string identifier, std::string message)
        : identifier_(std::move(identifier)), message_(std::move(message)) {}
    ~COSError() override; // out of line: one type information for host and modules

    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }
    [[nodiscard]] const std::string& identifier() const { return identifier_; }
    [[nodiscard]] const std::string& message() const { return message_; }
    [[nodiscard]] const std::vector<StackFrame>& stack() const { return stack_; }
    void addFrame(StackFrame frame) { stack_.push_back(std::move(frame)); }

private:
    std::string identifier_;
    std::string message_;
    std::vector<StackFrame> stack_;
};

/// Throws a COSError.
[[noreturn]] void raise(std::string_view identifier, std::string message);

} // namespace objsys
