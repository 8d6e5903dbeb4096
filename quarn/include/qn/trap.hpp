// Why an execution ended early. The numbers are part of the IR: trap nodes carry them, and every
// engine reports the same one for the same mistake.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace QN {

enum class TrapCode : std::int64_t {
    IndexOutOfBounds = 1, // an index is larger than the array
    BadIndex = 2,         // an index is not a whole number of at least 1
    DivisionByZero = 3,   // a check of a divisor
    LossyConversion = 4,  // a check of a conversion to an integer
    BadSize = 5,          // a negative or too large size of an array
    UnknownFunction = 6,  // a callee that nobody knows
    StackOverflow = 7,    // too many calls inside calls
    StepLimit = 8,        // the limit that the caller set
    InvalidIr = 9,        // the IR does not say what to do
    Assertion = 10,       // a failed assertion of the program
    Interrupted = 11,     // somebody asked the program to stop
    FirstOfHost = 1000    // from here on: codes that the host gives a meaning
};

/// "index out of bounds" and so on; "error" for a code without a text.
[[nodiscard]] std::string_view toString(TrapCode code) noexcept;

/// Why an execution ended early, and where.
class EvaluationError : public std::runtime_error {
public:
    EvaluationError(TrapCode code, std::string function, std::uint32_t line,
                    const std::string& detail = {});
    [[nodiscard]] TrapCode code() const noexcept { return code_; }
    [[nodiscard]] const std::string& function() const noexcept { return function_; }
    /// The line of the source, 0 if unknown.
    [[nodiscard]] std::uint32_t line() const noexcept { return line_; }

private:
    TrapCode code_;
    std::string function_;
    std::uint32_t line_;
};

} // namespace QN
