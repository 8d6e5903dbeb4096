// Values that go in and out of the evaluator, and the texts of traps.
#include <qn/arithmetic.hpp>
#include <qn/evaluator.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace QN {

std::size_t ArrayValue::elementBytes(ScalarKind kind) noexcept {
    constexpr std::size_t bytes[scalarKindCount] = {8, 1, 1, 2, 4, 8, 1, 2, 4, 8};
    return bytes[static_cast<std::size_t>(kind)];
}

ArrayValue::ArrayValue(ScalarKind kind, std::int64_t rows, std::int64_t cols)
    : kind_(kind), rows_(rows), cols_(cols) {
    if (numel() > 0) {
        elements_ = std::make_shared<std::vector<std::byte>>(static_cast<std::size_t>(numel()) *
                                                             elementBytes(kind));
    }
}

std::uint64_t ArrayValue::get(std::int64_t index) const noexcept {
    const std::size_t bytes = elementBytes(kind_);
    std::uint64_t bits = 0;
    std::memcpy(&bits, elements_->data() + static_cast<std::size_t>(index - 1) * bytes, bytes);
    return kind_ == ScalarKind::Logical ? bits : normalizeScalar(*Type::scalar(kind_), bits);
}

void ArrayValue::set(std::int64_t index, std::uint64_t bits) {
    const std::size_t bytes = elementBytes(kind_);
    auto* const data = static_cast<std::byte*>(writableData());
    std::memcpy(data + static_cast<std::size_t>(index - 1) * bytes, &bits, bytes);
}

void* ArrayValue::writableData() {
    if (elements_ == nullptr) {
        return nullptr;
    }
    if (elements_.use_count() > 1) {
        elements_ = std::make_shared<std::vector<std::byte>>(*elements_);
    }
    return elements_->data();
}

void ArrayValue::resize(std::int64_t rows, std::int64_t cols) {
    if (rows == rows_ && cols == cols_) {
        return;
    }
    ArrayValue resized(kind_, rows, cols);
    const std::size_t bytes = elementBytes(kind_);
    const auto kept = static_cast<std::size_t>(std::min(rows, rows_)) * bytes;
    if (kept > 0) {
        auto* to = static_cast<std::byte*>(resized.writableData());
        const auto* from = static_cast<const std::byte*>(data());
        for (std::int64_t col = 0; col < std::min(cols, cols_); ++col) {
            std::memcpy(to, from, kept);
            to += static_cast<std::size_t>(rows) * bytes;
            from += static_cast<std::size_t>(rows_) * bytes;
        }
    }
    *this = std::move(resized);
}

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
