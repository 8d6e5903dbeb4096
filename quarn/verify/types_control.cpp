// Checks of the types of calls and of what ends a block.
#include "verify/checks.hpp"

namespace QN::verification::checks {

void callSignature(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Call}, [&](const NodeFacts& node) {
        const Function* const target =
            batch.survey().target(static_cast<const Callee*>(node.operands[0].value));
        if (target == nullptr) {
            return; // known only when it is compiled or run
        }
        const auto arguments = node.operands.subspan(1);
        const std::vector<const Type*>& params = target->paramTypes();
        if (arguments.size() != params.size()) {
            sink.fail(batch, node,
                      std::string(target->name()) + " takes " + std::to_string(params.size()) +
                          " arguments, given are " + std::to_string(arguments.size()));
            return;
        }
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (arguments[i].type != params[i]) {
                sink.fail(batch, node,
                          "argument " + std::to_string(i + 1) + " of " +
                              std::string(target->name()) + " is of type " +
                              nameOf(arguments[i].type) + ", not of the type of the parameter");
                return;
            }
        }
        if (node.type != target->resultType()) {
            sink.fail(batch, node,
                      "is of type " + nameOf(node.type) + ", which is not the result type of " +
                          std::string(target->name()));
        }
    });
}

void typeCondition(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Br}, [&](const NodeFacts& node) {
        if (!node.operands[0].type->isLogical()) {
            sink.fail(batch, node,
                      "decides by a value of type " + nameOf(node.operands[0].type) +
                          ", not logical");
        }
    });
}

void typeReturn(const Batch& batch, Sink& sink) {
    const Type* const result = batch.survey().function().resultType();
    batch.forEach({Op::Ret}, [&](const NodeFacts& node) {
        const Type* const given = node.operands.empty() ? Type::voidType() : node.operands[0].type;
        if (given != result && isType(result)) {
            sink.fail(batch, node,
                      "returns " + nameOf(given) + " from a function with the result type " +
                          nameOf(result));
        }
    });
}

void typeCode(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Count, Op::Trap}, [&](const NodeFacts& node) {
        if (!node.operands[0].type->isInteger()) {
            sink.fail(batch, node,
                      "the number is of type " + nameOf(node.operands[0].type) +
                          ", which is no integer");
        }
    });
}

} // namespace QN::verification::checks
