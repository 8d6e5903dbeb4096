// Operators: the entry points, which decide by operator and class which kernel does the work.
//
// To add an operator: a row in `spelling`, a case in `binary`. Kernels live in the files
// ops_arithmetic, ops_compare and ops_matrix; numeric.hpp holds the arithmetic of single elements.
#include "value/ops.hpp"

#include "value/errors.hpp"
#include "value/kernels.hpp"
#include "value/numeric.hpp"

#include <cmath>

namespace varnix {
namespace {

/// Two doubles or two logicals, the machine's most frequent operands.
[[nodiscard]] bool scalarDoubles(BinaryOp op, double a, double b, Value& result) {
    switch (op) {
    case BinaryOp::Add:
        result = Value::ofDouble(a + b);
        return true;
    case BinaryOp::Subtract:
        result = Value::ofDouble(a - b);
        return true;
    case BinaryOp::Multiply:
    case BinaryOp::TimesElement:
        result = Value::ofDouble(a * b);
        return true;
    case BinaryOp::Divide:
    case BinaryOp::DivideElement:
        result = Value::ofDouble(a / b);
        return true;
    case BinaryOp::Power:
    case BinaryOp::PowerElement:
        result = Value::ofDouble(numeric::power(a, b));
        return true;
    case BinaryOp::Equal:
        result = Value::ofLogical(a == b);
        return true;
    case BinaryOp::NotEqual:
        result = Value::ofLogical(a != b);
        return true;
    case BinaryOp::Less:
        result = Value::ofLogical(a < b);
        return true;
    case BinaryOp::LessEqual:
        result = Value::ofLogical(a <= b);
        return true;
    case BinaryOp::Greater:
        result = Value::ofLogical(a > b);
        return true;
    case BinaryOp::GreaterEqual:
        result = Value::ofLogical(a >= b);
        return true;
    case BinaryOp::And:
        result = Value::ofLogical(a != 0 && b != 0);
        return true;
    case BinaryOp::Or:
        result = Value::ofLogical(a != 0 || b != 0);
        return true;
    }
    return false;
}

/// Two integer scalars of one class under + - or *: no result for other operators.
[[nodiscard]] Value scalarIntegers(BinaryOp op, const Value& left, const Value& right) {
    return numeric::withIntegerType(left.classID(), [&]<class T>(T) {
        const auto of = [](const Value& v) {
            return std::is_signed_v<T> ? static_cast<T>(v.asSigned())
                                       : static_cast<T>(v.asUnsigned());
        };
        const T a = of(left);
        const T b = of(right);
        switch (op) {
        case BinaryOp::Add:
            return numeric::scalarOf<T>(numeric::arithmeticOf<numeric::Arithmetic::Add>(a, b));
        case BinaryOp::Subtract:
            return numeric::scalarOf<T>(numeric::arithmeticOf<numeric::Arithmetic::Subtract>(a, b));
        case BinaryOp::Multiply:
        case BinaryOp::TimesElement:
            return numeric::scalarOf<T>(numeric::arithmeticOf<numeric::Arithmetic::Multiply>(a, b));
        case BinaryOp::Equal:
            return Value::ofLogical(a == b);
        case BinaryOp::NotEqual:
            return Value::ofLogical(a != b);
        case BinaryOp::Less:
            return Value::ofLogical(a < b);
        case BinaryOp::LessEqual:
            return Value::ofLogical(a <= b);
        case BinaryOp::Greater:
            return Value::ofLogical(a > b);
        case BinaryOp::GreaterEqual:
            return Value::ofLogical(a >= b);
        default:
            return Value();
        }
    });
}

[[noreturn]] void failOperand(UnaryOp op, const Value& operand) {
    fail(id::wrongType, "unary {} needs numbers, logicals or characters, not {}", spelling(op),
         className(operand));
}

template <class F>
Value mapElements(hvClassID resultClass, const Value& operand, F&& fill) {
    const numeric::View view(operand);
    numeric::ArrayHolder result(newArray(resultClass, view.rows(), view.columns()));
    fill(view, result.get());
    return Value::fromArray(result.release());
}

Value negate(const Value& operand) {
    if (numeric::isIntegerClass(operand.classID()))
        return mapElements(operand.classID(), operand, [](const auto& view, hvArray* out) {
            numeric::withIntegerType(view.classID(), [&]<class T>(T) {
                const T* in = view.template as<T>();
                for (std::size_t i = 0; i < view.count(); ++i)
                    elements<T>(out)[i] = numeric::saturate<T>(-numeric::Int128{in[i]});
            });
        });
    return mapElements(hvDOUBLE_CLASS, operand, [](const auto& view, hvArray* out) {
        double* to = elements<double>(out);
        numeric::loadDoubles(view, 0, view.count(), to);
        for (std::size_t i = 0; i < view.count(); ++i)
            to[i] = -to[i];
    });
}

Value invert(const Value& operand) {
    return mapElements(hvLOGICAL_CLASS, operand, [](const auto& view, hvArray* out) {
        numeric::withElementType(view.classID(), [&]<class T>(T) {
            const T* in = view.template as<T>();
            for (std::size_t i = 0; i < view.count(); ++i)
                elements<bool>(out)[i] = in[i] == T{};
        });
    });
}

} // namespace

const char* spelling(BinaryOp op) {
    constexpr const char* texts[] = {"+",  "-",  "*", "/",  ".*", "./", "^", ".^",
                                     "==", "!=", "<", "<=", ">",  ">=", "&", "|"};
    return texts[static_cast<std::size_t>(op)];
}

const char* spelling(UnaryOp op) {
    constexpr const char* texts[] = {"+", "-", "!"};
    return texts[static_cast<std::size_t>(op)];
}

Value binary(BinaryOp op, const Value& left, const Value& right) {
    if (left.tag() == Tag::Double && right.tag() == Tag::Double) {
        Value result;
        if (scalarDoubles(op, left.asDouble(), right.asDouble(), result))
            return result;
    }
    if (left.isInteger() && left.tag() == right.tag())
        if (Value result = scalarIntegers(op, left, right); !result.isUnset())
            return result;
    switch (op) {
    case BinaryOp::Add:
        return kernels::arithmetic(numeric::Arithmetic::Add, "+", left, right);
    case BinaryOp::Subtract:
        return kernels::arithmetic(numeric::Arithmetic::Subtract, "-", left, right);
    case BinaryOp::Multiply:
        if (left.count() == 1 || right.count() == 1)
            return kernels::arithmetic(numeric::Arithmetic::Multiply, "*", left, right);
        return kernels::matrixProduct(left, right);
    case BinaryOp::TimesElement:
        return kernels::arithmetic(numeric::Arithmetic::Multiply, ".*", left, right);
    case BinaryOp::Divide:
        if (right.count() == 1)
            return kernels::arithmetic(numeric::Arithmetic::Divide, "/", left, right);
        return kernels::matrixRightDivide(left, right);
    case BinaryOp::DivideElement:
        return kernels::arithmetic(numeric::Arithmetic::Divide, "./", left, right);
    case BinaryOp::Power:
        if (left.count() == 1 && right.count() == 1)
            return kernels::arithmetic(numeric::Arithmetic::Power, "^", left, right);
        return kernels::matrixPower(left, right);
    case BinaryOp::PowerElement:
        return kernels::arithmetic(numeric::Arithmetic::Power, ".^", left, right);
    case BinaryOp::And:
    case BinaryOp::Or:
        return kernels::logic(op, left, right);
    default:
        return kernels::compare(op, left, right);
    }
}

Value unary(UnaryOp op, const Value& operand) {
    if (operand.tag() == Tag::Double) {
        const double v = operand.asDouble();
        return op == UnaryOp::Plus     ? operand
               : op == UnaryOp::Negate ? Value::ofDouble(-v)
                                       : Value::ofLogical(v == 0);
    }
    if (operand.tag() == Tag::Logical && op == UnaryOp::Not)
        return Value::ofLogical(!operand.asLogical());
    if (!numeric::isArithmeticClass(operand.classID()))
        failOperand(op, operand);
    switch (op) {
    case UnaryOp::Plus:
        return operand.isNumeric() ? operand : convertTo(hvDOUBLE_CLASS, operand);
    case UnaryOp::Negate:
        return negate(operand);
    case UnaryOp::Not:
        break;
    }
    return invert(operand);
}

bool isTrue(const Value& value) {
    if (value.tag() == Tag::Logical)
        return value.asLogical();
    if (value.tag() == Tag::Double)
        return value.asDouble() != 0;
    if (!numeric::isArithmeticClass(value.classID()))
        fail(id::wrongType, "a condition must be a number, a logical or a text, not {}",
             className(value));
    const numeric::View view(value);
    const std::size_t n = view.count();
    return n != 0 && numeric::withElementType(view.classID(), [&]<class T>(T) {
               const T* in = view.as<T>();
               for (std::size_t i = 0; i < n; ++i)
                   if (in[i] == T{})
                       return false;
               return true;
           });
}

double toDouble(const Value& value, const char* what) {
    if (value.tag() == Tag::Double)
        return value.asDouble();
    if (!value.isScalar())
        fail(id::wrongType, "{} must be a numeric scalar, not {}", what,
             value.isUnset()  ? "nothing"
             : value.isChar() ? "a text"
                              : numeric::sizeText(value) + " " + className(value));
    return numeric::View(value).at(0);
}

} // namespace varnix
