// Checks of the types of operations on arrays.
#include "verify/checks.hpp"

namespace QN::verification::checks {

namespace {

/// The array that an operation acts on: the variable's type, or what the pointer points to; null if
/// that is no array.
const Type* arrayOf(const OperandFacts& aggregate) {
    const Type* const type = aggregate.kind == EntityKind::Var ? aggregate.type
                             : aggregate.type->isPointer()     ? aggregate.type->element()
                                                               : nullptr;
    return type != nullptr && type->isArray() ? type : nullptr;
}

/// The operands of a node that are sizes or indices, as the range from `first` up to `end`.
void requireIndices(const Batch& batch, std::initializer_list<Op> ops, std::size_t first,
                    std::size_t end, Sink& sink) {
    batch.forEach(ops, [&](const NodeFacts& node) {
        for (std::size_t i = first; i < end; ++i) {
            if (node.operands[i].type != Type::i64()) {
                sink.fail(batch, node,
                          "operand " + std::to_string(i + 1) + " is a size or index of type " +
                              nameOf(node.operands[i].type) + ", not i64");
                return;
            }
        }
    });
}

} // namespace

void typeAggregate(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Rows, Op::Cols, Op::Numel, Op::LdElem, Op::LdElem2, Op::StElem, Op::StElem2,
                   Op::Resize},
                  [&](const NodeFacts& node) {
                      if (arrayOf(node.operands[0]) == nullptr) {
                          sink.fail(batch, node,
                                    "acts on " + nameOf(node.operands[0].type) +
                                        ", which is no array variable or pointer to an array");
                      }
                  });
}

void typeIndex(const Batch& batch, Sink& sink) {
    requireIndices(batch, {Op::NewArray}, 0, 2, sink);
    requireIndices(batch, {Op::LdElem, Op::StElem}, 1, 2, sink);
    requireIndices(batch, {Op::LdElem2, Op::StElem2, Op::Resize}, 1, 3, sink);
}

void typeSize(const Batch& batch, Sink& sink) {
    batch.forEach({Op::Rows, Op::Cols, Op::Numel}, [&](const NodeFacts& node) {
        if (node.type != Type::i64()) {
            sink.fail(batch, node, "is of type " + nameOf(node.type) + ", not i64");
        }
    });
}

void typeNewArray(const Batch& batch, Sink& sink) {
    batch.forEach({Op::NewArray}, [&](const NodeFacts& node) {
        if (!node.type->isArray()) {
            sink.fail(batch, node, "is of type " + nameOf(node.type) + ", which is no array");
        }
    });
}

void typeElement(const Batch& batch, Sink& sink) {
    const auto compare = [&](const NodeFacts& node, const Type* element) {
        const Type* const array = arrayOf(node.operands[0]);
        if (array != nullptr && element != array->element()) {
            sink.fail(batch, node,
                      "the element is of type " + nameOf(element) + ", the array of type " +
                          nameOf(array));
        }
    };
    batch.forEach({Op::LdElem, Op::LdElem2},
                  [&](const NodeFacts& node) { compare(node, node.type); });
    batch.forEach({Op::StElem, Op::StElem2},
                  [&](const NodeFacts& node) { compare(node, node.operands.back().type); });
}

} // namespace QN::verification::checks
