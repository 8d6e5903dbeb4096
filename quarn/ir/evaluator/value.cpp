// Values that go in and out of the evaluator, and the texts of traps.
#include <qn/arithmetic.hpp>
#include <qn/evaluator.hpp>

#include <utility>

namespace QN {

Value Value::ofDouble(double value) {
    return {Type::f64(), bitsOf(value), {}};
}
Value Value::ofLogical(bool value) {
    return {Type::logical(), value ? 1U : 0U, {}};
}
Value Value::ofInt(const Type* type, std::int64_t value) {
    return {type, static_cast<std::uint64_t>(value), {}};
}
Value Value::ofArray(ArrayValue array) {
    const Type* const type = Type::array(array.kind());
    return {type, 0, std::move(array)};
}
double Value::asDouble() const noexcept {
    return QN::asDouble(bits);
}

std::string_view toString(TrapCode code) noexcept {
    switch (code) {
    case TrapCode::IndexOutOfBounds:
        return "index out of bounds";
    case TrapCode::BadIndex:
        return "an index must be a whole number of at least 1";
    case TrapCode::DivisionByZero:
        return "division by zero";
    case TrapCode::LossyConversion:
        return "a conversion to an integer loses its value";
    case TrapCode::BadSize:
        return "an array of impossible size";
    case TrapCode::UnknownFunction:
        return "unknown function";
    case TrapCode::StackOverflow:
        return "too many calls inside calls";
    case TrapCode::StepLimit:
        return "too many steps";
    case TrapCode::InvalidIr:
        return "invalid IR";
    case TrapCode::Assertion:
        return "assertion failed";
    case TrapCode::Interrupted:
        return "interrupted";
    case TrapCode::FirstOfHost:
        break;
    }
    return "error";
}

EvaluationError::EvaluationError(TrapCode code, std::string function, std::uint32_t line,
                                 const std::string& detail)
    : std::runtime_error(std::string(toString(code)) + (detail.empty() ? "" : ": " + detail)),
      code_(code), function_(std::move(function)), line_(line) {}

} // namespace QN
