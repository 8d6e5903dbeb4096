// Checks of the types of access to variables, directly and through pointers.
#include "verify/checks.hpp"

namespace QN::verification::checks {

namespace {

/// "TEXT f64, not i32"
std::string differs(std::string_view text, const Type* is, const Type* expected) {
    return std::string(text) + " " + nameOf(is) + ", not " + nameOf(expected);
}

} // namespace

void typeLoad(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Load}, [&](const NodeFacts& node) {
        if (node.type != node.operands[0].type) {
            sink.fail(batch, node, differs("gives", node.type, node.operands[0].type));
        }
    });
}

void typeStore(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Store}, [&](const NodeFacts& node) {
        if (node.operands[1].type != node.operands[0].type) {
            sink.fail(batch, node,
                      differs("the value is", node.operands[1].type, node.operands[0].type));
        }
    });
}

void typeAddress(const Batch& batch, Sink& sink) {
    batch.forEach({Op::AddrOf}, [&](const NodeFacts& node) {
        const Type* const of = node.operands[0].type;
        if (!node.type->isPointer() || node.type->element() != of) {
            sink.fail(batch, node,
                      "is of type " + nameOf(node.type) + " for a variable of type " + nameOf(of));
        }
    });
}

void typePointer(const Batch& batch, Sink& sink) {
    batch.forEach({Op::LoadP, Op::StoreP}, [&](const NodeFacts& node) {
        const Type* const pointer = node.operands[0].type;
        if (!pointer->isPointer()) {
            sink.fail(batch, node, "goes through " + nameOf(pointer) + ", which is no pointer");
            return;
        }
        const bool isLoad = node.op == Op::LoadP;
        const Type* const value = isLoad ? node.type : node.operands[1].type;
        if (value != pointer->element()) {
            sink.fail(batch, node,
                      differs(isLoad ? "gives" : "the value is", value, pointer->element()));
        }
    });
}

void typeEffect(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Store, Op::StoreP, Op::StElem, Op::StElem2, Op::Resize, Op::ChkBounds,
                   Op::ChkZero, Op::ChkLossy, Op::Count, Op::Jump, Op::Br, Op::Ret, Op::Trap},
                  [&](const NodeFacts& node) {
                      if (!node.type->isVoid()) {
                          sink.fail(batch, node,
                                    "gives no result, but is of type " + nameOf(node.type));
                      }
                  });
}

} // namespace QN::verification::checks
