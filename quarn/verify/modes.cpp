// Checks of modes: rounding, overflow, and the mark of an index that is in bounds.
#include "verify/checks.hpp"

namespace QN::verification::checks {

namespace {

constexpr std::uint8_t boundsBit = Mode().withInBounds(true).bits();
constexpr std::uint8_t arithmeticBits = 0x0F;

bool hasOperationFlag(const NodeFacts& node, std::uint16_t flag) {
    return static_cast<std::size_t>(node.op) < opCount && hasFlag(node.op, flag);
}

} // namespace

void modeArithmetic(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::HasMode, [&](const NodeFacts& node) {
        if ((node.node->mode().bits() & arithmeticBits) != 0 &&
            !hasOperationFlag(node, OpFlag::Arithmetic)) {
            sink.fail(batch, node, "says how to round or to overflow, but is no arithmetic");
        }
    });
}

void modeBounds(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::HasMode, [&](const NodeFacts& node) {
        if (node.node->mode().inBounds() && !hasOperationFlag(node, OpFlag::Indexes)) {
            sink.fail(batch, node, "says that its index is in bounds, but is no element access");
        }
    });
}

void modeValue(const Batch& batch, Sink& sink) {
    batch.forEachFlagged(NodeFacts::HasMode, [&](const NodeFacts& node) {
        const Mode mode = node.node->mode();
        if (mode.rounding() > Rounding::Up ||
            (mode.bits() & ~(arithmeticBits | boundsBit) & 0xFF) != 0) {
            sink.fail(batch, node,
                      "there is no mode " + std::to_string(static_cast<unsigned>(mode.bits())));
        }
    });
}

} // namespace QN::verification::checks
