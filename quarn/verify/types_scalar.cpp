// Checks of the types of operations on scalars.
#include "verify/checks.hpp"

#include <algorithm>

namespace QN::verification::checks {

namespace {

bool isNumber(const Type* type) {
    return type->isDouble() || type->isInteger();
}

/// "f64, i32": the types of the operands.
std::string operandTypes(const NodeFacts& node) {
    std::string text;
    for (const OperandFacts& operand : node.operands) {
        text.append(text.empty() ? "" : ", ").append(nameOf(operand.type));
    }
    return text;
}

std::string signatureOf(const NodeFacts& node) {
    return nameOf(node.type) + " from " + operandTypes(node);
}

bool allOperandsAre(const NodeFacts& node, const Type* type) {
    return std::all_of(node.operands.begin(), node.operands.end(),
                       [type](const OperandFacts& operand) { return operand.type == type; });
}

} // namespace

void typeArithmetic(const Batch& batch, Sink& sink) {
    batch.forEach(
        {Op::Add, Op::Sub, Op::Mul, Op::Div, Op::Neg, Op::Abs, Op::Min, Op::Max, Op::Mod, Op::Rem},
        [&](const NodeFacts& node) {
            if (!isNumber(node.type) || !allOperandsAre(node, node.type)) {
                sink.fail(batch, node, signatureOf(node) + "; all must be one type of number");
            }
        });
}

void typeReal(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Pow, Op::Atan2, Op::Sqrt, Op::Exp, Op::Log, Op::Sin, Op::Cos, Op::Tan,
                   Op::Floor, Op::Ceil, Op::Round, Op::Trunc},
                  [&](const NodeFacts& node) {
                      if (!node.type->isDouble() || !allOperandsAre(node, node.type)) {
                          sink.fail(batch, node, signatureOf(node) + "; all must be f64");
                      }
                  });
}

void typeCompare(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Eq, Op::Ne, Op::Lt, Op::Le, Op::Gt, Op::Ge}, [&](const NodeFacts& node) {
        const Type* const type = node.operands[0].type;
        if (!type->isScalar() || node.operands[1].type != type || !node.type->isLogical()) {
            sink.fail(batch, node,
                      signatureOf(node) + "; must be logical from two scalars of one type");
        }
    });
}

void typeLogical(const Batch& batch, Sink& sink) {
    batch.forEach({Op::And, Op::Or, Op::Xor, Op::Not}, [&](const NodeFacts& node) {
        if (!node.type->isLogical() || !allOperandsAre(node, node.type)) {
            sink.fail(batch, node, signatureOf(node) + "; all must be logical");
        }
    });
}

void typeSelect(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Select}, [&](const NodeFacts& node) {
        if (!node.operands[0].type->isLogical() || node.operands[1].type != node.type ||
            node.operands[2].type != node.type) {
            sink.fail(batch, node,
                      signatureOf(node) + "; must be T from logical, T and T for some type T");
        }
    });
}

void typeConvert(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Convert}, [&](const NodeFacts& node) {
        if (!node.type->isScalar() || !node.operands[0].type->isScalar()) {
            sink.fail(batch, node, signatureOf(node) + "; both must be scalars");
        }
    });
}

void typeToIndex(const Batch& batch, Sink& sink) {
    batch.forEach({Op::ToIndex}, [&](const NodeFacts& node) {
        if (node.type != Type::i64() || !isNumber(node.operands[0].type)) {
            sink.fail(batch, node, signatureOf(node) + "; must be i64 from a number");
        }
    });
}

void typeCheck(const Batch& batch, Sink& sink) {
    batch.forEach({Op::ChkBounds}, [&](const NodeFacts& node) {
        if (!allOperandsAre(node, Type::i64())) {
            sink.fail(batch, node, "compares " + operandTypes(node) + "; both must be i64");
        }
    });
    batch.forEach({Op::ChkZero}, [&](const NodeFacts& node) {
        if (!isNumber(node.operands[0].type)) {
            sink.fail(batch, node, "looks at " + operandTypes(node) + ", which is no number");
        }
    });
    batch.forEach({Op::ChkLossy}, [&](const NodeFacts& node) {
        if (!node.operands[0].type->isDouble() || !node.operands[1].type->isInteger()) {
            sink.fail(batch, node,
                      "compares " + operandTypes(node) + "; must be a double and an integer");
        }
    });
}

} // namespace QN::verification::checks
