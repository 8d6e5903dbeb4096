// The few operations of the emitter that are more than a node.
#include "codegen/emitter.hpp"

#include <bit>

namespace varnix::codegen {

Emitter::Ref Emitter::small(QN::ScalarKind kind, int value) {
    return constant(kind, kind == QN::ScalarKind::Double
                              ? std::bit_cast<std::uint64_t>(static_cast<double>(value))
                              : static_cast<std::uint64_t>(value));
}

void Emitter::require(Ref condition, std::int64_t code) {
    QN::Block* const fails = newBlock();
    QN::Block* const holds = newBlock();
    branch(condition, holds, fails);
    at(fails);
    trap(code);
    at(holds);
}

} // namespace varnix::codegen
